#include "common/Jobs.h"

#include <QCoreApplication>
#include <QTest>
#include <QThread>

#include <mutex>
#include <vector>

class TestJobs : public QObject
{
    Q_OBJECT
private slots:
    void parallelForCallsEachIndexOnce_data();
    void parallelForCallsEachIndexOnce();
    void stopFlagEndsTheJob();
    void postsArriveInOrderOnTheReceiversThread();
    void lateResultIsDropped();
};

void TestJobs::parallelForCallsEachIndexOnce_data()
{
    QTest::addColumn<int>("n");
    QTest::addColumn<int>("threads");
    QTest::newRow("nothing") << 0 << 0;
    QTest::newRow("one item, every core") << 1 << 0;
    QTest::newRow("fewer items than threads") << 3 << 8;
    QTest::newRow("one thread") << 100 << 1;
    QTest::newRow("many items") << 5000 << 3;
}

void TestJobs::parallelForCallsEachIndexOnce()
{
    QFETCH(int, n);
    QFETCH(int, threads);
    std::vector<std::atomic<int>> calls(std::size_t(n) + 1);
    Jobs::parallelFor(
        std::size_t(n), [&](std::size_t i) { calls[i].fetch_add(1); }, unsigned(threads));
    for (int i = 0; i < n; ++i)
        QCOMPARE(calls[std::size_t(i)].load(), 1);
    QCOMPARE(calls[std::size_t(n)].load(), 0);
}

void TestJobs::stopFlagEndsTheJob()
{
    std::atomic<bool> started{false};
    const auto job = Jobs::start([&](const std::atomic<bool> &stop) {
        started = true;
        while (!stop.load())
            QThread::msleep(1);
    });
    QTRY_VERIFY(started.load());
    QVERIFY(!job->wait(50));
    QVERIFY(!job->finished());
    job->requestStop();
    QVERIFY(job->wait(5000));
    QVERIFY(job->finished());
}

void TestJobs::postsArriveInOrderOnTheReceiversThread()
{
    QObject receiver;
    const auto mailbox = std::make_shared<Mailbox>(&receiver);
    QList<int> seen;
    bool onReceiversThread = true;
    const auto job = Jobs::start([mailbox, &seen, &onReceiversThread, &receiver] {
        for (int i = 0; i < 100; ++i)
            mailbox->post([i, &seen, &onReceiversThread, &receiver] {
                onReceiversThread =
                    onReceiversThread && QThread::currentThread() == receiver.thread();
                seen.append(i);
            });
    });
    QVERIFY(job->wait(5000));
    QTRY_COMPARE(seen.size(), 100);
    QVERIFY(onReceiversThread);
    for (int i = 0; i < 100; ++i)
        QCOMPARE(seen[i], i);
}

void TestJobs::lateResultIsDropped()
{
    auto *receiver = new QObject;
    const auto mailbox = std::make_shared<Mailbox>(receiver);
    std::atomic<int> delivered{0};
    std::atomic<bool> posted{false};
    std::mutex gate;
    std::unique_lock hold(gate);
    // One result is posted before its receiver goes (and waits in the event queue), one after.
    const auto job = Jobs::start([mailbox, &delivered, &posted, &gate] {
        mailbox->post([&delivered] { delivered.fetch_add(1); });
        posted = true;
        std::lock_guard wait(gate);
        mailbox->post([&delivered] { delivered.fetch_add(1); });
    });
    while (!posted.load()) // no event handled meanwhile
        QThread::msleep(1);
    mailbox->detach();
    delete receiver;
    hold.unlock();
    QVERIFY(job->wait(5000));
    QCoreApplication::processEvents();
    QCOMPARE(delivered.load(), 0);
}

QTEST_GUILESS_MAIN(TestJobs)
#include "tst_jobs.moc"
