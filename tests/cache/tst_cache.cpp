#include "TestEnv.h"

#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/SizeRecords.h"
#include "cache/SpaceGuard.h"
#include "cache/TypedStream.h"
#include "common/Texts.h"

#include "PathJoin.h"
#include <QByteArrayList>

#include <QCoreApplication>
#include <QTest>

#include <algorithm>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace typedstream;

namespace {

void makeFile(const QByteArray &path, qint64 size)
{
    QVERIFY(TestEnv::writeFile(path, QByteArray(size, 'x')));
}

const QDate kToday(2026, 3, 10);
QByteArray dayName(int offset)
{
    return kToday.addDays(offset).toString(Qt::ISODate).toLatin1();
}

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

// The cache's layout, its day list and size records with their archive codec, and the guard
// that frees space.
class TstCache : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray cache;

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }
    void init()
    {
        env = new TestEnv;
        cache = env->homeBytes() + "/.Salvora3Cache";
    }
    void cleanup() { delete env; }

    void layout()
    {
        // Private whatever the umask.
        const mode_t old = umask(0);
        QCOMPARE(CommonUtils::pathForCacheFolderInVolume(0), cache);
        umask(old);
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0700));
        QVERIFY(CommonUtils::pathForCacheFolderInVolume(99).isEmpty());
        // Another account's cache is never named (only root can plant one here).
        if (geteuid() == 0) {
            QVERIFY(chown(cache.constData(), 65534, 65534) == 0);
            QVERIFY(CommonUtils::pathForCacheFolderInVolume(0).isEmpty());
            QVERIFY(chown(cache.constData(), 0, 0) == 0);
        }
        // A home that has vanished yields no cache and creates nothing.
        qputenv("HOME", env->homeBytes() + "/gone");
        QVERIFY(CommonUtils::pathForCacheFolderInVolume(0).isEmpty());
        QVERIFY(!TestEnv::exists(env->homeBytes() + "/gone"));
    }

    void pathJoin_data()
    {
        QTest::addColumn<QByteArray>("folder");
        QTest::addColumn<QByteArray>("joined");
        QTest::newRow("root") << QByteArray("/") << QByteArray("/a");
        QTest::newRow("trailing slash") << QByteArray("/f/") << QByteArray("/f/a");
        QTest::newRow("empty") << QByteArray() << QByteArray("/a");
    }
    void pathJoin()
    {
        QFETCH(QByteArray, folder);
        QFETCH(QByteArray, joined);
        QCOMPARE(joinPath(folder, "a"), joined);
        QCOMPARE(folderPrefix(folder) + "a", joined);
    }

    void namesAndLabels()
    {
        using namespace CommonUtils;
        const QDateTime t(QDate(2024, 5, 3), QTime(14, 7, 55));
        QCOMPARE(nameForCacheFolder(t), QStringLiteral("2024-05-03"));
        QCOMPARE(nameForTimeFolder(t), QStringLiteral("2024-05-03 14_07_55"));
        QCOMPARE(dateForCacheFolder("2024-05-03 14_07_55"), dateForCacheFolder("2024-05-03"));
        QCOMPARE(dateForCacheFolder("2024-05-03"), std::optional(t.date().startOfDay()));
        for (const char *bad : {"notadate!!", "2024-05", "2024-13-03"})
            QVERIFY(!dateForCacheFolder(bad));
        const QDateTime now(QDate(2024, 5, 3), QTime(23, 59, 0));
        QCOMPARE(dateStringForCacheFolder("2024-05-03", now), QStringLiteral("Today"));
        QCOMPARE(dateStringForCacheFolder("2024-05-02", now), QStringLiteral("Yesterday"));
    }

    void listingKeepsDaysAndDeletesStrays()
    {
        for (const char *day : {"2024-05-03", "2024-05-01", "notes"})
            QVERIFY(TestEnv::makeFolders(cache + '/' + day));
        makeFile(cache + "/.DS_Store", 3);
        makeFile(cache + "/junk.txt", 3);
        QVERIFY(symlink("/etc", cache + "/2099-link") == 0);
        makeFile(cache + "/2024-05-01/2024-05-01 10_00_00/a.txt", 10);

        const QList<DayEntry> days = CommonUtils::getListOfDaysInCache(cache);
        QCOMPARE(days.size(), 2);
        QCOMPARE(days[0], (DayEntry{"2024-05-01", cache + "/2024-05-01", 10, 1}));
        QCOMPARE(days[1].name, QByteArray("2024-05-03"));
        QVERIFY(!TestEnv::exists(cache + "/junk.txt"));
        QVERIFY(!TestEnv::exists(cache + "/2099-link")); // a link is stray too, its target kept
        QVERIFY(TestEnv::exists("/etc/passwd"));
        QVERIFY(TestEnv::exists(cache + "/notes"));
        QVERIFY(TestEnv::exists(cache + "/.DS_Store"));

        QVERIFY(CommonUtils::getListOfDaysInCache(cache + "/missing").isEmpty());
        QVERIFY(!TestEnv::exists(cache + "/missing"));
        QVERIFY(CommonUtils::getListOfDaysInCache(QByteArray()).isEmpty());
    }

    void recordTrustRules()
    {
        const QByteArray day = cache + "/2024-05-03", time = day + "/2024-05-03 10_00_00";
        const QByteArray record = day + "/.Salvora3_CacheInformation";
        makeFile(time + "/a", 100);
        makeFile(time + "/dir/.hidden", 5);
        makeFile(time + "/dir/.DS_Store", 50);
        makeFile(time + "/dir/.Salvora3_CacheInformation", 50);
        QVERIFY(symlink("/nonexistent/target/of/some/length", time + "/link") == 0);
        const qint64 size = 105 + qint64(strlen("/nonexistent/target/of/some/length"));
        const auto counted = [&](qint64 bytes, qint64 count, qint64 n = 0) {
            QCOMPARE(CommonUtils::getSizeOfCache(day, &n), bytes);
            QCOMPARE(n, count);
        };

        // No record: recount, and the record holds the same numbers.
        const mode_t old = umask(0);
        counted(size, 3);
        umask(old);
        QCOMPARE(TestEnv::modeOf(record), mode_t(0600));

        makeFile(time + "/b", 1000);
        counted(size, 3); // trusted: a file added later is not seen
        // A record with only "size" is replaced by a full one.
        QVERIFY(CommonUtils::saveDictionary({{"size", 7}}, record));
        counted(size + 1000, 4);

        // Zero bytes, garbage, or a planted link: 0, counter untouched, record left as it is.
        for (const QByteArray &bad : {QByteArray(), QByteArray("junk"), QByteArray(5000, '\x84')}) {
            QVERIFY(TestEnv::writeFile(record, bad));
            counted(0, 77, 77);
            QCOMPARE(TestEnv::readFile(record), bad);
        }
        QVERIFY(unlink(record) == 0 && symlink("/etc/passwd", record) == 0);
        counted(0, 77, 77);
        // Writing a record over a planted link replaces the link and never writes through it.
        const QByteArray victim = env->homeBytes() + "/victim";
        makeFile(victim, 4);
        QVERIFY(unlink(record) == 0 && symlink(victim, record) == 0);
        qint64 n = 0;
        QCOMPARE(CommonUtils::saveSizeOfCache(day, &n), size + 1000);
        QCOMPARE(TestEnv::readFile(victim), QByteArray(4, 'x'));
        QVERIFY(CommonUtils::readDictionaryInPath(record));

        // Any change below the day, named by its time folder or the day itself, drops the record.
        for (const QByteArray &changed : {time, day + '/'}) {
            CommonUtils::saveSizeOfCache(day, &n);
            CommonUtils::resetSizeOfCacheIn(changed);
            QVERIFY(!TestEnv::exists(record));
        }
        QVERIFY(TestEnv::exists(time + "/a"));
    }

    void oddNamesAndEmptyFolders()
    {
        const QByteArray time = cache + "/2024-05-03/2024-05-03 10_00_00";
        for (const QByteArray &name :
             {QByteArray("bad\xff\xfe name"), QByteArray("line\nfeed"), QByteArray(255, 'n')})
            makeFile(time + '/' + name, 2);
        QVERIFY(TestEnv::makeFolders(time + "/empty dir"));
        qint64 n = 5;
        QCOMPARE(CommonUtils::getSizeOfFolder(cache + "/2024-05-03", &n), 6);
        QCOMPARE(n, 8); // added to, not reset
        n = 0;
        QCOMPARE(CommonUtils::getSizeOfFolder(time + "/empty dir", &n), 0);
        QCOMPARE(n, 0);
        QCOMPARE(CommonUtils::getSizeOfFolder(cache + "/absent", &n), 0);
    }

    void totals()
    {
        const QList<DayEntry> days{{"2024-05-01", "p", 10, 1}, {"2024-05-02", "q", 32, 4}};
        qint64 n = 99; // set, not added to
        QCOMPARE(CommonUtils::getSizeOfCacheInDays(days, &n), 42);
        QCOMPARE(n, 5);
        makeFile(cache + "/2024-05-01/2024-05-01 10_00_00/a", 12);
        QCOMPARE(CommonUtils::getSizeOfCacheInVolume(0), 12);
        QCOMPARE(CommonUtils::getSizeOfCaches(), 12);
        // A damaged day of an unplugged volume's snapshot is refused.
        QVERIFY(!DayEntry::fromVariantMap({{QStringLiteral("name"), QStringLiteral("/a/t")}}));
        // An empty cache goes; one with anything in it stays.
        QVERIFY(TestEnv::makeFolders(cache + "/a"));
        makeFile(cache + "/b/.DS_Store", 1);
        CommonUtils::removeEmptyCache(cache + "/a");
        CommonUtils::removeEmptyCache(cache + "/b");
        QVERIFY(!TestEnv::exists(cache + "/a"));
        QVERIFY(TestEnv::exists(cache + "/b"));
    }

    void spaceThreshold_data()
    {
        QTest::addColumn<qint64>("total");
        QTest::addColumn<qint64>("percent");
        QTest::addColumn<qint64>("floor");
        QTest::addColumn<qint64>("wanted");
        const qint64 G = 1'000'000'000, top = qint64(1) << 62;
        QTest::newRow("large volume: the floor") << 500 * G << qint64(5) << 2 * G << 2 * G;
        QTest::newRow("small volume: the share") << 10 * G << qint64(5) << 2 * G << G / 2;
        QTest::newRow("no overflow near the top") << top << qint64(5) << top << top / 20;
        QTest::newRow("share off") << 10 * G << qint64(0) << 2 * G << qint64(0);
        QTest::newRow("floor off") << 10 * G << qint64(5) << qint64(0) << qint64(0);
    }
    void spaceThreshold()
    {
        QFETCH(qint64, total);
        QFETCH(qint64, percent);
        QFETCH(qint64, floor);
        QFETCH(qint64, wanted);
        QCOMPARE((SpaceGuard::Threshold{percent, floor}.bytesFor(total)), wanted);
    }

    // Days by their offset from today; each day removed frees `perDay` on a volume that had
    // `freeAtStart` of the 100 wanted.
    void spaceGuardRemovesOldestDaysButNeverToday_data()
    {
        QTest::addColumn<QList<int>>("days");
        QTest::addColumn<qint64>("freeAtStart");
        QTest::addColumn<qint64>("perDay");
        QTest::addColumn<bool>("stop");
        QTest::addColumn<QList<int>>("removed");
        const auto row = [](const char *name, QList<int> days, qint64 free, qint64 perDay,
                            QList<int> removed, bool stop = false) {
            QTest::newRow(name) << days << free << perDay << stop << removed;
        };
        row("enough free", {-3, -1, 0}, 100, 10, {});
        row("the oldest day is enough", {-1, -30, -2, 0}, 50, 60, {-30});
        row("oldest first, as many as needed", {-2, -5, -1, 0}, 10, 40, {-5, -2, -1});
        row("never today, nor a day to come", {-2, 0, 1}, 0, 10, {-2});
        row("the agent quits", {-2, -1, 0}, 0, 10, {}, true);
    }
    void spaceGuardRemovesOldestDaysButNeverToday()
    {
        QFETCH(QList<int>, days);
        QFETCH(qint64, freeAtStart);
        QFETCH(qint64, perDay);
        QFETCH(bool, stop);
        QFETCH(QList<int>, removed);
        for (int d : days)
            QVERIFY(!env->keep(cache, dayName(d), dayName(d) + " 10_00_00", "item").isEmpty());
        QVERIFY(TestEnv::makeFolders(cache + "/not a day"));
        const int fd = ::open(cache.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QVERIFY(fd >= 0);
        // The free space grows with every day folder that is gone.
        const auto probe = [&](int) -> std::optional<SpaceGuard::Space> {
            qint64 gone = 0;
            for (int d : days)
                gone += TestEnv::exists(cache + '/' + dayName(d)) ? 0 : 1;
            return SpaceGuard::Space{1000, freeAtStart + gone * perDay};
        };
        const std::atomic<bool> stopFlag{stop};
        const SpaceGuard::Outcome o =
            SpaceGuard::run(fd, SpaceGuard::Threshold{50, 100}, kToday, stopFlag, probe);
        ::close(fd);
        QByteArrayList expected;
        for (int d : removed)
            expected << dayName(d);
        QCOMPARE(o.removed, expected);
        QCOMPARE(o.cancelled, stop && freeAtStart < 100);
        QVERIFY(o.failures.isEmpty());
        for (int d : days) {
            QCOMPARE(TestEnv::exists(cache + '/' + dayName(d)), !removed.contains(d));
            QCOMPARE(TestEnv::exists(cache + "/.origins/" + dayName(d) + ".jsonl"),
                     !removed.contains(d));
        }
        QVERIFY(TestEnv::exists(cache + "/not a day"));
    }

    void referenceVectors()
    {
        QCOMPARE(hexOf(encodeDictionary(kReferenceDict)), kReference.toHex(' '));
        const auto read = decodeDictionary(kReference.toStdString());
        QVERIFY(read == kReferenceDict);
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
        row("count as int64", "9b2a8686", "9b 872a00000000000000 8686");
        row("entry count as int32", "84016902", "840169 8202000000");
        row("type l", "84840171", "8484016c");
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
        rejected("class where a C string belongs", "9a9a9b2a", "9a999b2a");
        rejected("value refers to the dictionary", second, "9292");
        rejected("nil value", second, "9285");
        rejected("count larger than the bytes", "84016902", "840169 8200000100");
        rejected("negative count", "84016902", "840169ff");
        rejected("count one too many", "84016902", "84016903");
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
            QVERIFY(!decodeDictionary(kReference.left(length).toStdString()));

        // Grow one string until the archive is exactly at the limit, then one byte past it.
        const auto archiveWith = [](std::size_t length) {
            return encodeDictionary({{"s", std::string(length, 'x')}, {"size", 1}});
        };
        const std::size_t length = kMaxArchiveSize - archiveWith(1000).size() + 1000;
        QCOMPARE(archiveWith(length).size(), kMaxArchiveSize);
        QVERIFY(decodeDictionary(archiveWith(length)).has_value());
        QVERIFY(!decodeDictionary(archiveWith(length + 1)));
    }
};

QTEST_GUILESS_MAIN(TstCache)
#include "tst_cache.moc"
