#include "SafeRemove.h"

#include "SafeFile.h"
#include "UniqueFd.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace saferemove {

namespace {

// Deeper trees are removed by a second request: each level holds a descriptor.
constexpr int kMaxDepth = 256;

constexpr std::uint64_t kResolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;

using Fd = UniqueFd;

struct LinuxDirent64
{
    std::uint64_t d_ino;
    std::int64_t d_off;
    unsigned short d_reclen;
    unsigned char d_type;
};
constexpr std::size_t kNameOffset = 19;

// Every name of a folder but "." and "..". Names are read in full before anything is removed, so
// that removing does not disturb the reading.
bool listNames(int dirFd, std::vector<std::string> &names)
{
    alignas(LinuxDirent64) char buf[16384];
    for (;;) {
        const long n = syscall(SYS_getdents64, dirFd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) return true;
        for (long off = 0; off < n;) {
            const auto *d = reinterpret_cast<const LinuxDirent64 *>(buf + off);
            const char *name = buf + off + kNameOffset;
            if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0)
                names.emplace_back(name);
            off += d->d_reclen;
        }
    }
}

// A folder of the user's own that the deleted item brought along read-only (a source tree, an
// unpacked archive) is opened up so that its entries can go, as `rm -rf` would have to. Works on
// descriptors opened with O_PATH too, through their /proc link. Never for another owner's folder.
bool openUpOwnFolder(int fd)
{
    struct stat st
    {
    };
    if (fstat(fd, &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != geteuid() ||
        (st.st_mode & S_IRWXU) == S_IRWXU)
        return false;
    const mode_t mode = (st.st_mode & 07777) | S_IRWXU;
    if (fchmod(fd, mode) == 0) return true;
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    return errno == EBADF && chmod(link, mode) == 0;
}

int unlinkOpeningUp(int parentFd, const char *name, int flags)
{
    if (unlinkat(parentFd, name, flags) == 0 || errno == ENOENT) return 0;
    if (errno != EACCES || !openUpOwnFolder(parentFd)) return errno;
    return unlinkat(parentFd, name, flags) == 0 || errno == ENOENT ? 0 : errno;
}

int openFolderOpeningUp(int parentFd, const char *name)
{
    const int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const int fd = openBeneath(parentFd, name, flags);
    if (fd >= 0 || errno != EACCES) return fd;
    Fd path(openBeneath(parentFd, name, O_PATH | O_DIRECTORY | O_NOFOLLOW));
    if (path.fd < 0 || !openUpOwnFolder(path.fd)) {
        errno = EACCES;
        return -1;
    }
    return openBeneath(parentFd, name, flags);
}

int removeEntry(int parentFd, const char *name, int depth, const std::atomic<bool> *stop)
{
    if (stop && stop->load(std::memory_order_relaxed)) return ECANCELED;
    struct stat st
    {
    };
    if (fstatat(parentFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT ? 0 : errno;
    if (!S_ISDIR(st.st_mode)) {
        const int err = unlinkOpeningUp(parentFd, name, 0);
        if (err != EISDIR) return err;
        // Swapped for a folder since the stat: treat it as one.
    }
    if (depth >= kMaxDepth) return ELOOP;
    Fd dir(openFolderOpeningUp(parentFd, name));
    if (dir.fd < 0) {
        const int err = errno;
        if (err == ENOENT) return 0;
        if (err == ELOOP || err == ENOTDIR) {
            // A link or a file now stands where the folder was: remove that entry itself.
            return unlinkOpeningUp(parentFd, name, 0);
        }
        return err;
    }
    std::vector<std::string> names;
    int first = listNames(dir.fd, names) ? 0 : errno;
    for (const std::string &child : names) {
        const int err = removeEntry(dir.fd, child.c_str(), depth + 1, stop);
        if (err == ECANCELED) return err;
        if (err != 0 && first == 0) first = err;
    }
    const int err = unlinkOpeningUp(parentFd, name, AT_REMOVEDIR);
    return first != 0 ? first : err;
}

} // namespace

bool isCleanRelativePath(std::string_view path)
{
    if (path.empty() || path.size() > PATH_MAX || path.front() == '/' ||
        path.find('\0') != std::string_view::npos)
        return false;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t slash = path.find('/', start);
        const std::size_t end = slash == std::string_view::npos ? path.size() : slash;
        const std::string_view part = path.substr(start, end - start);
        if (part.empty() || part == "." || part == "..") return false;
        if (slash == std::string_view::npos) break;
        start = slash + 1;
    }
    return true;
}

int openBeneath(int dirFd, const char *path, int flags)
{
    return safefile::openResolved(dirFd, path, flags, kResolve);
}

int removeBeneath(int dirFd, std::string_view path, const std::atomic<bool> *stop)
{
    if (!isCleanRelativePath(path)) return EINVAL;
    const std::size_t slash = path.rfind('/');
    const std::string name(slash == std::string_view::npos ? path : path.substr(slash + 1));
    if (slash == std::string_view::npos) return removeEntry(dirFd, name.c_str(), 0, stop);
    const std::string parentPath(path.substr(0, slash));
    Fd parent(openBeneath(dirFd, parentPath.c_str(), O_PATH | O_DIRECTORY));
    if (parent.fd < 0) return errno == ENOENT ? 0 : errno;
    return removeEntry(parent.fd, name.c_str(), 0, stop);
}

} // namespace saferemove
