#include "DaemonHarness.h"

#include "cache/FolderWalk.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTest>

#include <unistd.h>

using namespace Harness;

// What the daemon costs: nothing while nothing happens, and a large trashed folder is in the
// cache well within a second of its deletion.
class TstDaemonPerf : public QObject
{
    Q_OBJECT
    Session *s = nullptr;
    QByteArray cache, trash;

    static constexpr int kFolders = 100;
    static constexpr int kFilesPerFolder = 100;

    // A trashed folder of kFolders * kFilesPerFolder files, once the agent has its shadow.
    bool trashBigTree(const QByteArray &name)
    {
        const QByteArray root = s->home + '/' + name;
        for (int d = 0; d < kFolders; ++d)
            for (int f = 0; f < kFilesPerFolder; ++f)
                if (!TestEnv::writeFile(root + "/d" + QByteArray::number(d) + "/f" +
                                            QByteArray::number(f),
                                        QByteArray::number(d * 1000 + f)))
                    return false;
        return trashByHand(trash, root, name) &&
               QTest::qWaitFor([&] { return shadowMs(name) >= 0; }, 20000);
    }

    // The agent's own figure for the last shadow it took of `name`.
    qint64 shadowMs(const QByteArray &name)
    {
        const QRegularExpression re(
            QStringLiteral("shadow of %1 : (\\d+) linked.* in (\\d+) ms").arg(QLatin1String(name)));
        const auto m = re.match(QString::fromUtf8(s->daemon.output()));
        return m.hasMatch() && m.captured(1).toInt() == kFolders * kFilesPerFolder
                   ? m.captured(2).toLongLong()
                   : -1;
    }

    // Deletes an item out of the trash and reports how long until the daemon announced it kept.
    qint64 commitAfter(const std::function<void()> &deletion, const QByteArray &name)
    {
        s->spy.clear();
        deletion();
        QElapsedTimer t;
        t.start();
        const auto announced = [&] { return s->heard(Notifications::Salvora3DataMovedToCache); };
        if (!QTest::qWaitFor([&] { return announced() > 0; }, 10000)) return -1;
        const qint64 ms = t.elapsed();
        const QByteArray item = kept(cache, name);
        return !item.isEmpty() && FolderWalk::countTree(item).files == kFolders * kFilesPerFolder
                   ? ms
                   : -1;
    }

private slots:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        s = new Session;
        cache = s->home + "/.Salvora3Cache";
        trash = s->home + "/.local/share/Trash";
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        QVERIFY2(s->daemon.start(), s->daemon.output().constData());
    }

    void cleanupTestCase()
    {
        const bool clean = !s || s->daemon.stop();
        delete s;
        QVERIFY(clean);
    }

    void idleUsesNoCpu()
    {
        QTest::qWait(500); // start-up work done
        const qint64 before = cpuTicks(s->daemon.pid());
        QVERIFY(before >= 0);
        QTest::qWait(10000);
        const qint64 used = cpuTicks(s->daemon.pid()) - before;
        qInfo("CPU used by the idle daemon over 10 s: %lld tick(s) of 1/%ld s", used,
              sysconf(_SC_CLK_TCK));
        QVERIFY(used <= 1);
    }

    void largeFolderIsKeptWithinASecond()
    {
        // GNOME's way: files/X is renamed into expunged/, then deleted there at leisure.
        QVERIFY(trashBigTree("big"));
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
        QVERIFY(trashBigTree("big2"));
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
