#include "TestEnv.h"

#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/SizeRecords.h"
#include "common/Texts.h"

#include "PathJoin.h"

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

} // namespace

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
        QCOMPARE(CommonUtils::pathForTrashFolderInVolume(0), env->homeBytes() + "/.local/share/Trash");
        QVERIFY(CommonUtils::pathForCacheFolderInVolume(99).isEmpty());
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
        QTest::newRow("plain") << QByteArray("/f") << QByteArray("/f/a");
        QTest::newRow("trailing slash") << QByteArray("/f/") << QByteArray("/f/a");
        QTest::newRow("empty") << QByteArray() << QByteArray("/a");
    }
    void pathJoin()
    {
        QFETCH(QByteArray, folder);
        QFETCH(QByteArray, joined);
        QCOMPARE(joinPath(folder, "a"), joined);
        QCOMPARE(folderPrefix(folder) + "a", joined);
        QCOMPARE(joinPath(folder.toStdString(), std::string("a")), joined.toStdString());
    }

    void names()
    {
        const QDateTime t(QDate(2024, 5, 3), QTime(14, 7, 55));
        QCOMPARE(CommonUtils::nameForCacheFolder(t), QStringLiteral("2024-05-03"));
        QCOMPARE(CommonUtils::nameForTimeFolder(t), QStringLiteral("2024-05-03 14_07_55"));
        QCOMPARE(CommonUtils::dateForCacheFolder("2024-05-03 14_07_55"), CommonUtils::dateForCacheFolder("2024-05-03"));
        QCOMPARE(CommonUtils::dateForCacheFolder("2024-05-03")->date(), QDate(2024, 5, 3));
        QCOMPARE(CommonUtils::dateForCacheFolder("2024-05-03")->time(), QTime(0, 0));
        QVERIFY(!CommonUtils::dateForCacheFolder("notadate!!"));
        QVERIFY(!CommonUtils::dateForCacheFolder("2024-05"));
        QVERIFY(!CommonUtils::dateForCacheFolder("2024-13-03"));
    }

    void dayLabels()
    {
        const QDateTime now(QDate(2024, 5, 3), QTime(23, 59, 0));
        QCOMPARE(CommonUtils::dateStringForCacheFolder("2024-05-03", now), QStringLiteral("Today"));
        QCOMPARE(CommonUtils::dateStringForCacheFolder("2024-05-03 01_00_00", now), QStringLiteral("Today"));
        QCOMPARE(CommonUtils::dateStringForCacheFolder("2024-05-02", now), QStringLiteral("Yesterday"));
        // Older days by their date.
        QVERIFY(CommonUtils::dateStringForCacheFolder("2024-05-01", now).contains(QLatin1String("2024")));
    }

    void listingKeepsDaysAndDeletesStrays()
    {
        for (const char *day : {"2024-05-03", "2024-05-01", "notes"})
            QVERIFY(QDir().mkpath(QFile::decodeName(cache + '/' + day)));
        makeFile(cache + "/.DS_Store", 3);
        makeFile(cache + "/junk.txt", 3);
        QVERIFY(symlink("/etc", cache + "/2099-link") == 0);
        makeFile(cache + "/2024-05-01/2024-05-01 10_00_00/a.txt", 10);

        const QList<DayEntry> days = CommonUtils::getListOfDaysInCache(cache);
        QCOMPARE(days.size(), 2);
        QCOMPARE(days[0].name, QByteArray("2024-05-01"));
        QCOMPARE(days[0].path, cache + "/2024-05-01");
        QCOMPARE(days[0].size, 10);
        QCOMPARE(days[0].count, 1);
        QCOMPARE(days[1].name, QByteArray("2024-05-03"));
        QCOMPARE(days[1].size, 0);
        QVERIFY(!TestEnv::exists(cache + "/junk.txt"));
        QVERIFY(!TestEnv::exists(cache + "/2099-link")); // a link is stray too, and its target untouched
        QVERIFY(TestEnv::exists("/etc/passwd"));
        QVERIFY(TestEnv::exists(cache + "/notes"));
        QVERIFY(TestEnv::exists(cache + "/.DS_Store"));

        QVERIFY(CommonUtils::getListOfDaysInCache(cache + "/missing").isEmpty());
        QVERIFY(!TestEnv::exists(cache + "/missing"));
        QVERIFY(CommonUtils::getListOfDaysInCache(QByteArray()).isEmpty());
    }

    void recordTrustRules()
    {
        const QByteArray day = cache + "/2024-05-03";
        const QByteArray record = day + "/.Salvora3_CacheInformation";
        makeFile(day + "/2024-05-03 10_00_00/a", 100);
        makeFile(day + "/2024-05-03 10_00_00/dir/.hidden", 5);
        makeFile(day + "/2024-05-03 10_00_00/dir/.DS_Store", 50);
        makeFile(day + "/2024-05-03 10_00_00/dir/.Salvora3_CacheInformation", 50);
        QVERIFY(symlink("/nonexistent/target/of/some/length", day + "/2024-05-03 10_00_00/link") == 0);
        const qint64 linkSize = qint64(strlen("/nonexistent/target/of/some/length"));

        // No record: recount, and the record holds the same numbers.
        const mode_t old = umask(0);
        qint64 n = 0;
        QCOMPARE(CommonUtils::getSizeOfCache(day, &n), 105 + linkSize);
        umask(old);
        QCOMPARE(n, 3);
        QCOMPARE(TestEnv::modeOf(record), mode_t(0600));
        const auto saved = CommonUtils::readDictionaryInPath(record);
        QVERIFY(saved);
        QCOMPARE(typedstream::integerFor(*saved, "size"), std::optional<std::int64_t>(105 + linkSize));
        QCOMPARE(typedstream::integerFor(*saved, "count"), std::optional<std::int64_t>(3));

        // Trusted: a file added later is not seen.
        makeFile(day + "/2024-05-03 10_00_00/b", 1000);
        n = 0;
        QCOMPARE(CommonUtils::getSizeOfCache(day, &n), 105 + linkSize);
        QCOMPARE(n, 3);

        // A record with only "size" is replaced by a full one.
        QVERIFY(CommonUtils::saveDictionary({{"size", 7}}, record));
        n = 0;
        QCOMPARE(CommonUtils::getSizeOfCache(day, &n), 1105 + linkSize);
        QCOMPARE(n, 4);
        QCOMPARE(typedstream::integerFor(*CommonUtils::readDictionaryInPath(record), "count"),
                 std::optional<std::int64_t>(4));

        // Zero bytes, garbage, or a planted link: 0, counter untouched, record left as it is.
        for (const QByteArray &bad : {QByteArray(), QByteArray("not an archive"), QByteArray(5000, '\x84')}) {
            QVERIFY(TestEnv::writeFile(record, bad));
            n = 77;
            QCOMPARE(CommonUtils::getSizeOfCache(day, &n), 0);
            QCOMPARE(n, 77);
            QCOMPARE(TestEnv::readFile(record), bad);
        }
        QVERIFY(unlink(record) == 0);
        QVERIFY(symlink("/etc/passwd", record) == 0);
        n = 77;
        QCOMPARE(CommonUtils::getSizeOfCache(day, &n), 0);
        QCOMPARE(n, 77);
        // Writing a record over a planted link replaces the link and never writes through it.
        const QByteArray victim = env->homeBytes() + "/victim";
        makeFile(victim, 4);
        QVERIFY(unlink(record) == 0 && symlink(victim, record) == 0);
        QCOMPARE(CommonUtils::saveSizeOfCache(day, &n), 1105 + linkSize);
        QCOMPARE(TestEnv::readFile(victim), QByteArray(4, 'x'));
        QVERIFY(CommonUtils::readDictionaryInPath(record));
    }

    void resetOnTimeAndDayFolders()
    {
        const QByteArray day = cache + "/2024-05-03";
        const QByteArray time = day + "/2024-05-03 10_00_00";
        makeFile(time + "/a", 1);
        qint64 n = 0;
        CommonUtils::saveSizeOfCache(day, &n);
        CommonUtils::resetSizeOfCacheIn(time);
        QVERIFY(!TestEnv::exists(day + "/.Salvora3_CacheInformation"));
        CommonUtils::saveSizeOfCache(day, &n);
        CommonUtils::resetSizeOfCacheIn(day + '/');
        QVERIFY(!TestEnv::exists(day + "/.Salvora3_CacheInformation"));
        QVERIFY(TestEnv::exists(time + "/a"));
    }

    void oddNamesAndEmptyFolders()
    {
        const QByteArray time = cache + "/2024-05-03/2024-05-03 10_00_00";
        const QByteArray odd[] = {QByteArray("bad\xff\xfe name"), QByteArray("line\nfeed"), QByteArray(255, 'n')};
        for (const QByteArray &name : odd)
            makeFile(time + '/' + name, 2);
        QVERIFY(QDir().mkpath(QFile::decodeName(time + "/empty dir")));
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
        QCOMPARE(DayEntry::fromVariantMap(days[1].toVariantMap()), std::optional<DayEntry>(days[1]));
        QVERIFY(!DayEntry::fromVariantMap({{QStringLiteral("name"), QStringLiteral("/a/time folder")}}));
    }

    void removeEmpty()
    {
        const QByteArray a = cache + "/a", b = cache + "/b";
        QVERIFY(QDir().mkpath(QFile::decodeName(a)));
        makeFile(b + "/.DS_Store", 1);
        CommonUtils::removeEmptyCache(a);
        CommonUtils::removeEmptyCache(b);
        QVERIFY(!TestEnv::exists(a));
        QVERIFY(TestEnv::exists(b));
    }
};

QTEST_GUILESS_MAIN(TstCache)
#include "tst_cache.moc"
