// The three removal commands: the confirmation whose default is Cancel, what is deleted, the
// order of the window's refresh and the delete request that reaches the daemon on the bus; the
// deleting on a worker thread, one removal at a time, with its progress, cancel and quit.

#include "AlertRecorder.h"
#include "TestEnv.h"

#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "logic/RemovalActions.h"
#include "logic/RemovalQueue.h"
#include "logic/WorkProgress.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <atomic>
#include <mutex>
#include <optional>

using RemovalActions::Command;

namespace {

class Recorder : public RemovalTarget
{
public:
    QStringList calls;
    void updateListOfDaysInCache() override { calls.append(QStringLiteral("days")); }
    void updateListOfContentsInCache() override { calls.append(QStringLiteral("contents")); }
    void updateStatusInfos() override { calls.append(QStringLiteral("status")); }
};

// What reaches the daemon (and, with `menu`, the companion) on the bus.
struct Listener
{
    NotificationBus bus;
    QSignalSpy heard{&bus, &NotificationBus::received};
    explicit Listener(bool menu = false)
    {
        bus.observe(QLatin1String(Notifications::Salvora3DaemonNotification));
        if (menu) bus.observe(QLatin1String(Notifications::Salvora3MenuNotification));
    }
    QByteArrayList deleted(int i) const
    {
        return NotificationBus::deleteListFrom(heard[i][2].toMap());
    }
};

// A removal queue with its progress, the window it refreshes and its finished signals.
struct Queue
{
    Recorder r;
    WorkProgress progress;
    RemovalQueue queue{&progress};
    QSignalSpy finished{&queue, &RemovalQueue::removalFinished};
};

} // namespace

class TstRemovalActions : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    std::optional<AlertRecorder> presenter; // none left: Return (the default button)
    QByteArray day;
    QByteArray time1, time2;
    QByteArrayList items;

    // `n` one-file items in one time folder of `dayName`, in row order.
    QByteArrayList manyItems(int n, const char *dayName = "2024-05-07")
    {
        const QByteArray time =
            env->homeBytes() + "/.Salvora3Cache/" + dayName + '/' + dayName + " 08_00_00";
        QByteArrayList paths;
        for (int i = 0; i < n; ++i) {
            paths.append(time + "/item " + QByteArray::number(i).rightJustified(3, '0'));
            if (!TestEnv::writeFile(paths.last(), "data")) return {};
        }
        return paths;
    }

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
        presenter.emplace();
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
        presenter.reset();
        delete env;
        env = nullptr;
    }

    // Return (0) cancels and nothing happens (the box itself:
    // tst_actions::removalAlertAnswersWithCancelByDefault). No selection: no alert either.
    void returnCancelsAndNothingHappens()
    {
        Listener l;
        Queue q;
        auto &[r, progress, queue, finished] = q;
        QVERIFY(!RemovalActions::removeContents({}, r, queue));
        QVERIFY(!RemovalActions::removeSelectedDays({}, r, queue));
        QVERIFY(presenter->shown.isEmpty());
        QVERIFY(!RemovalActions::removeContents(items, r, queue));
        QVERIFY(!RemovalActions::removeSelectedDays({day}, r, queue));
        QVERIFY(!RemovalActions::removeAllCaches(r, queue));
        QCOMPARE(presenter->shown.size(), 3);
        QVERIFY(!queue.busy());
        QVERIFY(r.calls.isEmpty());
        for (const QByteArray &p : std::as_const(items))
            QVERIFY(TestEnv::exists(p));
        QVERIFY(!Settings::contains(SettingsKeys::PrefsProtectionEnabled));
        QTest::qWait(150);
        QCOMPARE(l.heard.size(), 0);
    }

    void closingTheAlertAsksAgain()
    {
        presenter->answers = {-1, 7, RemovalActions::kCancelIndex};
        QVERIFY(!RemovalActions::confirm(Command::Contents));
        QCOMPARE(presenter->shown.size(), 3);
    }

    void removeContentsDeletesRefreshesThenTellsTheDaemon()
    {
        Listener l;
        presenter->answers = {RemovalActions::kDeleteIndex};
        Queue q;
        auto &[r, progress, queue, finished] = q;
        // Rows in ascending order, as the window collects them.
        const QByteArrayList selected{items[0], items[1]};
        QVERIFY(RemovalActions::removeContents(selected, r, queue,
                                               [&] { r.calls.append(QStringLiteral("before")); }));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);
        QCOMPARE(r.calls, QStringList({"before", "days", "contents", "status"}));
        QVERIFY(!TestEnv::exists(items[1]) && TestEnv::exists(items[2]));
        // The emptied time folder goes, the day stays without its record.
        QVERIFY(!TestEnv::exists(time2) && TestEnv::exists(time1));
        QVERIFY(!TestEnv::exists(day + "/.Salvora3_CacheInformation"));

        QTRY_COMPARE(l.heard.size(), 1);
        QCOMPARE(l.heard[0][1].toString(), QLatin1String(Notifications::Salvora3DaemonMustDelete));
        QCOMPARE(l.deleted(0), selected);
    }

    void removeDaysRefreshesDaysAndStatusOnly()
    {
        Listener l;
        const QByteArray otherDay = env->homeBytes() + "/.Salvora3Cache/2024-05-04";
        QVERIFY(TestEnv::makeFolders(otherDay + "/2024-05-04 10_00_00"));
        presenter->answers = {RemovalActions::kDeleteIndex};
        Queue q;
        auto &[r, progress, queue, finished] = q;
        // A day that vanished meanwhile is still named to the daemon.
        const QByteArrayList days{day, otherDay, env->homeBytes() + "/.Salvora3Cache/2024-01-01"};
        QVERIFY(RemovalActions::removeSelectedDays(days, r, queue));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);
        QCOMPARE(r.calls, QStringList({"days", "status"}));
        QVERIFY(!TestEnv::exists(day) && !TestEnv::exists(otherDay));
        QTRY_COMPARE(l.heard.size(), 1);
        QCOMPARE(l.deleted(0), days);
    }

    void removeAllCachesSwitchesProtectionOff()
    {
        Listener l(true);
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        presenter->answers = {RemovalActions::kDeleteIndex};
        Queue q;
        auto &[r, progress, queue, finished] = q;
        // Protection is off before the first piece goes.
        std::optional<qint64> protectionAtFirstPiece;
        bool first = true;
        queue.setItemHookForTesting([&](const QByteArray &) {
            if (std::exchange(first, false))
                protectionAtFirstPiece = Settings::integer(SettingsKeys::PrefsProtectionEnabled);
        });
        QVERIFY(RemovalActions::removeAllCaches(r, queue));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);
        QCOMPARE(protectionAtFirstPiece, std::optional<qint64>(0));
        QCOMPARE(r.calls, QStringList({"status", "days", "contents"}));
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(0));
        QVERIFY(!TestEnv::exists(env->homeBytes() + "/.Salvora3Cache"));
        // The companion hears of it; the daemon gets no delete request.
        QTRY_COMPARE(l.heard.size(), 1);
        QCOMPARE(l.heard[0][0].toString(), QLatin1String(Notifications::Salvora3MenuNotification));
        QCOMPARE(l.heard[0][1].toString(), QLatin1String(Notifications::Salvora3SettingsDidChange));
        QTest::qWait(150);
        QCOMPARE(l.heard.size(), 1);
    }

    // The deleting runs on a worker: the command returns at once. Cancelling stops after the
    // item being deleted; the refresh still runs and the daemon is asked for exactly what was
    // handed to deletion, never for what the user spared.
    void cancelStopsAfterTheCurrentItem()
    {
        Listener l;
        const QByteArrayList many = manyItems(40);
        presenter->answers = {RemovalActions::kDeleteIndex};
        Queue q;
        auto &[r, progress, queue, finished] = q;
        queue.setItemHookForTesting([](const QByteArray &) { QThread::msleep(20); });
        QVERIFY(RemovalActions::removeContents(many, r, queue));
        QVERIFY(queue.busy() && r.calls.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(progress.summary(WorkJob::Kind::Removal).done >= 3, 10000);
        progress.cancel(WorkJob::Kind::Removal);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);

        const QByteArrayList handed = finished[0][0].value<QByteArrayList>();
        QVERIFY(handed.size() >= 3 && handed.size() < many.size());
        QCOMPARE(handed, many.mid(0, handed.size()));
        for (qsizetype i = 0; i < many.size(); ++i)
            QCOMPARE(TestEnv::exists(many[i]), i >= handed.size());
        QCOMPARE(r.calls, QStringList({"days", "contents", "status"}));
        QTRY_COMPARE(l.heard.size(), 1);
        QCOMPARE(l.deleted(0), handed);
    }

    // A removal confirmed while another deletes waits its turn; one cancelled before its turn
    // touches nothing, refreshes nothing and tells the daemon nothing.
    void removalsTakeTurns()
    {
        Listener l;
        const QByteArrayList many = manyItems(12);
        const QByteArray otherDay = env->homeBytes() + "/.Salvora3Cache/2024-05-04";
        QVERIFY(TestEnv::writeFile(otherDay + "/2024-05-04 10_00_00/x", "x"));
        presenter->answers = {RemovalActions::kDeleteIndex, RemovalActions::kDeleteIndex};
        Queue q;
        auto &[r, progress, queue, finished] = q;
        std::mutex m;
        QByteArrayList order;
        queue.setItemHookForTesting([&](const QByteArray &p) {
            QThread::msleep(10);
            std::lock_guard lock(m);
            order.append(p);
        });
        QVERIFY(RemovalActions::removeContents(many, r, queue));
        QVERIFY(RemovalActions::removeSelectedDays({otherDay}, r, queue));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, 10000);
        QCOMPARE(order, many + QByteArrayList{otherDay});
        QCOMPARE(r.calls, QStringList({"days", "contents", "status", "days", "status"}));
        QTRY_COMPARE(l.heard.size(), 2);
        QCOMPARE(l.deleted(0), many);
        QCOMPARE(l.deleted(1), QByteArrayList{otherDay});

        // Cancelled while waiting.
        const QByteArrayList more = manyItems(12, "2024-05-05");
        const QByteArray spared = env->homeBytes() + "/.Salvora3Cache/2024-05-06";
        QVERIFY(TestEnv::writeFile(spared + "/2024-05-06 10_00_00/y", "y"));
        Queue second;
        second.queue.setItemHookForTesting([](const QByteArray &) { QThread::msleep(20); });
        l.heard.clear();
        presenter->answers = {RemovalActions::kDeleteIndex, RemovalActions::kDeleteIndex};
        QVERIFY(RemovalActions::removeContents(more, second.r, second.queue));
        QVERIFY(RemovalActions::removeSelectedDays({spared}, second.r, second.queue));
        QTRY_VERIFY(second.progress.summary(WorkJob::Kind::Removal).done >= 1);
        // Both counted in one bar.
        QCOMPARE(second.progress.summary(WorkJob::Kind::Removal).total, 13);
        second.progress.cancel(WorkJob::Kind::Removal);
        QTRY_COMPARE_WITH_TIMEOUT(second.finished.size(), 2, 10000);
        QVERIFY(second.finished[1][0].value<QByteArrayList>().isEmpty());
        QVERIFY(TestEnv::exists(spared + "/2024-05-06 10_00_00/y"));
        QCOMPARE(second.r.calls, QStringList({"days", "contents", "status"}));
        QTRY_COMPARE(l.heard.size(), 1);
        QTest::qWait(100);
        QCOMPARE(l.heard.size(), 1);
    }

    // Quitting stops the removal after its current item and waits for it; the daemon still
    // hears of what was handed to deletion; the dying window is not refreshed.
    void quitWaitsForTheItemBeingDeleted()
    {
        Listener l;
        const QByteArrayList many = manyItems(20);
        presenter->answers = {RemovalActions::kDeleteIndex};
        Recorder r;
        WorkProgress progress;
        auto queue = std::make_unique<RemovalQueue>(&progress);
        std::atomic<int> inHook{0};
        queue->setItemHookForTesting([&](const QByteArray &) {
            inHook.fetch_add(1);
            QThread::msleep(100);
        });
        QVERIFY(RemovalActions::removeContents(many, r, *queue));
        QTRY_VERIFY(inHook.load() >= 2);
        QVERIFY(queue->shutdown(5000));
        const int handed = inHook.load();
        QVERIFY(handed < many.size());
        for (qsizetype i = 0; i < many.size(); ++i)
            QCOMPARE(TestEnv::exists(many[i]), i >= handed);
        queue.reset();
        QTRY_COMPARE(l.heard.size(), 1);
        QCOMPARE(l.deleted(0), many.mid(0, handed));
        QVERIFY(r.calls.isEmpty());

        // An item that takes longer than the wait: quitting gives up on it, without a crash.
        auto slow = std::make_unique<RemovalQueue>();
        auto release = std::make_shared<std::atomic<bool>>(false);
        auto entered = std::make_shared<std::atomic<bool>>(false);
        slow->setItemHookForTesting([release, entered](const QByteArray &) {
            entered->store(true);
            while (!release->load())
                QThread::msleep(5);
        });
        presenter->answers = {RemovalActions::kDeleteIndex};
        QVERIFY(RemovalActions::removeContents(many.mid(handed), r, *slow));
        QTRY_VERIFY(entered->load());
        QVERIFY(!slow->shutdown(50));
        slow.reset();
        release->store(true);
        QTest::qWait(100); // the given-up worker ends on its own
        QVERIFY(r.calls.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstRemovalActions)
#include "tst_removal_actions.moc"
