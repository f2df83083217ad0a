#include "PrivilegedServer.h"

#include "MountTable.h"
#include "SafeRemove.h"
#include "SettingsJson.h"
#include "UniqueFd.h"
#include "VolumeId.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <optional>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace privileged {

namespace {

constexpr char kCacheName[] = ".Salvora3Cache";

using Fd = UniqueFd;

struct Outcome
{
    Response response;
    std::string note;
};

Outcome refused(const std::string &why)
{
    return {{Status::Refused, EPERM, why}, "refused: " + why};
}

Outcome failed(int err, const std::string &what)
{
    const std::string text = what + ": " + std::strerror(err);
    return {{Status::Failed, err, text}, "failed: " + text};
}

Outcome done(const std::string &what)
{
    return {{Status::Done, 0, what}, "done: " + what};
}

// An absolute path in its plain form: no empty, "." or ".." component, no trailing slash.
bool isPlainAbsolute(std::string_view path)
{
    return path == "/" || (path.size() > 1 && path.front() == '/' &&
                           saferemove::isCleanRelativePath(path.substr(1)));
}

std::optional<std::string> readAsUser(const Context &c, const std::string &path)
{
    // Opened with the user's file-system identity: the helper must never read, for the user, a
    // file the user could not read.
    const int oldUid = setfsuid(c.uid);
    const int oldGid = setfsgid(c.gid);
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    const int err = errno;
    setfsgid(gid_t(oldGid));
    setfsuid(uid_t(oldUid));
    if (fd < 0) {
        errno = err;
        return std::nullopt;
    }
    Fd f(fd);
    struct stat st{};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        std::size_t(st.st_size) > settingsjson::kMaxInput)
        return std::nullopt;
    std::string text;
    char buf[65536];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        text.append(buf, std::size_t(n));
        if (text.size() > settingsjson::kMaxInput) return std::nullopt;
    }
    return text;
}

// Opens a mount point given as a path: it must be a mount point of the table, reached without
// any link, and the folder opened must be that mount's root (compared by mount id, so a folder
// swapped in or mounted over in between is caught).
std::optional<mounttable::Entry> openMountRoot(const Context &c, const std::string &path, Fd &out,
                                               std::string *why)
{
    const std::vector<mounttable::Entry> table = mounttable::read(c.mountInfo.c_str());
    if (std::none_of(table.begin(), table.end(),
                     [&](const auto &e) { return e.mountPoint == path; })) {
        *why = "not a mount point";
        return std::nullopt;
    }
    open_how how{};
    how.flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    out.fd = int(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how));
    if (out.fd < 0) {
        *why = std::string("cannot open the mount point: ") + std::strerror(errno);
        return std::nullopt;
    }
    struct statx stx{};
    if (statx(out.fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &stx) != 0 ||
        !(stx.stx_mask & STATX_MNT_ID)) {
        *why = "cannot identify the mount";
        return std::nullopt;
    }
    for (const auto &e : table)
        if (e.mountId == stx.stx_mnt_id && e.mountPoint == path) return e;
    *why = "not the root of that mount";
    return std::nullopt;
}

Outcome createCacheFolder(const Context &c, const std::string &mountPoint)
{
    if (!isPlainAbsolute(mountPoint)) return refused("not a plain absolute path");
    if (mountPoint == "/") return refused("the cache of / lives in the home folder");
    if (!mounttable::isEligible(mountPoint))
        return refused("not a mount point that may hold a cache");
    Fd root;
    std::string why;
    const auto entry = openMountRoot(c, mountPoint, root, &why);
    if (!entry) return refused(why);
    const std::string uuid = volumeid::uuidOf(*entry);
    if (uuid.empty()) return refused("the volume has no identity");
    const auto text = readAsUser(c, c.settingsFile);
    const auto keys = text ? settingsjson::protectedDiskKeys(*text) : std::nullopt;
    if (!keys) return refused("the user's settings cannot be read");
    if (std::find(keys->begin(), keys->end(), uuid) == keys->end())
        return refused("the volume is not protected");

    if (mkdirat(root.fd, kCacheName, 0777) != 0) {
        const int err = errno;
        struct stat st{};
        if (err == EEXIST && fstatat(root.fd, kCacheName, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(st.st_mode))
            return done("the cache folder exists");
        return failed(err, "cannot create the cache folder");
    }
    // The cache is shared by every user of the volume (0777 whatever the umask).
    Fd cache(openat(root.fd, kCacheName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (cache.fd < 0 || fchmod(cache.fd, 0777) != 0)
        return failed(errno, "cannot set the cache folder's permissions");
    return done("cache folder created");
}

Outcome removeInCache(const Context &c, const std::string &cacheFolder, const std::string &relative)
{
    if (!isPlainAbsolute(cacheFolder)) return refused("not a plain absolute path");
    const std::string suffix = std::string("/") + kCacheName;
    if (cacheFolder.size() <= suffix.size() ||
        cacheFolder.compare(cacheFolder.size() - suffix.size(), suffix.size(), suffix) != 0)
        return refused("not a cache folder");
    if (!saferemove::isCleanRelativePath(relative)) return refused("not a plain relative path");
    const std::string base = cacheFolder.substr(0, cacheFolder.size() - suffix.size());

    Fd baseFd;
    if (!c.home.empty() && base == c.home) {
        baseFd.fd = open(base.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        struct stat st{};
        if (baseFd.fd < 0 || fstat(baseFd.fd, &st) != 0)
            return refused("the home folder cannot be opened");
        if (st.st_uid != c.uid) return refused("the home folder does not belong to the user");
    } else {
        if (!mounttable::isEligible(base) || base == "/")
            return refused("not a cache folder at the root of a volume or in the home folder");
        std::string why;
        if (!openMountRoot(c, base, baseFd, &why)) return refused(why);
    }
    Fd cache(saferemove::openBeneath(baseFd.fd, kCacheName, O_PATH | O_DIRECTORY | O_NOFOLLOW));
    if (cache.fd < 0)
        return refused(std::string("the cache folder cannot be opened: ") + std::strerror(errno));
    const int err = saferemove::removeBeneath(cache.fd, relative);
    if (err != 0) return failed(err, "cannot remove");
    return done("removed");
}

} // namespace

void log(const std::string &line)
{
    const std::string text = "sv3daemon[privileged]: " + line + "\n";
    // A closed or full stderr must not stop the helper.
    (void)!write(STDERR_FILENO, text.data(), text.size());
    syslog(LOG_DAEMON | LOG_NOTICE, "%s", line.c_str());
}

Response handle(const Context &context, const Request &request, std::string *logLine)
{
    Outcome o;
    std::string what;
    if (request.op == Op::CreateCacheFolder) {
        what = "create cache folder at " + printable(request.first);
        o = request.second.empty() ? createCacheFolder(context, request.first)
                                   : refused("unexpected argument");
    } else {
        what = "remove " + printable(request.second) + " in " + printable(request.first);
        o = removeInCache(context, request.first, request.second);
    }
    if (logLine) *logLine = "uid " + std::to_string(context.uid) + ": " + what + ": " + o.note;
    return o.response;
}

void serve(int fd, const Context &context)
{
    std::vector<char> buf(kMaxDatagram + 1);
    for (;;) {
        iovec iov{buf.data(), buf.size()};
        msghdr msg{};
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        const ssize_t n = recvmsg(fd, &msg, MSG_CMSG_CLOEXEC);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            log("the agent closed the connection; exiting");
            return;
        }
        Response response;
        std::string line;
        const auto request = (msg.msg_flags & (MSG_TRUNC | MSG_CTRUNC))
                                 ? std::nullopt
                                 : decodeRequest({buf.data(), std::size_t(n)});
        if (!request) {
            response = {Status::Refused, EINVAL, "malformed request"};
            line = "uid " + std::to_string(context.uid) + ": malformed request of " +
                   std::to_string(n) + " bytes: refused";
        } else {
            response = handle(context, *request, &line);
        }
        log(line);
        const std::string out = encode(response);
        if (send(fd, out.data(), out.size(), MSG_NOSIGNAL) < 0) {
            log("cannot answer the agent; exiting");
            return;
        }
    }
}

} // namespace privileged
