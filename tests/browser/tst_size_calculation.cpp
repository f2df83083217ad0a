#include "TestEnv.h"

#include "browser/SizeCalculation.h"

#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

// The folder walk behind the size shown for a selected folder.
class TstSizeCalculation : public QObject
{
    Q_OBJECT
    TestEnv env;
    QByteArray root;

    void file(const QByteArray &rel, qint64 size)
    {
        QVERIFY(TestEnv::writeFile(root + '/' + rel, QByteArray(size, 'x')));
    }

private slots:
    void initTestCase()
    {
        root = env.homeBytes() + "/tree";
        file("b.bin", 100);
        file("A/one", 10);
        file("A/deep/two", 20);
        file("c/three", 3);
        file(".hidden", 1000);
        QVERIFY(TestEnv::makeFolders(root + "/empty"));
        // A link counts with its own size, whatever it points to.
        QVERIFY(symlink((root + "/b.bin").constData(), (root + "/link").constData()) == 0);
        QVERIFY(symlink("/", (root + "/A/to-root").constData()) == 0);
    }

    void totalAndProgressOrder()
    {
        std::atomic<bool> stop{false};
        std::atomic<double> next{0}; // due at once: every finished folder reports
        QList<qint64> progress;
        struct stat st
        {
        };
        QVERIFY(lstat((root + "/link").constData(), &st) == 0);
        const qint64 linkSize = st.st_size;
        QVERIFY(lstat((root + "/A/to-root").constData(), &st) == 0);
        const qint64 rootLinkSize = st.st_size;
        const std::int64_t total =
            SizeCalculation::calcSizeContentsFor(root, stop, next, [&](std::int64_t sub) {
                progress.append(sub);
                next = 0; // keep every report for the test
            });
        QCOMPARE(total, 1000 + 100 + 10 + 20 + 3 + linkSize + rootLinkSize);
        // Folders report when finished, children before parents, names in case-insensitive
        // order: A/deep, A, c, empty, then the tree itself.
        QCOMPARE(progress, QList<qint64>({20, 30 + rootLinkSize, 3, 0, total}));
    }

    void throttledProgress()
    {
        std::atomic<bool> stop{false};
        std::atomic<double> next{SizeCalculation::now() + SizeCalculation::kRefreshInterval};
        int reports = 0;
        SizeCalculation::calcSizeContentsFor(root, stop, next, [&](std::int64_t) { ++reports; });
        QCOMPARE(reports, 0); // the walk is far shorter than 0.3 s
        next = 0;
        SizeCalculation::calcSizeContentsFor(root, stop, next, [&](std::int64_t) { ++reports; });
        QCOMPARE(reports, 1); // the first finished folder, then nothing for 0.3 s
        QVERIFY(next > SizeCalculation::now());
    }

    void stopAndUnreadable()
    {
        std::atomic<bool> stop{true};
        std::atomic<double> next{0};
        // Stopped: only the first entry in order (".hidden") is counted.
        QCOMPARE(SizeCalculation::calcSizeContentsFor(root, stop, next), 1000);
        stop = false;
        QCOMPARE(SizeCalculation::calcSizeContentsFor(root + "/missing", stop, next), 0);
        QCOMPARE(SizeCalculation::calcSizeContentsFor(root + "/b.bin", stop, next),
                 0); // not a folder
        QCOMPARE(SizeCalculation::calcSizeContentsFor(root + "/link", stop, next),
                 0); // never followed
        QCOMPARE(SizeCalculation::calcSizeContentsFor(QByteArray(), stop, next), 0);
    }

    void unreadableFolderCountsAsEmpty()
    {
        if (geteuid() == 0) QSKIP("root reads every folder");
        QVERIFY(TestEnv::writeFile(root + "/locked/secret", QByteArray(50, 'x')));
        QVERIFY(chmod((root + "/locked").constData(), 0) == 0);
        std::atomic<bool> stop{false};
        std::atomic<double> next{0};
        const std::int64_t total =
            SizeCalculation::calcSizeContentsFor(root + "/locked", stop, next);
        chmod((root + "/locked").constData(), 0755);
        QCOMPARE(total, 0);
    }
};

QTEST_GUILESS_MAIN(TstSizeCalculation)
#include "tst_size_calculation.moc"
