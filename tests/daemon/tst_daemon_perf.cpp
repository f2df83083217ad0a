#include "DaemonHarness.h"
#include "TestEnv.h"

#include "cache/FolderWalk.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Harness;

// What the daemon costs: nothing while nothing happens, and a large trashed folder is in the
// cache well within a second of its deletion.
class TstDaemonPerf : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    Daemon *daemon = nullptr;
    QByteArray home, cache, trash;

    static constexpr int kFolders = 100;
    static constexpr int kFilesPerFolder = 100;

    bool makeBigTree(const QByteArray &root)
    {
        for (int d = 0; d < kFolders; ++d) {
            const QByteArray folder = root + "/d" + QByteArray::number(d);
            if (!TestEnv::makeFolders(folder)) return false;
            for (int f = 0; f < kFilesPerFolder; ++f)
                if (!TestEnv::writeFile(folder + "/f" + QByteArray::number(f),
                                        QByteArray::number(d * 1000 + f)))
                    return false;
        }
        return true;
    }

    bool trashByHand(const QByteArray &path, const QByteArray &name)
    {
        return TestEnv::makeFolders(trash + "/files") && TestEnv::makeFolders(trash + "/info") &&
               TestEnv::writeFile(trash + "/info/" + name + ".trashinfo",
                                  "[Trash Info]\nPath=" + path +
                                      "\nDeletionDate=2024-05-03T14:07:55\n") &&
               ::rename(path.constData(), (trash + "/files/" + name).constData()) == 0;
    }

    // The agent's own figure for the last shadow it took of `name`.
    qint64 shadowMs(const QByteArray &name)
    {
        const QRegularExpression re(
            QStringLiteral("shadow of %1 : (\\d+) linked.* in (\\d+) ms").arg(QLatin1String(name)));
        const auto m = re.match(QString::fromUtf8(daemon->output()));
        return m.hasMatch() && m.captured(1).toInt() == kFolders * kFilesPerFolder
                   ? m.captured(2).toLongLong()
                   : -1;
    }

    // Deletes an item out of the trash and reports how long until the daemon announced it kept.
    qint64 commitAfter(const std::function<void()> &deletion, const QByteArray &name)
    {
        NotificationBus bus;
        bus.observe(QLatin1String(Notifications::Salvora3Notification));
        QSignalSpy spy(&bus, &NotificationBus::received);
        deletion();
        QElapsedTimer t;
        t.start();
        if (!QTest::qWaitFor([&] { return spy.size() > 0; }, 10000)) return -1;
        const qint64 ms = t.elapsed();
        const QByteArrayList items = cachedItems(cache);
        for (const QByteArray &item : items)
            if (item.endsWith('/' + name)) {
                const FolderWalk::Totals totals = FolderWalk::countTree(cache + '/' + item);
                if (totals.files != kFolders * kFilesPerFolder) return -1;
                return ms;
            }
        return -1;
    }

private slots:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        env = new TestEnv;
        home = env->homeBytes();
        cache = home + "/.Salvora3Cache";
        trash = home + "/.local/share/Trash";
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        daemon = new Daemon;
        QVERIFY2(daemon->start(), daemon->output().constData());
    }

    void cleanupTestCase()
    {
        const bool clean = !daemon || daemon->stop();
        delete daemon;
        daemon = nullptr;
        if (env) removeTree(home);
        delete env;
        QVERIFY(clean);
    }

    void idleUsesNoCpu()
    {
        QTest::qWait(500); // start-up work done
        const qint64 before = cpuTicks(daemon->pid());
        QVERIFY(before >= 0);
        QTest::qWait(10000);
        const qint64 used = cpuTicks(daemon->pid()) - before;
        qInfo("CPU used by the idle daemon over 10 s: %lld tick(s) of 1/%ld s", used,
              sysconf(_SC_CLK_TCK));
        QVERIFY(used <= 1);
    }

    void largeFolderIsKeptWithinASecond()
    {
        // GNOME's way: files/X is renamed into expunged/, then deleted there at leisure.
        const QByteArray big = home + "/big";
        QVERIFY(makeBigTree(big));
        QVERIFY(trashByHand(big, "big"));
        QTRY_VERIFY_WITH_TIMEOUT(shadowMs("big") >= 0, 20000);
        qInfo("shadow of a trashed folder of %d files taken in %lld ms", kFolders * kFilesPerFolder,
              shadowMs("big"));
        QVERIFY(TestEnv::makeFolders(trash + "/expunged"));
        const qint64 gnome = commitAfter(
            [&] {
                ::rename((trash + "/files/big").constData(),
                         (trash + "/expunged/1234").constData());
                ::unlink((trash + "/info/big.trashinfo").constData());
            },
            "big");
        qInfo("folder of %d files kept %lld ms after it was moved to expunged/",
              kFolders * kFilesPerFolder, gnome);
        QVERIFY(gnome >= 0);
        QVERIFY(gnome < 1000);
        QVERIFY(removeTree(trash + "/expunged/1234"));

        // KDE's way: the folder is unlinked file by file; its own deletion comes last.
        const QByteArray big2 = home + "/big2";
        QVERIFY(makeBigTree(big2));
        QVERIFY(trashByHand(big2, "big2"));
        QTRY_VERIFY_WITH_TIMEOUT(shadowMs("big2") >= 0, 20000);
        QElapsedTimer unlinking;
        const qint64 kde = commitAfter(
            [&] {
                unlinking.start();
                removeTree(trash + "/files/big2");
                qInfo("unlinking the trashed folder took %lld ms", unlinking.elapsed());
                ::unlink((trash + "/info/big2.trashinfo").constData());
            },
            "big2");
        qInfo("folder of %d files kept %lld ms after its last unlink", kFolders * kFilesPerFolder,
              kde);
        QVERIFY(kde >= 0);
        QVERIFY(kde < 1000);
    }
};

QTEST_GUILESS_MAIN(TstDaemonPerf)
#include "tst_daemon_perf.moc"
