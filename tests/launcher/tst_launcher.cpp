// The set-user-id launcher under attack. As root in a private mount namespace, a tmpfs over
// /mnt holds a set-user-id copy of the launcher with a stand-in daemon beside it (the probe,
// which reports how it was started); every hostile case then runs as user 65534 with an exact
// argv and environment, and afterwards no file but the product's own may have gained root.

#include "LauncherCommand.h"
#include "TestEnv.h"

#include <QCoreApplication>
#include <QDir>
#include <QTest>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr uid_t kNobody = 65534;

struct Run
{
    int code = -1;
    QByteArray err;
};

// Starts `program` with exactly `argv` (which may be empty: argc 0) and `env`, as `uid`, with
// umask 0, /tmp as working folder and `keepFd` inherited.
Run run(const QByteArray &program, const QByteArrayList &argv, const QByteArrayList &env = {},
        uid_t uid = kNobody, int keepFd = -1)
{
    std::vector<char *> av, ev;
    for (const QByteArray &a : argv)
        av.push_back(const_cast<char *>(a.constData()));
    av.push_back(nullptr);
    for (const QByteArray &e : env)
        ev.push_back(const_cast<char *>(e.constData()));
    ev.push_back(nullptr);
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) return {};
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(pipeFds[1], STDERR_FILENO);
        if (keepFd >= 0) ::fcntl(keepFd, F_SETFD, 0);
        ::umask(0);
        if (::chdir("/tmp") != 0) ::_exit(125);
        if (uid != 0 && (::setgroups(0, nullptr) != 0 || ::setresgid(uid, uid, uid) != 0 ||
                         ::setresuid(uid, uid, uid) != 0))
            ::_exit(125);
        ::execve(program.constData(), av.data(), ev.data());
        ::_exit(124);
    }
    ::close(pipeFds[1]);
    Run result;
    char buf[4096];
    for (ssize_t n; (n = ::read(pipeFds[0], buf, sizeof buf)) > 0;)
        result.err.append(buf, n);
    ::close(pipeFds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return result;
}

struct stat statOf(const QByteArray &path)
{
    struct stat st = {};
    if (::lstat(path.constData(), &st) != 0) st.st_mode = 0;
    return st;
}

bool isSetUid(const QByteArray &path)
{
    return (statOf(path).st_mode & S_ISUID) != 0;
}

// Every set-user-id file below a folder.
QByteArrayList setUidFilesIn(const QByteArray &folder)
{
    QByteArrayList found;
    const QDir dir(QFile::decodeName(folder));
    for (const QString &name :
         dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System | QDir::Hidden)) {
        const QByteArray path = folder + '/' + QFile::encodeName(name);
        const struct stat st = statOf(path);
        if (S_ISDIR(st.st_mode))
            found += setUidFilesIn(path);
        else if (st.st_mode & S_ISUID)
            found += path;
    }
    return found;
}

bool install(const QByteArray &from, const QByteArray &to, mode_t mode, uid_t owner = 0)
{
    return TestEnv::writeFile(to, TestEnv::readFile(from)) &&
           ::chown(to.constData(), owner, owner) == 0 && ::chmod(to.constData(), mode) == 0;
}

bool folder(const QByteArray &path, mode_t mode, uid_t owner = 0)
{
    return ::mkdir(path.constData(), 0700) == 0 && ::chown(path.constData(), owner, owner) == 0 &&
           ::chmod(path.constData(), mode) == 0;
}

QByteArray report(const QByteArray &path)
{
    const QByteArray text = TestEnv::readFile(path);
    ::unlink(path.constData());
    return text;
}

QByteArrayList linesWith(const QByteArray &text, const QByteArray &prefix)
{
    QByteArrayList out;
    for (const QByteArray &line : text.split('\n'))
        if (line.startsWith(prefix)) out += line.mid(prefix.size());
    return out;
}

} // namespace

class TstLauncher : public QObject
{
    Q_OBJECT

    const QByteArray L = "/mnt/s/adminlauncher";
    const QByteArray D = "/mnt/s/sv3daemon";
    const QByteArray victim = "/mnt/s/victim";
    QByteArray builtLauncher, probe;
    bool mounted = false;

    void requireSystem()
    {
        if (!mounted)
            QSKIP("needs root in a private mount namespace (run it through ctest as root)");
    }

    void verifyOnlyOwnFilesHaveRoot()
    {
        const QByteArrayList setUid = setUidFilesIn("/mnt");
        for (const QByteArray &path : setUid)
            QVERIFY2(path == L || path == D || path.startsWith("/mnt/copies/"), path.constData());
    }

private slots:
    void initTestCase()
    {
        const QByteArray bin = QFile::encodeName(QCoreApplication::applicationDirPath());
        builtLauncher = bin + "/adminlauncher";
        probe = bin + "/launcher_probe";
        QString why;
        if (!canMountPrivately(&why)) return;
        QVERIFY(::mount("none", "/mnt", "tmpfs", MS_NOATIME, "mode=0755") == 0);
        mounted = true;
        QVERIFY(folder("/mnt/s", 0755));
        QVERIFY(folder("/mnt/out", 0755));
        QVERIFY(folder("/mnt/user", 0755, kNobody));
        QVERIFY(install(builtLauncher, L, 04755));
        QVERIFY(install(probe, D, 0755));
        QVERIFY(install(probe, victim, 0755));
    }

    void cleanupTestCase()
    {
        if (mounted) ::umount2("/mnt", MNT_DETACH);
    }

    void parsing_data()
    {
        QTest::addColumn<QByteArrayList>("argv");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("argc 0") << QByteArrayList{} << false;
        QTest::newRow("no job") << QByteArrayList{"x", "/a/b"} << false;
        QTest::newRow("job 9") << QByteArrayList{"x", "/a/b", "9"} << true;
        QTest::newRow("job 2") << QByteArrayList{"x", "/a/b", "2"} << true;
        QTest::newRow("LA with arguments") << QByteArrayList{"x", "/a/b", "LA", "-v", ""} << true;
        QTest::newRow("9 with more") << QByteArrayList{"x", "/a/b", "9", "y"} << false;
        QTest::newRow("2 with more") << QByteArrayList{"x", "/a/b", "2", "y"} << false;
        QTest::newRow("unknown job") << QByteArrayList{"x", "/a/b", "la"} << false;
        QTest::newRow("job with blank") << QByteArrayList{"x", "/a/b", "9 "} << false;
        QTest::newRow("relative") << QByteArrayList{"x", "a/b", "9"} << false;
        QTest::newRow("empty target") << QByteArrayList{"x", "", "9"} << false;
        QTest::newRow("root only") << QByteArrayList{"x", "/", "9"} << false;
        QTest::newRow("dot dot") << QByteArrayList{"x", "/a/../b", "2"} << false;
        QTest::newRow("dot") << QByteArrayList{"x", "/a/./b", "2"} << false;
        QTest::newRow("double slash") << QByteArrayList{"x", "/a//b", "2"} << false;
        QTest::newRow("trailing slash") << QByteArrayList{"x", "/a/b/", "2"} << false;
        QTest::newRow("too long") << QByteArrayList{"x", "/" + QByteArray(4095, 'a'), "2"} << false;
        QTest::newRow("bytes in names") << QByteArrayList{"x", "/a\xff\n/..b", "2"} << true;
    }

    void parsing()
    {
        QFETCH(QByteArrayList, argv);
        QFETCH(bool, accepted);
        std::vector<const char *> av;
        for (const QByteArray &a : argv)
            av.push_back(a.constData());
        av.push_back(nullptr);
        std::string why;
        const auto command = launcher::parseCommand(int(argv.size()), av.data(), &why);
        QCOMPARE(command.has_value(), accepted);
        QCOMPARE(why.empty(), accepted);
        if (command) {
            std::string joined;
            for (const std::string &n : command->names)
                joined += '/' + n;
            QCOMPARE(QByteArray::fromStdString(joined), argv[1]);
        }
    }

    void refusesEverythingButItsOwnFiles_data()
    {
        QTest::addColumn<QByteArrayList>("argv");
        QTest::addColumn<QByteArray>("reason");
        const QByteArray l = "/mnt/s/adminlauncher";
        // Path forms are parsing's; these show the program applies its refusals.
        QTest::newRow("argc 0") << QByteArrayList{} << QByteArray("usage");
        QTest::newRow("dot dot to daemon")
            << QByteArrayList{l, "/mnt/user/../s/sv3daemon", "2"} << QByteArray("..");
        QTest::newRow("another root file")
            << QByteArrayList{l, "/mnt/s/victim", "2"} << QByteArray("only");
        QTest::newRow("a system file")
            << QByteArrayList{l, "/usr/bin/env", "2"} << QByteArray("only");
        QTest::newRow("a file in /tmp")
            << QByteArrayList{l, "/tmp/sv3daemon", "2"} << QByteArray("/tmp:");
        QTest::newRow("user's own file")
            << QByteArrayList{l, "/mnt/user/sv3daemon", "2"} << QByteArray("/mnt/user:");
        QTest::newRow("9 on the daemon")
            << QByteArrayList{l, "/mnt/s/sv3daemon", "9"} << QByteArray("job 9");
        QTest::newRow("9 on another file")
            << QByteArrayList{l, "/mnt/s/victim", "9"} << QByteArray("job 9");
        QTest::newRow("2 on the launcher")
            << QByteArrayList{l, "/mnt/s/adminlauncher", "2"} << QByteArray("only");
        QTest::newRow("LA of a system program")
            << QByteArrayList{l, "/usr/bin/id", "LA"} << QByteArray("only");
        QTest::newRow("LA of another root file")
            << QByteArrayList{l, "/mnt/s/victim", "LA", "/mnt/out/r"} << QByteArray("only");
        QTest::newRow("unknown job")
            << QByteArrayList{l, "/mnt/s/sv3daemon", "1"} << QByteArray("unknown");
        QTest::newRow("missing daemon")
            << QByteArrayList{l, "/mnt/nothing/sv3daemon", "2"} << QByteArray("No such file");
    }

    void refusesEverythingButItsOwnFiles()
    {
        requireSystem();
        QFETCH(QByteArrayList, argv);
        QFETCH(QByteArray, reason);
        QVERIFY(install(probe, "/mnt/user/sv3daemon", 0755, kNobody));
        const Run r = run(L, argv, {"PATH=/mnt/user"});
        QCOMPARE(r.code, 2);
        QVERIFY2(r.err.startsWith("adminlauncher: refused: ") && r.err.count('\n') == 1 &&
                     r.err.contains(reason),
                 r.err.constData());
        QVERIFY(!isSetUid(D));
        QVERIFY(!QFile::exists(QStringLiteral("/mnt/out/r")));
        verifyOnlyOwnFilesHaveRoot();
    }

    void givesRootToItsOwnDaemon()
    {
        requireSystem();
        const Run r = run(L, {"anything", D, "2"});
        QVERIFY2(r.code == 0 && r.err.isEmpty(), r.err.constData());
        QCOMPARE(statOf(D).st_uid, uid_t(0));
        QCOMPARE(TestEnv::modeOf(D), mode_t(04755));
        verifyOnlyOwnFilesHaveRoot();
        QVERIFY(::chmod(D.constData(), 0755) == 0);
    }

    // Job 9 needs root from outside (pkexec): run by a user without the bit set it fails.
    void ownPrivilegesNeedRoot()
    {
        requireSystem();
        QVERIFY(folder("/mnt/copies", 0755));
        QVERIFY(folder("/mnt/copies/fresh", 0755));
        const QByteArray fresh = "/mnt/copies/fresh/adminlauncher";
        QVERIFY(install(builtLauncher, fresh, 0755));
        Run r = run(fresh, {"x", fresh, "9"});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("Operation not permitted"), r.err.constData());
        QVERIFY(!isSetUid(fresh));
        r = run(fresh, {fresh, fresh, "9"}, {}, 0);
        QVERIFY2(r.code == 0, r.err.constData());
        QCOMPARE(TestEnv::modeOf(fresh), mode_t(04755));
    }

    void launchedDaemonGetsACleanProcess()
    {
        requireSystem();
        const int inherited = ::open("/mnt/s/victim", O_RDONLY | O_CLOEXEC);
        QVERIFY(inherited >= 0);
        const QByteArray odd = "caf\xe9\nline";
        const Run r =
            run(L, {L, D, "LA", "/mnt/out/r", odd, ""},
                {"PATH=/mnt/user", "LD_PRELOAD=/mnt/user/evil.so", "LD_LIBRARY_PATH=/mnt/user",
                 "LD_AUDIT=/mnt/user/a.so", "GCONV_PATH=/mnt/user",
                 "GLIBC_TUNABLES=glibc.malloc.check=3", "QT_PLUGIN_PATH=/mnt/user",
                 "QT_QPA_PLATFORM_PLUGIN_PATH=/mnt/user", "IFS=/", "BASH_ENV=/mnt/user/x",
                 "TMPDIR=/mnt/user", "HOME=/home/someone",
                 "DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/65534/bus", "XDG_DATA_HOME=/d"},
                kNobody, inherited);
        ::close(inherited);
        QVERIFY2(r.code == 0, r.err.constData());
        const QByteArray text = report("/mnt/out/r");
        QVERIFY(!text.isEmpty());
        QCOMPARE(linesWith(text, "uid:"), QByteArrayList{"65534:0"});
        QCOMPARE(linesWith(text, "cwd:"), QByteArrayList{"/"});
        QCOMPARE(linesWith(text, "umask:"), QByteArrayList{"022"});
        QCOMPARE(linesWith(text, "blocked:"), QByteArrayList{"0"});
        QCOMPARE(linesWith(text, "fd:"), (QByteArrayList{"0", "1", "2"}));
        QByteArrayList env = linesWith(text, "env:");
        std::sort(env.begin(), env.end());
        QCOMPARE(env, (QByteArrayList{"DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/65534/bus",
                                      "HOME=/home/someone", "PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                      "XDG_DATA_HOME=/d"}));
        // The newline splits the report line; what matters is that the bytes arrived as given.
        QVERIFY(text.contains("arg:" + odd + "\narg:\n"));
    }

    void unsafeInstallationsAreRefused_data()
    {
        QTest::addColumn<QByteArray>("dir"); // holds a set-user-id launcher and a daemon
        QTest::addColumn<QByteArray>("reason");
        QTest::addColumn<int>("daemonOwner");
        QTest::addColumn<int>("daemonMode");
        QTest::newRow("folder owned by a user")
            << QByteArray("/mnt/copies/user") << QByteArray("/mnt/copies/user:") << 0 << 0755;
        QTest::newRow("world-writable parent")
            << QByteArray("/mnt/copies/open/inner") << QByteArray("/mnt/copies/open:") << 0 << 0755;
        QTest::newRow("group-writable folder")
            << QByteArray("/mnt/copies/group") << QByteArray("/mnt/copies/group:") << 0 << 0755;
        QTest::newRow("sticky like /tmp")
            << QByteArray("/mnt/copies/tmp") << QByteArray("/mnt/copies/tmp:") << 0 << 0755;
        QTest::newRow("daemon owned by a user")
            << QByteArray("/mnt/copies/a") << QByteArray("sv3daemon: can be") << int(kNobody)
            << 0755;
        QTest::newRow("daemon group-writable")
            << QByteArray("/mnt/copies/b") << QByteArray("sv3daemon: can be") << 0 << 0775;
        QTest::newRow("daemon hard-linked")
            << QByteArray("/mnt/copies/c") << QByteArray("more than one link") << 0 << 0755;
    }

    void unsafeInstallationsAreRefused()
    {
        requireSystem();
        QFETCH(QByteArray, dir);
        QFETCH(QByteArray, reason);
        QFETCH(int, daemonOwner);
        QFETCH(int, daemonMode);
        ::mkdir("/mnt/copies", 0755);
        ::mkdir("/mnt/copies/open", 0777);
        ::chmod("/mnt/copies/open", 0777);
        const mode_t mode = dir.endsWith("/user")    ? 0755
                            : dir.endsWith("/group") ? 0775
                            : dir.endsWith("/tmp")   ? 01777
                                                     : 0755;
        QVERIFY(folder(dir, mode, dir.endsWith("/user") ? kNobody : 0));
        QVERIFY(install(builtLauncher, dir + "/adminlauncher", 04755));
        QVERIFY(install(probe, dir + "/sv3daemon", mode_t(daemonMode), uid_t(daemonOwner)));
        if (reason.contains("link"))
            QVERIFY(::link((dir + "/sv3daemon").constData(), (dir + "/other").constData()) == 0);
        for (const QByteArrayList &jobArgs :
             {QByteArrayList{"2"}, QByteArrayList{"LA", "/mnt/out/r"}}) {
            const Run r =
                run(dir + "/adminlauncher", QByteArrayList{"x", dir + "/sv3daemon"} + jobArgs);
            QCOMPARE(r.code, 2);
            QVERIFY2(r.err.contains(reason), r.err.constData());
        }
        QVERIFY(!isSetUid(dir + "/sv3daemon"));
        QVERIFY(!QFile::exists(QStringLiteral("/mnt/out/r")));
    }

    void symbolicLinksAreNeverFollowed()
    {
        requireSystem();
        QVERIFY(::symlink("sv3daemon", "/mnt/s/link") == 0);
        QVERIFY(::symlink("/mnt/s", "/mnt/ls") == 0);
        Run r = run(L, {"x", "/mnt/s/link", "2"});
        QVERIFY2(r.code == 2 && r.err.contains("is a symbolic link"), r.err.constData());
        r = run(L, {"x", "/mnt/ls/sv3daemon", "2"});
        QVERIFY2(r.code == 2 && r.err.contains("is a symbolic link"), r.err.constData());
        QVERIFY(!isSetUid(D));
        // The launcher knows itself from the kernel, not from the name it was started by.
        r = run("/mnt/ls/adminlauncher", {"/mnt/ls/adminlauncher", D, "2"});
        QVERIFY2(r.code == 0, r.err.constData());
        QVERIFY(isSetUid(D));
        QVERIFY(::chmod(D.constData(), 0755) == 0);
        ::unlink("/mnt/s/link");
        ::unlink("/mnt/ls");
    }

    // The daemon's name is swapped with a link to another root-owned program as fast as the
    // kernel allows, while the jobs run: whatever moment the launcher looks, it works on the
    // file it checked, and the other program never gains root or gets started.
    void linkSwappedInBetweenCheckAndUse()
    {
        requireSystem();
        QVERIFY(::symlink("/mnt/s/victim", "/mnt/s/swap") == 0);
        std::atomic<bool> stop{false};
        std::atomic<int> swaps{0};
        std::thread swapper([&] {
            while (!stop.load()) {
                if (::renameat2(AT_FDCWD, "/mnt/s/sv3daemon", AT_FDCWD, "/mnt/s/swap",
                                RENAME_EXCHANGE) == 0)
                    ++swaps;
            }
        });
        const struct stat victimStatus = statOf(victim);
        const QByteArray victimId = QByteArray::number(quint64(victimStatus.st_dev)) + ':' +
                                    QByteArray::number(quint64(victimStatus.st_ino));
        int done = 0, refused = 0;
        for (int i = 0; i < 60; ++i) {
            for (const char *job : {"2", "LA"}) {
                const Run r = run(L, {"x", D, job, "/mnt/out/race"});
                (r.code == 0 ? done : refused)++;
                QVERIFY2(r.code == 0 || r.code == 2, r.err.constData());
                QVERIFY(!isSetUid(victim));
                const QByteArray text = report("/mnt/out/race");
                QVERIFY(!linesWith(text, "exe:").contains(victimId));
            }
        }
        stop = true;
        swapper.join();
        if (S_ISLNK(statOf(D).st_mode))
            QVERIFY(::renameat2(AT_FDCWD, D.constData(), AT_FDCWD, "/mnt/s/swap",
                                RENAME_EXCHANGE) == 0);
        ::unlink("/mnt/s/swap");
        QVERIFY(swaps > 0);
        qInfo("%d swaps, %d jobs done, %d refused", swaps.load(), done, refused);
        QVERIFY(::chmod(D.constData(), 0755) == 0);
        verifyOnlyOwnFilesHaveRoot();
    }
};

QTEST_GUILESS_MAIN(TstLauncher)
#include "tst_launcher.moc"
