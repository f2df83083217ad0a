#include "cache/FolderWalk.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

FolderWalk::Type typeFromMode(mode_t mode)
{
    if (S_ISDIR(mode)) return FolderWalk::Type::Directory;
    if (S_ISREG(mode)) return FolderWalk::Type::Regular;
    if (S_ISLNK(mode)) return FolderWalk::Type::Symlink;
    return FolderWalk::Type::Other;
}

} // namespace

namespace FolderWalk {

Type entryType(int dirFd, const char *name, unsigned char t)
{
    switch (t) {
    case DT_DIR:
        return FolderWalk::Type::Directory;
    case DT_REG:
        return FolderWalk::Type::Regular;
    case DT_LNK:
        return FolderWalk::Type::Symlink;
    case DT_UNKNOWN: {
        struct stat st
        {
        };
        if (fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return FolderWalk::Type::Unknown;
        return typeFromMode(st.st_mode);
    }
    default:
        return FolderWalk::Type::Other;
    }
}

long readEntries(int dirFd, char *buffer, std::size_t size)
{
    for (;;) {
        const long n = syscall(SYS_getdents64, dirFd, buffer, size);
        if (n < 0 && errno == EINTR) continue;
        return n;
    }
}

} // namespace FolderWalk

namespace {

bool skippedByCount(const char *name)
{
    return name[0] == '.' && (std::strcmp(name, ".DS_Store") == 0 ||
                              std::strcmp(name, ".Salvora3_CacheInformation") == 0);
}

void countInto(int dirFd, FolderWalk::Totals &totals)
{
    // Names of the sub-folders, collected first so that at most one descriptor per level is open
    // while reading.
    std::string subfolders; // NUL-separated names
    FolderWalk::forEachEntry(dirFd, [&](const char *name, FolderWalk::Type type) {
        if (skippedByCount(name)) return;
        if (type == FolderWalk::Type::Directory) {
            subfolders.append(name).push_back('\0');
            return;
        }
        if (type == FolderWalk::Type::Unknown) return;
        const std::int64_t size = FolderWalk::entrySize(dirFd, name);
        if (size < 0) return;
        totals.bytes += size;
        totals.files += 1;
    });
    for (std::size_t at = 0; at < subfolders.size(); at = subfolders.find('\0', at) + 1) {
        const int fd = FolderWalk::openFolder(dirFd, subfolders.c_str() + at);
        if (fd < 0) continue;
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
    if (path.isEmpty()) return -1;
    return openFolder(AT_FDCWD, path.constData());
}

std::int64_t entrySize(int dirFd, const char *name)
{
    struct statx stx
    {
    };
    if (statx(dirFd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_SIZE,
              &stx) != 0)
        return -1;
    if (!(stx.stx_mask & STATX_SIZE)) return -1;
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
    if (fd < 0) return {};
    Totals t = countTree(fd);
    close(fd);
    return t;
}

} // namespace FolderWalk
