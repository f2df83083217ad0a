#include "cache/FolderWalk.h"

#include <QList>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// The kernel's struct linux_dirent64; the name follows the fixed part, at byte 19.
struct LinuxDirent64
{
    std::uint64_t d_ino;
    std::int64_t d_off;
    unsigned short d_reclen;
    unsigned char d_type;
};
constexpr std::size_t kDirentNameOffset = 19;

FolderWalk::Type typeFromMode(mode_t mode)
{
    if (S_ISDIR(mode))
        return FolderWalk::Type::Directory;
    if (S_ISREG(mode))
        return FolderWalk::Type::Regular;
    if (S_ISLNK(mode))
        return FolderWalk::Type::Symlink;
    return FolderWalk::Type::Other;
}

FolderWalk::Type typeFromDirent(int dirFd, const char *name, unsigned char t)
{
    switch (t) {
    case DT_DIR:
        return FolderWalk::Type::Directory;
    case DT_REG:
        return FolderWalk::Type::Regular;
    case DT_LNK:
        return FolderWalk::Type::Symlink;
    case DT_UNKNOWN: {
        struct stat st{};
        if (fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            return FolderWalk::Type::Unknown;
        return typeFromMode(st.st_mode);
    }
    default:
        return FolderWalk::Type::Other;
    }
}

bool skippedByCount(const char *name)
{
    return name[0] == '.' && (std::strcmp(name, ".DS_Store") == 0 || std::strcmp(name, ".Salvora3_CacheInformation") == 0);
}

void countInto(int dirFd, FolderWalk::Totals &totals)
{
    // Names of the sub-folders, collected first so that at most one descriptor per level is open
    // while reading.
    QList<QByteArray> subfolders;
    FolderWalk::forEachEntry(dirFd, [&](const char *name, FolderWalk::Type type) {
        if (skippedByCount(name))
            return;
        if (type == FolderWalk::Type::Directory) {
            subfolders.append(QByteArray(name));
            return;
        }
        if (type == FolderWalk::Type::Unknown)
            return;
        const std::int64_t size = FolderWalk::entrySize(dirFd, name);
        if (size < 0)
            return;
        totals.bytes += size;
        totals.files += 1;
    });
    for (const QByteArray &sub : subfolders) {
        const int fd = FolderWalk::openFolder(dirFd, sub.constData());
        if (fd < 0)
            continue;
        countInto(fd, totals);
        close(fd);
    }
}

} // namespace

namespace FolderWalk {

int openFolder(int dirFd, const char *name)
{
    return openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int openFolder(const QByteArray &path)
{
    if (path.isEmpty())
        return -1;
    return openFolder(AT_FDCWD, path.constData());
}

bool forEachEntry(int dirFd, const std::function<void(const char *name, Type type)> &fn)
{
    if (lseek(dirFd, 0, SEEK_SET) < 0)
        return false;
    alignas(LinuxDirent64) char buf[32768];
    bool readAny = false;
    for (;;) {
        const long n = syscall(SYS_getdents64, dirFd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return readAny;
        if (n == 0)
            return true;
        readAny = true;
        for (long off = 0; off < n;) {
            const auto *d = reinterpret_cast<const LinuxDirent64 *>(buf + off);
            off += d->d_reclen;
            const char *name = buf + off - d->d_reclen + kDirentNameOffset;
            if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
                continue;
            fn(name, typeFromDirent(dirFd, name, d->d_type));
        }
    }
}

std::int64_t entrySize(int dirFd, const char *name)
{
    struct statx stx{};
    if (statx(dirFd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_SIZE, &stx) != 0)
        return -1;
    if (!(stx.stx_mask & STATX_SIZE))
        return -1;
    return std::int64_t(stx.stx_size);
}

Totals countTree(int dirFd)
{
    Totals t;
    countInto(dirFd, t);
    return t;
}

Totals countTree(const QByteArray &path)
{
    const int fd = openFolder(path);
    if (fd < 0)
        return {};
    Totals t = countTree(fd);
    close(fd);
    return t;
}

} // namespace FolderWalk
