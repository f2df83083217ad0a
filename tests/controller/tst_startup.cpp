#include "WindowFixture.h"

#include "common/Alerts.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "ui/MessageBoxPresenter.h"

#include <QApplication>
#include <QComboBox>
#include <QFile>

// Start-up and shutdown of the window: first-launch settings, the timed follow-ups, the log.
class TstStartup : public QObject
{
    Q_OBJECT

    // A window whose help document exists.
    static void withHelp(TestDelegate &c, const TestEnv &env)
    {
        c.helpPath = env.home() + QStringLiteral("/help.rtf");
        TestEnv::writeFile(QFile::encodeName(c.helpPath), "{\\rtf1 help}");
    }

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }

    // The first launch writes the defaults, then opens the preferences, help, and closes the
    // about box; it leaves the companion alone.
    void firstLaunch()
    {
        TestEnv env;
        TestDelegate c;
        withHelp(c, env);
        QVERIFY(c.applicationDidFinishLaunching());

        QVERIFY(c.probe.firstUse());
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), 1);
        QCOMPARE(Settings::integer(SettingsKeys::PrefsRemoveFromCache), 14);
        QVERIFY(c.ui.window->isVisible() && c.ui.mAboutWindow->isVisible());
        QTRY_VERIFY_WITH_TIMEOUT(c.ui.mPreferencesWindow->isVisible(), 3000);
        QTRY_COMPARE_WITH_TIMEOUT(c.openedFiles, QStringList{c.helpPath}, 3000);
        QTRY_VERIFY_WITH_TIMEOUT(!c.ui.mAboutWindow->isVisible(), 5000);
        QCOMPARE(c.menuInstalls, 0);
        c.ui.mPreferencesWindow->reject();
    }

    void missingFirstUseOnly()
    {
        TestEnv env;
        Fixture::setLaterLaunch();
        Settings::remove(SettingsKeys::FirstUse);
        Settings::setInteger(SettingsKeys::PrefsLaunchMenu, 0);
        TestDelegate c;
        withHelp(c, env);
        QVERIFY(c.applicationDidFinishLaunching());
        QVERIFY(c.probe.firstUse());
        QVERIFY(Settings::contains(SettingsKeys::FirstUse));
        QCOMPARE(Settings::integer(SettingsKeys::PrefsLaunchMenu), 0); // untouched
        QTRY_COMPARE_WITH_TIMEOUT(c.openedFiles.size(), 1, 3000);
        QVERIFY(!c.ui.mPreferencesWindow->isVisible());
    }

    // A later launch writes no setting and opens neither help nor the preferences; the
    // privilege checks' alerts need the presenter before they run, and it leaves with the
    // window; the daemon, the companion, the volume list and the cache folder are there.
    // Launch and quit log one line each, however often quit is called.
    void laterLaunch()
    {
        TestEnv env;
        Fixture::setLaterLaunch();
        const QByteArray before = TestEnv::readFile(QFile::encodeName(Settings::fileName()));
        {
            TestDelegate c;
            withHelp(c, env);
            QVERIFY(c.applicationDidFinishLaunching());
            QVERIFY(dynamic_cast<MessageBoxPresenter *>(Alerts::presenter()) != nullptr);
            QCOMPARE(c.daemonStarts, 1);
            QTRY_COMPARE_WITH_TIMEOUT(c.ui.mSelectedVolumeMenu->count(), 1, 2000);
            QTRY_COMPARE_WITH_TIMEOUT(c.menuInstalls, 1, 2000);
            // The start-up volume's cache folder exists from the start.
            QVERIFY(TestEnv::exists(Fixture::cachePath(env)));
            QTest::qWait(1200);
            QVERIFY(c.openedFiles.isEmpty() && !c.ui.mPreferencesWindow->isVisible());
            QCOMPARE(TestEnv::readFile(QFile::encodeName(Settings::fileName())), before);
            c.applicationWillTerminate();
            c.applicationWillTerminate();
        }
        QVERIFY(Alerts::presenter() == nullptr);
        const QByteArray log = TestEnv::logText();
        QCOMPARE(log.count("Salvora 3 Launched."), 1);
        QCOMPARE(log.count("Salvora 3 quits."), 1);
        QVERIFY(log.indexOf("quits.") < log.indexOf("Launched.")); // newest first
    }

    void refusedPrivilegesEndSilently()
    {
        TestEnv env;
        TestDelegate c;
        c.allowPrivileges = false;
        QVERIFY(!c.applicationDidFinishLaunching());
        QCOMPARE(c.terminated, 1);
        QCOMPARE(c.daemonStarts, 0);
        QVERIFY(!Settings::contains(SettingsKeys::FirstUse));
        QVERIFY(!c.ui.window->isVisible());
        c.applicationWillTerminate();
        QVERIFY(TestEnv::logText().isEmpty());
        QTest::qWait(300);
        QCOMPARE(c.menuInstalls, 0);
        QCOMPARE(c.ui.mSelectedVolumeMenu->count(), 0); // nothing scheduled either
    }
};

QTEST_MAIN(TstStartup)
#include "tst_startup.moc"
