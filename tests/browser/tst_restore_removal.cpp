#include "TestEnv.h"

#include "browser/Removal.h"
#include "browser/Restore.h"
#include "cache/CacheCommit.h"
#include "cache/SizeRecords.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

QByteArrayList entries(const QByteArray &folder)
{
    QByteArrayList names;
    if (DIR *d = opendir(folder.constData())) {
        while (dirent *e = readdir(d))
            if (strcmp(e->d_name, ".") && strcmp(e->d_name, "..")) names.append(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool makeSocket(const QByteArray &path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (fd < 0 || std::size_t(path.size()) >= sizeof addr.sun_path) return false;
    std::memcpy(addr.sun_path, path.constData(), std::size_t(path.size()));
    const bool ok = bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0;
    close(fd);
    return ok;
}

} // namespace

class TstRestoreRemoval : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray time, out;

private slots:
    void init()
    {
        env = new TestEnv;
        time = env->homeBytes() + "/.Salvora3Cache/2024-05-03/2024-05-03 10_00_00";
        out = env->homeBytes() + "/out";
        QVERIFY(TestEnv::makeFolders(out));
        QVERIFY(TestEnv::writeFile(time + "/a.txt", "cache a"));
        QVERIFY(TestEnv::writeFile(time + "/b\xff\xfe.bin", QByteArray(300000, 'b')));
        QVERIFY(TestEnv::writeFile(time + "/tree/sub/deep.txt", "deep"));
        QVERIFY(TestEnv::writeFile(time + "/tree/x.sh", "#!/bin/sh"));
        QVERIFY(chmod(time + "/tree/x.sh", 0751) == 0);
        QVERIFY(symlink("../elsewhere", time + "/tree/link") == 0);
        const struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
        QVERIFY(utimensat(AT_FDCWD, time + "/a.txt", old, 0) == 0);
    }
    void cleanup() { delete env; }

    void restoreSkipsExistingAndCopiesTheRest()
    {
        QVERIFY(TestEnv::writeFile(out + "/a.txt", "mine"));
        // The same name deleted on another day.
        const QByteArray otherDay =
            env->homeBytes() + "/.Salvora3Cache/2024-05-04/2024-05-04 09_00_00";
        QVERIFY(TestEnv::writeFile(otherDay + "/tree", "a file named like the folder"));
        const auto results = Restore::copyItems(
            out, {time + "/a.txt", time + "/b\xff\xfe.bin", time + "/tree", otherDay + "/tree"});
        QCOMPARE(results.size(), 4);
        QCOMPARE(results[0].outcome, Restore::Outcome::SkippedExisting);
        QCOMPARE(TestEnv::readFile(out + "/a.txt"), QByteArray("mine"));
        QCOMPARE(results[1].outcome, Restore::Outcome::Copied);
        QCOMPARE(TestEnv::readFile(out + "/b\xff\xfe.bin"),
                 QByteArray(300000, 'b')); // byte-exact name and data
        QCOMPARE(results[2].outcome, Restore::Outcome::Copied);
        QCOMPARE(TestEnv::readFile(out + "/tree/sub/deep.txt"), QByteArray("deep"));
        QCOMPARE(TestEnv::modeOf(out + "/tree/x.sh"), mode_t(0751));
        char target[64] = {};
        QCOMPARE(readlink(out + "/tree/link", target, sizeof target), ssize_t(12));
        QCOMPARE(QByteArray(target), QByteArray("../elsewhere"));
        QCOMPARE(results[3].outcome,
                 Restore::Outcome::SkippedExisting); // same name as an earlier item
        // Nothing half-done is left behind, and the cache keeps its items.
        QCOMPARE(entries(out), QByteArrayList({"a.txt", "b\xff\xfe.bin", "tree"}));
        QVERIFY(TestEnv::exists(time + "/a.txt"));

        // Times are kept.
        const auto again = Restore::copyItem(time + "/a.txt", out + "/a copy.txt");
        QCOMPARE(again.outcome, Restore::Outcome::Copied);
        struct stat st
        {
        };
        QVERIFY(lstat(out + "/a copy.txt", &st) == 0);
        QCOMPARE(st.st_mtim.tv_sec, time_t(1000000000));
    }

    // A folder with pieces that cannot be copied is copied without them, and says which.
    void partialFolderCopiesTheRest()
    {
        QVERIFY(makeSocket(time + "/tree/sub/sock"));
        const auto r = Restore::copyItem(time + "/tree", out + "/tree");
        QCOMPARE(r.outcome, Restore::Outcome::Copied);
        QCOMPARE(r.leftOut.size(), 1);
        QCOMPARE(r.leftOut[0].path, QByteArray("sub/sock"));
        QVERIFY(!r.leftOut[0].reason.isEmpty());
        QCOMPARE(TestEnv::readFile(out + "/tree/sub/deep.txt"), QByteArray("deep"));
        QCOMPARE(entries(out + "/tree/sub"), QByteArrayList{"deep.txt"});
        QCOMPARE(entries(out), QByteArrayList{"tree"}); // no temporary left
        // A socket alone is no partial success.
        const auto alone = Restore::copyItem(time + "/tree/sub/sock", out + "/sock");
        QCOMPARE(alone.outcome, Restore::Outcome::Failed);
        QCOMPARE(entries(out), QByteArrayList{"tree"});
    }

    // Put Back: the item leaves the cache for where it was deleted from; a taken name is
    // skipped or numbered; missing parents are made with the usual modes.
    void putBack_data()
    {
        QTest::addColumn<QByteArray>("original"); // below the home folder
        QTest::addColumn<bool>("taken");
        QTest::addColumn<int>("clash");
        QTest::addColumn<int>("outcome");
        QTest::addColumn<QByteArray>("landed"); // below the home folder; empty: stays in the cache
        const auto row = [](const char *name, const char *original, bool taken,
                            Restore::Clash clash, Restore::Outcome outcome, const char *landed) {
            QTest::newRow(name) << QByteArray(original) << taken << int(clash) << int(outcome)
                                << QByteArray(landed);
        };
        using enum Restore::Clash;
        using enum Restore::Outcome;
        row("into its folder", "docs/a.txt", false, Skip, Copied, "docs/a.txt");
        row("parents deleted", "gone/deeper/a.txt", false, Skip, Copied, "gone/deeper/a.txt");
        row("taken, skip", "docs/a.txt", true, Skip, SkippedExisting, "");
        row("taken, keep both", "docs/a.txt", true, KeepBoth, Copied, "docs/a 2.txt");
    }
    void putBack()
    {
        QFETCH(QByteArray, original);
        QFETCH(bool, taken);
        QFETCH(int, clash);
        QFETCH(int, outcome);
        QFETCH(QByteArray, landed);
        const QByteArray home = env->homeBytes(), cache = home + "/.Salvora3Cache";
        QVERIFY(TestEnv::makeFolders(home + "/docs"));
        if (taken) QVERIFY(TestEnv::writeFile(home + "/docs/a.txt", "mine"));
        for (const auto &[t, from] : {std::pair<const char *, QByteArray>{"10_00_00", "elsewhere"},
                                      {"10_00_00", original},
                                      {"09_00_00", "other"}})
            QVERIFY(TestEnv::writeOrigin(cache, "2024-05-03", QByteArray("2024-05-03 ") + t,
                                         "a.txt", home + '/' + from));
        // The latest record of the name in its time folder.
        QCOMPARE(Restore::originalPathOf(time + "/a.txt"), home + '/' + original);
        QVERIFY(Restore::originalPathOf(time + "/tree").isEmpty());
        qint64 n = 0;
        CommonUtils::saveSizeOfCache(cache + "/2024-05-03", &n);

        const mode_t oldMask = umask(022);
        const auto r =
            Restore::putBack(time + "/a.txt", home + '/' + original, Restore::Clash(clash));
        umask(oldMask);
        QCOMPARE(int(r.outcome), outcome);
        if (landed.isEmpty()) {
            QVERIFY(!r.moved);
            QVERIFY(TestEnv::exists(time + "/a.txt"));
            QCOMPARE(TestEnv::readFile(home + "/docs/a.txt"), QByteArray("mine"));
            QVERIFY(TestEnv::exists(cache + "/2024-05-03/.Salvora3_CacheInformation"));
            return;
        }
        QVERIFY(r.moved);
        QCOMPARE(r.target, home + '/' + landed);
        QCOMPARE(TestEnv::readFile(home + '/' + landed), QByteArray("cache a"));
        QVERIFY(!TestEnv::exists(time + "/a.txt"));
        if (taken) QCOMPARE(TestEnv::readFile(home + "/docs/a.txt"), QByteArray("mine"));
        // The day is counted again next time.
        QVERIFY(!TestEnv::exists(cache + "/2024-05-03/.Salvora3_CacheInformation"));
        if (original.startsWith("gone/")) {
            QCOMPARE(TestEnv::modeOf(home + "/gone"), mode_t(0755));
            QCOMPARE(TestEnv::modeOf(home + "/gone/deeper"), mode_t(0755));
        }
    }

    // To another file system the item is copied, and leaves the cache only when copied whole;
    // its emptied time folder goes.
    void putBackAcrossFileSystems()
    {
        QTemporaryDir other(QStringLiteral("/dev/shm/salvora-test-XXXXXX"));
        struct stat a
        {
        }, b{};
        if (!other.isValid() || stat("/dev/shm", &a) != 0 || stat(time.constData(), &b) != 0 ||
            a.st_dev == b.st_dev)
            QSKIP("no second file system at /dev/shm");
        const QByteArray there = QFile::encodeName(other.path());
        const auto whole =
            Restore::putBack(time + "/a.txt", there + "/a.txt", Restore::Clash::Skip);
        QCOMPARE(whole.outcome, Restore::Outcome::Copied);
        QVERIFY(whole.moved);
        QVERIFY(!TestEnv::exists(time + "/a.txt"));
        QVERIFY(makeSocket(time + "/tree/sock"));
        const auto partial =
            Restore::putBack(time + "/tree", there + "/back/tree", Restore::Clash::Skip);
        QCOMPARE(partial.outcome, Restore::Outcome::Copied);
        QCOMPARE(partial.leftOut.size(), 1);
        QVERIFY(!partial.moved);
        QVERIFY(TestEnv::exists(time + "/tree/sock"));
        QCOMPARE(TestEnv::readFile(there + "/back/tree/sub/deep.txt"), QByteArray("deep"));
        QCOMPARE(entries(there + "/back"), QByteArrayList{"tree"});
        const auto last = Restore::putBack(time + "/b\xff\xfe.bin", there + "/b\xff\xfe.bin",
                                           Restore::Clash::Skip);
        QVERIFY(last.moved);
        QVERIFY(TestEnv::exists(time)); // the tree is still in it
    }

    void interruptedOrFailedCopyLeavesNothing()
    {
        std::atomic<bool> stop{true};
        const auto r = Restore::copyItem(time + "/tree", out + "/tree", &stop);
        QCOMPARE(r.outcome, Restore::Outcome::Stopped);
        QCOMPARE(entries(out), QByteArrayList());
        // A source that vanished: a clear failure, nothing written.
        const auto gone = Restore::copyItem(time + "/missing", out + "/missing");
        QCOMPARE(gone.outcome, Restore::Outcome::Failed);
        QVERIFY(!gone.error.isEmpty());
        QCOMPARE(entries(out), QByteArrayList());
    }

    void removingTheLastItemRemovesItsTimeFolder()
    {
        const QByteArray day = env->homeBytes() + "/.Salvora3Cache/2024-05-03";
        qint64 n = 0;
        CommonUtils::saveSizeOfCache(day, &n);
        QCOMPARE(n, 5);
        Removal::removeItems({time + "/a.txt"});
        QVERIFY(!TestEnv::exists(day +
                                 "/.Salvora3_CacheInformation")); // the day is recounted next time
        QVERIFY(TestEnv::exists(time));
        Removal::removeItems({time + "/b\xff\xfe.bin", time + "/tree"});
        QVERIFY(!TestEnv::exists(time));
        QVERIFY(TestEnv::exists(day));
        n = 0;
        QCOMPARE(CommonUtils::getSizeOfCache(day, &n), 0);
        QCOMPARE(n, 0);
    }

    void removalNeverFollowsLinks()
    {
        const QByteArray outside = env->homeBytes() + "/precious";
        QVERIFY(TestEnv::writeFile(outside + "/keep.txt", "keep"));
        QVERIFY(symlink(outside, time + "/tree/sub/to-precious") == 0);
        QVERIFY(Removal::removeTree(time + "/tree"));
        QVERIFY(!TestEnv::exists(time + "/tree"));
        QCOMPARE(TestEnv::readFile(outside + "/keep.txt"), QByteArray("keep"));
        QVERIFY(Removal::removeTree(time + "/missing"));
    }

    void removeAllCachesTurnsProtectionOff()
    {
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        Removal::removeAllCaches();
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(0));
        QVERIFY(!TestEnv::exists(env->homeBytes() + "/.Salvora3Cache"));
    }

    void deleteRequestReachesTheBus()
    {
        if (!QDBusConnection::sessionBus().isConnected()) QSKIP("no session bus");
        NotificationBus listener;
        QVERIFY(listener.observe(QLatin1String(Notifications::Salvora3DaemonNotification)));
        QSignalSpy spy(&listener, &NotificationBus::received);
        const QByteArrayList paths{time + "/b\xff\xfe.bin", time + "/a.txt"};
        QVERIFY(Removal::postDeleteRequest(paths));
        QTRY_COMPARE(spy.size(), 1);
        QCOMPARE(spy[0][1].toString(), QLatin1String(Notifications::Salvora3DaemonMustDelete));
        QCOMPARE(NotificationBus::deleteListFrom(spy[0][2].toMap()), paths);
    }
};

QTEST_GUILESS_MAIN(TstRestoreRemoval)
#include "tst_restore_removal.moc"
