// The application's wrapper around the launcher, and the privilege step of start-up built on it
// (which alerts the user sees, in which order, what goes to the log, whether start-up goes on).
// Stand-ins: a shell script plays the launcher (it logs its arguments and, when told to, really
// changes the file it is given) and another plays pkexec.

#include "AlertRecorder.h"
#include "TestEnv.h"

#include "common/AdminLauncher.h"
#include "common/Log.h"
#include "logic/PrivilegeChecks.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

#include <cstring>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uid_t kNobody = 65534;

// "message|informative|buttons" of each alert shown.
QStringList texts(const AlertRecorder &recorder)
{
    QStringList out;
    for (const Alerts::Alert &a : recorder.shown)
        out.append(a.message + u'|' + a.informativeText + u'|' + a.buttons.join(u','));
    return out;
}

QString alert(const char *message, const char *text, const char *button)
{
    return qtTrId(message) + u'|' + qtTrId(text) + u'|' + qtTrId(button);
}

const QString kMissing =
    QStringLiteral("The \"adminlauncher\" executable was not found.|Please, verify that the "
                   "executable is correctly installed or reinstall the application.|OK");
const QString kPassword = alert("PrivilegesNeededTitle", "PrivilegesNeededText", "OKButton");
QString launcherFailure(const char *text)
{
    return alert("PrivilegesNeededTitle", text, "QuitButton");
}
const QString kDaemonFailure = launcherFailure("BadPermissionsText2");

const QByteArray kSucceeded = "Set Privileges to adminlauncher succeeded.";
const QByteArray kUnable = "Unable to set Privileges to adminlauncher.";

// The start-up cases: the launcher and the daemon as they are found.
enum Launcher { Missing, Privileged, Plain, PlainThatWorks, RefusedPassword };
enum Daemon { NoDaemon, PrivilegedDaemon, PlainDaemon };

bool writeScript(const QByteArray &path, const QByteArray &body, mode_t mode = 0755)
{
    return TestEnv::writeFile(path, "#!/bin/sh\n" + body) && ::chmod(path.constData(), mode) == 0;
}

bool setOwnerAndMode(const QByteArray &path, uid_t owner, mode_t mode)
{
    return ::chown(path.constData(), owner, owner) == 0 && ::chmod(path.constData(), mode) == 0;
}

// `tst_privileges --elevate PROGRAM TOOL`: asks PROGRAM to run TOOL with job 9, prints the
// outcome code. Run as an ordinary user, so that the real (not forced) pkexec path is taken.
int elevateChild(char **argv)
{
    ZEL_AdminLauncher::setElevationProgramForTesting(argv[2]);
    ZEL_AdminLauncher::executeWithPrivileges(argv[3], "9");
    std::printf("%lld\n",
                static_cast<long long>(ZEL_AdminLauncher::getPrivilegesToExecutableResult()));
    return 0;
}

} // namespace

class TstPrivileges : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QTemporaryDir *work = nullptr;
    std::optional<AlertRecorder> recorder;
    QByteArray root, bin, L, D, calls;

    // The stand-in launcher: logs "$*", and does the job when the file "works" exists.
    void makeLauncher(uid_t owner, mode_t mode)
    {
        QVERIFY(writeScript(
            L, "echo \"$*\" >> '" + calls +
                   "'\n"
                   "[ -e '" +
                   bin +
                   "/works' ] || exit 0\n"
                   "case \"$2\" in 9|2) chown 0:0 \"$1\" && chmod 4755 \"$1\";; esac\n"));
        QVERIFY(setOwnerAndMode(L, owner, mode));
    }
    void launcherWorks(bool works)
    {
        if (works)
            QVERIFY(TestEnv::writeFile(bin + "/works", ""));
        else
            ::unlink((bin + "/works").constData());
    }
    QByteArrayList callLines() const
    {
        QByteArrayList lines = TestEnv::readFile(calls).split('\n');
        lines.removeAll(QByteArray());
        return lines;
    }
    // A start-up case: the launcher and the daemon as start-up finds them.
    void prepare(Launcher launcher, Daemon daemon)
    {
        if (launcher != Missing) makeLauncher(0, launcher == Privileged ? 04755 : 0755);
        launcherWorks(launcher == Privileged || launcher == PlainThatWorks);
        if (launcher == RefusedPassword) {
            QVERIFY(writeScript(root + "/pkexec", "exit 126\n"));
            ZEL_AdminLauncher::setElevationProgramForTesting(root + "/pkexec");
            ZEL_AdminLauncher::setAlwaysElevateForTesting(true);
        }
        if (daemon != NoDaemon) {
            QVERIFY(TestEnv::writeFile(D, "x"));
            QVERIFY(setOwnerAndMode(D, 0, daemon == PrivilegedDaemon ? 04755 : 0755));
        }
    }

private slots:
    void init()
    {
        env = new TestEnv;
        work = new QTemporaryDir;
        root = QFile::encodeName(work->path());
        ::chmod(root.constData(), 0755);
        bin = root + "/bin";
        QVERIFY(TestEnv::makeFolders(bin));
        L = bin + "/adminlauncher";
        D = bin + "/sv3daemon";
        calls = root + "/calls";
        recorder.emplace();
        ZEL_AdminLauncher::resetForTesting(QFile::decodeName(bin + "/salvora3"));
        ZEL_AdminLauncher::setElevationProgramForTesting("/usr/bin/pkexec");
        ZEL_AdminLauncher::setAlwaysElevateForTesting(false);
    }
    void cleanup()
    {
        recorder.reset();
        delete work;
        delete env;
    }

    void lockedOrUnreadableFails()
    {
        if (::geteuid() != 0) QSKIP("needs root");
        QVERIFY(TestEnv::writeFile(D, "x"));
        QVERIFY(setOwnerAndMode(D, 0, 04755));
        const int holder = ::open(D.constData(), O_RDONLY | O_CLOEXEC);
        QVERIFY(::flock(holder, LOCK_EX) == 0);
        QVERIFY(!ZEL_AdminLauncher::isRootAndSetUIDBit(D));
        ::close(holder);
        QVERIFY(ZEL_AdminLauncher::isRootAndSetUIDBit(D));

        // As a user who may not read it, even a root set-user-id file fails the test.
        const QByteArray readable = bin + "/readable";
        QVERIFY(TestEnv::writeFile(readable, "x"));
        QVERIFY(setOwnerAndMode(readable, 0, 04755));
        QVERIFY(setOwnerAndMode(D, 0, 04711));
        auto asNobody = [](const QByteArray &path) {
            const pid_t pid = ::fork();
            if (pid == 0) {
                if (::setresgid(kNobody, kNobody, kNobody) != 0 ||
                    ::setresuid(kNobody, kNobody, kNobody) != 0)
                    ::_exit(2);
                ::_exit(ZEL_AdminLauncher::isRootAndSetUIDBit(path) ? 1 : 0);
            }
            int status = 0;
            ::waitpid(pid, &status, 0);
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        };
        QCOMPARE(asNobody(D), 0);
        QCOMPARE(asNobody(readable), 1);
    }

    void missingLauncherAlertsOnEveryLookup()
    {
        recorder->answers = {-1, -1}; // closed twice without the button: shown again each time
        QCOMPARE(ZEL_AdminLauncher::adminlauncherPath(), QString());
        QCOMPARE(texts(*recorder), QStringList(3, kMissing));
        QCOMPARE(ZEL_AdminLauncher::adminlauncherPath(), QString());
        QCOMPARE(texts(*recorder), QStringList(4, kMissing));
        QVERIFY(!ZEL_AdminLauncher::checkAdminlauncherPrivileges());
        QCOMPARE(recorder->shown.size(), 5);
        QVERIFY(!ZEL_AdminLauncher::setPrivilegesToExecutable_adminlauncher());
        QCOMPARE(ZEL_AdminLauncher::getPrivilegesToExecutableResult(),
                 qint64(ZEL_AdminLauncher::LauncherNotFound));
        QCOMPARE(recorder->shown.size(), 6);
    }

    void foundPathIsKeptEvenAfterAMove()
    {
        makeLauncher(0, 0755);
        QCOMPARE(ZEL_AdminLauncher::adminlauncherPath(), QFile::decodeName(L));
        QVERIFY(::rename(bin.constData(), (root + "/moved").constData()) == 0);
        QCOMPARE(ZEL_AdminLauncher::adminlauncherPath(), QFile::decodeName(L));
        QVERIFY(recorder->shown.isEmpty());
        QVERIFY(!ZEL_AdminLauncher::checkAdminlauncherPrivileges()); // nothing there any more
    }

    void raisingTheLauncher_data()
    {
        QTest::addColumn<int>("owner");
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("works");
        QTest::addColumn<bool>("raised");
        QTest::addColumn<bool>("called");
        QTest::newRow("already privileged") << 0 << 04755 << true << true << false;
        QTest::newRow("root without the bit") << 0 << 0755 << true << true << true;
        QTest::newRow("bit but another owner") << int(kNobody) << 04755 << true << true << true;
        QTest::newRow("job did nothing") << 0 << 0755 << false << false << true;
    }
    void raisingTheLauncher()
    {
        if (::geteuid() != 0) QSKIP("runs the stand-in launcher directly, as root does");
        QFETCH(int, owner);
        QFETCH(int, mode);
        QFETCH(bool, works);
        QFETCH(bool, raised);
        QFETCH(bool, called);
        makeLauncher(uid_t(owner), mode_t(mode));
        launcherWorks(works);
        QCOMPARE(ZEL_AdminLauncher::checkAdminlauncherPrivileges(), !called);
        QCOMPARE(ZEL_AdminLauncher::setPrivilegesToExecutable_adminlauncher(), raised);
        QCOMPARE(callLines(), called ? QByteArrayList{L + " 9"} : QByteArrayList{});
        QCOMPARE(ZEL_AdminLauncher::getPrivilegesToExecutableResult(),
                 qint64(called ? ZEL_AdminLauncher::LauncherStartedAsRoot
                               : ZEL_AdminLauncher::NoAttemptYet));
        QCOMPARE(ZEL_AdminLauncher::checkAdminlauncherPrivileges(), raised);
        QVERIFY(recorder->shown.isEmpty());
    }

    void daemonJobAndLaunch()
    {
        if (::geteuid() != 0) QSKIP("the stand-in launcher changes owners");
        makeLauncher(0, 04755);
        launcherWorks(true);
        QVERIFY(
            !ZEL_AdminLauncher::setPrivilegesToExecutable(QFile::decodeName(D))); // no daemon yet
        QVERIFY(TestEnv::writeFile(D, "x"));
        QVERIFY(setOwnerAndMode(D, 0, 0755));
        // Started, not awaited: the answer comes before the change.
        QVERIFY(ZEL_AdminLauncher::setPrivilegesToExecutable(QFile::decodeName(D)));
        QTRY_COMPARE(TestEnv::modeOf(D), mode_t(04755));
        QCOMPARE(callLines(), QByteArrayList{D + " 2"});
        QVERIFY(
            ZEL_AdminLauncher::setPrivilegesToExecutable(QFile::decodeName(D))); // already: no job
        QVERIFY(ZEL_AdminLauncher::launchWithAdminlauncher(
            QFile::decodeName(D), {QStringLiteral("-a"), QStringLiteral("b c")}));
        QTRY_COMPARE(callLines().size(), 2);
        QCOMPARE(callLines().last(), D + " LA -a b c");
        QVERIFY(
            !ZEL_AdminLauncher::launchWithAdminlauncher(QFile::decodeName(bin + "/nothing"), {}));
        QVERIFY(recorder->shown.isEmpty());
    }

    void askingThroughPkexec_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: the program does not exist
        QTest::addColumn<qint64>("result");
        QTest::addColumn<int>("alerts");
        const auto row = [](const char *tag, const char *script, qint64 result, int alerts = 0) {
            QTest::newRow(tag) << QByteArray(script) << result << alerts;
        };
        using namespace ZEL_AdminLauncher;
        row("granted", "exit 0", LauncherStartedAsRoot);
        row("job failed after grant", "exit 2", LauncherStartedAsRoot);
        row("dismissed", "exit 126", RightNotGranted);
        row("refused", "exit 127", RightNotGranted);
        row("no agent",
            "echo 'Error executing command as another user: No authentication agent found.' >&2; "
            "exit 127",
            RightNotGranted, 1);
        row("no polkit daemon",
            "echo 'Error getting authority: Error initializing authority: Could not connect' >&2; "
            "exit 127",
            RightNotGranted, 1);
        row("killed", "kill -9 $$", CouldNotStart);
        row("not installed", "", CouldNotStart, 1);
    }
    void askingThroughPkexec()
    {
        QFETCH(QByteArray, script);
        QFETCH(qint64, result);
        QFETCH(int, alerts);
        const QByteArray pkexec = root + "/pkexec";
        if (!script.isEmpty())
            QVERIFY(writeScript(pkexec, "echo \"$*\" > '" + calls + "'\n" + script + "\n"));
        ZEL_AdminLauncher::setElevationProgramForTesting(pkexec);
        ZEL_AdminLauncher::setAlwaysElevateForTesting(true);
        const qint16 status = ZEL_AdminLauncher::executeWithPrivileges(L, "9");
        QCOMPARE(status, qint16(script.isEmpty() ? ENOENT : 0));
        QCOMPARE(ZEL_AdminLauncher::getPrivilegesToExecutableResult(), result);
        QCOMPARE(recorder->shown.size(), alerts);
        if (alerts)
            QCOMPARE(recorder->shown[0].informativeText, qtTrId("NoAuthenticationAgentText"));
        if (!script.isEmpty()) QCOMPARE(callLines(), QByteArrayList{L + ' ' + L + " 9"});
    }

    // Not forced: a real ordinary user goes through pkexec on its own.
    void ordinaryUserGoesThroughPkexec()
    {
        if (::geteuid() != 0) QSKIP("needs root to switch to another user");
        const QByteArray self = root + "/tst_copy";
        QVERIFY(TestEnv::writeFile(
            self, TestEnv::readFile(QFile::encodeName(QCoreApplication::applicationFilePath()))));
        QVERIFY(::chmod(self.constData(), 0755) == 0);
        QVERIFY(writeScript(root + "/pkexec", "exit 126\n"));
        QProcess child;
        child.start(QStringLiteral("setpriv"),
                    {QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                     QStringLiteral("--clear-groups"), QFile::decodeName(self),
                     QStringLiteral("--elevate"), QFile::decodeName(root + "/pkexec"),
                     QFile::decodeName(L)});
        QVERIFY(child.waitForFinished(20000));
        QCOMPARE(child.readAllStandardOutput().trimmed(), QByteArray("3"));
    }

    // ---- The privilege step of start-up.
    void startUp_data()
    {
        QTest::addColumn<int>("launcher");
        QTest::addColumn<int>("daemon");
        QTest::addColumn<bool>("goesOn");
        QTest::addColumn<QStringList>("alerts");
        QTest::addColumn<QByteArrayList>("log");
        QTest::addColumn<bool>("privilegesWereSet");
        const auto row = [](const char *tag, Launcher l, Daemon d, bool goesOn,
                            const QStringList &alerts = {}, const QByteArrayList &log = {}) {
            QTest::newRow(tag) << int(l) << int(d) << goesOn << alerts << log
                               << log.contains(kSucceeded);
        };
        const QStringList missing{kMissing, kPassword, kMissing,
                                  launcherFailure("ExecutableNotFoundText")};
        row("everything privileged", Privileged, PrivilegedDaemon, true);
        row("launcher privileged, daemon not: no alert", Privileged, PlainDaemon, true);
        row("launcher raised", PlainThatWorks, PrivilegedDaemon, true, {kPassword}, {kSucceeded});
        row("launcher started but still plain", Plain, PrivilegedDaemon, false,
            {kPassword, launcherFailure("BadPermissionsText")}, {kUnable});
        row("password refused", RefusedPassword, PrivilegedDaemon, false,
            {kPassword, launcherFailure("BadPrivilegesText")}, {kUnable});
        row("launcher missing", Missing, PrivilegedDaemon, false, missing, {kUnable});
        // The daemon check is skipped after a failed launcher check: no daemon alert here.
        row("launcher missing, daemon missing", Missing, NoDaemon, false, missing, {kUnable});
        row("daemon missing", Privileged, NoDaemon, false, {kDaemonFailure});
        row("launcher raised, daemon missing", PlainThatWorks, NoDaemon, false,
            {kPassword, kDaemonFailure}, {kSucceeded});
    }

    void startUp()
    {
        QFETCH(int, launcher);
        QFETCH(int, daemon);
        QFETCH(bool, goesOn);
        QFETCH(QStringList, alerts);
        QFETCH(QByteArrayList, log);
        QFETCH(bool, privilegesWereSet);
        if (::geteuid() != 0) QSKIP("the stand-in launcher makes files root-owned: run as root");
        prepare(Launcher(launcher), Daemon(daemon));

        PrivilegeChecks checks(QFile::decodeName(bin + "/salvora3"));
        QCOMPARE(checks.run(), goesOn);
        QCOMPARE(texts(*recorder), alerts);
        QCOMPARE(TestEnv::logMessages(), log);
        QCOMPARE(checks.adminPrivilegesWereSet(), privilegesWereSet);
        if (goesOn && daemon == PlainDaemon) // privileged silently, through the launcher's job 2
            QTRY_COMPARE(TestEnv::modeOf(D), mode_t(04755));
    }

    // Closing an alert any other way than with its button brings it back.
    void alertsComeBackUntilTheirButton()
    {
        if (::geteuid() != 0) QSKIP("the stand-in launcher makes files root-owned: run as root");
        prepare(Plain, PrivilegedDaemon);
        recorder->answers = {-1, 0, -1, -1, 0};
        PrivilegeChecks checks(QFile::decodeName(bin + "/salvora3"));
        QVERIFY(!checks.run());
        QCOMPARE(texts(*recorder),
                 (QStringList{kPassword, kPassword, launcherFailure("BadPermissionsText"),
                              launcherFailure("BadPermissionsText"),
                              launcherFailure("BadPermissionsText")}));
    }

    // The daemon job needs the launcher file: gone after the launcher check, the daemon fails.
    void launcherGoneBeforeTheDaemonJob()
    {
        if (::geteuid() != 0) QSKIP("the stand-in launcher makes files root-owned: run as root");
        prepare(Privileged, PlainDaemon);
        PrivilegeChecks checks(QFile::decodeName(bin + "/salvora3"));
        QVERIFY(checks.checkAdminlauncherPrivileges());
        QVERIFY(::unlink(L.constData()) == 0);
        QVERIFY(!checks.checkDaemonPrivileges());
        QCOMPARE(texts(*recorder), QStringList{kDaemonFailure});
        QVERIFY(TestEnv::logMessages().isEmpty());
    }
};

int main(int argc, char **argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--elevate") == 0) return elevateChild(argv);
    QCoreApplication app(argc, argv);
    TstPrivileges t;
    return QTest::qExec(&t, argc, argv);
}
#include "tst_privileges.moc"
