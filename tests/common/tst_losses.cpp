#include "TestEnv.h"

#include "common/LossWatch.h"
#include "common/Losses.h"

#include <QSignalSpy>
#include <QTest>

// The record of items that could not be kept: what is unseen, what marking them seen takes, and
// the watch that the window and the companion follow.
class TstLosses : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    const QDateTime base = QDateTime(QDate(2026, 3, 1), QTime(9, 0));

    QByteArray pathOf(int i) { return "/home/u/f" + QByteArray::number(i); }
    void record(int i, bool partly = false)
    {
        QVERIFY(
            Losses::record({base.addSecs(60 * i), pathOf(i), QStringLiteral("no space"), partly}));
    }

private slots:
    void init() { env = new TestEnv; }
    void cleanup() { delete env; }

    void roundTrip()
    {
        QVERIFY(Losses::unseen().isEmpty());
        QCOMPARE(Losses::summary().count, 0);
        QVERIFY(Losses::summaryText(Losses::summary()).isEmpty());
        const QByteArray odd = "/home/u/caf\xe9\nreport.pdf";
        QVERIFY(Losses::record(
            {base, odd, QStringLiteral("kept incomplete: 2 file(s) missing"), true}));
        const QList<Losses::Loss> all = Losses::unseen();
        QCOMPARE(all.size(), 1);
        QCOMPARE(all[0].path, odd); // bytes, not their display
        QVERIFY(all[0].partly);
        QCOMPARE(all[0].time, base);
        QVERIFY(!Losses::summaryText(Losses::summary()).isEmpty());
    }

    // Marking seen takes what the user was shown, never what was recorded after it.
    void markSeen_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("after");
        QTest::addColumn<int>("shown"); // -1: markSeen() without a count
        QTest::addColumn<int>("left");
        QTest::newRow("all shown") << 3 << 0 << 3 << 0;
        QTest::newRow("one recorded since") << 2 << 1 << 2 << 1;
        QTest::newRow("three recorded since") << 1 << 3 << 1 << 3;
        QTest::newRow("nothing shown") << 2 << 0 << 0 << 2;
        QTest::newRow("nothing there") << 0 << 0 << 0 << 0;
        QTest::newRow("markSeen() takes all") << 2 << 1 << -1 << 0;
    }
    void markSeen()
    {
        QFETCH(int, before);
        QFETCH(int, after);
        QFETCH(int, shown);
        QFETCH(int, left);
        for (int i = 0; i < before; ++i)
            record(i);
        QCOMPARE(Losses::unseen().size(), before);
        for (int i = before; i < before + after; ++i)
            record(i);
        if (shown < 0)
            Losses::markSeen();
        else
            Losses::markSeen(shown);
        const QList<Losses::Loss> rest = Losses::unseen();
        QCOMPARE(rest.size(), left);
        for (int i = 0; i < left; ++i)
            QCOMPARE(rest[i].path, pathOf(before + after - left + i));
        // Since the oldest that is left, whatever its place in the file.
        if (left > 0) QCOMPARE(Losses::summary().since, base.addSecs(60 * (before + after - left)));
        // The next loss is unseen again.
        record(99);
        QCOMPARE(Losses::unseen().size(), left + 1);
        QCOMPARE(Losses::summary().count, left + 1);
    }

    // The watch learns of a loss by the file alone (the daemon announces none for a loss).
    void watchFollowsTheFile()
    {
        LossWatch watch;
        QSignalSpy changed(&watch, &LossWatch::changed);
        watch.start();
        QTRY_VERIFY(changed.size() >= 1);
        QCOMPARE(watch.summary().count, 0);
        record(0); // creates the file
        QTRY_COMPARE(watch.losses().size(), 1);
        record(1, true); // appends to it
        QTRY_COMPARE(watch.losses().size(), 2);
        QVERIFY(watch.losses()[1].partly);
        QCOMPARE(watch.summary().since, base);

        watch.markSeen();
        QCOMPARE(watch.losses().size(), 0); // at once, not after the read
        QTRY_VERIFY(Losses::unseen().isEmpty());
        record(2);
        QTRY_COMPARE(watch.losses().size(), 1);
        QCOMPARE(watch.losses()[0].path, pathOf(2));
    }
};

QTEST_GUILESS_MAIN(TstLosses)
#include "tst_losses.moc"
