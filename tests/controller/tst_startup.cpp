#include "WindowFixture.h"

#include "common/Alerts.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "ui/MessageBoxPresenter.h"

#include <QApplication>
#include <QDialog>
#include <QFile>
#include <QMainWindow>
#include <QToolBar>
#include <QToolButton>

// Start-up and shutdown of the window: first-launch settings, the timed follow-ups, the log.
class TstStartup : public QObject
{
    Q_OBJECT

    // Waits until `cond` holds, then returns the elapsed time in ms (-1 on timeout).
    template <typename F> static qint64 msUntil(const QElapsedTimer &clock, F cond)
    {
        return QTest::qWaitFor(cond, 5000) ? clock.elapsed() : -1;
    }

    // A window whose help document exists.
    static void withHelp(TestDelegate &c, const TestEnv &env)
    {
        c.helpPath = env.home() + QStringLiteral("/help.rtf");
        TestEnv::writeFile(QFile::encodeName(c.helpPath), "{\\rtf1 help}");
    }

private slots:
    void initTestCase()
    {
        Texts::install(*QCoreApplication::instance());
        QCoreApplication::setApplicationVersion(QStringLiteral("3.0.0"));
    }

    void firstLaunch()
    {
        TestEnv env;
        TestDelegate c;
        withHelp(c, env);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(c.applicationDidFinishLaunching());

        QVERIFY(c.probe.firstUse());
        // Seconds since 2001.
        QVERIFY(Settings::integer(SettingsKeys::FirstUse).value_or(0) > 700000000);
        for (const char *key :
             {SettingsKeys::PrefsProtectionEnabled, SettingsKeys::PrefsLaunchMenu})
            QCOMPARE(Settings::integer(key), 1);
        QCOMPARE(Settings::integer(SettingsKeys::PrefsRemoveFromCache), 14);
        QVERIFY(c.ui.window->isVisible() && c.ui.mAboutWindow->isVisible());
        QCOMPARE(c.ui.mAboutVersion->text(), QStringLiteral("3.0.0"));
        QCOMPARE(c.ui.window->windowTitle(), QStringLiteral("Salvora 3"));
        QVERIFY(Fixture::logText().contains("Salvora 3 Launched."));

        // The preferences after 0.5 s, help after 1.0 s, the about box gone after 2.0 s.
        const qint64 prefs = msUntil(clock, [&] { return c.ui.mPreferencesWindow->isVisible(); });
        QVERIFY2(prefs >= 450 && prefs < 1000, qPrintable(QString::number(prefs)));
        const qint64 help = msUntil(clock, [&] { return !c.openedFiles.isEmpty(); });
        QVERIFY2(help >= 950 && help < 1600, qPrintable(QString::number(help)));
        QCOMPARE(c.openedFiles, QStringList{c.helpPath});
        QVERIFY(c.ui.mAboutWindow->isVisible());
        const qint64 about = msUntil(clock, [&] { return !c.ui.mAboutWindow->isVisible(); });
        QVERIFY2(about >= 1950 && about < 2600, qPrintable(QString::number(about)));
        // The companion is not installed by a first launch.
        QTest::qWait(200);
        QVERIFY(c.menuInstalledAt.isEmpty());
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
    // window; the daemon, the companion, the volume list, the cache folder and the toolbar are
    // there. Launch and quit log one line each, however often quit is called.
    void laterLaunch()
    {
        TestEnv env;
        Fixture::setLaterLaunch();
        const QByteArray before = TestEnv::readFile(QFile::encodeName(Settings::fileName()));
        {
            TestDelegate c;
            withHelp(c, env);
            QVERIFY(Alerts::presenter() == nullptr);
            QVERIFY(c.applicationDidFinishLaunching());
            QVERIFY(!c.probe.firstUse());
            QVERIFY(dynamic_cast<MessageBoxPresenter *>(Alerts::presenter()) != nullptr);
            QCOMPARE(c.daemonStarts, 1);
            // The volume list arrives after 0.15 s, never at once.
            QCOMPARE(c.ui.mSelectedVolumeMenu->count(), 0);
            QTRY_COMPARE_WITH_TIMEOUT(c.ui.mSelectedVolumeMenu->count(), 1, 2000);
            QTRY_COMPARE_WITH_TIMEOUT(c.menuInstalledAt.size(), 1, 2000);
            QVERIFY2(c.menuInstalledAt[0] >= 90 && c.menuInstalledAt[0] < 600,
                     qPrintable(QString::number(c.menuInstalledAt[0])));
            // The start-up volume's cache folder exists from the start.
            QVERIFY(TestEnv::exists(Fixture::cachePath(env)));
            // The window's toolbar is the commands' one (its layout is tst_actions' business).
            QStringList ids;
            for (QAction *a : c.ui.mToolbar->actions())
                ids.append(a->objectName());
            QCOMPARE(ids, WindowActions::toolbarAllowedItemIdentifiers());
            // Protection on: only the off switch is enabled.
            QVERIFY(!c.ui.mProtectionONButton->isEnabled() &&
                    c.ui.mProtectionOFFButton->isEnabled());
            QTest::qWait(1200);
            QVERIFY(c.openedFiles.isEmpty() && !c.ui.mPreferencesWindow->isVisible());
            QCOMPARE(TestEnv::readFile(QFile::encodeName(Settings::fileName())), before);
            c.applicationWillTerminate();
            c.applicationWillTerminate();
        }
        QVERIFY(Alerts::presenter() == nullptr);
        const QByteArray log = Fixture::logText();
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
        QVERIFY(Fixture::logText().isEmpty());
        QTest::qWait(300);
        QVERIFY(c.menuInstalledAt.isEmpty());
        QCOMPARE(c.ui.mSelectedVolumeMenu->count(), 0); // nothing scheduled either
    }
};

QTEST_MAIN(TstStartup)
#include "tst_startup.moc"
