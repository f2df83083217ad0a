#include "browser/Restore.h"

#include "base/PathJoin.h"
#include "base/SafeFile.h"
#include "base/UniqueFd.h"
#include "browser/Removal.h"
#include "cache/CacheCommit.h"
#include "cache/FolderWalk.h"
#include "cache/SizeRecords.h"

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
    return QStringLiteral("%1: %2").arg(QLatin1String(what),
                                        QString::fromLocal8Bit(std::strerror(err)));
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
    if (ioctl(out, FICLONE, in) == 0) return true;
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
            if (n < 0 &&
                (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
                rangeWorks = false;
                continue;
            }
        } else {
            n = read(in, buf, sizeof buf);
            if (n > 0) {
                for (ssize_t done = 0; done < n;) {
                    const ssize_t w = write(out, buf + done, std::size_t(n - done));
                    if (w < 0 && errno == EINTR) continue;
                    if (w <= 0) {
                        error = errnoText("write", errno);
                        return false;
                    }
                    done += w;
                }
            }
        }
        if (n == 0) return true;
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = errnoText(rangeWorks ? "copy" : "read", errno);
            return false;
        }
    }
}

// Takes away what a failed copy of one piece left in a folder being copied.
void discard(int dirFd, const char *name)
{
    if (unlinkat(dirFd, name, 0) != 0) unlinkat(dirFd, name, AT_REMOVEDIR);
}

// Copies the entry `name` of srcDir to `dstName` in dstDir (which must not exist yet). Pieces of
// a folder that cannot be copied are listed in *leftOut (`below` is the folder's path inside the
// item) and the rest is copied; only a stop gives up the whole.
bool copyEntry(int srcDir, const char *name, int dstDir, const char *dstName,
               const std::atomic<bool> *stop, QString &error, QList<Restore::LeftOut> *leftOut,
               const QByteArray &below)
{
    if (stopped(stop)) {
        error = QStringLiteral("stopped");
        return false;
    }
    struct stat st
    {
    };
    if (fstatat(srcDir, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        error = errnoText("stat", errno);
        return false;
    }
    if (S_ISLNK(st.st_mode)) {
        QByteArray target(std::size_t(st.st_size) + 1 > 4096 ? std::size_t(st.st_size) + 1 : 4096,
                          '\0');
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
            if (in >= 0) close(in);
            return false;
        }
        const int out = FolderWalk::openFolder(dstDir, dstName);
        bool ok = out >= 0;
        if (ok) {
            // Names first, then the copies: no listing buffer stays on the stack while a deep
            // tree is copied.
            QByteArrayList children;
            FolderWalk::forEachEntry(
                in, [&](const char *child, FolderWalk::Type) { children.append(child); });
            for (const QByteArray &child : children) {
                const QByteArray inside = below.isEmpty() ? child : below + '/' + child;
                QString childError;
                if (copyEntry(in, child.constData(), out, child.constData(), stop, childError,
                              leftOut, inside))
                    continue;
                discard(out, child.constData());
                if (stopped(stop) || !leftOut) {
                    ok = false;
                    error = childError;
                    break;
                }
                leftOut->append({inside, childError});
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
        const int out =
            openat(dstDir, dstName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
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
    struct stat st
    {
    };
    return fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) == 0;
}

// Copies srcDir/sourceName to dst/targetName under a temporary name, then renames it into place
// if the name is still free.
void copyInto(int src, const QByteArray &sourceName, int dst, const QByteArray &dstFolder,
              const QByteArray &targetName, const std::atomic<bool> *stop, Restore::ItemResult &r)
{
    if (exists(dst, targetName.constData())) {
        r.outcome = Restore::Outcome::SkippedExisting;
        return;
    }
    const QByteArray temp = temporaryName();
    QString error;
    if (!copyEntry(src, sourceName.constData(), dst, temp.constData(), stop, error, &r.leftOut,
                   {})) {
        r.outcome = stopped(stop) ? Restore::Outcome::Stopped : Restore::Outcome::Failed;
        r.error = error;
    } else if (renameat2(dst, temp.constData(), dst, targetName.constData(), RENAME_NOREPLACE) ==
               0) {
        r.outcome = Restore::Outcome::Copied;
        return;
    } else if (errno == EEXIST) {
        r.outcome = Restore::Outcome::SkippedExisting; // the name was taken while we copied
    } else {
        r.error = errnoText("rename", errno);
    }
    r.leftOut.clear();
    // Still under its hidden name: nothing half-made ever shows under the final one.
    Removal::removeTree(dstFolder + '/' + temp);
}

QByteArray folderOf(const QByteArray &path)
{
    const QByteArray name = Restore::lastComponent(path);
    const qsizetype cut = path.size() - name.size();
    return cut <= 0 ? QByteArray(".") : (cut == 1 ? QByteArray("/") : path.left(cut - 1));
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

ItemResult copyItem(const QByteArray &source, const QByteArray &target,
                    const std::atomic<bool> *stop)
{
    ItemResult r{source, target, Outcome::Failed, {}, {}, false};
    const QByteArray targetFolder = folderOf(target);
    const int dst = FolderWalk::openFolder(targetFolder);
    if (dst < 0) {
        r.error = errnoText("destination", errno);
        return r;
    }
    const int src = FolderWalk::openFolder(folderOf(source));
    if (src < 0) {
        r.error = errnoText("source", errno);
        close(dst);
        return r;
    }
    copyInto(src, lastComponent(source), dst, targetFolder, lastComponent(target), stop, r);
    close(src);
    close(dst);
    return r;
}

bool pathTaken(const QByteArray &path)
{
    struct stat st
    {
    };
    return lstat(path.constData(), &st) == 0;
}

QByteArray freeNumberedPath(const QByteArray &path)
{
    const QByteArray folder = folderOf(path);
    const QByteArray name = lastComponent(path);
    const QByteArray base = folder == "/" ? folder : folder + '/';
    for (int n = 2; n < CacheCommit::kMaxNumberedNames; ++n) {
        const QByteArray candidate = base + CacheCommit::numberedName(name, n);
        if (!pathTaken(candidate)) return candidate;
    }
    return {};
}

QByteArray originalPathOf(const QByteArray &cachedItem)
{
    const QByteArray name = lastComponent(cachedItem);
    const QByteArray timeFolder = folderOf(cachedItem);
    const QByteArray dayFolder = folderOf(timeFolder);
    const QByteArray cache = folderOf(dayFolder);
    if (name.isEmpty() || timeFolder == "/" || dayFolder == "/") return {};
    const QByteArray time = lastComponent(timeFolder);
    struct stat st
    {
    };
    const quint64 ino = lstat(cachedItem.constData(), &st) == 0 ? quint64(st.st_ino) : 0;
    QByteArray found;
    for (const CacheCommit::Origin &o : CacheCommit::readOrigins(cache, lastComponent(dayFolder))) {
        if (o.time != time || o.name != name || o.path.isEmpty()) continue;
        if (ino != 0 && o.ino == ino) return o.path;
        found = o.path;
    }
    return found;
}

ItemResult putBack(const QByteArray &cachedItem, const QByteArray &original, Clash clash,
                   const std::atomic<bool> *stop)
{
    ItemResult r{cachedItem, original, Outcome::Failed, {}, {}, false};
    if (!original.startsWith('/') || lastComponent(original).isEmpty() || original == "/") {
        r.error = QStringLiteral("no original location was recorded");
        return r;
    }
    const QByteArray folder = folderOf(original);
    // The user's own folders, made again with a home's usual mode: never open to other
    // accounts' writes, whatever the umask.
    UniqueFd dst(safefile::openPathCreating(folder.toStdString(), 0755));
    if (dst.fd < 0) {
        r.error = errnoText("original folder", errno);
        return r;
    }
    const QByteArray sourceFolder = folderOf(cachedItem);
    UniqueFd src(FolderWalk::openFolder(sourceFolder));
    if (src.fd < 0) {
        r.error = errnoText("source", errno);
        return r;
    }
    const QByteArray sourceName = lastComponent(cachedItem);
    QByteArray name = lastComponent(original);
    // A name taken meanwhile moves on to the next number; a few rounds are enough.
    for (int round = 0; round < 8; ++round) {
        if (exists(dst.fd, name.constData())) {
            if (clash == Clash::Skip) {
                r.outcome = Outcome::SkippedExisting;
                return r;
            }
            const QByteArray free = freeNumberedPath(original);
            if (free.isEmpty()) {
                r.error = errnoText("rename", EEXIST);
                return r;
            }
            name = lastComponent(free);
        }
        r.target = (folder == "/" ? folder : folder + '/') + name;
        if (renameat2(src.fd, sourceName.constData(), dst.fd, name.constData(), RENAME_NOREPLACE) ==
            0) {
            r.outcome = Outcome::Copied;
            r.moved = true;
            break;
        }
        if (errno == EEXIST) continue;
        if (errno != EXDEV) {
            r.error = errnoText("rename", errno);
            return r;
        }
        copyInto(src.fd, sourceName, dst.fd, folder, name, stop, r);
        if (r.outcome == Outcome::SkippedExisting && clash == Clash::KeepBoth) continue;
        if (r.outcome != Outcome::Copied) return r;
        // A folder copied in part stays in the cache, so nothing of it is lost.
        if (r.leftOut.isEmpty()) r.moved = Removal::removeTree(cachedItem);
        break;
    }
    if (r.moved) {
        // The emptied time folder goes; the day's total is counted again when next shown.
        rmdir(sourceFolder.constData());
        CommonUtils::resetSizeOfCacheIn(folderOf(sourceFolder));
    }
    return r;
}

QList<ItemResult> copyItems(const QByteArray &destinationFolder, const QByteArrayList &sources,
                            const std::atomic<bool> *stop,
                            const std::function<void(const ItemResult &)> &onItemDone)
{
    QList<ItemResult> results;
    const QByteArray base = folderPrefix(destinationFolder);
    for (const QByteArray &s : sources) {
        if (stopped(stop)) break;
        results.append(copyItem(s, base + lastComponent(s), stop));
        if (onItemDone) onItemDone(results.last());
    }
    return results;
}

} // namespace Restore
