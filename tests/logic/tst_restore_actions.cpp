// Getting items out of the cache: file URLs that keep every byte of a name, the drag data, and
// copy jobs on their own threads with their progress: counts, when it is worth showing, how
// often it is told, and cancelling.

#include "TestEnv.h"

#include "common/Texts.h"
#include "logic/RestoreActions.h"

#include <QCoreApplication>
#include <QDir>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <thread>

Q_DECLARE_METATYPE(Restore::ItemResult)

namespace {

const QByteArrayList kAwkwardNames{
    QByteArray("caf\xe9 au lait.txt"), // Latin-1, not UTF-8
    QByteArray("\xff\xfe"),
    QByteArray("100% #1?&=+;,[x]"),
    QByteArray("new\nline"),
    QByteArray("été"),
};

// Whether a WorkProgress ever announced that work of this kind was worth showing.
struct EverVisible
{
    bool seen = false;
    EverVisible(WorkProgress &progress, WorkJob::Kind kind)
    {
        QObject::connect(&progress, &WorkProgress::changed, &progress, [this, &progress, kind] {
            seen = seen || progress.summary(kind).visible;
        });
    }
};

} // namespace

class TstRestoreActions : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;

    static Restore::ItemResult result(const QByteArray &target, Restore::Outcome outcome,
                                      bool moved = false)
    {
        Restore::ItemResult r;
        r.source = "/c/2024-05-01/2024-05-01 09_00_00/" + Restore::lastComponent(target);
        r.target = target;
        r.outcome = outcome;
        r.moved = moved;
        if (outcome == Restore::Outcome::Failed)
            r.error = QStringLiteral("read: Permission denied");
        return r;
    }

private slots:
    // With the texts installed, the messages below are compared with their arguments in place.
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }
    void init() { env = new TestEnv; }

    // What the message after a restore says, and how loud: a plain success, names taken, failures,
    // a folder restored in part, items without a recorded origin.
    void restoreMessages_data()
    {
        using O = Restore::Outcome;
        using L = RestoreActions::Message::Level;
        QTest::addColumn<int>("kind");
        QTest::addColumn<QList<Restore::ItemResult>>("results");
        QTest::addColumn<QByteArrayList>("unrecorded");
        QTest::addColumn<int>("level");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<int>("shown"); // what "Show" reveals
        const int toFolder = int(RestoreReport::Kind::ToFolder),
                  putBack = int(RestoreReport::Kind::PutBack);
        Restore::ItemResult partial = result("/out/box", O::Copied);
        partial.leftOut = {{"sub/sock", QStringLiteral("a device or socket cannot be restored")}};

        using R = QList<Restore::ItemResult>;
        const auto row = [](const char *name, int kind, const R &results, L level,
                            const QStringList &lines, int shown,
                            const QByteArrayList &unrecorded = {}) {
            QTest::newRow(name) << kind << results << unrecorded << int(level) << lines << shown;
        };
        row("one copied", toFolder, {result("/out/a", O::Copied)}, L::Success,
            {qtTrId("RestoreDone1").arg("out")}, 1);
        row("two copied, one taken", toFolder,
            {result("/out/a", O::Copied), result("/out/b", O::SkippedExisting),
             result("/out/c", O::Copied)},
            L::Warning,
            {qtTrId("RestoreDone").arg("2", "out"), qtTrId("RestoreNameTaken").arg("out", "b")}, 2);
        row("failed", toFolder, {result("/out/a", O::Failed)}, L::Error,
            {qtTrId("RestoreItemFailed").arg("a", "read: Permission denied")}, 0);
        row("partial folder", toFolder, {partial}, L::Warning,
            {qtTrId("RestoreDone1").arg("out"),
             qtTrId("RestorePartial")
                 .arg("box", "sub/sock (a device or socket cannot be restored)")},
            1);
        row("put back in one folder", putBack,
            {result("/h/Documents/a", O::Copied, true), result("/h/Documents/b", O::Copied, true)},
            L::Success, {qtTrId("PutBackDone").arg("2", "Documents")}, 2);
        row("no record", putBack, {}, L::Error, {qtTrId("PutBackNoOrigin").arg("orphan")}, 0,
            {"/c/2024-05-01/2024-05-01 09_00_00/orphan"});
    }
    void restoreMessages()
    {
        QFETCH(int, kind);
        QFETCH(QList<Restore::ItemResult>, results);
        QFETCH(QByteArrayList, unrecorded);
        QFETCH(int, level);
        QFETCH(QStringList, lines);
        QFETCH(int, shown);
        RestoreReport report;
        report.kind = RestoreReport::Kind(kind);
        report.destination = "/out";
        report.results = results;
        report.unrecorded = unrecorded;
        const RestoreActions::Message m = RestoreActions::describe(report);
        QCOMPARE(int(m.level), level);
        QCOMPARE(m.text, lines.join(QLatin1Char('\n')));
        QCOMPARE(m.restored.size(), shown);
    }
    void cleanup()
    {
        delete env;
        env = nullptr;
    }

    // Other hosts are refused (every byte of a name: dragCarriesUriListInRowOrder).
    void fileUrls()
    {
        QCOMPARE(RestoreActions::fileUrlBytes("/a b/c"), QByteArray("file:///a%20b/c"));
        QVERIFY(!RestoreActions::pathFromFileUrl(QUrl(QStringLiteral("https://x/y"))));
        QVERIFY(!RestoreActions::pathFromFileUrl(QUrl(QStringLiteral("file://elsewhere/y"))));
        QCOMPARE(RestoreActions::pathFromFileUrl(QUrl(QStringLiteral("file://localhost/y"))),
                 std::optional<QByteArray>("/y"));
    }

    // Every byte of a name survives the drag, also read as text by another program.
    void dragCarriesUriListInRowOrder()
    {
        QByteArrayList paths;
        for (const QByteArray &name : kAwkwardNames)
            paths.append(env->homeBytes() + "/cache/" + name);
        std::unique_ptr<QMimeData> data(RestoreActions::dragMimeData(paths));
        QVERIFY(data->hasUrls());
        QCOMPARE(RestoreActions::pathsFromMimeData(*data), paths);
        // What a receiver in another program reads: text/uri-list, one URL per line.
        const QByteArray list = data->data(QStringLiteral("text/uri-list"));
        QByteArrayList decoded;
        for (const QByteArray &line : list.split('\n')) {
            const QByteArray url = line.trimmed();
            if (url.isEmpty()) continue;
            QVERIFY(url.startsWith("file://"));
            decoded.append(QByteArray::fromPercentEncoding(url.mid(7)));
        }
        QCOMPARE(decoded, paths);
    }

    void copyJobsRunOnTheirOwnThreads()
    {
        // What each copy does: tst_browser::restoreSkipsExistingAndCopiesTheRest.
        const QByteArray cache = env->homeBytes() + "/cache/2024-05-03 09_15_00";
        const QByteArray dest = env->homeBytes() + "/dest";
        QVERIFY(TestEnv::writeFile(cache + "/caf\xe9.txt", "new"));
        QVERIFY(TestEnv::writeFile(cache + "/taken", "from cache"));
        QVERIFY(TestEnv::makeFolders(dest));

        CopyJobs jobs;
        QByteArrayList job = RestoreActions::makeJob(dest, {cache + "/caf\xe9.txt"});
        QVERIFY(jobs.start(job));
        job.clear(); // the thread has its own copy
        QVERIFY(jobs.waitForAll(10000));
        QCOMPARE(TestEnv::readFile(dest + "/caf\xe9.txt"), QByteArray("new"));
        QVERIFY(TestEnv::exists(cache + "/caf\xe9.txt")); // the cache keeps its copy

        QVERIFY(!jobs.start({dest}));
        QVERIFY(!jobs.start({QByteArray(), cache + "/taken"}));
        jobs.stopAll();
        QVERIFY(!jobs.start({dest, cache + "/tree"}));
    }

    // The counts reach the total; a one-item copy shows nothing, a large one shows at once and
    // hides when it ends.
    void copyProgressShowsOnlyForLongWork()
    {
        const QByteArray cache = env->homeBytes() + "/cache/2024-05-03 09_15_00";
        QByteArrayList sources;
        for (int i = 0; i < 25; ++i) {
            sources.append(cache + "/f" + QByteArray::number(i));
            QVERIFY(TestEnv::writeFile(sources.last(), "data"));
        }
        WorkProgress progress;
        EverVisible visible(progress, WorkJob::Kind::Restore);
        CopyJobs jobs;
        jobs.setProgress(&progress);

        QVERIFY(TestEnv::makeFolders(env->homeBytes() + "/one"));
        QVERIFY(jobs.start(RestoreActions::makeJob(env->homeBytes() + "/one", {sources[0]})));
        QVERIFY(jobs.waitForAll(10000));
        QTRY_VERIFY(!progress.summary(WorkJob::Kind::Restore).running);
        QVERIFY(!visible.seen);

        QVERIFY(TestEnv::makeFolders(env->homeBytes() + "/many"));
        jobs.setItemHookForTesting([](const QByteArray &) { QThread::msleep(5); });
        QVERIFY(jobs.start(RestoreActions::makeJob(env->homeBytes() + "/many", sources)));
        // Shown at once, long before a small job would be.
        QTRY_VERIFY_WITH_TIMEOUT(progress.summary(WorkJob::Kind::Restore).visible,
                                 WorkProgress::kShowAfterMs / 2);
        QVERIFY(jobs.waitForAll(10000));
        QTRY_VERIFY(!progress.summary(WorkJob::Kind::Restore).running);
        QVERIFY(!progress.summary(WorkJob::Kind::Restore).visible);
        QCOMPARE(progress.summary(WorkJob::Kind::Restore).done, 25);
    }

    // Two jobs at once share one count; cancelling stops both after the item they are at and
    // leaves nothing under a final name that is not a whole copy.
    void cancelStopsEveryCopy()
    {
        const QByteArray cache = env->homeBytes() + "/cache/2024-05-03 09_15_00";
        QByteArrayList first, second;
        for (int i = 0; i < 30; ++i) {
            first.append(cache + "/a" + QByteArray::number(i));
            second.append(cache + "/b" + QByteArray::number(i));
            QVERIFY(TestEnv::writeFile(first.last(), QByteArray(70000, char('a' + i % 26))));
            QVERIFY(TestEnv::writeFile(second.last(), "b" + QByteArray::number(i)));
        }
        const QByteArray dest = env->homeBytes() + "/dest";
        QVERIFY(TestEnv::makeFolders(dest));
        WorkProgress progress;
        CopyJobs jobs;
        jobs.setProgress(&progress);
        jobs.setItemHookForTesting([](const QByteArray &) { QThread::msleep(15); });
        QVERIFY(jobs.start(RestoreActions::makeJob(dest, first)));
        QVERIFY(jobs.start(RestoreActions::makeJob(dest, second)));
        QTRY_COMPARE(progress.summary(WorkJob::Kind::Restore).total, 60);
        QTRY_VERIFY(progress.summary(WorkJob::Kind::Restore).done >= 4);
        progress.cancel(WorkJob::Kind::Restore);
        QVERIFY(jobs.waitForAll(10000));
        QTRY_VERIFY(!progress.summary(WorkJob::Kind::Restore).running);
        const qint64 done = progress.summary(WorkJob::Kind::Restore).done;
        QVERIFY(done >= 4 && done < 60);

        const QStringList copied =
            QDir(QString::fromLocal8Bit(dest))
                .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        QVERIFY(copied.size() <= done);
        for (const QString &name : copied) {
            QVERIFY(!name.startsWith(QLatin1Char('.')));
            QCOMPARE(TestEnv::readFile(dest + '/' + name.toLocal8Bit()),
                     TestEnv::readFile(cache + '/' + name.toLocal8Bit()));
        }
        // Later jobs still run: cancelling is not quitting.
        jobs.setItemHookForTesting({});
        QVERIFY(jobs.start(RestoreActions::makeJob(dest, {first.last()})));
        QVERIFY(jobs.waitForAll(10000));
        QVERIFY(TestEnv::exists(dest + "/a29"));
    }

    // However fast a worker reports, the window hears only now and then, not once an item.
    void progressIsThrottled()
    {
        WorkProgress progress;
        QSignalSpy changed(&progress, &WorkProgress::changed);
        auto job = std::make_shared<WorkJob>(WorkJob::Kind::Removal, 100000);
        progress.track(job);
        std::thread worker([job] {
            for (int i = 0; i < 100000; ++i) {
                job->advance();
                if (i % 200 == 0) QThread::usleep(100);
            }
            job->finish();
        });
        QTRY_VERIFY_WITH_TIMEOUT(!progress.summary(WorkJob::Kind::Removal).running, 20000);
        worker.join();
        QCOMPARE(progress.summary(WorkJob::Kind::Removal).done, 100000);
        QVERIFY(changed.size() < 1000);
    }
};

QTEST_GUILESS_MAIN(TstRestoreActions)
#include "tst_restore_actions.moc"
