// Getting items out of the cache: file URLs that keep every byte of a name, the drag data, copy
// jobs on their own threads, and the reveal through a stand-in file manager on a private bus.

#include "TestEnv.h"

#include "controller/RestoreActions.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>

namespace {

// Answers org.freedesktop.FileManager1.ShowItems like a file manager would, and remembers.
class FakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QList<QStringList> shown;
    QStringList startupIds;

public slots:
    void ShowItems(const QStringList &uris, const QString &startupId)
    {
        shown.append(uris);
        startupIds.append(startupId);
    }
};

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

    void revealGoesToTheFileManager()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        QDBusConnection fm =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("fake-fm"));
        FakeFileManager fake;
        QVERIFY(fm.registerObject(QLatin1String(FileManagerReveal::kPath), &fake,
                                  QDBusConnection::ExportAllSlots));
        QVERIFY(fm.registerService(QLatin1String(FileManagerReveal::kService)));

        QList<QUrl> opened;
        FileManagerReveal reveal([&](const QUrl &u) {
            opened.append(u);
            return true;
        });
        QSignalSpy done(&reveal, &FileManagerReveal::revealed);
        const QByteArray a = "/c/2024-05-03 09_15_00/caf\xe9.txt";
        const QByteArray b = "/c/2024-05-03 09_15_00/b";
        reveal.reveal(QByteArrayList{a, b});
        QTRY_COMPARE(done.size(), 2);
        // One call per item, each naming its item by a file URL that keeps its bytes.
        QCOMPARE(fake.shown.size(), 2);
        QCOMPARE(fake.shown[0], QStringList{QString::fromLatin1(RestoreActions::fileUrlBytes(a))});
        QCOMPARE(RestoreActions::pathFromFileUrl(QUrl::fromEncoded(fake.shown[0][0].toLatin1())),
                 std::optional<QByteArray>(a));
        QCOMPARE(fake.shown[1], QStringList{QString::fromLatin1(RestoreActions::fileUrlBytes(b))});
        QVERIFY(done[0][1].toBool() && done[1][1].toBool());
        QVERIFY(opened.isEmpty());

        // Without a file manager, the item's folder opens instead.
        QVERIFY(fm.unregisterService(QLatin1String(FileManagerReveal::kService)));
        fm.unregisterObject(QLatin1String(FileManagerReveal::kPath));
        reveal.reveal(a);
        QTRY_COMPARE(done.size(), 3);
        QVERIFY(!done[2][1].toBool());
        QCOMPARE(opened.size(), 1);
        QCOMPARE(RestoreActions::pathFromFileUrl(opened[0]),
                 std::optional<QByteArray>("/c/2024-05-03 09_15_00"));
        QDBusConnection::disconnectFromBus(QStringLiteral("fake-fm"));
    }
};

QTEST_GUILESS_MAIN(TstRestoreActions)
#include "tst_restore_actions.moc"
