// The three removal commands: the confirmation whose default is Cancel, what is deleted, the
// order of the window's refresh and the delete request that reaches the daemon on the bus.

#include "TestEnv.h"

#include "common/Alerts.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "controller/RemovalActions.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using RemovalActions::Command;

namespace {

class Presenter : public Alerts::Presenter
{
public:
    QList<Alerts::Alert> shown;
    QList<int> answers; // -1: closed without a button; empty: Return (the default button)
    int present(const Alerts::Alert &alert) override
    {
        shown.append(alert);
        return answers.isEmpty() ? 0 : answers.takeFirst();
    }
};

class Recorder : public RemovalTarget
{
public:
    QStringList calls;
    void updateListOfDaysInCache() override { calls.append(QStringLiteral("days")); }
    void updateListOfContentsInCache() override { calls.append(QStringLiteral("contents")); }
    void updateStatusInfos() override { calls.append(QStringLiteral("status")); }
};

} // namespace

class TstRemovalActions : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    Presenter presenter;
    QByteArray day;
    QByteArray time1, time2;
    QByteArrayList items;

private slots:
    void initTestCase()
    {
        Texts::install(*QCoreApplication::instance());
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
    }
    void init()
    {
        env = new TestEnv;
        presenter.shown.clear();
        presenter.answers.clear();
        Alerts::setPresenter(&presenter);
        day = env->homeBytes() + "/.Salvora3Cache/2024-05-03";
        time1 = day + "/2024-05-03 09_15_00";
        time2 = day + "/2024-05-03 14_07_33";
        items = {time2 + "/caf\xe9.txt", time1 + "/a folder", time1 + "/b.txt"};
        QVERIFY(TestEnv::writeFile(items[0], "x"));
        QVERIFY(TestEnv::writeFile(items[1] + "/inner/deep.txt", "yy"));
        QVERIFY(TestEnv::writeFile(items[2], "zzz"));
        QVERIFY(TestEnv::writeFile(day + "/.Salvora3_CacheInformation", "record"));
    }
    void cleanup()
    {
        Alerts::setPresenter(nullptr);
        delete env;
        env = nullptr;
    }

    void alertsHaveCancelAsDefault()
    {
        for (Command c : {Command::Contents, Command::Days, Command::AllCaches}) {
            const Alerts::Alert a = RemovalActions::confirmationAlert(c);
            QCOMPARE(a.buttons, QStringList({qtTrId("CancelButton"), qtTrId("DeleteButton")}));
            QCOMPARE(a.style, Alerts::Alert::Style::Critical);
            QVERIFY(!a.message.isEmpty() && !a.informativeText.isEmpty());
        }
        QCOMPARE(RemovalActions::confirmationAlert(Command::Days).message,
                 qtTrId("DeleteDaysTitle"));
    }

    void returnCancelsAndNothingHappens()
    {
        NotificationBus daemon;
        QVERIFY(daemon.observe(QLatin1String(Notifications::Salvora3DaemonNotification)));
        QSignalSpy heard(&daemon, &NotificationBus::received);
        Recorder r;
        QVERIFY(!RemovalActions::removeContents(items, r));
        QVERIFY(!RemovalActions::removeSelectedDays({day}, r));
        QVERIFY(!RemovalActions::removeAllCaches(r));
        QCOMPARE(presenter.shown.size(), 3);
        QVERIFY(r.calls.isEmpty());
        for (const QByteArray &p : std::as_const(items))
            QVERIFY(TestEnv::exists(p));
        QVERIFY(!Settings::contains(SettingsKeys::PrefsProtectionEnabled));
        QTest::qWait(150);
        QCOMPARE(heard.size(), 0);
    }

    void noSelectionNoAlert()
    {
        Recorder r;
        QVERIFY(!RemovalActions::removeContents({}, r));
        QVERIFY(!RemovalActions::removeSelectedDays({}, r));
        QVERIFY(presenter.shown.isEmpty());
        QVERIFY(r.calls.isEmpty());
    }

    void closingTheAlertAsksAgain()
    {
        presenter.answers = {-1, 7, RemovalActions::kCancelIndex};
        QVERIFY(!RemovalActions::confirm(Command::Contents));
        QCOMPARE(presenter.shown.size(), 3);
        presenter.shown.clear();
        presenter.answers = {-1, RemovalActions::kDeleteIndex};
        QVERIFY(RemovalActions::confirm(Command::Contents));
        QCOMPARE(presenter.shown.size(), 2);
    }

    void removeContentsDeletesRefreshesThenTellsTheDaemon()
    {
        NotificationBus daemon;
        QVERIFY(daemon.observe(QLatin1String(Notifications::Salvora3DaemonNotification)));
        QSignalSpy heard(&daemon, &NotificationBus::received);
        presenter.answers = {RemovalActions::kDeleteIndex};
        Recorder r;
        // Rows in ascending order, as the window collects them.
        const QByteArrayList selected{items[0], items[1]};
        QVERIFY(RemovalActions::removeContents(selected, r));
        QCOMPARE(r.calls, QStringList({"days", "contents", "status"}));
        QVERIFY(!TestEnv::exists(items[0]));
        QVERIFY(!TestEnv::exists(items[1]));
        QVERIFY(TestEnv::exists(items[2]));
        // The emptied time folder goes, the day stays without its record.
        QVERIFY(!TestEnv::exists(time2));
        QVERIFY(TestEnv::exists(time1));
        QVERIFY(!TestEnv::exists(day + "/.Salvora3_CacheInformation"));

        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(heard[0][1].toString(), QLatin1String(Notifications::Salvora3DaemonMustDelete));
        QCOMPARE(NotificationBus::deleteListFrom(heard[0][2].toMap()), selected);
    }

    void removeDaysRefreshesDaysAndStatusOnly()
    {
        NotificationBus daemon;
        QVERIFY(daemon.observe(QLatin1String(Notifications::Salvora3DaemonNotification)));
        QSignalSpy heard(&daemon, &NotificationBus::received);
        const QByteArray otherDay = env->homeBytes() + "/.Salvora3Cache/2024-05-04";
        QVERIFY(TestEnv::makeFolders(otherDay + "/2024-05-04 10_00_00"));
        presenter.answers = {RemovalActions::kDeleteIndex};
        Recorder r;
        // A day that vanished meanwhile is still named to the daemon.
        const QByteArrayList days{day, otherDay, env->homeBytes() + "/.Salvora3Cache/2024-01-01"};
        QVERIFY(RemovalActions::removeSelectedDays(days, r));
        QCOMPARE(r.calls, QStringList({"days", "status"}));
        QVERIFY(!TestEnv::exists(day));
        QVERIFY(!TestEnv::exists(otherDay));
        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(NotificationBus::deleteListFrom(heard[0][2].toMap()), days);
    }

    void removeAllCachesSwitchesProtectionOff()
    {
        NotificationBus listener;
        QVERIFY(listener.observe(QLatin1String(Notifications::Salvora3DaemonNotification)));
        QVERIFY(listener.observe(QLatin1String(Notifications::Salvora3MenuNotification)));
        QSignalSpy heard(&listener, &NotificationBus::received);
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        presenter.answers = {RemovalActions::kDeleteIndex};
        Recorder r;
        QVERIFY(RemovalActions::removeAllCaches(r));
        QCOMPARE(r.calls, QStringList({"status", "days", "contents"}));
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(0));
        QVERIFY(!TestEnv::exists(env->homeBytes() + "/.Salvora3Cache/2024-05-03"));
        // The companion hears of it; the daemon gets no delete request.
        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(heard[0][0].toString(), QLatin1String(Notifications::Salvora3MenuNotification));
        QCOMPARE(heard[0][1].toString(), QLatin1String(Notifications::Salvora3SettingsDidChange));
        QTest::qWait(150);
        QCOMPARE(heard.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TstRemovalActions)
#include "tst_removal_actions.moc"
