#include "common/AdminLauncher.h"

#include "common/Alerts.h"
#include "common/Locations.h"

#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcess>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcLauncher, "salvora.adminlauncher")

extern char **environ;

namespace {

QString sAdminlauncherPath;
qint64 sPrivilegesToExecutableResult = ZEL_AdminLauncher::NoAttemptYet;
QString sOwnExecutableOverride;
QByteArray sElevationProgram = QByteArrayLiteral("/usr/bin/pkexec");
bool sAlwaysElevate = false;

// pkexec's exit statuses for a dismissed dialog and for a refusal (or no agent to ask with).
constexpr int kPkexecDismissed = 126;
constexpr int kPkexecNotAuthorized = 127;

void alertLauncherNotFound()
{
    // Fixed English texts: the translations may be missing along with the launcher.
    Alerts::runUntil({QStringLiteral("The \"adminlauncher\" executable was not found."),
                      QStringLiteral("Please, verify that the executable is correctly installed or "
                                     "reinstall the application."),
                      {QStringLiteral("OK")}});
}

void alertNoAuthenticationAgent()
{
    //% "Administrator rights needed"
    const QString title = qtTrId("PrivilegesNeededTitle");
    //% "Salvora 3 could not ask for an administrator password: polkit or its "
    //% "authentication agent is not running. Install the packages pkexec and polkitd "
    //% "and the polkit agent of your desktop (for example polkit-kde-agent-1 or "
    //% "policykit-1-gnome), log in again and start Salvora 3 again."
    const QString text = qtTrId("NoAuthenticationAgentText");
    //% "OK"
    Alerts::runUntil({title, text, {qtTrId("OKButton")}});
}

bool exists(const QString &path)
{
    return !path.isEmpty() && QFileInfo::exists(path);
}

// Reads what the child wrote to the memory file given as its stderr.
QByteArray readBack(int fd)
{
    QByteArray out;
    if (::lseek(fd, 0, SEEK_SET) != 0) return out;
    char buf[4096];
    for (ssize_t n; out.size() < 65536 && (n = ::read(fd, buf, sizeof buf)) > 0;)
        out.append(buf, n);
    return out;
}

struct Spawned
{
    int error = 0; // errno of a failed start
    int status = 0;
    QByteArray stderrText;
};

Spawned spawnAndWait(const std::vector<QByteArray> &args)
{
    Spawned result;
    std::vector<char *> argv;
    for (const QByteArray &a : args)
        argv.push_back(const_cast<char *>(a.constData()));
    argv.push_back(nullptr);

    const int err = ::memfd_create("salvora-elevation-stderr", MFD_CLOEXEC);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (err >= 0) posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    pid_t pid = -1;
    result.error = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (result.error == 0) {
        while (::waitpid(pid, &result.status, 0) < 0 && errno == EINTR) {
        }
        if (err >= 0) result.stderrText = readBack(err);
    }
    if (err >= 0) ::close(err);
    return result;
}

} // namespace

namespace ZEL_AdminLauncher {

QString adminlauncherPath()
{
    if (!sAdminlauncherPath.isEmpty()) return sAdminlauncherPath;
    const QString own = sOwnExecutableOverride.isEmpty() ? CommonUtils::ownExecutablePath()
                                                         : sOwnExecutableOverride;
    const QString found = CommonUtils::launcherAppPathFor(own);
    if (exists(found)) {
        sAdminlauncherPath = found;
        return found;
    }
    alertLauncherNotFound();
    return {};
}

bool checkAdminlauncherPrivileges()
{
    const QString path = adminlauncherPath();
    return exists(path) && isRootAndSetUIDBit(QFile::encodeName(path));
}

bool setPrivilegesToExecutable_adminlauncher()
{
    const QString path = adminlauncherPath();
    if (!exists(path)) {
        sPrivilegesToExecutableResult = LauncherNotFound;
        return false;
    }
    const QByteArray bytes = QFile::encodeName(path);
    if (isRootAndSetUIDBit(bytes)) return true;
    QThread::msleep(100);
    executeWithPrivileges(bytes, QByteArrayLiteral("9"));
    QThread::msleep(100);
    return isRootAndSetUIDBit(bytes);
}

bool setPrivilegesToExecutable(const QString &path)
{
    if (!exists(path)) return false;
    if (isRootAndSetUIDBit(QFile::encodeName(path))) return true;
    const QString launcher = adminlauncherPath();
    if (!exists(launcher)) return false;
    // Not waited for: the next launch tests the daemon again.
    return QProcess::startDetached(launcher, {path, QStringLiteral("2")});
}

bool launchWithAdminlauncher(const QString &path, const QStringList &arguments)
{
    if (!exists(path)) return false;
    const QString launcher = adminlauncherPath();
    if (!exists(launcher)) return false;
    return QProcess::startDetached(launcher, QStringList{path, QStringLiteral("LA")} + arguments);
}

qint16 executeWithPrivileges(const QByteArray &tool, const QByteArray &argument)
{
    // The tool gets its own path first and the argument second, as the launcher expects.
    const bool root = ::geteuid() == 0 && !sAlwaysElevate;
    std::vector<QByteArray> args;
    if (!root) args.push_back(sElevationProgram);
    args.insert(args.end(), {tool, tool, argument});

    const Spawned run = spawnAndWait(args);
    if (run.error != 0) {
        qCWarning(lcLauncher) << "cannot start" << args.front() << ":"
                              << qt_error_string(run.error);
        sPrivilegesToExecutableResult = CouldNotStart;
        if (!root && run.error == ENOENT) alertNoAuthenticationAgent();
        return qint16(run.error);
    }
    if (!run.stderrText.isEmpty()) qCWarning(lcLauncher).noquote() << run.stderrText.trimmed();
    if (root) {
        // As with any started job, only the later file test tells whether it worked.
        sPrivilegesToExecutableResult = LauncherStartedAsRoot;
        return 0;
    }
    if (!WIFEXITED(run.status)) {
        sPrivilegesToExecutableResult = CouldNotStart;
        return 0;
    }
    const int code = WEXITSTATUS(run.status);
    if (code == kPkexecDismissed || code == kPkexecNotAuthorized) {
        sPrivilegesToExecutableResult = RightNotGranted;
        // pkexec's own words for "nobody could ask": no agent, no terminal for its text agent,
        // or no polkit daemon at all.
        if (run.stderrText.contains("No authentication agent") ||
            run.stderrText.contains("textual authentication agent") ||
            run.stderrText.contains("Error getting authority"))
            alertNoAuthenticationAgent();
    } else {
        sPrivilegesToExecutableResult = LauncherStartedAsRoot;
    }
    return 0;
}

bool isRootAndSetUIDBit(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return false;
    // Linux has no O_EXLOCK: an exclusive lock that cannot be had counts as a failed open.
    struct stat status = {};
    const bool ok = ::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::fstat(fd, &status) == 0;
    ::close(fd);
    return ok && status.st_uid == 0 && (status.st_mode & S_ISUID) != 0;
}

qint64 getPrivilegesToExecutableResult()
{
    return sPrivilegesToExecutableResult;
}

void resetForTesting(const QString &ownExecutable)
{
    sAdminlauncherPath.clear();
    sPrivilegesToExecutableResult = NoAttemptYet;
    sOwnExecutableOverride = ownExecutable;
}

void setElevationProgramForTesting(const QByteArray &program)
{
    sElevationProgram = program;
}

void setAlwaysElevateForTesting(bool always)
{
    sAlwaysElevate = always;
}

} // namespace ZEL_AdminLauncher
