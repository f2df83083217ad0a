#include "DaemonHarness.h"

#include "cache/CacheCommit.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QFileInfo>
#include <QTest>

#include <csignal>
#include <unistd.h>

using namespace Harness;

// The daemon against the home trash, driven by the real tools: GNOME's `gio trash`, trash-cli
// and a KDE-style emptying, plus its settings, purge and delete requests.
class TstDaemonTrash : public DaemonSuite
{
    Q_OBJECT
    QByteArray kept(const QByteArray &name) const { return Harness::kept(cache, name); }
    bool keptAll(const QByteArrayList &names) const
    {
        return std::none_of(names.begin(), names.end(),
                            [&](const QByteArray &n) { return kept(n).isEmpty(); });
    }
    static bool settingsChanged()
    {
        return NotificationBus::post(QLatin1String(Notifications::Salvora3MenuNotification),
                                     QLatin1String(Notifications::Salvora3SettingsDidChange));
    }
    static bool postToDaemon(const char *what, const QVariantMap &info = {})
    {
        return NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                                     QLatin1String(what), info);
    }

private slots:
    void gioTrashThenEmpty()
    {
        if (foreignTrashExists()) QSKIP("another trash of this user would be emptied too");
        const QByteArray work = home + "/gio";
        QVERIFY(
            TestEnv::writeFile(work + "/report.txt", QByteArray("binary\0\x01\xff content", 18)));
        QVERIFY(TestEnv::writeFile(work + "/photos/2024/a.jpg", QByteArray(100000, 'j')));
        QVERIFY(TestEnv::writeFile(work + "/photos/b b.txt", "blank in the name"));
        QVERIFY(TestEnv::writeFile(work + "/photos/caf\xe9.txt", "a name that is not UTF-8"));
        QVERIFY(TestEnv::makeFolders(work + "/photos/empty"));
        QVERIFY(::symlink("2024/a.jpg", (work + "/photos/link").constData()) == 0);
        const QByteArray report = TestEnv::readFile(work + "/report.txt");
        const auto photos = snapshot(work + "/photos");

        const int mark = daemon.shadowsTaken();
        QVERIFY(run(QStringLiteral("gio"),
                    {QStringLiteral("trash"), str(work + "/report.txt"), str(work + "/photos")}));
        QVERIFY(shadowedSince(mark, cache, 2));
        QVERIFY(cachedItems(cache).isEmpty()); // shadows only, until the trash is emptied
        QVERIFY(run(QStringLiteral("gio"), {QStringLiteral("trash"), QStringLiteral("--empty")}));
        QTRY_VERIFY_WITH_TIMEOUT(keptAll({"report.txt", "photos"}), 10000);

        QCOMPARE(TestEnv::readFile(kept("report.txt")), report);
        QCOMPARE(snapshot(kept("photos")), photos);
    }

    void kdeStyleEmpty()
    {
        // KDE (and trash-empty) unlink files/X (a folder recursively), then its .trashinfo; the
        // names here are not UTF-8 and two items carry the same name, which the cache keeps apart.
        const QByteArray work = home + "/kde";
        const QByteArray odd = "r\xe9sum\xe9.txt";
        QVERIFY(TestEnv::writeFile(work + '/' + odd, "latin-1 name"));
        QVERIFY(TestEnv::writeFile(work + "/other/" + odd, "same name, other file"));
        QVERIFY(TestEnv::writeFile(work + "/kdedir/x/y.txt", "y"));
        QVERIFY(TestEnv::writeFile(work + "/kdedir/top.bin", QByteArray(70000, '\0')));
        const auto dir = snapshot(work + "/kdedir");
        const int before = heard(Notifications::Salvora3DataMovedToCache);
        const int mark = daemon.shadowsTaken();
        QVERIFY(trashByHand(trash, work + '/' + odd, odd));
        QVERIFY(trashByHand(trash, work + "/other/" + odd, odd + ".2"));
        QVERIFY(trashByHand(trash, work + "/kdedir", "kdedir"));
        QVERIFY(shadowedSince(mark, cache, 3));
        for (const QByteArray &name : {odd, odd + ".2", QByteArray("kdedir")})
            QVERIFY(emptyByHand(trash, name));
        QTRY_VERIFY_WITH_TIMEOUT(keptAll({odd, "kdedir", "r\xe9sum\xe9 2.txt"}), 10000);
        QCOMPARE(snapshot(kept("kdedir")), dir);
        QCOMPARE((QSet<QByteArray>{TestEnv::readFile(kept(odd)),
                                   TestEnv::readFile(kept("r\xe9sum\xe9 2.txt"))}),
                 QSet<QByteArray>({"latin-1 name", "same name, other file"}));
        QVERIFY(keptFrom(cache, work + "/other/" + odd));
        QTRY_COMPARE(pendingCount(cache), 0); // a shadow goes just after its item is kept
        QTRY_VERIFY(heard(Notifications::Salvora3DataMovedToCache) > before);
    }

    void restoreLeavesNothing()
    {
        const QByteArray work = home + "/restore";
        QVERIFY(TestEnv::writeFile(work + "/back.txt", "restored"));
        QVERIFY(TestEnv::writeFile(work + "/backdir/in.txt", "restored too"));
        const QByteArrayList before = cachedItems(cache);
        QVERIFY(trashPut({work + "/back.txt", work + "/backdir"}));
        QTRY_COMPARE_WITH_TIMEOUT(pendingCount(cache), 2, 10000);
        // A file manager's restore: move the item back, then delete its .trashinfo.
        for (const QByteArray &name : {QByteArray("back.txt"), QByteArray("backdir")}) {
            QVERIFY(::rename((trash + "/files/" + name).constData(),
                             (work + '/' + name).constData()) == 0);
            QVERIFY(::unlink((trash + "/info/" + name + ".trashinfo").constData()) == 0);
        }
        QTRY_COMPARE_WITH_TIMEOUT(pendingCount(cache), 0, 10000);
        QTest::qWait(200);
        QCOMPARE(cachedItems(cache), before);
        QCOMPARE(TestEnv::readFile(work + "/backdir/in.txt"), QByteArray("restored too"));
    }

    void exclusionsAndProtectionOff()
    {
        // The matching rules themselves are tst_cachecommit's; here, that the daemon applies them.
        Settings::setString(SettingsKeys::PrefsExcludeName, QStringLiteral("secret.txt"));
        Settings::setString(SettingsKeys::PrefsExcludeExtension, QStringLiteral("iso;tmp"));
        const QByteArray work = home + "/excl";
        QByteArrayList paths;
        for (const QByteArray n : {"SECRET.TXT", "movie.ISO", "keep.me.txt", ".tmp"}) {
            QVERIFY(TestEnv::writeFile(work + '/' + n, n));
            paths << work + '/' + n;
        }
        const int mark = daemon.shadowsTaken();
        QVERIFY(trashPut(paths));
        QVERIFY(shadowedSince(mark, cache, 2));
        QVERIFY(emptyTrash(trash));
        QTRY_VERIFY_WITH_TIMEOUT(keptAll({"keep.me.txt", ".tmp"}), 10000);
        QVERIFY(kept("SECRET.TXT").isEmpty() && kept("movie.ISO").isEmpty());

        // Protection off: nothing shadowed, nothing kept. (Items trashed meanwhile are shadowed
        // once it is back on: allCachesRemovedWhileItemsWait.)
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        QVERIFY(TestEnv::writeFile(work + "/off.txt", "not kept"));
        QVERIFY(trashPut({work + "/off.txt"}));
        QTest::qWait(300);
        QCOMPARE(pendingCount(cache), 0);
        QVERIFY(emptyByHand(trash, "off.txt"));
        QTest::qWait(300);
        QVERIFY(kept("off.txt").isEmpty());
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        Settings::remove(SettingsKeys::PrefsExcludeName);
        Settings::remove(SettingsKeys::PrefsExcludeExtension);
    }

    void allCachesRemovedWhileItemsWait()
    {
        // The window's "remove all caches": protection off, every cache deleted (shadows with
        // them); when protection comes back, items still in the trash are shadowed again.
        QVERIFY(TestEnv::writeFile(home + "/removeall/waiting.txt", "still in the trash"));
        QVERIFY(trashAndShadow(cache, {home + "/removeall/waiting.txt"}));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        QVERIFY(settingsChanged());
        QVERIFY(removeTree(cache));
        const int mark = daemon.shadowsTaken();
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        QVERIFY(shadowedSince(mark, cache, 1));
        QVERIFY(emptyTrash(trash));
        QTRY_VERIFY_WITH_TIMEOUT(!kept("waiting.txt").isEmpty(), 10000);
    }

    void retentionPurge()
    {
        const auto makeDay = [&](int daysAgo) {
            const QByteArray name = day(-daysAgo);
            TestEnv::writeFile(cache + '/' + name + '/' + name + " 10_00_00/old.txt", "old");
            TestEnv::writeFile(cache + "/.origins/" + name + ".jsonl", "{}\n");
            return cache + '/' + name;
        };
        const auto exists = &TestEnv::exists;
        const QByteArray d20 = makeDay(20), d3 = makeDay(3), d0 = cache + '/' + day();
        const int before = heard(Notifications::Salvora3CacheModified);

        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 10); // noticed on disk
        QTRY_VERIFY_WITH_TIMEOUT(
            TestEnv::logText().contains("sv3daemon purged 1 day(s) older than 10 day(s)"), 10000);
        QVERIFY(!exists(d20) && exists(d3) && exists(d0));
        // Its origins go with it (after the folder: announced once both are gone).
        QVERIFY(!exists(cache + "/.origins/" + d20.mid(cache.size() + 1) + ".jsonl"));
        QTRY_VERIFY(heard(Notifications::Salvora3CacheModified) > before);

        // 0 keeps everything, whatever the age.
        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 0);
        const QByteArray d400 = makeDay(400);
        QVERIFY(settingsChanged());
        QTest::qWait(500);
        QVERIFY(exists(d400) && exists(d3));

        // An announced change purges too, even when the file did not change since.
        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 2);
        QTRY_VERIFY_WITH_TIMEOUT(!exists(d400) && !exists(d3), 10000);
        const QByteArray d5 = makeDay(5);
        QVERIFY(settingsChanged());
        QTRY_VERIFY_WITH_TIMEOUT(!exists(d5), 10000);
        QVERIFY(exists(d0));
        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 0);
    }

    void deleteRequests()
    {
        const QByteArray time = cache + "/2021-01-01/2021-01-01 10_00_00";
        QVERIFY(TestEnv::writeFile(time + "/item.txt", "x"));
        QVERIFY(TestEnv::writeFile(time + "/dir/sub/f.txt", "y"));
        QVERIFY(TestEnv::writeFile(cache + "/2021-01-02/2021-01-02 09_00_00/z.txt", "z"));
        QVERIFY(TestEnv::writeFile(home + "/victim.txt", "must stay"));
        QVERIFY(TestEnv::writeFile(home + "/victimdir/v.txt", "must stay"));
        QVERIFY(::symlink((home + "/victimdir").constData(), (cache + "/2021-01-03").constData()) ==
                0);
        const QByteArrayList request{time + "/item.txt",
                                     time + "/dir",
                                     cache + "/2021-01-02",
                                     home + "/victim.txt",
                                     cache + "/2021-01-01/../../victim.txt",
                                     cache + "/2021-01-03/v.txt",
                                     "relative/path"};
        QVERIFY(postToDaemon(Notifications::Salvora3DaemonMustDelete,
                             NotificationBus::deleteListUserInfo(request)));
        QTRY_VERIFY_WITH_TIMEOUT(
            TestEnv::logText().contains("sv3daemon deleted 3 of 7 item(s) on request."), 10000);
        QVERIFY(!TestEnv::exists(cache + "/2021-01-02"));
        // The emptied time folder goes; its day stays, to be recounted.
        QVERIFY(!TestEnv::exists(time) && TestEnv::exists(cache + "/2021-01-01"));
        QCOMPARE(TestEnv::readFile(home + "/victim.txt"), QByteArray("must stay"));
        QCOMPARE(TestEnv::readFile(home + "/victimdir/v.txt"), QByteArray("must stay"));
        ::unlink((cache + "/2021-01-03").constData());

        // Its status goes to the log.
        QVERIFY(postToDaemon(Notifications::Salvora3GetStatus));
        QTRY_VERIFY_WITH_TIMEOUT(TestEnv::logText().contains("sv3daemon status: protection on;"),
                                 10000);
    }

    void reconcilesAcrossRestarts()
    {
        const QByteArray item = home + "/restart/while-stopped.txt";
        QVERIFY(TestEnv::writeFile(item, "trashed while the daemon was not running"));
        QVERIFY(daemon.stop());
        QVERIFY(trashPut({item}));
        QVERIFY(daemon.start());
        QCOMPARE(pendingCount(cache), 1); // shadowed at start
        QVERIFY(daemon.stop());
        QVERIFY(emptyTrash(trash));
        QVERIFY(daemon.start()); // its item is gone: committed at start, on the worker
        QTRY_VERIFY_WITH_TIMEOUT(!kept("while-stopped.txt").isEmpty(), 5000);
        QTRY_COMPARE(pendingCount(cache), 0);
    }

    void reconcilesAfterLostEvents()
    {
        // With the agent stopped, the kernel's event queue overflows; the item trashed after that
        // is never announced, and must be found by looking again.
        bool ok = false;
        const int limit =
            TestEnv::readFile("/proc/sys/fs/inotify/max_queued_events").trimmed().toInt(&ok);
        if (!ok || limit > 100000) QSKIP("inotify queue too long to overflow quickly");
        const QByteArray noise =
            QFile::encodeName(QFileInfo(Settings::fileName()).absolutePath()) + "/noise-";
        const QByteArray item = home + "/overflow/unannounced.txt";
        QVERIFY(TestEnv::writeFile(item, "x"));
        const int shadows = daemon.shadowsTaken();
        QVERIFY(::kill(pid_t(daemon.pid()), SIGSTOP) == 0);
        // Each write closes a file in the watched settings folder: one event each.
        for (int i = 0; i <= limit; ++i)
            TestEnv::writeFile(noise + QByteArray::number(i), "");
        QVERIFY(trashPut({item}));
        QVERIFY(::kill(pid_t(daemon.pid()), SIGCONT) == 0);
        QTRY_COMPARE_WITH_TIMEOUT(pendingCount(cache), 1, 20000);
        QVERIFY(daemon.waitForShadows(shadows + 1));
        QTRY_VERIFY(TestEnv::logText().contains("sv3daemon missed file system events"));
        QVERIFY(emptyTrash(trash));
        QTRY_VERIFY_WITH_TIMEOUT(!kept("unannounced.txt").isEmpty(), 10000);
        for (int i = 0; i <= limit; ++i)
            ::unlink((noise + QByteArray::number(i)).constData());
    }

    void oneDaemonPerSession()
    {
        QProcess second;
        second.start(binary("sv3daemon"), {});
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 0);
        QVERIFY(daemon.isRunning());
    }
};

QTEST_GUILESS_MAIN(TstDaemonTrash)
#include "tst_daemon_trash.moc"
