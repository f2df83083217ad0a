#include "browser/Restore.h"

#include "browser/Removal.h"
#include "cache/FolderWalk.h"

#include <QRandomGenerator>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Failure
{
    QString message;
};

QString errnoText(const char *what, int err)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromLocal8Bit(std::strerror(err)));
}

bool stopped(const std::atomic<bool> *stop)
{
    return stop && stop->load(std::memory_order_relaxed);
}

void keepTimes(int dirFd, const char *name, const struct stat &st)
{
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    utimensat(dirFd, name, times, AT_SYMLINK_NOFOLLOW);
}

bool copyData(int in, int out, const std::atomic<bool> *stop, QString &error)
{
    // A clone shares the blocks and costs nothing; only where it is refused are bytes copied.
    if (ioctl(out, FICLONE, in) == 0)
        return true;
    bool rangeWorks = true;
    char buf[1 << 16];
    for (;;) {
        if (stopped(stop)) {
            error = QStringLiteral("stopped");
            return false;
        }
        ssize_t n = -1;
        if (rangeWorks) {
            n = copy_file_range(in, nullptr, out, nullptr, 1 << 24, 0);
            if (n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
                rangeWorks = false;
                continue;
            }
        } else {
            n = read(in, buf, sizeof buf);
            if (n > 0) {
                for (ssize_t done = 0; done < n;) {
                    const ssize_t w = write(out, buf + done, std::size_t(n - done));
                    if (w < 0 && errno == EINTR)
                        continue;
                    if (w <= 0) {
                        error = errnoText("write", errno);
                        return false;
                    }
                    done += w;
                }
            }
        }
        if (n == 0)
            return true;
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            error = errnoText(rangeWorks ? "copy" : "read", errno);
            return false;
        }
    }
}

// Copies the entry `name` of srcDir to `dstName` in dstDir (which must not exist yet).
bool copyEntry(int srcDir, const char *name, int dstDir, const char *dstName, const std::atomic<bool> *stop,
               QString &error)
{
    if (stopped(stop)) {
        error = QStringLiteral("stopped");
        return false;
    }
    struct stat st{};
    if (fstatat(srcDir, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        error = errnoText("stat", errno);
        return false;
    }
    if (S_ISLNK(st.st_mode)) {
        QByteArray target(std::size_t(st.st_size) + 1 > 4096 ? std::size_t(st.st_size) + 1 : 4096, '\0');
        const ssize_t n = readlinkat(srcDir, name, target.data(), std::size_t(target.size()));
        if (n < 0 || n >= target.size()) {
            error = errnoText("readlink", n < 0 ? errno : ENAMETOOLONG);
            return false;
        }
        target.truncate(n);
        if (symlinkat(target.constData(), dstDir, dstName) != 0) {
            error = errnoText("symlink", errno);
            return false;
        }
        keepTimes(dstDir, dstName, st);
        return true;
    }
    if (S_ISDIR(st.st_mode)) {
        const int in = FolderWalk::openFolder(srcDir, name);
        if (in < 0 || mkdirat(dstDir, dstName, 0700) != 0) {
            error = errnoText(in < 0 ? "open folder" : "create folder", errno);
            if (in >= 0)
                close(in);
            return false;
        }
        const int out = FolderWalk::openFolder(dstDir, dstName);
        bool ok = out >= 0;
        if (ok) {
            // Names first, then the copies: no listing buffer stays on the stack while a deep
            // tree is copied.
            QByteArrayList children;
            FolderWalk::forEachEntry(in, [&](const char *child, FolderWalk::Type) { children.append(child); });
            for (const QByteArray &child : children) {
                if (!ok)
                    break;
                ok = copyEntry(in, child.constData(), out, child.constData(), stop, error);
            }
            fchmod(out, st.st_mode & 07777);
            close(out);
        } else {
            error = errnoText("open folder", errno);
        }
        close(in);
        keepTimes(dstDir, dstName, st); // after the children, which touch the folder's times
        return ok;
    }
    if (S_ISREG(st.st_mode)) {
        const int in = openat(srcDir, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (in < 0) {
            error = errnoText("open", errno);
            return false;
        }
        const int out = openat(dstDir, dstName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (out < 0) {
            error = errnoText("create", errno);
            close(in);
            return false;
        }
        bool ok = copyData(in, out, stop, error);
        fchmod(out, st.st_mode & 07777);
        const struct timespec times[2] = {st.st_atim, st.st_mtim};
        futimens(out, times);
        if (close(out) != 0 && ok) {
            error = errnoText("write", errno);
            ok = false;
        }
        close(in);
        return ok;
    }
    if (S_ISFIFO(st.st_mode)) {
        if (mkfifoat(dstDir, dstName, st.st_mode & 07777) != 0) {
            error = errnoText("create pipe", errno);
            return false;
        }
        keepTimes(dstDir, dstName, st);
        return true;
    }
    error = QStringLiteral("a device or socket cannot be restored");
    return false;
}

QByteArray temporaryName()
{
    return ".salvora-restore-" + QByteArray::number(QRandomGenerator::global()->generate64(), 16);
}

bool exists(int dirFd, const char *name)
{
    struct stat st{};
    return fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace

namespace Restore {

QByteArray lastComponent(const QByteArray &path)
{
    QByteArray p = path;
    while (p.size() > 1 && p.endsWith('/'))
        p.chop(1);
    return p.mid(p.lastIndexOf('/') + 1);
}

ItemResult copyItem(const QByteArray &source, const QByteArray &target, const std::atomic<bool> *stop)
{
    ItemResult r{source, target, Outcome::Failed, {}};
    const QByteArray targetName = lastComponent(target);
    const qsizetype cut = target.size() - targetName.size();
    const QByteArray targetFolder = cut <= 0 ? QByteArray(".") : (cut == 1 ? QByteArray("/") : target.left(cut - 1));
    const QByteArray sourceName = lastComponent(source);
    const qsizetype scut = source.size() - sourceName.size();
    const QByteArray sourceFolder = scut <= 0 ? QByteArray(".") : (scut == 1 ? QByteArray("/") : source.left(scut - 1));

    const int dst = FolderWalk::openFolder(targetFolder);
    if (dst < 0) {
        r.error = errnoText("destination", errno);
        return r;
    }
    const int src = FolderWalk::openFolder(sourceFolder);
    if (src < 0) {
        r.error = errnoText("source", errno);
        close(dst);
        return r;
    }
    if (exists(dst, targetName.constData())) {
        r.outcome = Outcome::SkippedExisting;
    } else {
        const QByteArray temp = temporaryName();
        QString error;
        if (!copyEntry(src, sourceName.constData(), dst, temp.constData(), stop, error)) {
            r.outcome = stopped(stop) ? Outcome::Stopped : Outcome::Failed;
            r.error = error;
        } else if (renameat2(dst, temp.constData(), dst, targetName.constData(), RENAME_NOREPLACE) == 0) {
            r.outcome = Outcome::Copied;
        } else if (errno == EEXIST) {
            r.outcome = Outcome::SkippedExisting; // the name was taken while we copied
        } else {
            r.error = errnoText("rename", errno);
        }
        if (r.outcome != Outcome::Copied)
            Removal::removeTree(targetFolder + '/' + temp);
    }
    close(src);
    close(dst);
    return r;
}

QList<ItemResult> copyItems(const QByteArray &destinationFolder, const QByteArrayList &sources,
                            const std::atomic<bool> *stop, const std::function<void(const ItemResult &)> &onItemDone)
{
    QList<ItemResult> results;
    const QByteArray base = destinationFolder.endsWith('/') ? destinationFolder : destinationFolder + '/';
    for (const QByteArray &s : sources) {
        if (stopped(stop))
            break;
        results.append(copyItem(s, base + lastComponent(s), stop));
        if (onItemDone)
            onItemDone(results.last());
    }
    return results;
}

} // namespace Restore
