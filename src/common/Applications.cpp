#include "common/Applications.h"

#include <QFile>

#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The real user id from /proc/PID/status ("Uid:\treal\teffective\t..."), or -1.
long long realUidOf(const char *pid)
{
    const QByteArray path = QByteArray("/proc/") + pid + "/status";
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    char buf[4096];
    const ssize_t n = ::read(fd, buf, sizeof buf - 1);
    ::close(fd);
    if (n <= 0) return -1;
    const QByteArray status(buf, n);
    const qsizetype at = status.indexOf("\nUid:");
    if (at < 0) return -1;
    bool ok = false;
    const long long uid = status.mid(at + 5).trimmed().split('\t').value(0).toLongLong(&ok);
    return ok ? uid : -1;
}

// Calls `match` with the PID of every process of this user; counts the true answers.
qint64 countOwnProcesses(const std::function<bool(const QByteArray &pid)> &match)
{
    DIR *proc = ::opendir("/proc");
    if (!proc) return 0;
    const long long me = ::getuid();
    qint64 count = 0;
    while (const dirent *e = ::readdir(proc)) {
        const char *name = e->d_name;
        if (*name < '1' || *name > '9') continue;
        bool digits = true;
        for (const char *c = name; *c; ++c)
            digits = digits && *c >= '0' && *c <= '9';
        if (digits && realUidOf(name) == me && match(QByteArray(name))) ++count;
    }
    ::closedir(proc);
    return count;
}

} // namespace

namespace CommonUtils {

qint64 isApplicationLaunchedWithPath(const QString &path)
{
    struct stat wanted = {};
    if (path.isEmpty() || ::stat(QFile::encodeName(path).constData(), &wanted) != 0) return 0;
    return countOwnProcesses([&](const QByteArray &pid) {
        struct stat exe = {};
        const QByteArray link = "/proc/" + pid + "/exe";
        return ::stat(link.constData(), &exe) == 0 && exe.st_dev == wanted.st_dev &&
               exe.st_ino == wanted.st_ino;
    });
}

qint64 isApplicationLaunchedWithName(const QString &name)
{
    const QByteArray wanted = QFile::encodeName(name);
    if (wanted.isEmpty()) return 0;
    return countOwnProcesses([&](const QByteArray &pid) {
        char buf[PATH_MAX];
        const QByteArray link = "/proc/" + pid + "/exe";
        const ssize_t n = ::readlink(link.constData(), buf, sizeof buf);
        if (n <= 0) return false;
        QByteArray target(buf, n);
        // An executable replaced on disk while it runs still counts under its name.
        if (target.endsWith(" (deleted)")) target.chop(10);
        return target.mid(target.lastIndexOf('/') + 1) == wanted;
    });
}

} // namespace CommonUtils
