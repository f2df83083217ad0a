#include "DaemonHarness.h"

#include "cache/CacheCommit.h"
#include "common/Log.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTest>

#include <csignal>
#include <sys/stat.h>
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
class TstDaemonReliability : public DaemonSuite
{
    Q_OBJECT

    // One item as the user had it, and what it must come back as.
    struct Original
    {
        QByteArray name;
        QByteArray path;
        QMap<QByteArray, QByteArray> content; // snapshot()
    };

    static QByteArray randomBytes(QRandomGenerator &rng, qsizetype size)
    {
        QList<quint32> words(size / 4 + 1);
        rng.fillRange(words.data(), words.size());
        return QByteArray(reinterpret_cast<const char *>(words.constData()), size);
    }
    static QJsonObject salvora(const QStringList &args)
    {
        QByteArray out;
        run(binary("salvora"), args, &out);
        return QJsonDocument::fromJson(out).object();
    }
    // The reason `salvora status` gives for not keeping an item; null when it is not listed.
    static QString notKept(const QJsonObject &status, const QByteArray &name)
    {
        for (const QJsonValue &v : status.value(QLatin1String("notKept")).toArray())
            if (QFile::encodeName(v[QLatin1String("path")].toString()).endsWith('/' + name))
                return v[QLatin1String("reason")].toString(QStringLiteral(""));
        return {};
    }
    // The origin record of an item kept at <cache>/<day>/<time>/<name>.
    static std::optional<CacheCommit::Origin> originOf(const QByteArray &keptPath)
    {
        const QByteArrayList parts = keptPath.split('/');
        const QByteArray folder = parts.mid(0, parts.size() - 3).join('/');
        for (const CacheCommit::Origin &o :
             CacheCommit::readOrigins(folder, parts.value(parts.size() - 3)))
            if (o.time == parts.value(parts.size() - 2) && o.name == parts.last()) return o;
        return std::nullopt;
    }

    // The contract: an item is shown complete (by `salvora ls` for the home cache) only when it
    // is, byte for byte; every kept item has its origin record; every item not kept whole is in
    // the log and in `salvora status`, with `reason`.
    // `unseen`: items the agent never recorded (it died first, and they were deleted before it
    // came back): nothing can know of them, but they must not be shown whole unless they are.
    void checkKept(const QList<Original> &originals, const QString &context,
                   const QByteArrayList &unseen = {}, const QByteArray &volumeCache = {},
                   const QString &reason = {})
    {
        const QJsonArray items =
            salvora({"ls", "--json", "--no-sizes"}).value(QLatin1String("items")).toArray();
        const QJsonObject st = salvora({"status", "--json"});
        const QByteArray logNow = TestEnv::logText();
        const auto find = [&](const QByteArray &name) {
            if (!volumeCache.isEmpty()) return kept(volumeCache, name);
            for (const QJsonValue &v : items)
                if (QFile::encodeName(v[QLatin1String("name")].toString()) == name)
                    return QFile::encodeName(v[QLatin1String("path")].toString());
            return QByteArray();
        };
        for (const Original &o : originals) {
            const QByteArray whole = find(o.name), part = find(CacheCommit::incompleteName(o.name));
            const QByteArray what = (context + QStringLiteral(": ")).toUtf8() + o.name;
            if (!whole.isEmpty()) {
                QVERIFY2(snapshot(whole) == o.content, what + " shown complete, is not");
                const auto origin = originOf(whole);
                QVERIFY2(origin && origin->completeness.complete, what + " kept without origin");
                QCOMPARE(origin->path, o.path);
                continue;
            }
            if (!part.isEmpty()) {
                const auto origin = originOf(part);
                QVERIFY2(origin && !origin->completeness.complete,
                         what + " kept in part without origin");
            }
            if (unseen.contains(o.name)) continue;
            const QString why = notKept(st, o.name);
            QVERIFY2(!why.isNull() && logNow.contains(o.name), what + " not kept, not told");
            QVERIFY2(why.contains(reason) || !part.isEmpty(), qPrintable(what + ": " + why));
        }
    }

    // Until the agent has settled everything: its pending area empty.
    bool settled(const QByteArray &cacheFolder)
    {
        return QTest::qWaitFor([&] { return pendingCount(cacheFolder) == 0; }, 20000);
    }

private slots:
    void trashThenEmptyAtOnce()
    {
        // A big folder and small files trashed together, and the trash emptied a millisecond
        // later: the agent must hold everything before the client deletes it. (GNOME's way of
        // emptying, without the race: tst_daemon_trash::gioTrashThenEmpty.)
        const QByteArray tag = "burst", work = home + "/burst";
        QList<Original> originals;
        QVERIFY(makeTree(work + "/big-" + tag, 20, 1000));
        originals.append({"big-" + tag, work + "/big-" + tag, snapshot(work + "/big-" + tag)});
        for (int i = 0; i < 20; ++i) {
            const QByteArray name = "s-" + tag + '-' + QByteArray::number(i) + ".txt";
            QVERIFY(TestEnv::writeFile(work + '/' + name, QByteArray(i * 100 + 1, char('a' + i))));
            originals.append({name, work + '/' + name, snapshot(work + '/' + name)});
        }
        QVERIFY(sh("cd " + work +
                   "; trash-put big-* s-*.txt; sleep 0.001; trash-empty --trash-dir=" + trash));
        const auto missing = [&] {
            QByteArrayList out;
            for (const Original &o : originals)
                if (kept(cache, o.name).isEmpty()) out << o.name;
            return out;
        };
        if (kSanitized) {
            // Too slow to win this race: what it could not keep whole must at least be told.
            const auto accounted = [&] {
                const QJsonObject st = salvora({"status", "--json"});
                const QByteArrayList left = missing();
                return std::all_of(left.begin(), left.end(), [&](const QByteArray &name) {
                    return !notKept(st, name).isNull();
                });
            };
            QVERIFY(QTest::qWaitFor(accounted, 30000));
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(missing(), QByteArrayList(), 30000);
        }
        QVERIFY(settled(cache));
        checkKept(originals, QStringLiteral("burst"));
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
        if (copies) {
            QString why;
            if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
            QVERIFY(daemon.stop());
            QVERIFY(sh("mkdir -p " + home + "/trash-real/files " + home + "/trash-real/info;" +
                       "mount --bind " + home + "/trash-real " + trash));
            QVERIFY(daemon.start());
        }
        const auto unbind = qScopeGuard([&] {
            if (!copies) return;
            daemon.stop();
            sh("umount -l " + trash);
            daemon.start();
        });
        const QByteArray staging = trash + "/staging";
        QVERIFY(TestEnv::makeFolders(staging));
        for (int run = 0; run < runs; ++run) {
            const quint32 seed = (copies ? 2000u : 1000u) + quint32(run);
            QRandomGenerator rng(seed);
            const QByteArray work = home + "/k" + QByteArray::number(seed);
            QList<Original> originals;
            const auto stage = [&](const QByteArray &name, const QByteArray &data) {
                QVERIFY(data.isNull() || TestEnv::writeFile(staging + '/' + name, data));
                originals.append({name, work + '/' + name, snapshot(staging + '/' + name)});
            };
            if (copies) {
                // 8 to 32 MB
                stage("copy" + QByteArray::number(seed) + ".bin",
                      randomBytes(rng, 4096).repeated(int(rng.bounded(2048, 8192))));
            } else {
                for (int i = 0; i < 16; ++i)
                    stage("kb" + QByteArray::number(seed) + '-' + QByteArray::number(i) + ".bin",
                          randomBytes(rng, rng.bounded(1, 70000)));
                QVERIFY(makeTree(staging + "/kd" + QByteArray::number(seed), 4, 30));
                stage("kd" + QByteArray::number(seed), {});
            }
            // Where and when it dies: 0 while shadows are taken, 1 while they are committed,
            // 2 while shadows are taken, the trash then emptied before it is back.
            const int phase = int(rng.bounded(3));
            const int delayMs = int(rng.bounded(copies ? 120 : 25));
            const QString context =
                QStringLiteral("seed %1, phase %2, %3 ms").arg(seed).arg(phase).arg(delayMs);
            const auto emptyAll = [&] {
                for (const Original &o : originals)
                    emptyByHand(trash, o.name);
            };
            const int mark = daemon.shadowsTaken();
            for (const Original &o : originals)
                QVERIFY(trashByHand(trash, staging + '/' + o.name, o.name, o.path));
            if (phase == 1) {
                QVERIFY2(shadowedSince(mark, cache, int(originals.size())), qPrintable(context));
                emptyAll();
            }
            QTest::qSleep(delayMs);
            ::kill(pid_t(daemon.pid()), SIGKILL);
            daemon.process().waitForFinished(5000);
            QByteArrayList unseen;
            if (phase == 2) {
                QByteArray records;
                const QByteArray pending = cache + "/.pending/" + QByteArray::number(getuid());
                for (const QString &id :
                     QDir(str(pending)).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
                    records += TestEnv::readFile(pending + '/' + QFile::encodeName(id) + "/record");
                for (const Original &o : originals)
                    if (!records.contains(o.name)) unseen << o.name;
                emptyAll();
            }
            QVERIFY2(daemon.start(), qPrintable(context));
            if (phase == 0) {
                QVERIFY2(QTest::qWaitFor(
                             [&] { return pendingCount(cache) == int(originals.size()); }, 20000),
                         qPrintable(context));
                // Walked to their end before they go, or they would be kept in part.
                QTest::qWait(copies ? 300 : 50);
                emptyAll();
            }
            QVERIFY2(settled(cache), qPrintable(context));
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
        const QByteArray image = QFile::encodeName(images.filePath(QStringLiteral("full.img")));
        const QString uuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-0123456789AD");
        const QByteArray mount = "/mnt/sv3full", uid = QByteArray::number(getuid());
        const QByteArray volumeCache = mount + "/.Salvora3Cache/" + uid;
        const QByteArray volumeTrash = mount + "/.Trash-" + uid, staging = volumeTrash + "/staging";
        // No blocks reserved for root: the agent runs as root here. Its trash on another mount
        // of the same file system: every shadow is a copy.
        QVERIFY(sh("mount -t tmpfs sv3full /mnt; truncate -s16M " + image +
                   "; mkfs.ext4 -q -F -m 0 -U " + uuid.toLower().toLatin1() + ' ' + image +
                   "; mkdir " + mount + "; mount -o loop " + image + ' ' + mount + "; cd " + mount +
                   "; mkdir -p trash-real/files trash-real/info " + volumeTrash +
                   "; mount --bind trash-real " + volumeTrash + "; mkdir " + staging));
        const auto unmountAll = qScopeGuard([&] {
            Settings::remove(SettingsKeys::PrefsProtectedDisks);
            QTest::qWait(300);
            sh("umount -l " + volumeTrash + "; umount -l " + mount + "; umount -l /mnt");
        });
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, {{uuid, str(mount)}});
        QTRY_VERIFY_WITH_TIMEOUT(TestEnv::exists(volumeCache), 10000);

        // Staged with their .trashinfo while there is room, moved into the trash once there is
        // none.
        QList<Original> originals;
        const auto stage = [&](const QByteArray &name, const QByteArray &data) {
            QVERIFY(TestEnv::writeFile(staging + '/' + name, data));
            QVERIFY(TestEnv::writeFile(staging + '/' + name + ".trashinfo",
                                       "[Trash Info]\nPath=docs/" + name +
                                           "\nDeletionDate=2024-05-03T14:07:55\n"));
            originals.append({name, mount + "/docs/" + name, snapshot(staging + '/' + name)});
        };
        // Fills the disk but `leave` bytes, then moves the staged items from `from` on in.
        const auto fillAndTrash = [&](const QByteArray &filler, qint64 leave, qsizetype from) {
            QByteArray script = "cd " + volumeTrash + "; head -c $(($(df --output=avail -B1 . | " +
                                "tail -1) - " + QByteArray::number(leave) + ")) /dev/zero > " +
                                filler + " || true; sync";
            for (qsizetype i = from; i < originals.size(); ++i)
                script += "; mv staging/" + originals[i].name + ".trashinfo info; mv staging/" +
                          originals[i].name + " files";
            QVERIFY(sh(script));
        };

        // A 6 MB file that cannot be linked with 2 MB free: kept in part, or not at all.
        QRandomGenerator rng(7);
        stage("big.bin", randomBytes(rng, 1 << 20).repeated(6));
        fillAndTrash(mount + "/filler1", 2 << 20, 0);
        QTest::qWait(1000);
        QVERIFY(emptyTrash(volumeTrash));
        // Then nothing free at all: ten small files.
        for (int i = 0; i < 10; ++i)
            stage("nospace" + QByteArray::number(i) + ".txt", QByteArray(3000 + i, 'n'));
        fillAndTrash(mount + "/filler2", 0, 1);
        QTest::qWait(500);
        QVERIFY(emptyTrash(volumeTrash));
        QVERIFY(settled(volumeCache));
        QTest::qWait(300);
        checkKept(originals, QStringLiteral("full disk"), {}, volumeCache,
                  QStringLiteral("No space left on device"));

        // The log's own disk full: writing to it keeps the old content.
        const QByteArray logFile = QFile::encodeName(CommonUtils::logFilePath());
        const QByteArray logFolder = logFile.left(logFile.lastIndexOf('/'));
        const QByteArray before = TestEnv::logText();
        QVERIFY(!before.isEmpty());
        QVERIFY(sh("mount -t tmpfs -o size=256k sv3log '" + logFolder + '\''));
        const auto unmountLog = qScopeGuard([&] { sh("umount -l '" + logFolder + '\''); });
        QVERIFY(TestEnv::writeFile(logFile, before));
        QVERIFY(sh("cat /dev/zero > '" + logFolder + "/filler' 2>/dev/null || true"));
        QVERIFY(NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                                      QLatin1String(Notifications::Salvora3GetStatus)));
        QTest::qWait(500);
        QCOMPARE(TestEnv::logText(), before);
        QVERIFY(daemon.isRunning());
    }

    void folderFilledInPlace()
    {
        // A folder copied into the trash file by file (as across partitions) over more than a
        // second: its shadow follows it, and it is kept whole.
        const QByteArray name = "filled-in-place", folder = trash + "/files/" + name;
        QVERIFY(TestEnv::writeFile(trash + "/info/" + name + ".trashinfo",
                                   "[Trash Info]\nPath=" + home + '/' + name +
                                       "\nDeletionDate=2024-05-03T14:07:55\n"));
        QVERIFY(::mkdir(folder.constData(), 0755) == 0);
        for (int i = 0; i < 11; ++i) {
            QTest::qWait(120);
            QVERIFY(TestEnv::writeFile(folder + "/part" + QByteArray::number(i),
                                       QByteArray(i * 1000 + 1, char('0' + i))));
        }
        const Original o{name, home + '/' + name, snapshot(folder)};
        QTest::qWait(1500); // quiet for a while: the copy is over
        QVERIFY(emptyByHand(trash, name));
        QVERIFY(settled(cache));
        QTest::qWait(100);
        QVERIFY(!kept(cache, name).isEmpty());
        checkKept({o}, QStringLiteral("filled in place"));
    }

    void quitsAtOnceWhileWorking_data()
    {
        QTest::addColumn<bool>("purging");
        QTest::newRow("purge of 25 days x 1,000 files") << true;
        QTest::newRow("shadow of a 20,000-file folder") << false;
    }
    void quitsAtOnceWhileWorking()
    {
        QFETCH(bool, purging);
        QByteArrayList days;
        QVERIFY(daemon.stop());
        if (purging) {
            // 25 old days of 1,000 files each, purged as the agent starts.
            for (int d = 0; d < 25; ++d) {
                const QByteArray name = day(-400 - d);
                QVERIFY(makeTree(cache + '/' + name + '/' + name + " 10_00_00/old", 10, 100));
                days << cache + '/' + name;
            }
            Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 30);
            QVERIFY(daemon.start()); // the purge begins as it starts
        } else {
            QVERIFY(daemon.start());
            QVERIFY(makeTree(home + "/huge", 20, 1000));
            QVERIFY(trashByHand(trash, home + "/huge", "huge"));
            QTest::qWait(50);
        }
        // It ends by itself, mid-work, without being killed.
        QVERIFY(daemon.stop());

        // The next run finishes the work.
        QVERIFY(daemon.start());
        if (purging) {
            QTRY_VERIFY_WITH_TIMEOUT(std::none_of(days.begin(), days.end(), &TestEnv::exists),
                                     60000);
            Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 0);
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(pendingCount(cache), 1, 20000);
            QTest::qWait(1000);
            QVERIFY(emptyByHand(trash, "huge"));
            QVERIFY(settled(cache));
            QVERIFY(!kept(cache, "huge").isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TstDaemonReliability)
#include "tst_daemon_reliability.moc"
