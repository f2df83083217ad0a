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
    void referenceVector()
    {
        QCOMPARE(hexOf(encodeDictionary(kReferenceDict)), kReference.toHex(' '));
        const auto read = decodeDictionary(kReference.toStdString());
        QVERIFY(read == kReferenceDict);
        QVERIFY(integerFor(*read, "size") == 123456789);
        QVERIFY(integerFor(*read, "count") == 42);
        QVERIFY(!integerFor(*read, "missing"));
    }

    void bigEndian()
    {
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

        const qint64 int32Min = std::numeric_limits<std::int32_t>::min();
        const qint64 int64Min = std::numeric_limits<std::int64_t>::min();
        QTest::newRow("-110, smallest single byte") << qint64(-110) << QByteArray("92");
        QTest::newRow("-111") << qint64(-111) << QByteArray("81 91 ff");
        QTest::newRow("0") << qint64(0) << QByteArray("00");
        QTest::newRow("127") << qint64(127) << QByteArray("7f");
        QTest::newRow("128") << qint64(128) << QByteArray("81 80 00");
        QTest::newRow("32767") << qint64(32767) << QByteArray("81 ff 7f");
        QTest::newRow("32768") << qint64(32768) << QByteArray("82 00 80 00 00");
        QTest::newRow("-32767") << qint64(-32767) << QByteArray("81 01 80");
        QTest::newRow("-32768 takes int32") << qint64(-32768) << QByteArray("82 00 80 ff ff");
        QTest::newRow("2^31-1") << qint64(2147483647) << QByteArray("82 ff ff ff 7f");
        QTest::newRow("2^31") << qint64(2147483648) << QByteArray("87 00 00 00 80 00 00 00 00");
        QTest::newRow("int32 min") << int32Min << QByteArray("82 00 00 00 80");
        QTest::newRow("int32 min - 1") << int32Min - 1 << QByteArray("87 ff ff ff 7f ff ff ff ff");
        QTest::newRow("5e9") << qint64(5000000000) << QByteArray("87 00 f2 05 2a 01 00 00 00");
        QTest::newRow("int64 max") << std::numeric_limits<qint64>::max()
                                   << QByteArray("87 ff ff ff ff ff ff ff 7f");
        QTest::newRow("int64 min") << int64Min << QByteArray("87 00 00 00 00 00 00 00 80");
    }

    void integerWidths()
    {
        QFETCH(qint64, value);
        QFETCH(QByteArray, little);
        QByteArray big = QByteArray::fromHex(little);
        std::reverse(big.begin() + 1, big.end());
        const Dictionary dict{{"v", std::int64_t{value}}};
        const QByteArray ends = QByteArray::fromHex("8686");

        const std::string le = encodeDictionary(dict, ByteOrder::Little);
        QVERIFY2(QByteArray::fromStdString(le).endsWith(QByteArray::fromHex(little) + ends),
                 hexOf(le).constData());
        QVERIFY(decodeDictionary(le) == dict);

        const std::string be = encodeDictionary(dict, ByteOrder::Big);
        QVERIFY2(QByteArray::fromStdString(be).endsWith(big + ends), hexOf(be).constData());
        QVERIFY(decodeDictionary(be) == dict);
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
        // Each row replaces byte sequences that occur once in the reference vector.
        QTest::addColumn<QByteArrayList>("from");
        QTest::addColumn<QByteArrayList>("to");
        QTest::addColumn<QString>("expected");
        const QString reference = QStringLiteral("size=123456789 count=42");
        const QString rejected = QStringLiteral("nullopt");
        const QByteArray secondNumber = "92 84 98 9a 9a 9b 2a 86";

        QTest::newRow("mutable dictionary")
            << QByteArrayList{"0c 4e5344696374696f6e617279"}
            << QByteArrayList{"13 4e534d757461626c6544696374696f6e617279"} << reference;
        QTest::newRow("mutable string")
            << QByteArrayList{"08 4e53537472696e67"}
            << QByteArrayList{"0f 4e534d757461626c65537472696e67"} << reference;
        QTest::newRow("count as int64")
            << QByteArrayList{"9b2a8686"} << QByteArrayList{"9b 872a00000000000000 8686"} << reference;
        QTest::newRow("entry count as int32")
            << QByteArrayList{"84016902"} << QByteArrayList{"840169 8202000000"} << reference;
        QTest::newRow("type l") << QByteArrayList{"84840171"} << QByteArrayList{"8484016c"}
                                << reference;
        QTest::newRow("type I") << QByteArrayList{"84840171"} << QByteArrayList{"84840149"}
                                << reference;
        QTest::newRow("type Q") << QByteArrayList{"84840171"} << QByteArrayList{"84840151"}
                                << reference;
        QTest::newRow("type S, upper half")
            << QByteArrayList{"84840171", "9b2a86"} << QByteArrayList{"84840153", "9bff86"}
            << "size=123456789 count=65535";
        QTest::newRow("type c is a raw byte")
            << QByteArrayList{"84840171 9b 8215cd5b07"} << QByteArrayList{"84840163 9b 81"}
            << "size=-127 count=42";
        QTest::newRow("type C is a raw byte")
            << QByteArrayList{"84840171 9b 8215cd5b07"} << QByteArrayList{"84840143 9b ff"}
            << "size=255 count=42";
        QTest::newRow("one group for type and value")
            << QByteArrayList{"84012a 84840171 9b", "9a9a9b2a"}
            << QByteArrayList{"84022a71 84840171", "9a9a2a"} << reference;
        QTest::newRow("value refers to an earlier number")
            << QByteArrayList{secondNumber} << QByteArrayList{"9297"}
            << "size=123456789 count=123456789";
        QTest::newRow("value refers to a key") << QByteArrayList{secondNumber} << QByteArrayList{"9295"}
                                               << "size=123456789 count=\"size\"";

        QTest::newRow("streamer version")
            << QByteArrayList{"040b"} << QByteArrayList{"030b"} << rejected;
        QTest::newRow("signature") << QByteArrayList{"7374726561 6d7479706564"}
                                   << QByteArrayList{"7374726561 6d7479706565"} << rejected;
        QTest::newRow("trailing byte")
            << QByteArrayList{"9b2a8686"} << QByteArrayList{"9b2a868600"} << rejected;
        QTest::newRow("unknown tag") << QByteArrayList{"9b2a86"} << QByteArrayList{"9b8886"}
                                     << rejected;
        QTest::newRow("class reference past the table")
            << QByteArrayList{"0194"} << QByteArrayList{"0199"} << rejected;
        QTest::newRow("shared string past the table")
            << QByteArrayList{"9284969705"} << QByteArrayList{"928496a005"} << rejected;
        QTest::newRow("class where an object belongs")
            << QByteArrayList{secondNumber} << QByteArrayList{"9296"} << rejected;
        QTest::newRow("object where a class belongs")
            << QByteArrayList{"92849697"} << QByteArrayList{"92849597"} << rejected;
        QTest::newRow("class where a C string belongs")
            << QByteArrayList{"9a9a9b2a"} << QByteArrayList{"9a999b2a"} << rejected;
        QTest::newRow("value refers to the dictionary")
            << QByteArrayList{secondNumber} << QByteArrayList{"9292"} << rejected;
        QTest::newRow("nil value") << QByteArrayList{secondNumber} << QByteArrayList{"9285"}
                                   << rejected;
        QTest::newRow("count larger than the bytes")
            << QByteArrayList{"84016902"} << QByteArrayList{"840169 8200000100"} << rejected;
        QTest::newRow("negative count")
            << QByteArrayList{"84016902"} << QByteArrayList{"840169ff"} << rejected;
        QTest::newRow("count one too many")
            << QByteArrayList{"84016902"} << QByteArrayList{"84016903"} << rejected;
        QTest::newRow("count one too few")
            << QByteArrayList{"84016902"} << QByteArrayList{"84016901"} << rejected;
        QTest::newRow("nested dictionary")
            << QByteArrayList{secondNumber} << QByteArrayList{"92 84 93 95 00 86"} << rejected;
        QTest::newRow("floating point number")
            << QByteArrayList{"84840171"} << QByteArrayList{"84840164"} << rejected;
        QTest::newRow("type Q above int64")
            << QByteArrayList{"84840171", "8215cd5b07"} << QByteArrayList{"84840151", "ff"} << rejected;
        QTest::newRow("type S below its range")
            << QByteArrayList{"84840171", "9b2a86"} << QByteArrayList{"84840153", "9b 82c063ffff 86"}
            << rejected;
        QTest::newRow("value type differs from its C string")
            << QByteArrayList{"9a9a9b2a"} << QByteArrayList{"9a9a952a"} << rejected;
        QTest::newRow("number as key")
            << QByteArrayList{"92849697 05636f756e74 86"} << QByteArrayList{"9297"} << rejected;
        QTest::newRow("duplicate key")
            << QByteArrayList{"05636f756e74"} << QByteArrayList{"0473697a65"} << rejected;
        QTest::newRow("string length past the end")
            << QByteArrayList{"0473697a65"} << QByteArrayList{"7f73697a65"} << rejected;
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
