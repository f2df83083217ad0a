// The window's side of the notifications: what each received object refreshes, the version
// notice's text comparison, the protection switch and the status request, on a private bus.

#include "TestEnv.h"

#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "logic/NotificationProtocol.h"

#include <QCoreApplication>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

namespace {

class Recorder : public NotificationTarget
{
public:
    QStringList calls;
    QString noticeText;
    std::optional<bool> noticeHidden;

    void updateListOfDaysInCache() override { calls.append(QStringLiteral("days")); }
    void updateListOfContentsInCache() override { calls.append(QStringLiteral("contents")); }
    void updateStatusInfos() override { calls.append(QStringLiteral("status")); }
    void setProtectionEnabledBox(bool checked) override
    {
        calls.append(checked ? QStringLiteral("box:on") : QStringLiteral("box:off"));
    }
    void setNewVersionNotice(const QString &text, bool hidden) override
    {
        calls.append(QStringLiteral("notice"));
        noticeText = text;
        noticeHidden = hidden;
    }
    void openLogs() override { calls.append(QStringLiteral("logs")); }
};

const QString kWindow = QLatin1String(Notifications::Salvora3Notification);

} // namespace

class TstNotificationProtocol : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;

private slots:
    void initTestCase()
    {
        Texts::install(*QCoreApplication::instance());
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
    }
    void init() { env = new TestEnv; }
    void cleanup()
    {
        delete env;
        env = nullptr;
    }

    void versionComparisonIsLiteral_data()
    {
        QTest::addColumn<QString>("running");
        QTest::addColumn<QString>("latest");
        QTest::addColumn<bool>("hidden");
        const auto row = [](const char *name, const char *running, const char *latest,
                            bool hidden) { QTest::newRow(name) << running << latest << hidden; };
        row("equal", "3.2", "3.2", true);
        row("newer available", "3.2", "9.9", false);
        // Text order, kept on purpose: 3.10 sorts before 3.9.
        row("3.10 running, 3.9 latest", "3.10", "3.9", false);
        row("3.9 running, 3.10 latest", "3.9", "3.10", true);
        row("longer running with latest as prefix", "3.0.1", "3.0", false);
    }
    void versionComparisonIsLiteral()
    {
        QFETCH(QString, running);
        QFETCH(QString, latest);
        QFETCH(bool, hidden);
        QCOMPARE(NotificationProtocol::isNewVersionHidden(running, latest), hidden);
    }

    void newVersionReadsTheFirstLine()
    {
        Recorder r;
        NotificationProtocol p(r);
        p.setRunningVersionForTesting(QStringLiteral("3.2"));

        p.newVersion(); // no setting: the notice keeps its state
        QVERIFY(r.calls.isEmpty());

        Settings::setString(SettingsKeys::version, QStringLiteral("9.9\nfixes\n"));
        p.newVersion();
        QCOMPARE(r.noticeHidden, std::optional<bool>(false));
        QCOMPARE(r.noticeText, NotificationProtocol::newVersionText(QStringLiteral("9.9"),
                                                                    QStringLiteral("3.2")));
    }

    // What each received object refreshes; a change of settings is logged even without the
    // key; objects for others change nothing; a new version is told (after a pause).
    void receivedObjects()
    {
        using namespace Notifications;
        Recorder r;
        NotificationProtocol p(r);
        p.receiveNotification(kWindow, QString());
        p.receiveNotification(kWindow, QStringLiteral("Salvora3SomethingElse"));
        p.receiveNotification(QLatin1String(Salvora3MenuNotification),
                              QLatin1String(Salvora3CacheModified));
        QVERIFY(TestEnv::logText().isEmpty());
        p.receiveNotification(kWindow, QLatin1String(Salvora3SettingsDidChange));
        QVERIFY(r.calls.isEmpty());
        QVERIFY(
            TestEnv::logText().contains("Salvora 3 receive a notification: Settings did change."));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        p.receiveNotification(kWindow, QLatin1String(Salvora3SettingsDidChange));
        QCOMPARE(TestEnv::logText().count("Settings did change."), 2);
        p.receiveNotification(kWindow, QLatin1String(Salvora3CacheModified));
        p.receiveNotification(kWindow, QLatin1String(Salvora3DataMovedToCache));
        QCOMPARE(r.calls, QStringList({"box:off", "status", "days", "contents", "status", "days",
                                       "contents", "status"}));
        Settings::setString(SettingsKeys::version, QStringLiteral("99.0"));
        p.receiveNotification(kWindow, QLatin1String(Salvora3NewVersion));
        QTRY_COMPARE_WITH_TIMEOUT(r.calls.last(), QStringLiteral("notice"), 5000);
        QCOMPARE(r.noticeHidden, std::optional<bool>(false));
    }

    void toggleAndSwitchProtection()
    {
        NotificationBus companion;
        QVERIFY(companion.observe(QLatin1String(Notifications::Salvora3MenuNotification)));
        QSignalSpy heard(&companion, &NotificationBus::received);
        Recorder r;
        NotificationProtocol p(r);

        p.toggleProtection();
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(1));
        p.toggleProtection();
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(0));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 5);
        p.toggleProtection();
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(0));
        p.protectionON();
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(1));

        // The sheet's check box is never touched by the switch.
        QCOMPARE(r.calls, QStringList({"status", "status", "status", "status"}));
        QTRY_COMPARE(heard.size(), 4);
        for (const QList<QVariant> &n : std::as_const(heard))
            QCOMPARE(n[1].toString(), QLatin1String(Notifications::Salvora3SettingsDidChange));
    }

    void getStatusAsksCompanionThenDaemonThenOpensTheLog()
    {
        NotificationBus listener;
        QVERIFY(listener.observe(QLatin1String(Notifications::Salvora3MenuNotification)));
        QVERIFY(listener.observe(QLatin1String(Notifications::Salvora3DaemonNotification)));
        QSignalSpy heard(&listener, &NotificationBus::received);
        Recorder r;
        NotificationProtocol p(r);
        p.getStatus();
        QTRY_COMPARE(heard.size(), 2);
        QCOMPARE(heard[0][0].toString(), QLatin1String(Notifications::Salvora3MenuNotification));
        QCOMPARE(heard[1][0].toString(), QLatin1String(Notifications::Salvora3DaemonNotification));
        QCOMPARE(heard[1][1].toString(), QLatin1String(Notifications::Salvora3GetStatus));
        QTRY_COMPARE(r.calls, QStringList({"logs"}));
    }
};

QTEST_GUILESS_MAIN(TstNotificationProtocol)
#include "tst_notificationprotocol.moc"
