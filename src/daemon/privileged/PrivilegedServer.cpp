#include "PrivilegedServer.h"

#include "CacheName.h"
#include "MountTable.h"
#include "Printable.h"
#include "SafeFile.h"
#include "SafeRemove.h"
#include "UniqueFd.h"
#include "VolumeId.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/openat2.h>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace privileged {

namespace {

// Root's shared folder: its users pass through it to their own folders, and see nothing else.
constexpr mode_t kSharedMode = 0711;
constexpr mode_t kGroupOrOthersWrite = S_IWGRP | S_IWOTH;

using Fd = UniqueFd;

struct Outcome
{
    Response response;
    std::string note;
};

Outcome refused(const std::string &why, Status status = Status::Refused)
{
    return {{status, EPERM, why}, "refused: " + why};
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

bool fullStat(int fd, struct statx *stx)
{
    return statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW,
                 STATX_BASIC_STATS | STATX_BTIME | STATX_MNT_ID, stx) == 0 &&
           (stx->stx_mask & STATX_MNT_ID);
}

bool sameFileSystem(const struct statx &a, const struct statx &b)
{
    return a.stx_dev_major == b.stx_dev_major && a.stx_dev_minor == b.stx_dev_minor &&
           a.stx_mnt_id == b.stx_mnt_id;
}

// Opens a mount point given as a path: it must be a mount point of the table, eligible for a
// cache, with an identity, reached without any link, and the folder opened must be that mount's
// root (compared by mount id, so a folder swapped in or mounted over in between is caught).
bool openMountRoot(const Context &c, const std::string &path, Fd &out, struct statx *root,
                   std::string *why)
{
    if (!isPlainAbsolute(path)) return (*why = "not a plain absolute path", false);
    if (path == "/") return (*why = "the cache of / lives in the home folder", false);
    if (!mounttable::isEligible(path))
        return (*why = "not a mount point that may hold a cache", false);
    const std::vector<mounttable::Entry> table = mounttable::read(c.mountInfo.c_str());
    if (std::none_of(table.begin(), table.end(),
                     [&](const auto &e) { return e.mountPoint == path; }))
        return (*why = "not a mount point", false);
    out.fd = safefile::openResolved(AT_FDCWD, path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW,
                                    RESOLVE_NO_SYMLINKS);
    if (out.fd < 0)
        return (*why = std::string("cannot open the mount point: ") + std::strerror(errno), false);
    if (!fullStat(out.fd, root)) return (*why = "cannot identify the mount", false);
    for (const auto &e : table) {
        if (e.mountId != root->stx_mnt_id || e.mountPoint != path) continue;
        if (volumeid::uuidOf(e).empty()) return (*why = "the volume has no identity", false);
        return true;
    }
    return (*why = "not the root of that mount", false);
}

// Whether the user could make a folder at the volume's root with their own rights (then a shared
// folder there gives them nothing they did not have). From the mode bits, with the user's groups
// (the helper keeps the supplementary groups it was started with): an access control list that
// would let the user in more widely is not taken into account, which only ever asks for an
// administrator's consent where none was needed.
bool userMayWrite(const Context &c, const struct statx &root)
{
    const mode_t mode = root.stx_mode;
    if (root.stx_uid == c.uid) return (mode & (S_IWUSR | S_IXUSR)) == (S_IWUSR | S_IXUSR);
    bool member = root.stx_gid == c.gid;
    const int count = getgroups(0, nullptr);
    std::vector<gid_t> groups(std::size_t(count > 0 ? count : 0));
    const int n = count > 0 ? getgroups(count, groups.data()) : 0;
    for (int i = 0; i < n && !member; ++i)
        member = groups[std::size_t(i)] == root.stx_gid;
    if (member) return (mode & (S_IWGRP | S_IXGRP)) == (S_IWGRP | S_IXGRP);
    return (mode & (S_IWOTH | S_IXOTH)) == (S_IWOTH | S_IXOTH);
}

// Only a folder that holds nothing but what a cache holds is taken for a shared cache folder:
// users' folders, and an earlier version's day folders and hidden bookkeeping (*legacyDays tells
// whether any day folder is left, *empty whether it holds nothing at all).
bool looksLikeCache(int fd, bool *legacyDays, bool *empty)
{
    *legacyDays = false;
    *empty = true;
    Fd dir(openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.fd < 0) return false;
    alignas(8) char buf[16384];
    for (;;) {
        const long n = syscall(SYS_getdents64, dir.fd, buf, sizeof buf);
        if (n < 0) return false;
        if (n == 0) return true;
        for (long off = 0; off < n;) {
            unsigned short reclen = 0;
            std::memcpy(&reclen, buf + off + 16, sizeof reclen);
            const std::string_view name(buf + off + 19);
            off += reclen;
            const bool digits = !name.empty() && std::all_of(name.begin(), name.end(), [](char ch) {
                return ch >= '0' && ch <= '9';
            });
            const bool day = name.substr(0, 2) == "20";
            if (name == "." || name == "..") continue;
            *legacyDays = *legacyDays || day;
            *empty = false;
            if (name == ".pending" || name == ".origins" || day || digits) continue;
            return false;
        }
    }
}

// Makes the shared folder at the volume's root and checks, on the descriptor it opens, that this
// is the folder it just made: root's, empty, exactly the mode it was made with, on the same
// mount, and born after the request came (a folder swapped in by name, even root's own
// lost+found, fails one of these) before anything about it is changed.
Outcome makeShared(int rootFd, const struct statx &root, Fd &shared)
{
    timespec before{};
    clock_gettime(CLOCK_REALTIME, &before);
    if (mkdirat(rootFd, kCacheFolderName, 0700) != 0 && errno != EEXIST)
        return failed(errno, "cannot create the shared cache folder");
    shared.fd = openat(rootFd, kCacheFolderName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct statx st
    {
    };
    if (shared.fd < 0 || !fullStat(shared.fd, &st))
        return refused("the shared cache folder vanished while it was made");
    const bool bornNow = (st.stx_mask & STATX_BTIME) && st.stx_btime.tv_sec >= before.tv_sec - 1;
    // Without a birth time, only where nobody but root can rename entries of the root.
    const bool nobodyElseWrites = root.stx_uid == 0 && (root.stx_mode & kGroupOrOthersWrite) == 0;
    if (st.stx_uid != 0 || (st.stx_mode & 07777) != 0700 || st.stx_nlink != 2 ||
        !sameFileSystem(st, root) || !(bornNow || nobodyElseWrites))
        return refused("the folder made was swapped for another one");
    if (fchmod(shared.fd, kSharedMode) != 0)
        return failed(errno, "cannot set the shared cache folder's mode");
    return done("shared cache folder created");
}

// An existing shared folder: root's, holding nothing but a cache's entries, and exactly the mode
// the helper gives it; or the user's own (nothing for root to do there). An earlier version's
// folder, open to all, is closed now: to everyone while day folders of that version are left in
// it, whose owners' daemons still have to find and move their items (they may list it, not change
// it), and then to all but passing through. Where others may write the volume's root, any folder
// of root's there may have been renamed to the cache's name: one that holds no cache entry, or
// has another mode, is never changed nor used.
Outcome checkShared(const Context &c, const Fd &shared, const struct statx &root, bool *own)
{
    struct statx st
    {
    };
    if (!fullStat(shared.fd, &st) || !sameFileSystem(st, root))
        return refused("something else is mounted at the cache folder");
    *own = st.stx_uid == c.uid && c.uid != 0;
    if (*own) return done("the shared cache folder is the user's own");
    if (st.stx_uid != 0) return refused("the cache folder belongs to another account");
    bool legacyDays = false, empty = true;
    if (!looksLikeCache(shared.fd, &legacyDays, &empty))
        return refused("a folder that is not a cache stands at the cache's name");
    const mode_t wanted = legacyDays ? 0755 : kSharedMode;
    const mode_t mode = st.stx_mode & 07777;
    if (mode == wanted) return done("shared cache folder ready");
    // Earlier versions made it 0777; 0755 is the step above.
    if ((mode != 0777 && mode != 0755) || empty)
        return refused("a folder of root's that is not the shared cache stands at its name");
    if (fchmod(shared.fd, wanted) != 0)
        return failed(errno, "cannot close the shared cache folder");
    return done("shared cache folder closed to other accounts");
}

// The user's own folder in root's shared folder, which only root may change: what is made there
// is what stays there.
Outcome makeUserFolder(const Context &c, int sharedFd)
{
    const std::string name = std::to_string(c.uid);
    Fd own(openat(sharedFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st
    {
    };
    if (own.fd >= 0) {
        if (fstat(own.fd, &st) != 0 || st.st_uid != c.uid || (st.st_mode & kGroupOrOthersWrite))
            return refused("another account's folder stands at the user's name");
        return done("the user's cache folder exists");
    }
    if (errno != ENOENT)
        return refused(std::string("the user's name is taken: ") + std::strerror(errno));
    if (mkdirat(sharedFd, name.c_str(), 0700) != 0)
        return failed(errno, "cannot create the user's cache folder");
    own.fd = openat(sharedFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (own.fd < 0 || fstat(own.fd, &st) != 0 || st.st_uid != 0 || st.st_nlink != 2)
        return refused("the folder made was swapped for another one");
    // The mode while it is still root's: changing it afterwards would take CAP_FOWNER.
    if (fchmod(own.fd, 0700) != 0 || fchown(own.fd, c.uid, c.gid) != 0)
        return failed(errno, "cannot give the user their cache folder");
    return done("the user's cache folder created");
}

Outcome createUserCache(const Context &c, const std::string &mountPoint)
{
    Fd root;
    struct statx rootStat
    {
    };
    std::string why;
    if (!openMountRoot(c, mountPoint, root, &rootStat, &why)) return refused(why);
    Fd shared(openat(root.fd, kCacheFolderName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    Outcome o;
    bool own = false;
    if (shared.fd < 0 && errno == ENOENT) {
        if (!userMayWrite(c, rootStat))
            return refused("only an administrator may let this volume keep deleted items",
                           Status::NeedsConsent);
        o = makeShared(root.fd, rootStat, shared);
    } else if (shared.fd < 0) {
        return refused(std::string("cannot open the cache folder: ") + std::strerror(errno));
    } else {
        o = checkShared(c, shared, rootStat, &own);
    }
    if (o.response.status != Status::Done || own) return o;
    return makeUserFolder(c, shared.fd);
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
    const std::string what = "create the cache folder on " + printable(request.first);
    const Outcome o = request.second.empty() ? createUserCache(context, request.first)
                                             : refused("unexpected argument");
    if (logLine) *logLine = "uid " + std::to_string(context.uid) + ": " + what + ": " + o.note;
    return o.response;
}

bool allowVolume(const Context &context, const std::string &mountPoint, std::string *message)
{
    Outcome o;
    Fd root;
    struct statx rootStat
    {
    };
    std::string why;
    if (!openMountRoot(context, mountPoint, root, &rootStat, &why)) {
        o = refused(why);
    } else {
        Fd shared(
            openat(root.fd, kCacheFolderName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        bool own = false;
        o = shared.fd < 0 && errno == ENOENT ? makeShared(root.fd, rootStat, shared)
            : shared.fd < 0
                ? refused(std::string("cannot open the cache folder: ") + std::strerror(errno))
                : checkShared(context, shared, rootStat, &own);
    }
    *message = o.response.message;
    log("administrator's consent for " + printable(mountPoint) + ": " + o.note);
    return o.response.status == Status::Done;
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
