// The set-user-id launcher under attack. As root in a private mount namespace, a tmpfs over
// /mnt holds a set-user-id copy of the launcher with a stand-in daemon beside it (the probe,
// which reports how it was started); every hostile case then runs as user 65534 with an exact
// argv and environment, and afterwards no file but the product's own may have gained root.

#include "LauncherCommand.h"
#include "TestEnv.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QTest>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
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
// umask 0, /tmp as working folder and `keepFd` inherited; `atExec` runs while it is held just
// after its exec.
Run run(const QByteArray &program, const QByteArrayList &argv, const QByteArrayList &env = {},
        uid_t uid = kNobody, int keepFd = -1, const std::function<void()> &atExec = {})
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
        if (atExec) ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::execve(program.constData(), av.data(), ev.data());
        ::_exit(124);
    }
    ::close(pipeFds[1]);
    int status = 0;
    if (atExec && ::waitpid(pid, &status, 0) == pid && WIFSTOPPED(status)) {
        atExec();
        ::ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
    }
    Run result;
    char buf[4096];
    for (ssize_t n; (n = ::read(pipeFds[0], buf, sizeof buf)) > 0;)
        result.err.append(buf, n);
    ::close(pipeFds[0]);
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

    // Every set-user-id file below /mnt (links are not followed).
    void verifyOnlyOwnFilesHaveRoot()
    {
        QDirIterator it(QStringLiteral("/mnt"), QDir::Files | QDir::System | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QByteArray path = QFile::encodeName(it.next());
            if (isSetUid(path))
                QVERIFY2(path == L || path == D || path.startsWith("/mnt/copies/"),
                         path.constData());
        }
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
        QVERIFY(::symlink("sv3daemon", "/mnt/s/link") == 0 && ::symlink("/mnt/s", "/mnt/ls") == 0);
        // The launcher itself under another name.
        QVERIFY(folder("/mnt/copies", 0755) && folder("/mnt/copies/bound", 0755) &&
                TestEnv::writeFile("/mnt/copies/bound/adminlauncher", "") &&
                ::mount(L.constData(), "/mnt/copies/bound/adminlauncher", nullptr, MS_BIND,
                        nullptr) == 0);
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
        QTest::newRow("LA with arguments") << QByteArrayList{"x", "/a/b", "LA", "-v", ""} << true;
        QTest::newRow("9 with more") << QByteArrayList{"x", "/a/b", "9", "y"} << false;
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
        const auto row = [&](const char *tag, const QByteArrayList &args, const char *reason) {
            QTest::newRow(tag) << (args.isEmpty() ? args : QByteArrayList{L} + args)
                               << QByteArray(reason);
        };
        // Path forms are parsing's; these show the program applies its refusals.
        row("argc 0", {}, "usage");
        row("dot dot to daemon", {"/mnt/user/../s/sv3daemon", "2"}, "..");
        row("another root file", {"/mnt/s/victim", "2"}, "only");
        row("a system file", {"/usr/bin/env", "2"}, "only");
        row("a file in /tmp", {"/tmp/sv3daemon", "2"}, "/tmp:");
        row("user's own file", {"/mnt/user/sv3daemon", "2"}, "/mnt/user:");
        row("9 on the daemon", {"/mnt/s/sv3daemon", "9"}, "job 9");
        row("9 on another file", {"/mnt/s/victim", "9"}, "job 9");
        row("9 on the launcher by another path", {"/mnt/copies/bound/adminlauncher", "9"}, "job 9");
        row("2 on the launcher", {"/mnt/s/adminlauncher", "2"}, "only");
        row("LA of a system program", {"/usr/bin/id", "LA"}, "only");
        row("LA of another root file", {"/mnt/s/victim", "LA", "/mnt/out/r"}, "only");
        row("unknown job", {"/mnt/s/sv3daemon", "1"}, "unknown");
        row("missing daemon", {"/mnt/nothing/sv3daemon", "2"}, "No such file");
        row("link to the daemon", {"/mnt/s/link", "2"}, "is a symbolic link");
        row("through a linked folder", {"/mnt/ls/sv3daemon", "2"}, "is a symbolic link");
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
        // Started by a linked folder's path too: it knows itself from the kernel, not its name.
        for (const QByteArray &l : {L, QByteArray("/mnt/ls/adminlauncher")}) {
            const Run r = run(l, {"anything", D, "2"});
            QVERIFY2(r.code == 0 && r.err.isEmpty(), r.err.constData());
            QCOMPARE(TestEnv::modeOf(D), mode_t(04755));
            verifyOnlyOwnFilesHaveRoot();
            QVERIFY(::chmod(D.constData(), 0755) == 0);
        }
    }

    // Job 9 needs root from outside (pkexec): run by a user without the bit set it fails.
    void ownPrivilegesNeedRoot()
    {
        requireSystem();
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
        QTest::addColumn<int>("dirOwner");
        QTest::addColumn<int>("dirMode");
        QTest::addColumn<int>("daemonOwner");
        QTest::addColumn<int>("daemonMode");
        QTest::addColumn<QByteArray>("reason");
        const auto row = [](const char *tag, const char *dir, int dirOwner, int dirMode,
                            int daemonOwner, int daemonMode, const char *reason) {
            QTest::newRow(tag) << QByteArray(dir) << dirOwner << dirMode << daemonOwner
                               << daemonMode << QByteArray(reason);
        };
        row("folder owned by a user", "/mnt/copies/user", kNobody, 0755, 0, 0755, "/copies/user:");
        row("world-writable parent", "/mnt/copies/open/in", 0, 0755, 0, 0755, "/copies/open:");
        row("group-writable folder", "/mnt/copies/group", 0, 0775, 0, 0755, "/copies/group:");
        row("sticky like /tmp", "/mnt/copies/tmp", 0, 01777, 0, 0755, "/mnt/copies/tmp:");
        row("daemon owned by a user", "/mnt/copies/a", 0, 0755, kNobody, 0755, "sv3daemon: can be");
        row("daemon group-writable", "/mnt/copies/b", 0, 0755, 0, 0775, "sv3daemon: can be");
        row("daemon hard-linked", "/mnt/copies/c", 0, 0755, 0, 0755, "more than one link");
    }

    void unsafeInstallationsAreRefused()
    {
        requireSystem();
        QFETCH(QByteArray, dir);
        QFETCH(int, dirOwner);
        QFETCH(int, dirMode);
        QFETCH(int, daemonOwner);
        QFETCH(int, daemonMode);
        QFETCH(QByteArray, reason);
        ::mkdir("/mnt/copies/open", 0777);
        ::chmod("/mnt/copies/open", 0777);
        QVERIFY(folder(dir, mode_t(dirMode), uid_t(dirOwner)));
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

    // Another root folder with a launcher and a daemon mounted over the launcher's folder once it
    // runs: it is not taken for the launcher's own.
    void folderReplacedOnceStarted()
    {
        requireSystem();
        QVERIFY(folder("/mnt/copies/other", 0755) &&
                install(builtLauncher, "/mnt/copies/other/adminlauncher", 04755) &&
                install(probe, "/mnt/copies/other/sv3daemon", 0755));
        const Run r = run(L, {L, D, "2"}, {}, kNobody, -1, [] {
            QVERIFY(::mount("/mnt/copies/other", "/mnt/s", nullptr, MS_BIND, nullptr) == 0);
        });
        ::umount2("/mnt/s", MNT_DETACH);
        QVERIFY2(r.code == 2 && r.err.contains("not beside this launcher"), r.err.constData());
        QVERIFY(!isSetUid("/mnt/copies/other/sv3daemon"));
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
        for (int i = 0; i < 60; ++i) {
            for (const char *job : {"2", "LA"}) {
                const Run r = run(L, {"x", D, job, "/mnt/out/race"});
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
        QVERIFY(::chmod(D.constData(), 0755) == 0);
        verifyOnlyOwnFilesHaveRoot();
    }
};

QTEST_GUILESS_MAIN(TstLauncher)
#include "tst_launcher.moc"
