#include "TrustedPath.h"

#include "Printable.h"
#include "SafeFile.h"
#include "UniqueFd.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <unistd.h>

namespace launcher {

namespace {

using Fd = UniqueFd;

// One name below an open folder, refusing symbolic links of any kind. openat2 refuses them
// outright; on kernels without it O_NOFOLLOW keeps the last (and only) name from being followed,
// and the caller's type check turns an opened link into a refusal.
int openBelow(int dirFd, const std::string &name, int flags)
{
    const int fd =
        safefile::openResolved(dirFd, name.c_str(), flags | O_NOFOLLOW,
                               RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_BENEATH);
    if (fd >= 0 || errno != ENOSYS) return fd;
    return ::openat(dirFd, name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
}

std::string joined(const std::vector<std::string> &names, std::size_t count)
{
    std::string path;
    for (std::size_t i = 0; i < count; ++i)
        path += '/' + names[i];
    return path.empty() ? std::string("/") : path;
}

bool refuse(std::string *why, const std::string &path, const char *reason)
{
    *why = printable(path) + ": " + reason;
    return false;
}

// Says why a name below `dirFd` could not be opened; a link is named as such whatever error the
// kernel chose for it (ELOOP, or ENOTDIR when a folder was asked for).
bool refuseOpen(std::string *why, const std::string &path, int dirFd, const std::string &name)
{
    const int error = errno;
    struct stat status = {};
    if (error == ELOOP || (::fstatat(dirFd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                           S_ISLNK(status.st_mode)))
        return refuse(why, path, "is a symbolic link");
    return refuse(why, path, std::strerror(error));
}

} // namespace

bool onlyRootCanChange(const struct stat &status)
{
    return status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool openTrusted(const std::vector<std::string> &names, TrustedFile *file, std::string *why)
{
    if (names.empty()) return refuse(why, "/", "is not a file");
    Fd dir(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status = {};
    if (dir.fd < 0 || ::fstat(dir.fd, &status) != 0) return refuse(why, "/", std::strerror(errno));
    if (!onlyRootCanChange(status))
        return refuse(why, "/", "can be changed by a user other than root");

    for (std::size_t i = 0; i + 1 < names.size(); ++i) {
        const std::string path = joined(names, i + 1);
        Fd next(openBelow(dir.fd, names[i], O_PATH | O_DIRECTORY));
        if (next.fd < 0) return refuseOpen(why, path, dir.fd, names[i]);
        if (::fstat(next.fd, &status) != 0) return refuse(why, path, std::strerror(errno));
        if (!S_ISDIR(status.st_mode)) return refuse(why, path, "is not a folder");
        if (!onlyRootCanChange(status))
            return refuse(why, path, "can be changed by a user other than root");
        dir.reset(next.release());
    }

    // Look before opening for reading, so that a device or a fifo is never opened at all.
    const std::string path = joined(names, names.size());
    const std::string &name = names.back();
    Fd probe(openBelow(dir.fd, name, O_PATH));
    if (probe.fd < 0) return refuseOpen(why, path, dir.fd, name);
    if (::fstat(probe.fd, &status) != 0) return refuse(why, path, std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        return refuse(why, path,
                      S_ISLNK(status.st_mode) ? "is a symbolic link" : "is not a regular file");
    if (!onlyRootCanChange(status))
        return refuse(why, path, "can be changed by a user other than root");
    if (status.st_nlink != 1) return refuse(why, path, "has more than one link");

    Fd fd(openBelow(dir.fd, name, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    struct stat opened = {};
    if (fd.fd < 0) return refuseOpen(why, path, dir.fd, name);
    if (::fstat(fd.fd, &opened) != 0) return refuse(why, path, std::strerror(errno));
    // Only root can rename inside this folder, but the check is cheap.
    if (opened.st_dev != status.st_dev || opened.st_ino != status.st_ino)
        return refuse(why, path, "changed while it was opened");
    file->mFd = std::move(fd);
    file->mFolderFd = std::move(dir);
    file->mStatus = opened;
    return true;
}

} // namespace launcher
