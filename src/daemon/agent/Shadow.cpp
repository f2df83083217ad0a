#include "Shadow.h"

#include "UniqueFd.h"

#include "cache/FolderWalk.h"

#include <QList>

#include <cerrno>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Shadow {

namespace {

constexpr int kMaxDepth = 512;

using Fd = UniqueFd;

void fail(Stats &s, int err)
{
    ++s.failed;
    if (s.firstError == 0) s.firstError = err;
}

bool copyFile(int srcDirFd, const char *srcName, int dstDirFd, const char *dstName)
{
    Fd src(openat(srcDirFd, srcName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat st{};
    if (src.fd < 0 || fstat(src.fd, &st) != 0 || !S_ISREG(st.st_mode)) return false;
    // The copy is the user's: it keeps the file's permissions, never a set-id bit.
    Fd dst(openat(dstDirFd, dstName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  st.st_mode & 0777));
    if (dst.fd < 0) return errno == EEXIST;
    for (off_t left = st.st_size; left > 0;) {
        ssize_t n = copy_file_range(src.fd, nullptr, dst.fd, nullptr, std::size_t(left), 0);
        if (n < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP))
            n = sendfile(dst.fd, src.fd, nullptr, std::size_t(left));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        left -= n;
    }
    const timespec times[2] = {st.st_atim, st.st_mtim};
    futimens(dst.fd, times);
    return true;
}

void mirrorEntry(int srcDirFd, const char *srcName, int dstDirFd, const char *dstName,
                 FolderWalk::Type type, Stats &s, int depth);

void mirrorFolder(int srcDirFd, const char *srcName, int dstDirFd, const char *dstName, Stats &s,
                  int depth)
{
    if (depth > kMaxDepth) {
        fail(s, ELOOP);
        return;
    }
    Fd src(openat(srcDirFd, srcName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (src.fd < 0) {
        fail(s, errno);
        return;
    }
    // Private while it is being filled; the item's own mode once complete.
    if (mkdirat(dstDirFd, dstName, 0700) == 0)
        ++s.folders;
    else if (errno != EEXIST) {
        fail(s, errno);
        return;
    }
    Fd dst(openat(dstDirFd, dstName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (dst.fd < 0) {
        fail(s, errno);
        return;
    }
    QList<std::pair<QByteArray, FolderWalk::Type>> entries;
    FolderWalk::forEachEntry(src.fd, [&](const char *name, FolderWalk::Type type) {
        entries.append({QByteArray(name), type});
    });
    for (const auto &[name, type] : entries)
        mirrorEntry(src.fd, name.constData(), dst.fd, name.constData(), type, s, depth + 1);
    struct stat st{};
    if (fstat(src.fd, &st) == 0) {
        // The owner keeps write access, or the item could not be moved or removed later.
        fchmod(dst.fd, (st.st_mode & 07777) | 0700);
        const timespec times[2] = {st.st_atim, st.st_mtim};
        futimens(dst.fd, times);
    }
}

void mirrorEntry(int srcDirFd, const char *srcName, int dstDirFd, const char *dstName,
                 FolderWalk::Type type, Stats &s, int depth)
{
    if (type == FolderWalk::Type::Directory) {
        mirrorFolder(srcDirFd, srcName, dstDirFd, dstName, s, depth);
        return;
    }
    if (linkat(srcDirFd, srcName, dstDirFd, dstName, 0) == 0) {
        ++s.linked;
        return;
    }
    const int err = errno;
    if (err == EEXIST) return;
    if ((err == EXDEV || err == EPERM || err == EMLINK) &&
        copyFile(srcDirFd, srcName, dstDirFd, dstName)) {
        ++s.copied;
        return;
    }
    fail(s, err);
}

} // namespace

Stats mirror(int srcDirFd, const char *srcName, int dstDirFd, const char *dstName)
{
    Stats s;
    struct stat st{};
    if (fstatat(srcDirFd, srcName, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        fail(s, errno);
        return s;
    }
    mirrorEntry(srcDirFd, srcName, dstDirFd, dstName,
                S_ISDIR(st.st_mode) ? FolderWalk::Type::Directory : FolderWalk::Type::Regular, s,
                0);
    return s;
}

} // namespace Shadow
