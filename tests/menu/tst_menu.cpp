// "Salvora 3 Menu" on a private session bus, offscreen (no tray): the controller in this
// process, then the real program as the session would run it; and the programs that live for a
// session end with it (the agent would otherwise keep its root helper alive too).

#include "TestEnv.h"

#include "MenuController.h"
#include "common/Log.h"
#include "common/LossWatch.h"
#include "common/Losses.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/SizeText.h"
#include "common/Texts.h"
#include "ui/LossesDialog.h"

#include <QAction>
#include <QApplication>
#include <QDBusConnectionInterface>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTreeWidget>

#include <csignal>
#include <sys/stat.h>

using namespace Notifications;
using namespace SettingsKeys;

namespace {

QStringList actionTexts(const QMenu *menu)
{
    QStringList texts;
    for (const QAction *a : menu->actions())
        if (!a->isSeparator()) texts.append(a->text());
    return texts;
}

void post(const char *name, const char *object)
{
    NotificationBus::post(QLatin1String(name), QLatin1String(object));
}

// Starts a private bus; its address and the pid to end it with.
bool startBus(QProcessEnvironment &env, pid_t &pid)
{
    QProcess p;
    p.start(QStringLiteral("dbus-daemon"),
            {QStringLiteral("--session"), QStringLiteral("--fork"),
             QStringLiteral("--print-address=1"), QStringLiteral("--print-pid=1")});
    if (!p.waitForFinished(10000) || p.exitCode() != 0) return false;
    const QList<QByteArray> lines = p.readAllStandardOutput().trimmed().split('\n');
    if (lines.size() < 2) return false;
    env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromUtf8(lines[0].trimmed()));
    pid = pid_t(lines[1].trimmed().toLongLong());
    return pid > 0;
}

} // namespace

class TstMenu : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray day;

    void addToCache(const QByteArray &name, qsizetype bytes)
    {
        QVERIFY(TestEnv::writeFile(day + "/2024-05-03 10_00_00/" + name, QByteArray(bytes, 'x')));
        ::unlink((day + "/.Salvora3_CacheInformation").constData()); // as the daemon resets it
    }

    MenuController::Options fakePrograms()
    {
        const QByteArray daemon = env->homeBytes() + "/bin/sv3daemon";
        TestEnv::writeFile(daemon, "#!/bin/sh\ntouch \"$HOME/daemon-started\"\n");
        ::chmod(daemon.constData(), 0755);
        return {QFile::decodeName(daemon), QFile::decodeName(env->homeBytes() + "/bin/salvora3")};
    }

private slots:
    void initTestCase()
    {
        Texts::install(*qApp);
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
    }
    void init()
    {
        env = new TestEnv;
        day = env->homeBytes() + "/.Salvora3Cache/2024-05-03";
    }
    void cleanup()
    {
        QDBusConnection::sessionBus().unregisterService(QLatin1String(kDaemonService));
        delete env;
    }

    void showsAndFollowsTheState()
    {
        Settings::setInteger(PrefsProtectionEnabled, 1);
        addToCache("a", 12345);
        MenuController menu(fakePrograms());
        QSignalSpy quit(&menu, &MenuController::quitRequested);
        menu.start();

        QVERIFY(menu.protectionEnabled());
        QTRY_COMPARE(menu.cacheSize(), qint64(12345));
        QCOMPARE(actionTexts(menu.menu()).mid(0, 2),
                 (QStringList{qtTrId("MenuStateOn"),
                              qtTrId("MenuSize").arg(CommonUtils::getSizeStr(12345))}));

        // Another process switches protection off and says so (how fast: theProgram).
        Settings::setInteger(PrefsProtectionEnabled, 0);
        post(Salvora3MenuNotification, Salvora3SettingsDidChange);
        QTRY_VERIFY_WITH_TIMEOUT(!menu.protectionEnabled(), 1000);

        // Its own command stores the switch and tells the window and the daemon.
        NotificationBus window;
        window.observe(QLatin1String(Salvora3Notification));
        QSignalSpy told(&window, &NotificationBus::received);
        menu.protectionOnAction()->trigger();
        QCOMPARE(Settings::integer(PrefsProtectionEnabled), std::optional<qint64>(1));
        QTRY_COMPARE(told.size(), 1);
        QCOMPARE(told[0][1].toString(), QLatin1String(Salvora3SettingsDidChange));

        // The caches grew.
        addToCache("b", 1000);
        post(Salvora3Notification, Salvora3DataMovedToCache);
        QTRY_COMPARE(menu.cacheSize(), qint64(13345));

        post(Salvora3MenuNotification, Salvora3GetStatus);
        QTRY_VERIFY(TestEnv::logText().contains(
            "Salvora 3 Menu status: protection on, caches 13345 bytes, no system tray."));
        QCOMPARE(quit.size(), 0);
        post(Salvora3MenuNotification, Salvora3MenuMustQuit);
        QTRY_COMPARE(quit.size(), 1);
    }

    // A line while items that could not be kept are unseen; it opens their list.
    void lossesLine()
    {
        MenuController menu(fakePrograms());
        menu.start();
        QVERIFY(!menu.lossesAction()->isVisible());
        QVERIFY(Losses::record({QDateTime::currentDateTime(), "/home/u/big.iso",
                                QStringLiteral("no space left"), false}));
        QTRY_VERIFY_WITH_TIMEOUT(menu.lossesAction()->isVisible(), 3000);
        menu.lossesAction()->trigger();
        QVERIFY(menu.lossesDialog() && menu.lossesDialog()->isVisible());
        QCOMPARE(menu.lossesDialog()->list()->topLevelItemCount(), 1);
        menu.lossesDialog()->markSeenButton()->click();
        QVERIFY(!menu.lossesAction()->isVisible());
    }

    void startsTheDaemonOnlyWhenNobodyOwnsItsName()
    {
        const QString marker = env->home() + QStringLiteral("/daemon-started");
        {
            MenuController menu(fakePrograms());
            menu.start();
            QTRY_VERIFY(QFileInfo::exists(marker));
        }
        QFile::remove(marker);
        QVERIFY(QDBusConnection::sessionBus().registerService(QLatin1String(kDaemonService)));
        MenuController menu(fakePrograms());
        menu.start();
        QTRY_VERIFY(menu.cacheSize() >= 0);
        QTest::qWait(200);
        QVERIFY(!QFileInfo::exists(marker));
    }

    // The real program: one per session, answers the bus, quits on request (what it follows:
    // showsAndFollowsTheState).
    void theProgram()
    {
        // Pretend the daemon runs, so that the program does not start the real one.
        QVERIFY(QDBusConnection::sessionBus().registerService(QLatin1String(kDaemonService)));
        Settings::setInteger(PrefsProtectionEnabled, 1);
        const QString program =
            QCoreApplication::applicationDirPath() + QStringLiteral("/salvora3-menu");
        QProcess first;
        first.start(program, {});
        QVERIFY(first.waitForStarted());
        QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        QTRY_VERIFY_WITH_TIMEOUT(bus->isServiceRegistered(QLatin1String(kMenuService)), 10000);

        QProcess second;
        second.start(program, {});
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(first.state(), QProcess::Running);

        post(Salvora3MenuNotification, Salvora3MenuMustQuit);
        QVERIFY(first.waitForFinished(5000));
        QCOMPARE(first.exitStatus(), QProcess::NormalExit);
        QCOMPARE(first.exitCode(), 0);
    }

    // Once the session bus goes away, the companion's watch fires and the agent quits.
    void sessionEndsWithItsBus()
    {
        QProcessEnvironment e;
        pid_t bus = 0;
        if (!startBus(e, bus)) QSKIP("no dbus-daemon to start");
        const QString name = QStringLiteral("session-end-test");
        QDBusConnection connection = QDBusConnection::connectToBus(
            e.value(QStringLiteral("DBUS_SESSION_BUS_ADDRESS")), name);
        QVERIFY(connection.isConnected());
        bool ended = false;
        QObject context;
        NotificationBus::whenSessionEnds(
            &context, [&] { ended = true; }, 50, connection);
        // The agent on the same bus, alone (no root helper).
        QProcess agent;
        agent.setProcessEnvironment(e);
        agent.start(QStringLiteral(SALVORA_AGENT));
        QVERIFY(agent.waitForStarted());
        QTest::qWait(500);
        QVERIFY(!ended); // a live bus is left alone
        QCOMPARE(agent.state(), QProcess::Running);
        ::kill(bus, SIGTERM);
        QTRY_VERIFY_WITH_TIMEOUT(ended, 5000);
        QVERIFY(agent.waitForFinished(6000));
        QDBusConnection::disconnectFromBus(name);
    }

    // The window quits on SIGTERM (a session ending; SIGINT takes the same handler) as when its
    // last window closes: at once, with status 0, and saying so in the log.
    void windowQuitsOnSignals()
    {
        QProcessEnvironment e;
        pid_t bus = 0;
        if (!startBus(e, bus)) QSKIP("no dbus-daemon to start");
        QProcess window;
        window.setProcessEnvironment(e);
        window.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        window.start(QStringLiteral(SALVORA_WINDOW));
        QVERIFY(window.waitForStarted());
        // Up and running: launched, or asking for its privileges (a build that has none).
        QTest::qWait(1500);
        QCOMPARE(window.state(), QProcess::Running);
        ::kill(pid_t(window.processId()), SIGTERM);
        const bool ended = window.waitForFinished(10000);
        ::kill(bus, SIGTERM);
        QVERIFY(ended);
        QCOMPARE(window.exitStatus(), QProcess::NormalExit);
        QCOMPARE(window.exitCode(), 0);
        if (TestEnv::logText().contains("Salvora 3 Launched."))
            QVERIFY(TestEnv::logText().contains("Salvora 3 quits."));
    }
};

QTEST_MAIN(TstMenu)
#include "tst_menu.moc"
