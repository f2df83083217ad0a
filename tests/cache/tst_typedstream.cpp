#include "cache/TypedStream.h"

#include <QByteArrayList>
#include <QTest>

#include <algorithm>
#include <cstdint>
#include <limits>

using namespace typedstream;

namespace {

// {"size": 123456789, "count": 42} as the original platform archives it.
const QByteArray kReference = QByteArray::fromHex("040b73747265616d7479706564 81e803"
                                                  "8401408484840c4e5344696374696f6e61727900"
                                                  "8484084e534f626a65637400 85"
                                                  "84016902"
                                                  "92848484084e53537472696e67 0194 84012b"
                                                  "0473697a65 86"
                                                  "92848484084e534e756d62657200"
                                                  "8484074e5356616c756500 94"
                                                  "84012a 84840171 9b 8215cd5b07 86"
                                                  "92849697 05636f756e74 86"
                                                  "9284989a9a9b2a86"
                                                  "86");

const Dictionary kReferenceDict{{"size", 123456789}, {"count", 42}};

QByteArray hexOf(const std::string &bytes)
{
    return QByteArray::fromStdString(bytes).toHex(' ');
}

QString render(const std::optional<Dictionary> &dict)
{
    if (!dict) return QStringLiteral("nullopt");
    QStringList parts;
    for (const Entry &entry : *dict) {
        const QString value = std::holds_alternative<std::int64_t>(entry.value)
                                  ? QString::number(std::get<std::int64_t>(entry.value))
                                  : QStringLiteral("\"%1\"").arg(
                                        QString::fromStdString(std::get<std::string>(entry.value)));
        parts << QString::fromStdString(entry.key) + '=' + value;
    }
    return parts.join(' ');
}

} // namespace

class TstTypedStream : public QObject
{
    Q_OBJECT

private slots:
    void referenceVectors()
    {
        QCOMPARE(hexOf(encodeDictionary(kReferenceDict)), kReference.toHex(' '));
        const auto read = decodeDictionary(kReference.toStdString());
        QVERIFY(read == kReferenceDict);
        QVERIFY(integerFor(*read, "size") == 123456789);
        QVERIFY(integerFor(*read, "count") == 42);
        QVERIFY(!integerFor(*read, "missing"));
        // Big-endian: another signature, and the multi-byte numbers reversed.
        QByteArray big = kReference;
        big.replace("streamtyped", "typedstream");
        big.replace(QByteArray::fromHex("81e803"), QByteArray::fromHex("8103e8"));
        big.replace(QByteArray::fromHex("8215cd5b07"), QByteArray::fromHex("82075bcd15"));
        QCOMPARE(hexOf(encodeDictionary(kReferenceDict, ByteOrder::Big)), big.toHex(' '));
        QVERIFY(decodeDictionary(big.toStdString()) == kReferenceDict);
    }

    void integerWidths_data()
    {
        QTest::addColumn<qint64>("value");
        QTest::addColumn<QByteArray>("little"); // the value as written, tag first
        const auto row = [](qint64 v, const char *little) {
            QTest::addRow("%lld", v) << v << QByteArray(little);
        };
        const qint64 int32Min = std::numeric_limits<std::int32_t>::min();
        row(-110, "92"); // the smallest single byte
        row(-111, "81 91 ff");
        row(0, "00");
        row(127, "7f");
        row(128, "81 80 00");
        row(32767, "81 ff 7f");
        row(32768, "82 00 80 00 00");
        row(-32767, "81 01 80");
        row(-32768, "82 00 80 ff ff"); // takes int32
        row(2147483647, "82 ff ff ff 7f");
        row(2147483648, "87 00 00 00 80 00 00 00 00");
        row(int32Min, "82 00 00 00 80");
        row(int32Min - 1, "87 ff ff ff 7f ff ff ff ff");
        row(5000000000, "87 00 f2 05 2a 01 00 00 00");
        row(std::numeric_limits<qint64>::max(), "87 ff ff ff ff ff ff ff 7f");
        row(std::numeric_limits<qint64>::min(), "87 00 00 00 00 00 00 00 80");
    }

    void integerWidths()
    {
        QFETCH(qint64, value);
        QFETCH(QByteArray, little);
        const Dictionary dict{{"v", std::int64_t{value}}};
        for (const ByteOrder order : {ByteOrder::Little, ByteOrder::Big}) {
            QByteArray wanted = QByteArray::fromHex(little);
            if (order == ByteOrder::Big) std::reverse(wanted.begin() + 1, wanted.end());
            const std::string bytes = encodeDictionary(dict, order);
            QCOMPARE(hexOf(bytes).right(wanted.size() * 3 + 5), (wanted + "\x86\x86").toHex(' '));
            QVERIFY(decodeDictionary(bytes) == dict);
        }
    }

    void keyOrderAndStrings()
    {
        const Dictionary reversed{{"count", 42}, {"size", 123456789}};
        const std::string bytes = encodeDictionary(reversed);
        QCOMPARE(bytes.size(), std::size_t(kReference.size()));
        QVERIFY(decodeDictionary(bytes) == reversed);

        // Contents that equal type encodings and class names must stay apart from them.
        const Dictionary strings{{"name", "r\xc3\xa9sum\xc3\xa9"},
                                 {"empty", ""},
                                 {"bytes", std::string("\xff\0z", 3)},
                                 {"long", std::string(300, 'a')},
                                 {"q", "q"},
                                 {"class", "NSString"},
                                 {"n", -5},
                                 {"big", std::int64_t{1} << 40}};
        for (const ByteOrder order : {ByteOrder::Little, ByteOrder::Big}) {
            const auto read = decodeDictionary(encodeDictionary(strings, order));
            QVERIFY(read == strings);
            QVERIFY(!integerFor(*read, "name"));
            QVERIFY(integerFor(*read, "n") == -5);
        }
        QVERIFY(decodeDictionary(encodeDictionary({})) == Dictionary{});
    }

    void editedReference_data()
    {
        // Each row replaces byte sequences ("|" between them) that occur once in the reference.
        QTest::addColumn<QByteArrayList>("from");
        QTest::addColumn<QByteArrayList>("to");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, QByteArray from, QByteArray to,
                            const char *expected = "size=123456789 count=42") {
            QTest::newRow(name) << from.split('|') << to.split('|') << QString(expected);
        };
        const auto rejected = [&](const char *name, QByteArray from, QByteArray to) {
            row(name, from, to, "nullopt");
        };
        const QByteArray second = "92 84 98 9a 9a 9b 2a 86"; // the second number
        row("mutable dictionary", "0c 4e5344696374696f6e617279",
            "13 4e534d757461626c6544696374696f6e617279");
        row("mutable string", "08 4e53537472696e67", "0f 4e534d757461626c65537472696e67");
        row("count as int64", "9b2a8686", "9b 872a00000000000000 8686");
        row("entry count as int32", "84016902", "840169 8202000000");
        row("type l", "84840171", "8484016c");
        row("type I", "84840171", "84840149");
        row("type Q", "84840171", "84840151");
        row("type S, upper half", "84840171|9b2a86", "84840153|9bff86",
            "size=123456789 count=65535");
        row("type c is a raw byte", "84840171 9b 8215cd5b07", "84840163 9b 81",
            "size=-127 count=42");
        row("type C is a raw byte", "84840171 9b 8215cd5b07", "84840143 9b ff",
            "size=255 count=42");
        row("one group for type and value", "84012a 84840171 9b|9a9a9b2a",
            "84022a71 84840171|9a9a2a");
        row("value refers to an earlier number", second, "9297", "size=123456789 count=123456789");
        row("value refers to a key", second, "9295", "size=123456789 count=\"size\"");
        rejected("streamer version", "040b", "030b");
        rejected("signature", "7374726561 6d7479706564", "7374726561 6d7479706565");
        rejected("trailing byte", "9b2a8686", "9b2a868600");
        rejected("unknown tag", "9b2a86", "9b8886");
        rejected("class reference past the table", "0194", "0199");
        rejected("shared string past the table", "9284969705", "928496a005");
        rejected("class where an object belongs", second, "9296");
        rejected("object where a class belongs", "92849697", "92849597");
        rejected("class where a C string belongs", "9a9a9b2a", "9a999b2a");
        rejected("value refers to the dictionary", second, "9292");
        rejected("nil value", second, "9285");
        rejected("count larger than the bytes", "84016902", "840169 8200000100");
        rejected("negative count", "84016902", "840169ff");
        rejected("count one too many", "84016902", "84016903");
        rejected("count one too few", "84016902", "84016901");
        rejected("nested dictionary", second, "92 84 93 95 00 86");
        rejected("floating point number", "84840171", "84840164");
        rejected("type Q above int64", "84840171|8215cd5b07", "84840151|ff");
        rejected("type S below its range", "84840171|9b2a86", "84840153|9b 82c063ffff 86");
        rejected("value type differs from its C string", "9a9a9b2a", "9a9a952a");
        rejected("number as key", "92849697 05636f756e74 86", "9297");
        rejected("duplicate key", "05636f756e74", "0473697a65");
        rejected("string length past the end", "0473697a65", "7f73697a65");
    }

    void editedReference()
    {
        QFETCH(QByteArrayList, from);
        QFETCH(QByteArrayList, to);
        QFETCH(QString, expected);
        QByteArray bytes = kReference;
        for (qsizetype i = 0; i < from.size(); ++i) {
            const QByteArray pattern = QByteArray::fromHex(from[i]);
            QCOMPARE(bytes.count(pattern), qsizetype(1));
            bytes.replace(pattern, QByteArray::fromHex(to[i]));
        }
        QCOMPARE(render(decodeDictionary(bytes.toStdString())), expected);
    }

    void truncationsAndSize()
    {
        for (qsizetype length = 0; length < kReference.size(); ++length)
            QVERIFY2(!decodeDictionary(kReference.left(length).toStdString()),
                     qPrintable(QString::number(length)));

        // Grow one string until the archive is exactly at the limit, then one byte past it.
        const auto archiveWith = [](std::size_t length) {
            return encodeDictionary({{"s", std::string(length, 'x')}, {"size", 1}});
        };
        const std::size_t length = kMaxArchiveSize - archiveWith(1000).size() + 1000;
        QCOMPARE(archiveWith(length).size(), kMaxArchiveSize);
        QVERIFY(decodeDictionary(archiveWith(length)).has_value());
        QVERIFY(!decodeDictionary(archiveWith(length + 1)));
    }

    void flippedBytes()
    {
        // Whatever a damaged file decodes to must be something the writer reproduces.
        for (qsizetype i = 0; i < kReference.size(); ++i) {
            for (const char mask : {'\x01', '\x10', '\x7f', '\x80', '\xff'}) {
                QByteArray bytes = kReference;
                bytes[i] = char(bytes[i] ^ mask);
                const auto read = decodeDictionary(bytes.toStdString());
                if (read) QVERIFY(decodeDictionary(encodeDictionary(*read)) == read);
            }
        }
    }
};

QTEST_GUILESS_MAIN(TstTypedStream)
#include "tst_typedstream.moc"
