// "Salvora 3 Menu" on a private session bus, offscreen (no tray): the controller in this
// process, then the real program as the session would run it.

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
#include <QElapsedTimer>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTreeWidget>

#include <sys/stat.h>

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

QByteArray logText()
{
    return TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath()));
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
        QDBusConnection::sessionBus().unregisterService(
            QLatin1String(Notifications::kDaemonService));
        delete env;
    }

    void showsAndFollowsTheState()
    {
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        addToCache("a", 12345);
        MenuController menu(fakePrograms());
        QSignalSpy quit(&menu, &MenuController::quitRequested);
        menu.start();

        QVERIFY(!menu.trayAvailable());
        QVERIFY(logText().contains("no system tray is available"));
        QVERIFY(menu.protectionEnabled());
        QVERIFY(!menu.protectionOnAction()->isEnabled());
        QVERIFY(menu.protectionOffAction()->isEnabled());
        QTRY_COMPARE(menu.cacheSize(), qint64(12345));
        QCOMPARE(actionTexts(menu.menu()).mid(0, 2),
                 (QStringList{qtTrId("MenuStateOn"),
                              qtTrId("MenuSize").arg(CommonUtils::getSizeStr(12345))}));

        // Another process switches protection off and says so (how fast: theProgram).
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        post(Notifications::Salvora3MenuNotification, Notifications::Salvora3SettingsDidChange);
        QTRY_VERIFY_WITH_TIMEOUT(!menu.protectionEnabled(), 1000);
        QCOMPARE(actionTexts(menu.menu()).at(0), qtTrId("MenuStateOff"));
        QVERIFY(menu.protectionOnAction()->isEnabled());

        // Its own command stores the switch and tells the window and the daemon.
        NotificationBus window;
        window.observe(QLatin1String(Notifications::Salvora3Notification));
        QSignalSpy told(&window, &NotificationBus::received);
        menu.protectionOnAction()->trigger();
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(1));
        QVERIFY(menu.protectionEnabled());
        QTRY_COMPARE(told.size(), 1);
        QCOMPARE(told[0][1].toString(), QLatin1String(Notifications::Salvora3SettingsDidChange));

        // The caches grew.
        addToCache("b", 1000);
        post(Notifications::Salvora3Notification, Notifications::Salvora3DataMovedToCache);
        QTRY_COMPARE(menu.cacheSize(), qint64(13345));

        post(Notifications::Salvora3MenuNotification, Notifications::Salvora3GetStatus);
        QTRY_VERIFY(logText().contains(
            "Salvora 3 Menu status: protection on, caches 13345 bytes, no system tray."));
        QCOMPARE(quit.size(), 0);
        post(Notifications::Salvora3MenuNotification, Notifications::Salvora3MenuMustQuit);
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
        QCOMPARE(menu.lossWatch()->summary().count, 1);
        QCOMPARE(menu.lossesAction()->text(), menu.lossesText());
        QVERIFY(menu.lossesAction()->isEnabled());
        QVERIFY(actionTexts(menu.menu()).indexOf(menu.lossesText()) == 2); // under the size

        menu.lossesAction()->trigger();
        QVERIFY(menu.lossesDialog() && menu.lossesDialog()->isVisible());
        QCOMPARE(menu.lossesDialog()->list()->topLevelItemCount(), 1);
        menu.lossesDialog()->markSeenButton()->click();
        QVERIFY(!menu.lossesAction()->isVisible());
        QTRY_VERIFY(Losses::unseen().isEmpty());
    }

    void startsTheDaemonOnlyWhenNobodyOwnsItsName()
    {
        const QString marker = env->home() + QStringLiteral("/daemon-started");
        {
            MenuController menu(fakePrograms());
            menu.start();
            QTRY_VERIFY(QFileInfo::exists(marker));
            QTRY_VERIFY(menu.cacheSize() >= 0);
        }
        QFile::remove(marker);
        QVERIFY(QDBusConnection::sessionBus().registerService(
            QLatin1String(Notifications::kDaemonService)));
        MenuController menu(fakePrograms());
        menu.start();
        QTRY_VERIFY(menu.cacheSize() >= 0);
        QTest::qWait(200);
        QVERIFY(!QFileInfo::exists(marker));
    }

    // The real program: one per session, follows a change within a second, quits on request.
    void theProgram()
    {
        // Pretend the daemon runs, so that the program does not start the real one.
        QVERIFY(QDBusConnection::sessionBus().registerService(
            QLatin1String(Notifications::kDaemonService)));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        const QString program =
            QCoreApplication::applicationDirPath() + QStringLiteral("/salvora3-menu");
        QProcess first;
        first.start(program, {});
        QVERIFY(first.waitForStarted());
        QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        QTRY_VERIFY_WITH_TIMEOUT(
            bus->isServiceRegistered(QLatin1String(Notifications::kMenuService)), 10000);

        QProcess second;
        second.start(program, {});
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(first.state(), QProcess::Running);

        post(Notifications::Salvora3MenuNotification, Notifications::Salvora3GetStatus);
        QTRY_VERIFY(logText().contains("Salvora 3 Menu status: protection on"));
        QElapsedTimer clock;
        clock.start();
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        post(Notifications::Salvora3MenuNotification, Notifications::Salvora3SettingsDidChange);
        post(Notifications::Salvora3MenuNotification, Notifications::Salvora3GetStatus);
        QTRY_VERIFY_WITH_TIMEOUT(logText().contains("Salvora 3 Menu status: protection off"), 1000);
        QVERIFY(clock.elapsed() < 1000);

        post(Notifications::Salvora3MenuNotification, Notifications::Salvora3MenuMustQuit);
        QVERIFY(first.waitForFinished(5000));
        QCOMPARE(first.exitStatus(), QProcess::NormalExit);
        QCOMPARE(first.exitCode(), 0);
        QVERIFY(logText().contains("no system tray is available"));
    }
};

QTEST_MAIN(TstMenu)
#include "tst_menu.moc"
