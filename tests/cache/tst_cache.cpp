#include "TestEnv.h"

#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/SizeRecords.h"
#include "cache/SpaceGuard.h"
#include "common/Texts.h"

#include <QCoreApplication>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

} // namespace

// The cache's layout, its day list and size records, and the guard that frees space.
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
        QCOMPARE(CommonUtils::pathForTrashFolderInVolume(0),
                 env->homeBytes() + "/.local/share/Trash");
        QVERIFY(CommonUtils::pathForCacheFolderInVolume(99).isEmpty());
        // A home that has vanished yields no cache and creates nothing.
        qputenv("HOME", env->homeBytes() + "/gone");
        QVERIFY(CommonUtils::pathForCacheFolderInVolume(0).isEmpty());
        QVERIFY(!TestEnv::exists(env->homeBytes() + "/gone"));
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
        QCOMPARE(dateStringForCacheFolder("2024-05-03 01_00_00", now), QStringLiteral("Today"));
        QCOMPARE(dateStringForCacheFolder("2024-05-02", now), QStringLiteral("Yesterday"));
        QVERIFY(dateStringForCacheFolder("2024-05-01", now).contains(QLatin1String("2024")));
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
        QCOMPARE(days[1].size, 0);
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
        const auto saved = CommonUtils::readDictionaryInPath(record);
        QVERIFY(saved);
        QCOMPARE(typedstream::integerFor(*saved, "size"), std::optional<std::int64_t>(size));
        QCOMPARE(typedstream::integerFor(*saved, "count"), std::optional<std::int64_t>(3));

        makeFile(time + "/b", 1000);
        counted(size, 3); // trusted: a file added later is not seen
        // A record with only "size" is replaced by a full one.
        QVERIFY(CommonUtils::saveDictionary({{"size", 7}}, record));
        counted(size + 1000, 4);
        QCOMPARE(typedstream::integerFor(*CommonUtils::readDictionaryInPath(record), "count"),
                 std::optional<std::int64_t>(4));

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
        // The snapshot of an unplugged volume keeps its days as maps; a damaged one is refused.
        QCOMPARE(DayEntry::fromVariantMap(days[1].toVariantMap()),
                 std::optional<DayEntry>(days[1]));
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
        row("only today", {0}, 0, 10, {});
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
        QCOMPARE(o.wantedFree, qint64(100));
        QCOMPARE(o.cancelled, stop && freeAtStart < 100);
        QVERIFY(o.failures.isEmpty());
        for (int d : days) {
            QCOMPARE(TestEnv::exists(cache + '/' + dayName(d)), !removed.contains(d));
            QCOMPARE(TestEnv::exists(cache + "/.origins/" + dayName(d) + ".jsonl"),
                     !removed.contains(d));
        }
        QVERIFY(TestEnv::exists(cache + "/not a day"));
    }

    void spaceGuardActionRoundTrips()
    {
        QVERIFY(!SpaceGuard::lastAction());
        const SpaceGuard::Action a{QDateTime(kToday, QTime(3, 4, 5)), "/media/a\tb", 2000000000, 3};
        SpaceGuard::recordAction(a);
        const auto back = SpaceGuard::lastAction();
        QVERIFY(back);
        QCOMPARE(back->when, a.when);
        QCOMPARE(back->volume, a.volume);
        QCOMPARE(back->wantedFree, a.wantedFree);
        QCOMPARE(back->days, a.days);
    }
};

QTEST_GUILESS_MAIN(TstCache)
#include "tst_cache.moc"
