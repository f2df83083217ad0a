#include "TestEnv.h"

#include "cache/SpaceGuard.h"

#include <QTest>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QDate kToday(2026, 3, 10);

QByteArray dayName(int offset)
{
    return kToday.addDays(offset).toString(Qt::ISODate).toLatin1();
}

} // namespace

class TstSpaceGuard : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray cache;

private slots:
    void init()
    {
        env = new TestEnv;
        cache = env->homeBytes() + "/.Salvora3Cache";
    }
    void cleanup() { delete env; }

    void threshold_data()
    {
        QTest::addColumn<qint64>("total");
        QTest::addColumn<qint64>("percent");
        QTest::addColumn<qint64>("floor");
        QTest::addColumn<qint64>("wanted");
        const qint64 G = 1'000'000'000;
        QTest::newRow("large volume: the floor") << 500 * G << qint64(5) << 2 * G << 2 * G;
        QTest::newRow("small volume: the share") << 10 * G << qint64(5) << 2 * G << G / 2;
        QTest::newRow("no overflow near the top") << (qint64(1) << 62) << qint64(5)
                                                  << (qint64(1) << 62) << qint64(230584300921369395);
        QTest::newRow("share off") << 10 * G << qint64(0) << 2 * G << qint64(0);
        QTest::newRow("floor off") << 10 * G << qint64(5) << qint64(0) << qint64(0);
    }
    void threshold()
    {
        QFETCH(qint64, total);
        QFETCH(qint64, percent);
        QFETCH(qint64, floor);
        QFETCH(qint64, wanted);
        QCOMPARE((SpaceGuard::Threshold{percent, floor}.bytesFor(total)), wanted);
    }

    // Days by their offset from today; each day removed frees `perDay` on a volume that had
    // `freeAtStart` of the 100 wanted.
    void removesOldestDaysButNeverToday_data()
    {
        QTest::addColumn<QList<int>>("days");
        QTest::addColumn<qint64>("freeAtStart");
        QTest::addColumn<qint64>("perDay");
        QTest::addColumn<bool>("stop");
        QTest::addColumn<QList<int>>("removed");
        QTest::newRow("enough free") << QList<int>{-3, -1, 0} << qint64(100) << qint64(10) << false
                                     << QList<int>{};
        QTest::newRow("the oldest day is enough")
            << QList<int>{-1, -30, -2, 0} << qint64(50) << qint64(60) << false << QList<int>{-30};
        QTest::newRow("oldest first, as many as needed")
            << QList<int>{-2, -5, -1, 0} << qint64(10) << qint64(40) << false
            << QList<int>{-5, -2, -1};
        QTest::newRow("never today, nor a day to come")
            << QList<int>{-2, 0, 1} << qint64(0) << qint64(10) << false << QList<int>{-2};
        QTest::newRow("only today") << QList<int>{0} << qint64(0) << qint64(10) << false
                                    << QList<int>{};
        QTest::newRow("the agent quits") << QList<int>{-2, -1, 0} << qint64(0) << qint64(10)
                                         << true << QList<int>{};
    }
    void removesOldestDaysButNeverToday()
    {
        QFETCH(QList<int>, days);
        QFETCH(qint64, freeAtStart);
        QFETCH(qint64, perDay);
        QFETCH(bool, stop);
        QFETCH(QList<int>, removed);
        for (int d : days)
            QVERIFY(!env->keep(cache, dayName(d), dayName(d) + " 10_00_00", "item").isEmpty());
        QVERIFY(TestEnv::makeFolders(cache + "/not a day"));
        const int fd = ::open(cache.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QVERIFY(fd >= 0);
        // The free space grows with every day folder that is gone.
        const auto probe = [&](int) -> std::optional<SpaceGuard::Space> {
            qint64 left = 0;
            for (int d : days)
                left += TestEnv::exists(cache + '/' + dayName(d)) ? 1 : 0;
            return SpaceGuard::Space{1000, freeAtStart + (days.size() - left) * perDay};
        };
        const std::atomic<bool> stopFlag{stop};
        const SpaceGuard::Outcome o =
            SpaceGuard::run(fd, SpaceGuard::Threshold{50, 100}, kToday, stopFlag, probe);
        ::close(fd);
        QByteArrayList expected;
        for (int d : removed)
            expected << dayName(d);
        QCOMPARE(o.removed, expected);
        QCOMPARE(o.wantedFree, qint64(100));
        QCOMPARE(o.cancelled, stop && freeAtStart < 100);
        QVERIFY(o.failures.isEmpty());
        for (int d : days) {
            const bool gone = removed.contains(d);
            QCOMPARE(TestEnv::exists(cache + '/' + dayName(d)), !gone);
            QCOMPARE(TestEnv::exists(cache + "/.origins/" + dayName(d) + ".jsonl"), !gone);
        }
        QVERIFY(TestEnv::exists(cache + "/not a day"));
    }

    void lastActionRoundTrips()
    {
        QVERIFY(!SpaceGuard::lastAction());
        const SpaceGuard::Action a{QDateTime(kToday, QTime(3, 4, 5)), "/media/a\tb", 2'000'000'000, 3};
        SpaceGuard::recordAction(a);
        const auto back = SpaceGuard::lastAction();
        QVERIFY(back);
        QCOMPARE(back->when, a.when);
        QCOMPARE(back->volume, a.volume);
        QCOMPARE(back->wantedFree, a.wantedFree);
        QCOMPARE(back->days, a.days);
    }
};

QTEST_GUILESS_MAIN(TstSpaceGuard)
#include "tst_spaceguard.moc"
