#include "DaemonHarness.h"

#include "cache/CacheCommit.h"
#include "cache/CacheLayout.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/MountInfo.h"

#include <QElapsedTimer>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace Harness;

// A sanitized agent runs several times slower: it cannot be expected to outrun a client that
// empties the trash a millisecond after trashing, only to tell what it could not keep.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// What "kept" must mean whatever happens: items trashed and emptied at once by the real clients,
// the agent killed at random points, a full disk, names at the length limit, a folder still being
// filled; and the agent quits at once when told to, whatever it is doing.
class TstDaemonReliability : public QObject
{
    Q_OBJECT
    Session *s = nullptr;
    QByteArray home, cache, trash;

    // One item as the user had it, and what it must come back as.
    struct Original
    {
        QByteArray name;
        QByteArray path;
        QMap<QByteArray, QByteArray> digest;
    };

    static QByteArray randomBytes(QRandomGenerator &rng, qsizetype size)
    {
        QByteArray b(size, Qt::Uninitialized);
        for (qsizetype i = 0; i < size; ++i)
            b[i] = char(rng.bounded(256));
        return b;
    }
    // `folders` x `files` small files of distinct content.
    static bool makeTree(const QByteArray &root, int folders, int files)
    {
        for (int d = 0; d < folders; ++d)
            for (int f = 0; f < files; ++f)
                if (!TestEnv::writeFile(root + "/d" + QByteArray::number(d) + "/f" +
                                            QByteArray::number(f),
                                        root + QByteArray::number(d * 100000 + f)))
                    return false;
        return true;
    }

    // Every item `salvora ls --json` lists in the home cache.
    static QJsonArray listed()
    {
        QByteArray out;
        if (!run(binary("salvora"), {QStringLiteral("ls"), QStringLiteral("--json"),
                                     QStringLiteral("--no-sizes")},
                 &out))
            return {};
        return QJsonDocument::fromJson(out).object().value(QLatin1String("items")).toArray();
    }
    static QJsonObject status()
    {
        QByteArray out;
        run(binary("salvora"), {QStringLiteral("status"), QStringLiteral("--json")}, &out);
        return QJsonDocument::fromJson(out).object();
    }
    // The reason `salvora status` gives for not keeping an item; null when it is not listed.
    static QString notKept(const QJsonObject &status, const QByteArray &name)
    {
        for (const QJsonValue &v : status.value(QLatin1String("notKept")).toArray())
            if (QFile::encodeName(v.toObject().value(QLatin1String("path")).toString())
                    .endsWith('/' + name))
                return v.toObject().value(QLatin1String("reason")).toString(QStringLiteral(""));
        return {};
    }
    static bool notKeptListed(const QJsonObject &status, const QByteArray &name)
    {
        return !notKept(status, name).isNull();
    }
    static std::optional<CacheCommit::Origin> originOf(const QByteArray &cacheFolder,
                                                       const QByteArray &keptPath)
    {
        const QByteArrayList parts = keptPath.mid(cacheFolder.size() + 1).split('/');
        if (parts.size() != 3) return std::nullopt;
        for (const CacheCommit::Origin &o : CacheCommit::readOrigins(cacheFolder, parts[0]))
            if (o.time == parts[1] && o.name == parts[2]) return o;
        return std::nullopt;
    }

    // The contract, for items whose names start with `prefix`: an item is shown complete only
    // when it is, byte for byte; every kept item has its origin record; every item not kept
    // whole is in the log and in `salvora status`.
    // `unseen`: items the agent never recorded (it died first, and they were deleted before it
    // came back): nothing can know of them, but they must not be shown whole unless they are.
    void checkKept(const QList<Original> &originals, const QString &context,
                   const QByteArrayList &unseen = {})
    {
        const QJsonArray items = listed();
        const QJsonObject st = status();
        const QByteArray logNow = logContent();
        for (const Original &o : originals) {
            const QByteArray partial = CacheCommit::incompleteName(o.name);
            QByteArray whole, part;
            for (const QJsonValue &v : items) {
                const QByteArray name = QFile::encodeName(v[QLatin1String("name")].toString());
                const QByteArray path = QFile::encodeName(v[QLatin1String("path")].toString());
                if (name == o.name) whole = path;
                if (name == partial) part = path;
            }
            const QString what = context + QStringLiteral(": ") + str(o.name);
            if (!whole.isEmpty()) {
                QVERIFY2(digests(whole) == o.digest, qPrintable(what + " shown complete, is not"));
                const auto origin = originOf(cache, whole);
                QVERIFY2(origin, qPrintable(what + " kept without origin record"));
                QVERIFY2(origin->completeness.complete, qPrintable(what));
                QCOMPARE(origin->path, o.path);
                continue;
            }
            if (!part.isEmpty()) {
                const auto origin = originOf(cache, part);
                QVERIFY2(origin, qPrintable(what + " kept incomplete without origin record"));
                QVERIFY2(!origin->completeness.complete, qPrintable(what));
            }
            if (unseen.contains(o.name)) continue;
            QVERIFY2(notKeptListed(st, o.name), qPrintable(what + " not kept, not in status"));
            QVERIFY2(logNow.contains(o.name), qPrintable(what + " not kept, not in the log"));
        }
    }

    void killAgent()
    {
        ::kill(pid_t(s->daemon.pid()), SIGKILL);
        s->daemon.process().waitForFinished(5000);
    }
    // Until the agent has settled everything: its pending area empty.
    bool settled(int timeoutMs = 20000)
    {
        return QTest::qWaitFor([&] { return pendingCount(cache) == 0; }, timeoutMs);
    }
    bool unmount(const QByteArray &path)
    {
        return run(QStringLiteral("umount"), {QStringLiteral("-l"), str(path)});
    }

    // Hash of every file below a path ("" for the path itself when it is a file).
    static QMap<QByteArray, QByteArray> digests(const QByteArray &path)
    {
        QMap<QByteArray, QByteArray> out;
        struct stat st{};
        if (lstat(path.constData(), &st) != 0) return out;
        if (!S_ISDIR(st.st_mode)) {
            out.insert({}, QCryptographicHash::hash(TestEnv::readFile(path),
                                                    QCryptographicHash::Sha256));
            return out;
        }
        const auto tree = snapshot(path);
        for (auto it = tree.cbegin(); it != tree.cend(); ++it)
            out.insert(it.key(), QCryptographicHash::hash(it.value(), QCryptographicHash::Sha256));
        return out;
    }

private slots:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        if (!haveProgram("gio") || !haveProgram("trash-put") || !haveProgram("trash-empty"))
            QSKIP("needs gio (libglib2.0-bin) and trash-cli; see scripts/deps.sh");
        s = new Session;
        home = s->home;
        cache = home + "/.Salvora3Cache";
        trash = home + "/.local/share/Trash";
        QVERIFY(pointBusActivationAtTestHome());
        QVERIFY(TestEnv::makeFolders(trash + "/files") && TestEnv::makeFolders(trash + "/info"));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 0);
        QVERIFY2(s->daemon.start(), s->daemon.output().constData());
    }

    void cleanupTestCase()
    {
        const bool clean = !s || s->daemon.stop();
        delete s;
        QVERIFY(clean);
    }

    void trashThenEmptyAtOnce_data()
    {
        QTest::addColumn<QString>("client");
        QTest::newRow("gio") << QStringLiteral("gio");
        QTest::newRow("trash-cli") << QStringLiteral("trash-cli");
    }
    void trashThenEmptyAtOnce()
    {
        // A big folder and small files trashed together, and the trash emptied a millisecond
        // later: the agent must hold everything before the client deletes it.
        QFETCH(QString, client);
        const QByteArray tag = client.toLatin1();
        const bool gio = client == QLatin1String("gio");
        if (gio) {
            for (const MountEntry &e : MountInfo::parse(MountInfo::readFile())) {
                const QByteArray top = e.mountPoint == "/" ? QByteArray() : e.mountPoint;
                if (TestEnv::exists(top + "/.Trash-" + QByteArray::number(getuid())))
                    QSKIP("another trash of this user exists; `gio trash --empty` would empty it");
            }
        }
        const QByteArray work = home + "/burst-" + tag;
        QList<Original> originals;
        QVERIFY(makeTree(work + "/big-" + tag, 20, 1000));
        originals.append({"big-" + tag, work + "/big-" + tag, digests(work + "/big-" + tag)});
        for (int i = 0; i < 20; ++i) {
            const QByteArray name = "s-" + tag + '-' + QByteArray::number(i) + ".txt";
            QVERIFY(TestEnv::writeFile(work + '/' + name, QByteArray(i * 100 + 1, char('a' + i))));
            originals.append({name, work + '/' + name, digests(work + '/' + name)});
        }
        const QString script =
            gio ? QStringLiteral("cd \"$1\" && gio trash big-* s-*.txt && sleep 0.001 && "
                                 "gio trash --empty")
                : QStringLiteral("cd \"$1\" && trash-put big-* s-*.txt && sleep 0.001 && "
                                 "trash-empty --trash-dir=\"$2\"");
        QVERIFY(run(QStringLiteral("sh"),
                    {QStringLiteral("-c"), script, QStringLiteral("sh"), str(work), str(trash)}));
        const auto missing = [&] {
            QByteArrayList out;
            for (const Original &o : originals)
                if (kept(cache, o.name).isEmpty()) out << o.name;
            return out;
        };
        if (kSanitized) {
            // Too slow to win this race: what it could not keep whole must at least be told.
            const auto accounted = [&] {
                const QByteArrayList left = missing();
                if (left.isEmpty()) return true;
                const QJsonObject st = status();
                return std::all_of(left.begin(), left.end(), [&](const QByteArray &name) {
                    return notKeptListed(st, name);
                });
            };
            QVERIFY(QTest::qWaitFor(accounted, 30000));
        } else {
            (void)QTest::qWaitFor([&] { return missing().isEmpty(); }, 30000);
            QVERIFY2(missing().isEmpty(), "not kept: " + missing().join(", "));
        }
        QVERIFY(settled());
        checkKept(originals, client);
    }

    void killedAnywhere_data()
    {
        QTest::addColumn<bool>("copies");
        QTest::addColumn<int>("runs");
        QTest::newRow("commit burst") << false << 40;
        QTest::newRow("big copy") << true << 12;
    }
    void killedAnywhere()
    {
        // kill -9 at a seeded random moment while shadows are taken, or while they are
        // committed, or with the trash emptied while the agent is down. A copy shadow comes from
        // a trash on another mount of the same file system, which refuses hard links.
        QFETCH(bool, copies);
        QFETCH(int, runs);
        const QByteArray bound = home + "/trash-real";
        if (copies) {
            QString why;
            if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
            QVERIFY(s->daemon.stop());
            QVERIFY(TestEnv::makeFolders(bound + "/files") &&
                    TestEnv::makeFolders(bound + "/info"));
            QVERIFY(run(QStringLiteral("mount"), {"--bind", str(bound), str(trash)}));
            QVERIFY(s->daemon.start());
        }
        const auto unbind = qScopeGuard([&] {
            if (!copies) return;
            s->daemon.stop();
            unmount(trash);
            s->daemon.start();
        });
        const QByteArray staging = trash + "/staging";
        QVERIFY(TestEnv::makeFolders(staging));
        for (int run = 0; run < runs; ++run) {
            const quint32 seed = (copies ? 2000u : 1000u) + quint32(run);
            QRandomGenerator rng(seed);
            const QByteArray work = home + "/k" + QByteArray::number(seed);
            QList<Original> originals;
            if (copies) {
                const QByteArray name = "copy" + QByteArray::number(seed) + ".bin";
                QByteArray data = randomBytes(rng, 4096);
                data = data.repeated(int(rng.bounded(2048, 8192))); // 8 to 32 MB
                QVERIFY(TestEnv::writeFile(staging + '/' + name, data));
                originals.append({name, work + '/' + name, digests(staging + '/' + name)});
            } else {
                for (int i = 0; i < 16; ++i) {
                    const QByteArray name =
                        "kb" + QByteArray::number(seed) + '-' + QByteArray::number(i) + ".bin";
                    QVERIFY(TestEnv::writeFile(staging + '/' + name,
                                               randomBytes(rng, rng.bounded(1, 70000))));
                    originals.append({name, work + '/' + name, digests(staging + '/' + name)});
                }
                const QByteArray folder = "kd" + QByteArray::number(seed);
                QVERIFY(makeTree(staging + '/' + folder, 4, 30));
                originals.append({folder, work + '/' + folder, digests(staging + '/' + folder)});
            }
            // Where and when it dies: 0 while shadows are taken, 1 while they are committed,
            // 2 while shadows are taken, the trash then emptied before it is back.
            const int phase = int(rng.bounded(3));
            const int delayMs = int(rng.bounded(copies ? 120 : 25));
            const QString context = QStringLiteral("seed %1, phase %2, %3 ms")
                                        .arg(seed)
                                        .arg(phase)
                                        .arg(delayMs);
            const auto trashAll = [&] {
                for (const Original &o : originals) {
                    const QByteArray info = "[Trash Info]\nPath=" + o.path.toPercentEncoding("/") +
                                            "\nDeletionDate=2024-05-03T14:07:55\n";
                    TestEnv::writeFile(trash + "/info/" + o.name + ".trashinfo", info);
                    ::rename((staging + '/' + o.name).constData(),
                             (trash + "/files/" + o.name).constData());
                }
            };
            const auto emptyAll = [&] {
                for (const Original &o : originals) {
                    removeTree(trash + "/files/" + o.name);
                    ::unlink((trash + "/info/" + o.name + ".trashinfo").constData());
                }
            };
            const int mark = s->daemon.shadowsTaken();
            trashAll();
            if (phase == 1) {
                QVERIFY2(s->shadowedSince(mark, cache, int(originals.size())), qPrintable(context));
                emptyAll();
            }
            QTest::qSleep(delayMs);
            killAgent();
            QByteArrayList unseen;
            if (phase == 2) {
                QByteArray records;
                const QByteArray pending = cache + "/.pending/" + QByteArray::number(getuid());
                for (const QString &id : QDir(str(pending)).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
                    records += TestEnv::readFile(pending + '/' + QFile::encodeName(id) + "/record");
                for (const Original &o : originals)
                    if (!records.contains(o.name)) unseen << o.name;
                emptyAll();
            }
            QVERIFY2(s->daemon.start(), qPrintable(context));
            if (phase == 0) {
                QVERIFY2(QTest::qWaitFor([&] {
                    return pendingCount(cache) == int(originals.size());
                }, 20000), qPrintable(context));
                // Walked to their end before they go, or they would be kept in part.
                QTest::qWait(copies ? 300 : 50);
                emptyAll();
            }
            QVERIFY2(settled(), qPrintable(context));
            // Losses are logged in batches: wait for the agent's announcement.
            QTest::qWait(100);
            checkKept(originals, context, unseen);
            if (QTest::currentTestFailed()) return;
        }
    }

    void fullDisk()
    {
        // A protected volume with no room left: items that cannot be kept are told, partial
        // copies are never shown whole, and a log on a full disk keeps what it had.
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        QTemporaryDir images;
        const QString image = images.filePath(QStringLiteral("full.img"));
        const QString uuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-0123456789AD");
        const QByteArray mount = "/mnt/sv3full";
        const QByteArray volumeCache = mount + "/.Salvora3Cache/" + QByteArray::number(getuid());
        const QByteArray volumeTrash = mount + "/.Trash-" + QByteArray::number(getuid());
        QVERIFY(run(QStringLiteral("mount"), {"-t", "tmpfs", "sv3full", "/mnt"}));
        // No blocks reserved for root: the agent runs as root here.
        QVERIFY(run(QStringLiteral("truncate"), {"-s16M", image}));
        QVERIFY(run(QStringLiteral("mkfs.ext4"), {"-q", "-F", "-m", "0", "-U", uuid.toLower(), image}));
        QVERIFY(TestEnv::makeFolders(mount));
        QVERIFY(run(QStringLiteral("mount"), {"-o", "loop", image, str(mount)}));
        const auto unmountAll = qScopeGuard([&] {
            Settings::remove(SettingsKeys::PrefsProtectedDisks);
            QTest::qWait(300);
            unmount(volumeTrash);
            unmount(mount);
            unmount("/mnt");
        });
        // Its trash on another mount of the same file system: every shadow is a copy.
        QVERIFY(TestEnv::makeFolders(mount + "/trash-real/files") &&
                TestEnv::makeFolders(mount + "/trash-real/info") &&
                TestEnv::makeFolders(volumeTrash));
        QVERIFY(run(QStringLiteral("mount"), {"--bind", str(mount + "/trash-real"), str(volumeTrash)}));
        const QByteArray staging = volumeTrash + "/staging";
        QVERIFY(TestEnv::makeFolders(staging));
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, {{uuid, str(mount)}});
        QTRY_VERIFY_WITH_TIMEOUT(TestEnv::exists(volumeCache), 10000);

        QList<Original> originals;
        const auto stage = [&](const QByteArray &name, const QByteArray &data) {
            QVERIFY(TestEnv::writeFile(staging + '/' + name, data));
            QVERIFY(TestEnv::writeFile(staging + '/' + name + ".trashinfo",
                                       "[Trash Info]\nPath=docs/" + name +
                                           "\nDeletionDate=2024-05-03T14:07:55\n"));
            originals.append({name, mount + "/docs/" + name, digests(staging + '/' + name)});
        };
        const auto fill = [&](const QByteArray &filler, qint64 leave) {
            struct statvfs v{};
            QVERIFY(statvfs(mount.constData(), &v) == 0);
            const qint64 size = qint64(v.f_bavail) * qint64(v.f_frsize) - leave;
            const int fd = ::open(filler.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            QVERIFY(fd >= 0);
            const QByteArray chunk(1 << 16, 'f');
            for (qint64 done = 0; done < size;) {
                const ssize_t n = ::write(fd, chunk.constData(), size_t(std::min<qint64>(size - done, chunk.size())));
                if (n <= 0) break;
                done += n;
            }
            ::fsync(fd);
            ::close(fd);
        };
        const auto trashStaged = [&](qsizetype from) {
            for (qsizetype i = from; i < originals.size(); ++i) {
                const QByteArray &name = originals[i].name;
                ::rename((staging + '/' + name + ".trashinfo").constData(),
                         (volumeTrash + "/info/" + name + ".trashinfo").constData());
                QVERIFY(::rename((staging + '/' + name).constData(),
                                 (volumeTrash + "/files/" + name).constData()) == 0);
            }
        };

        // A 6 MB file that cannot be linked with 2 MB free: kept in part, or not at all.
        QRandomGenerator rng(7);
        stage("big.bin", randomBytes(rng, 1 << 20).repeated(6));
        fill(mount + "/filler1", 2 << 20);
        trashStaged(0);
        QTest::qWait(1000);
        QVERIFY(emptyTrash(volumeTrash));
        // Then nothing free at all: ten small files.
        for (int i = 0; i < 10; ++i)
            stage("nospace" + QByteArray::number(i) + ".txt", QByteArray(3000 + i, 'n'));
        fill(mount + "/filler2", 0);
        trashStaged(1);
        QTest::qWait(500);
        QVERIFY(emptyTrash(volumeTrash));
        QTRY_VERIFY_WITH_TIMEOUT(
            QDir(str(volumeCache + "/.pending/" + QByteArray::number(getuid())))
                    .entryList(QDir::NoDotAndDotDot | QDir::AllEntries)
                    .isEmpty(),
            20000);
        QTest::qWait(300);
        const QJsonObject st = status();
        const QByteArray logNow = logContent();
        for (const Original &o : originals) {
            const QByteArray whole = kept(volumeCache, o.name);
            if (!whole.isEmpty()) {
                QVERIFY2(digests(whole) == o.digest, o.name.constData());
                const auto origin = originOf(volumeCache, whole);
                QVERIFY(origin && origin->completeness.complete);
                continue;
            }
            const QByteArray part = kept(volumeCache, CacheCommit::incompleteName(o.name));
            if (!part.isEmpty()) {
                const auto origin = originOf(volumeCache, part);
                QVERIFY(origin && !origin->completeness.complete);
            }
            // With the true reason.
            QVERIFY2(notKept(st, o.name).contains(QLatin1String("No space left on device")) ||
                         !part.isEmpty(),
                     qPrintable(str(o.name) + ": " + notKept(st, o.name)));
            QVERIFY2(logNow.contains(o.name), o.name.constData());
        }

        // The log's own disk full: writing to it keeps the old content.
        const QByteArray logFile = QFile::encodeName(CommonUtils::logFilePath());
        const QByteArray logFolder = logFile.left(logFile.lastIndexOf('/'));
        const QByteArray before = logContent();
        QVERIFY(!before.isEmpty());
        QVERIFY(run(QStringLiteral("mount"), {"-t", "tmpfs", "-o", "size=256k", "sv3log", str(logFolder)}));
        const auto unmountLog = qScopeGuard([&] { unmount(logFolder); });
        QVERIFY(TestEnv::writeFile(logFile, before));
        const QByteArray filler = logFolder + "/filler";
        const int fd = ::open(filler.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const QByteArray chunk(4096, 'f');
        while (::write(fd, chunk.constData(), chunk.size()) > 0) {
        }
        ::close(fd);
        QVERIFY(NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                                      QLatin1String(Notifications::Salvora3GetStatus)));
        QTest::qWait(500);
        QCOMPARE(logContent(), before);
        QVERIFY(s->daemon.isRunning());
    }

    void longNamesInTheSameSecond()
    {
        // Two 255-byte names kept in the same second: the second one's numbered name must be
        // shortened to fit.
        const QByteArray name = QByteArray(251, 'n') + ".txt";
        QList<Original> originals;
        const int mark = s->daemon.shadowsTaken();
        for (const char *dir : {"a", "b"}) {
            const QByteArray path = home + "/long/" + dir + '/' + name;
            QVERIFY(TestEnv::writeFile(path, QByteArray("from ") + dir));
            QVERIFY(trashByHand(trash, path, QByteArray("long-") + dir));
        }
        QVERIFY(s->shadowedSince(mark, cache, 2));
        for (const char *dir : {"a", "b"}) {
            QVERIFY(::unlink((trash + "/files/long-" + dir).constData()) == 0);
            ::unlink((trash + "/info/long-" + dir + ".trashinfo").constData());
        }
        QVERIFY(settled());
        QSet<QByteArray> contents;
        for (const QByteArray &item : cachedItems(cache))
            if (item.contains("nnnnnnnnnnnn")) {
                QVERIFY(item.mid(item.lastIndexOf('/') + 1).size() <= 255);
                contents.insert(TestEnv::readFile(cache + '/' + item));
            }
        QCOMPARE(contents, QSet<QByteArray>({"from a", "from b"}));
    }

    void folderFilledInPlace()
    {
        // A folder copied into the trash file by file (as across partitions) over more than a
        // second: its shadow follows it, and it is kept whole.
        const QByteArray name = "filled-in-place";
        const QByteArray info = "[Trash Info]\nPath=" + home + "/filled-in-place" +
                                "\nDeletionDate=2024-05-03T14:07:55\n";
        QVERIFY(TestEnv::writeFile(trash + "/info/" + name + ".trashinfo", info));
        QVERIFY(::mkdir((trash + "/files/" + name).constData(), 0755) == 0);
        for (int i = 0; i < 11; ++i) {
            QTest::qWait(120);
            QVERIFY(TestEnv::writeFile(trash + "/files/" + name + "/part" + QByteArray::number(i),
                                       QByteArray(i * 1000 + 1, char('0' + i))));
        }
        const Original o{name, home + '/' + name, digests(trash + "/files/" + name)};
        QTest::qWait(1500); // quiet for a while: the copy is over
        QVERIFY(removeTree(trash + "/files/" + name));
        QVERIFY(::unlink((trash + "/info/" + name + ".trashinfo").constData()) == 0);
        QVERIFY(settled());
        QTest::qWait(100);
        QVERIFY(!kept(cache, name).isEmpty());
        checkKept({o}, QStringLiteral("filled in place"));
    }

    void quitsAtOnceWhileWorking_data()
    {
        QTest::addColumn<bool>("purging");
        QTest::newRow("purge") << true;
        QTest::newRow("big shadow") << false;
    }
    void quitsAtOnceWhileWorking()
    {
        QFETCH(bool, purging);
        const QDate today = QDate::currentDate();
        QByteArrayList days;
        QVERIFY(s->daemon.stop());
        if (purging) {
            // 25 old days of 1,000 files each, purged as the agent starts.
            for (int d = 0; d < 25; ++d) {
                const QByteArray day =
                    today.addDays(-400 - d).toString(QStringLiteral("yyyy-MM-dd")).toLatin1();
                QVERIFY(makeTree(cache + '/' + day + '/' + day + " 10_00_00/old", 10, 100));
                days << cache + '/' + day;
            }
            Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 30);
            QVERIFY(s->daemon.start()); // the purge begins as it starts
        } else {
            QVERIFY(s->daemon.start());
            QVERIFY(makeTree(home + "/huge", 20, 1000));
            QVERIFY(trashByHand(trash, home + "/huge", "huge"));
            QTest::qWait(50);
        }
        const bool busy = purging ? TestEnv::exists(days.last()) : s->daemon.shadowsTaken() == 0;
        QElapsedTimer t;
        t.start();
        ::kill(pid_t(s->daemon.pid()), SIGTERM);
        QVERIFY(s->daemon.process().waitForFinished(5000));
        const qint64 ms = t.elapsed();
        qInfo("agent exited %lld ms after SIGTERM during a %s (%s)", ms,
              purging ? "purge of 25 days x 1,000 files" : "shadow of a 20,000-file folder",
              busy ? "still working" : "work already done");
        QVERIFY(ms <= 1000);
        QCOMPARE(s->daemon.process().exitStatus(), QProcess::NormalExit);

        // The next run finishes the work.
        QVERIFY(s->daemon.start());
        if (purging) {
            QTRY_VERIFY_WITH_TIMEOUT(std::none_of(days.begin(), days.end(), &TestEnv::exists),
                                     60000);
            Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 0);
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(pendingCount(cache), 1, 20000);
            QTest::qWait(1000);
            QVERIFY(removeTree(trash + "/files/huge"));
            ::unlink((trash + "/info/huge.trashinfo").constData());
            QVERIFY(settled());
            QVERIFY(!kept(cache, "huge").isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TstDaemonReliability)
#include "tst_daemon_reliability.moc"
