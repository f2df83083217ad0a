// The preload library with real programs: what they delete on a protected volume is kept whole,
// they see exactly what they would have seen without it, and what must not be kept is deleted.
#include "DaemonHarness.h"
#include "TestEnv.h"

#include "cache/CacheCommit.h"
#include "cache/CacheLayout.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include "KeepFeed.h"
#include "OriginRecord.h"
#include "TrashInfoText.h"

#include "KeepTable.h"

#include <QDBusConnection>
#include <QDir>
#include <QMap>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray kLatin1Name = "latin\xff\xfe-1";
// 255 bytes, two-byte characters but the last.
const QByteArray kLongName = QByteArray("\xc3\xa9").repeated(127) + "x";

// What a tree holds, entry by entry: type, mode, owner, modification time, content or link target.
using Snapshot = QMap<QByteArray, QByteArray>;
Snapshot snapshot(const QByteArray &path)
{
    return Harness::snapshot(path, true, true);
}

QByteArrayList entries(const QByteArray &folder)
{
    return Harness::names(folder, false);
}

// Every time folder of a cache that holds anything.
QByteArrayList timeFolders(const QByteArray &cache)
{
    QByteArrayList out;
    for (const QByteArray &day : entries(cache))
        for (const QByteArray &time : entries(cache + '/' + day))
            if (!entries(cache + '/' + day + '/' + time).isEmpty())
                out.append(cache + '/' + day + '/' + time);
    return out;
}

struct Run
{
    int exitCode = -1;
    QByteArray output;
};

} // namespace

class TstKeep : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray home, cache;
    std::uint64_t generation = 0;

    keeptable::Table table(bool on = true)
    {
        keeptable::Table t = keeptable::Table::withDefaults(
            home.toStdString(), (home + "/.local/share/Trash").toStdString());
        // The temporary home lies in /tmp.
        auto &places = t.lists[keeptable::ExcludedPlaces];
        places.erase(std::find(places.begin(), places.end(), "/tmp"));
        places.push_back((home + "/excluded").toStdString());
        t.lists[keeptable::ExcludedExtensions] = {"bak"};
        t.lists[keeptable::ProtectedMounts] = {"/"};
        struct stat st = {};
        stat(home.constData(), &st);
        t.volumes.push_back({std::uint64_t(st.st_dev), cache.toStdString(), "/"});
        t.on = on;
        t.generation = ++generation;
        return t;
    }

    // Kept name -> its content before and where it was.
    using Expected = QMap<QByteArray, std::pair<Snapshot, QByteArray>>;
    // Each item kept must be whole, and the first origin record of its name in its time folder
    // (the one `salvora restore --to-original` goes by) must name where it was. `names`: the
    // names kept, sorted.
    void checkKept(const Expected &expected, QByteArrayList *names)
    {
        const QList<CacheCommit::Origin> origins =
            CacheCommit::readOrigins(cache, CommonUtils::nameForCacheFolderForToday().toLatin1());
        for (const QByteArray &time : timeFolders(cache))
            for (const QByteArray &name : entries(time)) {
                *names << name;
                QVERIFY2(snapshot(time + '/' + name) == expected.value(name).first, name.data());
                const auto o = std::find_if(origins.begin(), origins.end(), [&](const auto &o) {
                    return time.endsWith('/' + o.time) && o.name == name;
                });
                QVERIFY2(o != origins.end() && o->path == expected.value(name).second &&
                             o->uid == qint64(getuid()),
                         name.data());
            }
        std::sort(names->begin(), names->end());
    }

    void publish(const keeptable::Table &t)
    {
        QCOMPARE(keeptable::publish(t, keeptable::defaultPath()), 0);
    }

    // A process with the library (or without), in the home or `cwd`.
    void prepare(QProcess &p, bool preload = true, const QByteArray &cwd = {})
    {
        QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
        if (preload) e.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(KEEP_LIBRARY));
        e.insert(QStringLiteral("PROBE"), QStringLiteral(KEEP_PROBE));
        p.setProcessEnvironment(e);
        p.setWorkingDirectory(QFile::decodeName(cwd.isEmpty() ? home : cwd));
    }

    Run run(const QByteArray &command, bool preload = true, const QByteArray &cwd = {})
    {
        QProcess p;
        prepare(p, preload, cwd);
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QString::fromUtf8(command)});
        Run r;
        if (p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit)
            r.exitCode = p.exitCode();
        r.output = p.readAll();
        return r;
    }

    // A tree with what is hard to keep: links, an empty folder, names that are not UTF-8 or as
    // long as a name may be, modes and times of its own.
    void makeTree(const QByteArray &root)
    {
        QVERIFY(TestEnv::writeFile(root + "/file.txt", "file\n"));
        QVERIFY(TestEnv::writeFile(root + '/' + kLatin1Name, "latin\n"));
        QVERIFY(TestEnv::writeFile(root + "/tree/a.txt", "a\n"));
        QByteArray binary;
        for (int i = 0; i < 70000; ++i)
            binary.append(char(i * 7919 % 251));
        QVERIFY(TestEnv::writeFile(root + "/tree/sub/b.bin", binary));
        QVERIFY(TestEnv::writeFile(root + "/tree/sub/deeper/c", ""));
        QVERIFY(TestEnv::writeFile(root + "/tree/sub/" + kLatin1Name, "latin in tree\n"));
        QVERIFY(TestEnv::writeFile(root + "/tree/" + kLongName, "long\n"));
        QVERIFY(TestEnv::writeFile(root + "/tree/other/a.txt", "another a\n"));
        QVERIFY(TestEnv::makeFolders(root + "/tree/empty/inner"));
        QVERIFY(symlink("a.txt", (root + "/tree/link").constData()) == 0);
        QVERIFY(chmod((root + "/tree/a.txt").constData(), 0751) == 0);
        QVERIFY(chmod((root + "/tree/sub").constData(), 0750) == 0);
        // Times of the past, so that a folder rebuilt now would show.
        for (const char *p : {"/tree", "/tree/sub", "/tree/sub/deeper", "/tree/empty",
                              "/tree/empty/inner", "/tree/other"}) {
            const timespec t[2] = {{1000000000, 0}, {1200000000, 5}};
            QVERIFY(utimensat(AT_FDCWD, (root + p).constData(), t, AT_SYMLINK_NOFOLLOW) == 0);
        }
    }

private slots:
    void init()
    {
        env = new TestEnv;
        home = env->homeBytes();
        cache = home + "/.Salvora3Cache";
        QVERIFY(mkdir(cache.constData(), 0700) == 0);
        publish(table());
    }
    void cleanup() { delete env; }

    void library()
    {
        // Nothing but the wrapped calls leaves it, and it needs nothing but the C library.
        const Run nm =
            run("nm -D --defined-only --format=just-symbols " KEEP_LIBRARY " | sort", false);
        QCOMPARE(nm.output, QByteArray("chdir\nfchdir\nremove\nrmdir\nunlink\nunlinkat\n"));
        const QByteArray dynamic = run("readelf -d " KEEP_LIBRARY, false).output;
        QCOMPARE(dynamic.count("(NEEDED)"), 1);
        QVERIFY(dynamic.contains("[libc.so.6]"));
    }

    void numberedNames_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("extension") << QByteArray("report.txt");
        QTest::newRow("dot file") << QByteArray(".profile");
        QTest::newRow("255 bytes, two-byte characters") << kLongName;
        QTest::newRow("long extension") << "a." + QByteArray(252, 'e');
    }

    void numberedNames()
    {
        // The library numbers a clash as the rest of Salvora 3 does.
        QFETCH(QByteArray, name);
        for (int n : {2, 37, 10000}) {
            char out[origin::kMaxNameBytes + 1];
            origin::numberedName(name.constData(), n, out);
            QCOMPARE(QByteArray(out), CacheCommit::numberedName(name, n));
        }
    }

    void trashInfo_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("topdir");
        QTest::addColumn<QByteArray>("path");
        const auto row = [](const char *tag, const QByteArray &text, const char *top = "",
                            const QByteArray &path = {}) {
            QTest::newRow(tag) << text << QByteArray(top) << path;
        };
        const QByteArray group = "[Trash Info]\n";
        row("absolute", group + "Path=/home/u/a%20b.txt\nDeletionDate=2024-05-03T14:07:55\n",
            "/vol", "/home/u/a b.txt");
        row("not UTF-8, CRLF", "[Trash Info]\r\nPath=/d/latin%FF%fe-1\r\n", "",
            "/d/" + kLatin1Name);
        row("relative, joined to the top", group + "Path=docs/x", "/media/u/usb",
            "/media/u/usb/docs/x");
        row("relative without a top", group + "Path=docs/x");
        row("other group first", "[Other]\nPath=/wrong\n" + group + "Path=/right\n", "", "/right");
        row("outside the group", "Path=/x\n[Trash Info]\n");
        row("bad escape", group + "Path=/a%2");
        row("NUL escape", group + "Path=/a%00b");
        row("empty", group + "Path=\n");
        row("longer than a path", group + "Path=/" + QByteArray(PATH_MAX, 'a'));
    }

    void trashInfo()
    {
        // The library and the agent read a .trashinfo with the same decoder.
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, topdir);
        QFETCH(QByteArray, path);
        char out[PATH_MAX];
        const std::size_t n = trashinfo::originalPath(text.constData(), std::size_t(text.size()),
                                                      topdir.constData(), out, sizeof out);
        QCOMPARE(QByteArray(out, qsizetype(n)), path);
    }

    void keeps_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QByteArrayList>("items");
        QTest::addColumn<QByteArray>("needs"); // a program, or a set-up command
        const auto row = [](const char *tag, const QByteArray &command, QByteArrayList items,
                            const char *needs = "") {
            QTest::newRow(tag) << command << items << QByteArray(needs);
        };
        const QByteArray py = "/usr/bin/python3 -c ";
        row("rm -rf FILE TREE", "rm -rf file.txt tree", {"file.txt", "tree"});
        row("rm non-UTF-8 name", "rm -- \"$(printf 'latin\\377\\376-1')\"", {kLatin1Name});
        // A bare name deleted in a folder of an unprotected file system first, then back home.
        row("os.remove after os.chdir",
            py + "'import os; d = os.getcwd(); os.chdir(\"/dev/shm\"); n = \"sv3-%d\" % "
                 "os.getpid(); open(n, \"w\").close(); os.remove(n); os.chdir(d); "
                 "os.remove(\"file.txt\")'",
            {"file.txt"}, "/usr/bin/python3");
        row("probe remove", "$PROBE remove file.txt", {"file.txt"});
        // Entries of a folder that stays are items of their own.
        row("rm FILES of one folder", "rm tree/a.txt tree/link tree/sub/b.bin",
            {"tree/a.txt", "tree/link", "tree/sub/b.bin"});
        // Many threads of one process share its batch.
        QByteArrayList many;
        for (int i = 0; i < 2000; ++i)
            many << "many/f" + QByteArray::number(i);
        row("threads", "$PROBE threads many 2000", many,
            "mkdir many && for i in $(seq 0 1999); do echo $i > many/f$i; done");
        // Hundreds of folders, and the same names in each.
        row("rm -r wide tree", "rm -r wide", {"wide"},
            "mkdir wide && for i in $(seq 300); do mkdir wide/d$i && echo $i > wide/d$i/same && "
            "echo $i > wide/d$i/f$i; done");
    }

    void keeps()
    {
        QFETCH(QByteArray, command);
        QFETCH(QByteArrayList, items);
        QFETCH(QByteArray, needs);
        if (!needs.isEmpty() && !needs.contains(' ') && !Harness::haveProgram(needs.constData()))
            QSKIP("the program is not installed");
        makeTree(home);
        // A set-up command, made without the library.
        if (needs.contains(' ')) QCOMPARE(run(needs, false).exitCode, 0);
        // Items are kept under their own names, wherever they were deleted from.
        Expected expected;
        QByteArrayList names;
        for (const QByteArray &item : items) {
            names << item.mid(item.lastIndexOf('/') + 1);
            expected.insert(names.last(), {snapshot(home + '/' + item), home + '/' + item});
        }
        std::sort(names.begin(), names.end());
        // The day's size record is out of date once anything is kept.
        const QByteArray day = CommonUtils::nameForCacheFolderForToday().toLatin1();
        const QByteArray record = cache + '/' + day + '/' + CommonUtils::kCacheInformationName;
        QVERIFY(TestEnv::writeFile(record, "stale"));

        const Run r = run(command);
        QVERIFY2(r.exitCode == 0, r.output.constData());
        QCOMPARE(timeFolders(cache).size(), 1);
        QByteArrayList kept;
        checkKept(expected, &kept);
        QCOMPARE(kept, names);
        for (const QByteArray &item : items)
            QVERIFY(!TestEnv::exists(home + '/' + item));
        QVERIFY(!TestEnv::exists(record));
    }

    void sameResults_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::newRow("rm -r missing") << QByteArray("rm -r file.txt missing tree");
        QTest::newRow("unlink missing") << QByteArray("$PROBE unlink missing");
        QTest::newRow("unlink folder") << QByteArray("$PROBE unlink tree");
        QTest::newRow("unlinkat folder") << QByteArray("$PROBE unlinkat tree");
        QTest::newRow("unlink trailing slash") << QByteArray("$PROBE unlink file.txt/");
        QTest::newRow("rmdir not empty") << QByteArray("$PROBE rmdir tree");
        QTest::newRow("rmdir file") << QByteArray("$PROBE rmdir file.txt");
        QTest::newRow("rmdir link to folder")
            << QByteArray("ln -s tree/empty l && $PROBE rmdir l/");
        QTest::newRow("rmdir .") << QByteArray("cd tree/empty/inner && $PROBE rmdir .");
        QTest::newRow("remove empty folder") << QByteArray("$PROBE remove tree/empty/inner");
        // As root too: without the capabilities that override permissions.
        const QByteArray plain =
            geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search,-fowner " : "";
        QTest::newRow("read-only folder") << "chmod 555 tree/sub && " + plain +
                                                 "$PROBE unlink tree/sub/b.bin; chmod 755 tree/sub";
        QTest::newRow("rm -rf read-only folder")
            << "chmod 555 tree/sub && " + plain + "rm -rf tree; chmod 755 tree/sub";
    }

    void sameResults()
    {
        QFETCH(QByteArray, command);
        if (command.contains("setpriv") && (!Harness::haveProgram("setpriv") || geteuid() != 0))
            QSKIP("needs root and setpriv");
        Run results[2];
        Snapshot after[2];
        for (int preload = 0; preload < 2; ++preload) {
            const QByteArray dir = home + (preload ? "/with" : "/without");
            makeTree(dir);
            results[preload] = run(command, preload, dir);
            run("chmod -R u+w . 2>/dev/null", false, dir);
            after[preload] = snapshot(dir);
        }
        QCOMPARE(results[1].output, results[0].output);
        QCOMPARE(results[1].exitCode, results[0].exitCode);
        QCOMPARE(after[1].keys(), after[0].keys());
        // Some deletions succeed (an empty folder), but the failures keep nothing.
        for (const QByteArray &time : timeFolders(cache))
            QVERIFY2(entries(time).isEmpty() || command.contains("rm -r"), time.constData());
    }

    void untouched_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<int>("tableState"); // 1 on, 0 off, -1 none
        const auto row = [](const char *tag, const char *command, const char *target = "x",
                            int table = 1) {
            QTest::newRow(tag) << QByteArray(command) << QByteArray(target) << table;
        };
        row("excluded folder", "rm excluded/x", "excluded/x");
        row("home cache", "rm .cache/x", ".cache/x");
        row("trash", "rm .local/share/Trash/info/x.trashinfo",
            ".local/share/Trash/info/x.trashinfo");
        // Where it came from is not known: the agent's shadow is what keeps it.
        row("trashed without .trashinfo", "rm -r .local/share/Trash/files/orphan",
            ".local/share/Trash/files/orphan");
        row("inside the cache", "rm -r .Salvora3Cache/old", ".Salvora3Cache/old");
        for (const char *name :
             {"x.tmp", "x~", ".#x", "x.swp", "x.part", ".goutputstream-AB12", "x.bak", "X.BAK"})
            QTest::newRow(name) << "rm '" + QByteArray(name) + "'" << QByteArray(name) << 1;
        row("version control", "bash -c 'exec -a git rm x'");
        // The linker replaces its output; make's recipe cleans up.
        row("build", "echo 'int main(void) { return 0; }' > m.c && cc -o x m.c && cc -o x m.c && "
                     "printf 'c:\\n\\trm x m.c\\n' | make -s -f - c");
        // A cache that is not the account's own and private, or whose origin record is a link.
        row("cache open to others", "chmod 755 .Salvora3Cache && rm x");
        row("cache of another account", "chown 65534 .Salvora3Cache && rm x");
        row("origin record a link", "mkdir .Salvora3Cache/.origins && ln -s ../../o "
                                    "\".Salvora3Cache/.origins/$(date +%F).jsonl\" && rm x");
        row("hard link", "ln x x2 && rm x");
        row("bypassed", "SALVORA3_KEEP=0 rm x");
        row("protection off", "rm x", "x", 0);
        row("no table", "rm x", "x", -1);
    }

    void untouched()
    {
        QFETCH(QByteArray, command);
        QFETCH(QByteArray, target);
        QFETCH(int, tableState);
        for (const char *p : {"make", "cc"})
            if (command.contains(QByteArray(p) + ' ') && !Harness::haveProgram(p))
                QSKIP("needs make and cc");
        if (command.contains("chown") && geteuid() != 0) QSKIP("needs root");
        QVERIFY(
            TestEnv::writeFile(home + '/' + target + (target.endsWith("old") ? "/f" : ""), "data"));
        QVERIFY(TestEnv::writeFile(home + "/x", "x"));
        if (tableState == 0) publish(table(false));
        if (tableState < 0) QCOMPARE(keeptable::withdraw(keeptable::defaultPath()), 0);
        const Run r = run(command);
        QVERIFY2(r.exitCode == 0, r.output.constData());
        QVERIFY(!TestEnv::exists(home + '/' + target));
        QCOMPARE(timeFolders(cache), QByteArrayList());
        if (command.contains("ln x x2")) QCOMPARE(TestEnv::readFile(home + "/x2"), QByteArray("x"));
    }

    void tableChanges()
    {
        // A running process follows the table: off, then on again, without restarting.
        if (!Harness::haveProgram("/usr/bin/python3")) QSKIP("python3 is not installed");
        for (const char *f : {"f1", "f2", "f3"})
            QVERIFY(TestEnv::writeFile(home + '/' + f, f));
        QProcess p;
        prepare(p);
        p.start(
            QStringLiteral("/usr/bin/python3"),
            {QStringLiteral("-c"),
             QStringLiteral("import os, sys\nfor line in sys.stdin:\n    os.remove(line.strip())\n"
                            "    print('ok', flush=True)\n")});
        QVERIFY(p.waitForStarted());
        const auto removeIn = [&](const char *name) {
            p.write(QByteArray(name) + '\n');
            while (!p.canReadLine())
                if (!p.waitForReadyRead(10000)) return false;
            return p.readLine().trimmed() == "ok";
        };
        QVERIFY(removeIn("f1"));
        // The table's folder decides what every process keeps: opened to others, it is closed.
        QVERIFY(chmod((home + "/.run/salvora3").constData(), 0777) == 0);
        publish(table(false));
        QCOMPARE(TestEnv::modeOf(home + "/.run/salvora3"), mode_t(0700));
        QVERIFY2(removeIn("f2"), p.readAllStandardError().constData());
        publish(table(true));
        QVERIFY(removeIn("f3"));
        p.closeWriteChannel();
        QVERIFY(p.waitForFinished());
        QByteArrayList kept;
        for (const QByteArray &time : timeFolders(cache))
            kept += entries(time);
        std::sort(kept.begin(), kept.end());
        QCOMPARE(kept, QByteArrayList({"f1", "f3"}));
    }

    void feed()
    {
        // The agent's table: the settings' filters, the volumes whose cache is sound, the mounts.
        QVERIFY(rmdir(cache.constData()) == 0);
        Settings::setString(SettingsKeys::PrefsExcludeName, QStringLiteral("Thumbs.db;secret"));
        Settings::setString(SettingsKeys::PrefsExcludeExtension, QStringLiteral("bak"));
        keeptable::Table t = KeepFeed::tableFor(true);
        QVERIFY(t.volumes.empty()); // no cache yet: the library never makes one
        QCOMPARE(t.lists[keeptable::ExcludedNames],
                 std::vector<std::string>({"Thumbs.db", "secret"}));
        QCOMPARE(t.lists[keeptable::ExcludedExtensions], std::vector<std::string>({"bak"}));
        QVERIFY(mkdir(cache.constData(), 0700) == 0);
        t = KeepFeed::tableFor(true);
        struct stat st = {};
        QVERIFY(stat(home.constData(), &st) == 0);
        QCOMPARE(t.volumes.size(), std::size_t(1));
        QCOMPARE(t.volumes.front().dev, std::uint64_t(st.st_dev));
        QCOMPARE(QByteArray::fromStdString(t.volumes.front().cachePath), cache);
        const auto &other = t.lists[keeptable::OtherMounts];
        QVERIFY(std::find(other.begin(), other.end(), "/proc") != other.end());
        QVERIFY(!t.lists[keeptable::ProtectedMounts].empty());

        // Every item kept adds an origin record: the feed tells of them, and the day's size record
        // goes.
        KeepFeed feed;
        feed.publish(true);
        QSignalSpy kept(&feed, &KeepFeed::kept);
        const QByteArray day = CommonUtils::nameForCacheFolderForToday().toLatin1();
        const QByteArray record = cache + '/' + day + '/' + CommonUtils::kCacheInformationName;
        QVERIFY(TestEnv::writeFile(record, "stale"));
        // The records' folder appears with the first item kept, then the day's file.
        QTest::qWait(200);
        QVERIFY(mkdir((cache + '/' + CacheCommit::kOriginsFolderName).constData(), 0700) == 0);
        QTest::qWait(200);
        for (int i = 0; i < 50; ++i) {
            QFile origins(QFile::decodeName(CacheCommit::originsFileFor(cache, day)));
            QVERIFY(origins.open(QIODevice::Append));
            origins.write("{}\n");
            if (i == 0) QTest::qWait(200); // the new file is watched from its folder's change
        }
        QTRY_VERIFY(kept.count() >= 1);
        QVERIFY(!TestEnv::exists(record));
    }

    void trashEmptied_data()
    {
        QTest::addColumn<QByteArray>("setup"); // in orig/, without the library
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QByteArrayList>("items");
        // Trashed as gio and trash-cli do (the .trashinfo, then a rename into files/) and deleted
        // at once, the .trashinfo before the item in every other round.
        QByteArrayList files;
        for (int i = 1; i <= 200; ++i)
            files << "f" + QByteArray::number(i);
        std::sort(files.begin(), files.end());
        QTest::newRow("200 rounds of trash and unlink")
            << QByteArray("for i in $(seq 200); do echo \"content $i\" > f$i; done")
            << QByteArray(
                   "T=$XDG_DATA_HOME/Trash && mkdir -p $T/files $T/info && for i in $(seq 200); do "
                   "printf '[Trash Info]\\nPath=%s\\nDeletionDate=2026-01-01T00:00:00\\n' "
                   "\"$PWD/orig/f$i\" > $T/info/f$i.trashinfo && mv orig/f$i $T/files/ && "
                   "if [ $((i % 2)) = 0 ]; then rm $T/info/f$i.trashinfo $T/files/f$i; "
                   "else rm $T/files/f$i $T/info/f$i.trashinfo; fi || exit 1; done")
            << files;
        // Emptied once the daemon's shadow holds the item: the library deletes the FIFO for real,
        // the shadow's link of it joins the kept item.
        QTest::newRow("shadowed, with what the library does not keep")
            << QByteArray("mkdir -p tree/sub && echo a > tree/a && mkfifo tree/sub/pipe")
            << QByteArray("trash-put orig/tree && sleep 1 && trash-empty "
                          "--trash-dir=\"$XDG_DATA_HOME/Trash\"")
            << QByteArrayList{"tree"};
        // As GNOME empties: moved to expunged/, its .trashinfo deleted, then deleted there, all
        // by one process; the daemon's shadow is ready by then.
        const QByteArray gnome =
            "import os, shutil, sys; t = sys.argv[1]; os.rename(t + '/files/tree', t + "
            "'/expunged/12345'); os.unlink(t + '/info/tree.trashinfo'); shutil.rmtree(t + "
            "'/expunged/12345')";
        QTest::newRow("moved to expunged/ and deleted there")
            << QByteArray("mkdir -p tree/sub tree/empty && echo a > tree/a && echo b > tree/sub/b "
                          "&& ln -s a tree/link")
            << "T=$XDG_DATA_HOME/Trash && mkdir -p $T/files $T/info $T/expunged && "
               "printf '[Trash Info]\\nPath=%s\\nDeletionDate=2026-01-01T00:00:00\\n' "
               "\"$PWD/orig/tree\" > $T/info/tree.trashinfo && mv orig/tree $T/files/ && sleep 0.5 "
               "&& /usr/bin/python3 -c \"" +
                   gnome + "\" $T"
            << QByteArrayList{"tree"};
    }

    void trashEmptied()
    {
        // Emptied by a program that has the library, while the daemon shadows what arrives in the
        // trash: each item is kept once, whole, under its original name and with its origin.
        QFETCH(QByteArray, setup);
        QFETCH(QByteArray, command);
        QFETCH(QByteArrayList, items);
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        if (command.contains("trash-") &&
            (!Harness::haveProgram("trash-put") || !Harness::haveProgram("trash-empty")))
            QSKIP("needs trash-cli; see scripts/deps.sh");
        if (command.contains("python3") && !Harness::haveProgram("/usr/bin/python3"))
            QSKIP("python3 is not installed");
        const QByteArray orig = home + "/orig";
        QVERIFY(TestEnv::makeFolders(orig));
        QCOMPARE(run(setup, false, orig).exitCode, 0);
        Expected expected;
        for (const QByteArray &item : items)
            expected.insert(item, {snapshot(orig + '/' + item), orig + '/' + item});
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        Harness::Daemon daemon;
        QVERIFY2(daemon.start(), daemon.output().constData());

        const Run r = run(command);
        QVERIFY2(r.exitCode == 0, r.output.constData());
        // A later arrival's shadow shows that the daemon has seen every item come and go: the
        // shadows of those the library kept are gone, none committed.
        const QByteArray trash = home + "/.local/share/Trash";
        QVERIFY(TestEnv::writeFile(orig + "/sentinel", "s"));
        QVERIFY(Harness::trashByHand(trash, orig + "/sentinel", "sentinel"));
        const QByteArray pending = cache + "/.pending/" + QByteArray::number(getuid());
        const auto onlySentinel = [&] {
            const QByteArrayList shadows = entries(pending);
            return shadows.size() == 1 &&
                   TestEnv::readFile(pending + '/' + shadows.first() + "/item") == "s";
        };
        QTRY_VERIFY_WITH_TIMEOUT(onlySentinel(), 30000);

        QByteArrayList kept;
        checkKept(expected, &kept);
        QCOMPARE(kept, items);
        QVERIFY(daemon.stop());
    }

    void keepCommand()
    {
        // On twice writes one block after the user's own lines; off leaves them as they were.
        const auto keep = [](const char *what, QByteArray *out = nullptr) {
            return TestEnv::runProgram(Harness::binary("salvora"),
                                       {QStringLiteral("keep"), QLatin1String(what)}, out);
        };
        const QByteArray profile = "export EDITOR=vi\n# mine\n";
        QVERIFY(TestEnv::writeFile(home + "/.profile", profile));
        QVERIFY(keep("on") && keep("on"));
        const QByteArray env =
            TestEnv::readFile(home + "/.config/environment.d/60-salvora3-keep.conf");
        const qsizetype at = env.indexOf("\nSALVORA3_KEEP_LIBRARY=/");
        QVERIFY2(at > 0 && env.endsWith("libsalvora3-keep.so\n"), env.constData());
        const QByteArray library = env.mid(at + 23).trimmed();
        // The package's generator preloads it, once, before what the session preloaded already;
        // with the library gone (package removed) it names nothing.
        const QByteArray generator = qgetenv("SALVORA_BIN_DIR") + "/../lib/60-salvora3-keep";
        const QByteArray other = home + "/other.so"; // a real library: the shell preloads it too
        QVERIFY(QFile::copy(QFile::decodeName(library), QFile::decodeName(other)));
        const struct
        {
            QByteArray lib, preload, expect;
        } generated[] = {
            {library, other, "LD_PRELOAD=" + library + ' ' + other + '\n'},
            {library, library, ""},
            {home + "/gone.so", "", ""},
        };
        for (const auto &g : generated) {
            const Run r = run("SALVORA3_KEEP_LIBRARY='" + g.lib + "' LD_PRELOAD='" + g.preload +
                                  "' sh '" + generator + "'",
                              false);
            QCOMPARE(r.output, g.expect);
        }
        const QByteArray withBlock = TestEnv::readFile(home + "/.profile");
        QVERIFY(withBlock.startsWith(profile));
        QCOMPARE(withBlock.count("salvora3 keep"), 2);
        // A login shell gets it once, before what it preloaded already.
        const Run login = run(
            "LD_PRELOAD=/usr/lib/none.so; . ./.profile; . ./.profile; echo \"$LD_PRELOAD\"", false);
        QVERIFY2(login.output.endsWith("libsalvora3-keep.so /usr/lib/none.so\n"),
                 login.output.constData());
        QByteArray status;
        QVERIFY(keep("status", &status));
        QVERIFY(status.contains("daemon's table: on"));
        QVERIFY(keep("off"));
        QCOMPARE(TestEnv::readFile(home + "/.profile"), profile);
        QVERIFY(!TestEnv::exists(home + "/.config/environment.d/60-salvora3-keep.conf"));

        // A ~/.profile that is a link is not written through, and then nothing is set at all.
        QVERIFY(QFile::rename(QFile::decodeName(home + "/.profile"),
                              QFile::decodeName(home + "/profile.real")));
        QVERIFY(symlink("profile.real", (home + "/.profile").constData()) == 0);
        QVERIFY(!keep("on"));
        QVERIFY(!TestEnv::exists(home + "/.config/environment.d/60-salvora3-keep.conf"));
        QCOMPARE(TestEnv::readFile(home + "/profile.real"), profile);
    }

    void fullVolumeFallsBack()
    {
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        const QByteArray vol = home + "/vol";
        QVERIFY(TestEnv::mountExt4Image(QFile::decodeName(home + "/vol.img"),
                                        QStringLiteral("6f1c1c55-4b1e-4a36-9d3a-0d1f1f0c0a01"),
                                        QFile::decodeName(vol)));
        const QByteArray volCache = vol + "/.Salvora3Cache/" + QByteArray::number(getuid());
        QVERIFY(mkdir((vol + "/.Salvora3Cache").constData(), 0711) == 0);
        QVERIFY(mkdir(volCache.constData(), 0700) == 0);
        keeptable::Table t = table();
        struct stat st = {};
        QVERIFY(stat(vol.constData(), &st) == 0);
        t.volumes.push_back({std::uint64_t(st.st_dev), volCache.toStdString(), vol.toStdString()});
        t.lists[keeptable::ProtectedMounts].push_back(vol.toStdString());
        publish(t);

        // Full: the real deletion, which frees the space.
        QVERIFY(TestEnv::writeFile(vol + "/victim", QByteArray(100000, 'v')));
        run("dd if=/dev/zero of=fill bs=4k 2>/dev/null; sync", false, vol);
        Run r = run("rm victim", true, vol);
        QVERIFY2(r.exitCode == 0, r.output.constData());
        QVERIFY(!TestEnv::exists(vol + "/victim"));
        QCOMPARE(timeFolders(volCache), QByteArrayList());

        // With room again, the volume's own cache keeps it.
        QVERIFY(unlink((vol + "/fill").constData()) == 0);
        QVERIFY(TestEnv::writeFile(vol + "/kept", "kept"));
        r = run("rm kept", true, vol);
        QVERIFY2(r.exitCode == 0, r.output.constData());
        const QByteArrayList times = timeFolders(volCache);
        QCOMPARE(times.size(), 1);
        QCOMPARE(TestEnv::readFile(times.first() + "/kept"), QByteArray("kept"));
        QCOMPARE(timeFolders(cache), QByteArrayList());
        run("umount " + vol, false);
    }
};

QTEST_GUILESS_MAIN(TstKeep)
#include "tst_keep.moc"
