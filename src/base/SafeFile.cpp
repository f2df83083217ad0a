#include "SafeFile.h"

#include "UniqueFd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace safefile {

namespace {

constexpr int kBaseFlags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;

int fail(int err)
{
    errno = err;
    return -1;
}

// ".sv3-" and twelve hex digits: short enough beside any name, unlikely to be taken.
std::string temporaryName()
{
    unsigned char bytes[6] = {};
    if (getrandom(bytes, sizeof bytes, GRND_NONBLOCK) != sizeof bytes) {
        static unsigned counter = 0;
        const unsigned long v = (unsigned long)getpid() * 2654435761UL + ++counter;
        for (std::size_t i = 0; i < sizeof bytes; ++i)
            bytes[i] = static_cast<unsigned char>(v >> (8 * i));
    }
    char name[32];
    std::snprintf(name, sizeof name, ".sv3-%02x%02x%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    return name;
}

} // namespace

int openResolved(int dirFd, const char *path, int flags, std::uint64_t resolve)
{
    open_how how{};
    how.flags = std::uint64_t(flags | O_CLOEXEC);
    how.resolve = resolve;
    // Bounded, so that renames made on purpose by another account cannot keep a caller spinning.
    long fd = -1;
    for (int tries = 0; tries < 64; ++tries) {
        fd = syscall(SYS_openat2, dirFd, path, &how, sizeof how);
        if (fd >= 0 || (errno != EAGAIN && errno != EINTR)) break;
    }
    return int(fd);
}

int openRegular(int dirFd, const char *name, int flags, mode_t mode, bool mustOwn)
{
    const int fd = openat(dirFd, name, flags | kBaseFlags, mode);
    if (fd < 0) return -1;
    struct stat st
    {
    };
    int err = 0;
    if (fstat(fd, &st) != 0)
        err = errno;
    else if (!S_ISREG(st.st_mode))
        err = EINVAL;
    else if (mustOwn && st.st_uid != geteuid())
        err = EPERM;
    if (err == 0) return fd;
    close(fd);
    return fail(err);
}

ReadResult readRegular(int dirFd, const char *name, std::size_t maxBytes)
{
    ReadResult r;
    UniqueFd fd(openRegular(dirFd, name, O_RDONLY));
    if (fd.fd < 0) {
        r.error = errno;
        return r;
    }
    char buf[65536];
    for (;;) {
        const ssize_t n = read(fd.fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            r.error = errno;
            r.data.clear();
            return r;
        }
        if (n == 0) return r;
        if (r.data.size() + std::size_t(n) > maxBytes) {
            r.error = EFBIG;
            r.data.clear();
            return r;
        }
        r.data.append(buf, std::size_t(n));
    }
}

int writeAll(int fd, std::string_view data)
{
    while (!data.empty()) {
        const ssize_t n = write(fd, data.data(), data.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return EIO;
        data.remove_prefix(std::size_t(n));
    }
    return 0;
}

int replaceFile(int dirFd, const char *name, std::string_view data, mode_t mode, bool sync)
{
    std::string tmp;
    UniqueFd fd;
    for (int attempt = 0; attempt < 16 && fd.fd < 0; ++attempt) {
        tmp = temporaryName();
        fd.fd = openat(dirFd, tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | kBaseFlags, 0600);
        if (fd.fd < 0 && errno != EEXIST) return errno;
    }
    if (fd.fd < 0) return EEXIST;
    int err = writeAll(fd.fd, data);
    if (err == 0 && fchmod(fd.fd, mode) != 0) err = errno;
    if (err == 0 && sync && fdatasync(fd.fd) != 0) err = errno;
    if (close(std::exchange(fd.fd, -1)) != 0 && err == 0) err = errno;
    if (err == 0 && renameat(dirFd, tmp.c_str(), dirFd, name) != 0) err = errno;
    if (err != 0) unlinkat(dirFd, tmp.c_str(), 0);
    return err;
}

int appendRecord(int dirFd, const char *name, std::string_view record, mode_t mode)
{
    UniqueFd fd(openRegular(dirFd, name, O_WRONLY | O_APPEND | O_CREAT, mode, true));
    if (fd.fd < 0) return errno;
    const ssize_t n = write(fd.fd, record.data(), record.size());
    if (n == ssize_t(record.size())) return 0;
    const int err = n < 0 ? errno : ENOSPC;
    // A partial record would corrupt the next one: cut it off again.
    struct stat st
    {
    };
    if (n > 0 && fstat(fd.fd, &st) == 0 && st.st_size >= n) ftruncate(fd.fd, st.st_size - n);
    return err;
}

int makePrivate(int fd)
{
    struct stat st
    {
    };
    if (fstat(fd, &st) != 0) return errno;
    if (!S_ISDIR(st.st_mode)) return ENOTDIR;
    if (st.st_uid != geteuid()) return EPERM;
    if ((st.st_mode & 077) != 0 && fchmod(fd, 0700) != 0) return errno;
    return 0;
}

int openFolder(int dirFd, const char *name, bool create, mode_t mode, bool *made)
{
    const bool didMake = create && mkdirat(dirFd, name, mode) == 0;
    if (made) *made = didMake;
    if (create && !didMake && errno != EEXIST) return -1;
    int fd = openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    // A folder we may only pass through (root's shared 0711 folder on a volume) is still a
    // folder we can open our own inside of.
    if (fd < 0 && errno == EACCES)
        fd = openat(dirFd, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0 && didMake) fchmod(fd, mode);
    return fd;
}

int openPathCreating(const std::string &path, mode_t mode)
{
    if (path.empty() || path.front() != '/') return fail(EINVAL);
    UniqueFd dir(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::size_t start = 1;
    while (dir.fd >= 0 && start < path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        const std::string part = path.substr(start, end - start);
        start = end + 1;
        if (part.empty() || part == ".") continue;
        const int flags =
            O_RDONLY | O_DIRECTORY | O_CLOEXEC | (start >= path.size() ? O_NOFOLLOW : 0);
        int next = openat(dir.fd, part.c_str(), flags);
        if (next < 0 && errno == ENOENT) {
            if (mkdirat(dir.fd, part.c_str(), mode) != 0 && errno != EEXIST) return -1;
            next = openat(dir.fd, part.c_str(), flags);
        }
        if (next < 0) return -1;
        close(dir.fd);
        dir.fd = next;
    }
    return std::exchange(dir.fd, -1);
}

} // namespace safefile
