#include "DaemonHarness.h"

#include "browser/Deletion.h"
#include "browser/KeepPolicy.h"
#include "cache/CacheCommit.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/Volumes.h"

#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Harness;
using CacheCommit::Error;

// Direct deletion into the cache (the core of `salvora rm` and of the daemon's commits).
class TstCacheCommit : public QObject
{
    Q_OBJECT
    TestEnv env;
    const QByteArray home = env.homeBytes(), cache = home + "/.Salvora3Cache";
    QTemporaryDir mounts;

    static bool exists(const QByteArray &p) { return TestEnv::exists(p); }
    static CacheCommit::Result del(const QByteArray &path)
    {
        return Deletion::deleteIntoCache({path}, false).first();
    }

private slots:
    void initTestCase() { Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1); }

    void namesAndExclusions()
    {
        QCOMPARE(CacheCommit::numberedName("archive.tar.gz", 3), QByteArray("archive.tar 3.gz"));
        QCOMPARE(CacheCommit::numberedName(".profile", 2), QByteArray(".profile 2"));
        QCOMPARE(CacheCommit::numberedName("photos", 2), QByteArray("photos 2"));
        QCOMPARE(CacheCommit::numberedName("odd.", 2), QByteArray("odd. 2"));
        // Never longer than a name may be; the stem gives way, whole characters at a time.
        const QByteArray longest = QByteArray(248, 'a') + "\xc3\xa9.txt";
        QCOMPARE(CacheCommit::numberedName(longest, 2), QByteArray(248, 'a') + " 2.txt");
        QCOMPARE(CacheCommit::numberedName(QByteArray(255, 'b'), 10), QByteArray(252, 'b') + " 10");

        const KeepPolicy::Exclusions ex(QStringLiteral("foo; bar;;Ünïcode"),
                                        QStringLiteral("jpg;gz;"));
        for (const char *name :
             {"FOO", " bar", "ünÏcode", "x.JPG", "caf\xe9.jpg", "archive.tar.gz"})
            QVERIFY2(ex.matches(name), name);
        // Blanks are part of a filter piece; only the last extension counts; a hidden name has
        // no extension.
        for (const char *name : {"bar", "x.jpeg", ".jpg", "foo.txt", "archive.gz.tar"})
            QVERIFY2(!ex.matches(name), name);
    }

    void deletesIntoTodaysTimeFolder()
    {
        NotificationBus bus;
        const bool haveBus = bus.observe(QLatin1String(Notifications::Salvora3Notification));
        QSignalSpy spy(&bus, &NotificationBus::received);
        const QByteArray odd = "caf\xe9";
        QVERIFY(TestEnv::writeFile(home + "/rm/one/n.txt", "first"));
        QVERIFY(TestEnv::writeFile(home + "/rm/two/n.txt", "second"));
        QVERIFY(TestEnv::writeFile(home + "/rm/dir/sub/f", "in a folder"));
        QVERIFY(TestEnv::writeFile(home + "/rm/" + odd, "not UTF-8"));
        const auto dir = snapshot(home + "/rm/dir");
        const mode_t oldMask = umask(0);
        const QList<CacheCommit::Result> results =
            Deletion::deleteIntoCache({home + "/rm/one/n.txt", home + "/rm/two/n.txt/",
                                       home + "/rm/dir", home + "/rm/" + odd});
        umask(oldMask);
        for (const auto &r : results)
            QVERIFY2(r.ok(), qPrintable(r.message()));
        // One call, one time folder; the clash gets a number, nothing is replaced.
        const QByteArray time = results[0].cachedPath.left(results[0].cachedPath.lastIndexOf('/'));
        QVERIFY(time.startsWith(cache + '/' + day() + '/'));
        QCOMPARE(results[1].cachedPath, time + "/n 2.txt");
        QCOMPARE(TestEnv::readFile(time + "/n.txt"), QByteArray("first"));
        QCOMPARE(TestEnv::readFile(time + "/n 2.txt"), QByteArray("second"));
        QCOMPARE(snapshot(time + "/dir"), dir);
        QVERIFY(!exists(home + "/rm/dir"));

        const QByteArray day = time.mid(cache.size() + 1, 10);
        const QList<CacheCommit::Origin> origins = CacheCommit::readOrigins(cache, day);
        QCOMPARE(origins.size(), 4);
        QCOMPARE(origins[1].name, QByteArray("n 2.txt"));
        QCOMPARE(origins[1].path, home + "/rm/two/n.txt");
        QCOMPARE(origins[3].path, home + "/rm/" + odd); // bytes survive the JSON line
        QCOMPARE(origins[3].uid, qint64(getuid()));
        // Everything made for the items is private, whatever the umask.
        for (const QByteArray &made : {cache, cache + '/' + day, time, cache + "/.origins"})
            QCOMPARE(TestEnv::modeOf(made), mode_t(0700));
        QCOMPARE(TestEnv::modeOf(CacheCommit::originsFileFor(cache, day)), mode_t(0600));
        // The day's record is gone, so its totals are recounted.
        QVERIFY(!exists(cache + '/' + day + "/.Salvora3_CacheInformation"));
        if (haveBus) {
            QTRY_COMPARE(spy.size(), 1);
            QCOMPARE(spy[0][1].toString(), QLatin1String(Notifications::Salvora3DataMovedToCache));
        }

        // moveIntoCache never replaces: a third item of the same name in the same second.
        QVERIFY(TestEnv::writeFile(home + "/rm/three/n.txt", "third"));
        const int dirFd = ::open((home + "/rm/three").constData(), O_PATH | O_DIRECTORY);
        const QDateTime sameSecond =
            QDateTime::fromString(QString::fromLatin1(time.mid(time.lastIndexOf('/') + 1)),
                                  QStringLiteral("yyyy-MM-dd HH_mm_ss"));
        CacheFolder::Status status;
        const int cacheFd = CacheFolder::open("/", false, &status);
        const auto r = CacheCommit::moveIntoCache(dirFd, "n.txt", cacheFd, cache, "n.txt",
                                                  home + "/rm/three/n.txt", sameSecond);
        ::close(dirFd);
        ::close(cacheFd);
        QVERIFY(r.ok());
        QCOMPARE(r.cachedPath, time + "/n 3.txt");
        QCOMPARE(TestEnv::readFile(time + "/n.txt"), QByteArray("first"));
    }

    void refusals()
    {
        QVERIFY(TestEnv::writeFile(home + "/keep/secret.TXT", "x"));
        QVERIFY(TestEnv::writeFile(home + "/keep/plain.txt", "x"));
        QCOMPARE(del("").error, Error::InvalidPath);
        QCOMPARE(del("/").error, Error::InvalidPath);
        QCOMPARE(del(home + "/keep/..").error, Error::InvalidPath);
        QCOMPARE(del(home).error, Error::HoldsCache);
        QVERIFY(TestEnv::writeFile(cache + "/2020-01-01/2020-01-01 10_00_00/in.txt", "x"));
        QCOMPARE(del(cache + "/2020-01-01/2020-01-01 10_00_00/in.txt").error, Error::InsideCache);
        QCOMPARE(del(cache).error, Error::InsideCache);

        Settings::setString(SettingsKeys::PrefsExcludeName, QStringLiteral("secret.txt"));
        QCOMPARE(del(home + "/keep/secret.TXT").error, Error::Excluded);
        Settings::remove(SettingsKeys::PrefsExcludeName);
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        QCOMPARE(del(home + "/keep/plain.txt").error, Error::ProtectionOff);
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        for (const char *n : {"secret.TXT", "plain.txt"})
            QVERIFY(exists(home + "/keep/" + n));

        // A link where the day folder should be is never followed.
        QVERIFY(TestEnv::makeFolders(home + "/elsewhere"));
        const QByteArray today = cache + '/' + day();
        QVERIFY(::rename(today.constData(), (home + "/today.saved").constData()) == 0);
        QVERIFY(::symlink((home + "/elsewhere").constData(), today.constData()) == 0);
        const CacheCommit::Result unsafe = del(home + "/keep/plain.txt");
        QCOMPARE(unsafe.error, Error::UnsafeCache);
        QVERIFY(snapshot(home + "/elsewhere").isEmpty());
        QVERIFY(::unlink(today.constData()) == 0);
        QVERIFY(::rename((home + "/today.saved").constData(), today.constData()) == 0);
        QVERIFY(exists(home + "/keep/plain.txt"));
    }

    void otherFileSystems()
    {
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        const QByteArray root = QFile::encodeName(mounts.path());
        // An eligible mount without a volume identity can never be protected.
        QVERIFY(sh("mount -t tmpfs sv3test /mnt; mkdir /mnt/plain /mnt/bound /mnt/home;"
                   "mount -t tmpfs sv3plain /mnt/plain; mount -t tmpfs sv3home /mnt/home"));
        CommonUtils::resetVolumesLists();
        QVERIFY(TestEnv::writeFile("/mnt/plain/f.txt", "x"));
        QCOMPARE(del("/mnt/plain/f.txt").error, Error::NotOnProtectedVolume);

        // The home's file system seen through another mount: the rename cannot cross it.
        QVERIFY(TestEnv::writeFile(home + "/bindsrc/b.txt", "x"));
        QVERIFY(sh("mount --bind " + home + "/bindsrc /mnt/bound"));
        CommonUtils::resetVolumesLists();
        const CacheCommit::Result bound = del("/mnt/bound/b.txt");
        QCOMPARE(bound.error, Error::CrossDevice);
        QVERIFY(exists("/mnt/bound/b.txt"));

        // "/" is protected, but with the home folder on another file system its items cannot
        // reach the home's cache.
        QVERIFY(TestEnv::writeFile(root + "/on-root.txt", "x"));
        const QByteArray savedHome = qgetenv("HOME");
        qputenv("HOME", "/mnt/home");
        CommonUtils::resetVolumesLists();
        const CacheCommit::Result cross = del(root + "/on-root.txt");
        qputenv("HOME", savedHome);
        CommonUtils::resetVolumesLists();
        QCOMPARE(cross.error, Error::CrossDevice);
        QVERIFY(exists(root + "/on-root.txt"));
        QVERIFY(!cross.message().isEmpty());

        // A home cache that is another account's, or another file system mounted there: not used.
        QVERIFY(TestEnv::writeFile(home + "/mine.txt", "x"));
        QVERIFY(sh("chown 65534 " + cache));
        QCOMPARE(del(home + "/mine.txt").error, Error::NoCacheFolder);
        QVERIFY(sh("chown 0 " + cache + "; mount -t tmpfs -o mode=0700 sv3cache " + cache));
        QCOMPARE(del(home + "/mine.txt").error, Error::NoCacheFolder);
        QVERIFY(sh("umount " + cache) && exists(home + "/mine.txt"));
    }
};

QTEST_GUILESS_MAIN(TstCacheCommit)
#include "tst_cachecommit.moc"
