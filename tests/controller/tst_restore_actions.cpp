// Getting items out of the cache: file URLs that keep every byte of a name, the drag data, and
// copy jobs on their own threads.

#include "TestEnv.h"

#include "controller/RestoreActions.h"

#include <QCoreApplication>
#include <QMimeData>
#include <QTest>

namespace {

const QByteArrayList kAwkwardNames{
    QByteArray("caf\xe9 au lait.txt"), // Latin-1, not UTF-8
    QByteArray("\xff\xfe"),
    QByteArray("100% #1?&=+;,[x]"),
    QByteArray("new\nline"),
    QByteArray("été"),
};

} // namespace

class TstRestoreActions : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;

private slots:
    void init() { env = new TestEnv; }
    void cleanup()
    {
        delete env;
        env = nullptr;
    }

    void fileUrlsKeepEveryByte()
    {
        for (const QByteArray &name : kAwkwardNames) {
            const QByteArray path = "/c/.Salvora3Cache/2024-05-03/2024-05-03 09_15_00/" + name;
            const QUrl url = RestoreActions::fileUrl(path);
            QVERIFY2(url.isValid(), name.toHex().constData());
            QCOMPARE(url.scheme(), QStringLiteral("file"));
            QCOMPARE(RestoreActions::pathFromFileUrl(url), std::optional<QByteArray>(path));
            // Through its text form as well, as another program reads it.
            QCOMPARE(RestoreActions::pathFromFileUrl(QUrl::fromEncoded(url.toEncoded())),
                     std::optional<QByteArray>(path));
        }
        QCOMPARE(RestoreActions::fileUrlBytes("/a b/c"), QByteArray("file:///a%20b/c"));
        QVERIFY(!RestoreActions::pathFromFileUrl(QUrl(QStringLiteral("https://x/y"))));
        QVERIFY(!RestoreActions::pathFromFileUrl(QUrl(QStringLiteral("file://elsewhere/y"))));
        QCOMPARE(RestoreActions::pathFromFileUrl(QUrl(QStringLiteral("file://localhost/y"))),
                 std::optional<QByteArray>("/y"));
        QCOMPARE(RestoreActions::parentFolder("/a/b/c"), QByteArray("/a/b"));
        QCOMPARE(RestoreActions::parentFolder("/a"), QByteArray("/"));
    }

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
        const QByteArray cache = env->homeBytes() + "/cache/2024-05-03 09_15_00";
        const QByteArray other = env->homeBytes() + "/cache/2024-05-04 10_00_00";
        const QByteArray dest = env->homeBytes() + "/dest";
        QVERIFY(TestEnv::writeFile(cache + "/caf\xe9.txt", "new"));
        QVERIFY(TestEnv::writeFile(cache + "/tree/sub/leaf", "leaf"));
        QVERIFY(TestEnv::writeFile(other + "/caf\xe9.txt", "same name, second day"));
        QVERIFY(TestEnv::writeFile(cache + "/taken", "from cache"));
        QVERIFY(TestEnv::writeFile(dest + "/taken", "mine"));

        CopyJobs jobs;
        QByteArrayList job =
            RestoreActions::makeJob(dest, {cache + "/caf\xe9.txt", cache + "/tree",
                                           other + "/caf\xe9.txt", cache + "/taken"});
        QCOMPARE(job.first(), dest);
        QVERIFY(jobs.start(job));
        job.clear(); // the thread has its own copy
        QVERIFY(jobs.waitForAll(10000));
        QCOMPARE(jobs.running(), 0);
        QCOMPARE(TestEnv::readFile(dest + "/caf\xe9.txt"), QByteArray("new"));
        QCOMPARE(TestEnv::readFile(dest + "/tree/sub/leaf"), QByteArray("leaf"));
        QCOMPARE(TestEnv::readFile(dest + "/taken"), QByteArray("mine"));
        // The cache keeps its copies.
        QVERIFY(TestEnv::exists(cache + "/caf\xe9.txt"));

        QVERIFY(!jobs.start({dest}));
        QVERIFY(!jobs.start({QByteArray(), cache + "/taken"}));
        jobs.stopAll();
        QVERIFY(!jobs.start({dest, cache + "/tree"}));
    }
};

QTEST_GUILESS_MAIN(TstRestoreActions)
#include "tst_restore_actions.moc"
