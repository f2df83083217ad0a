// sv3daemon: the set-user-id root entry point of the daemon. It splits at once into a small
// helper that keeps root and serves one narrow request over a socket pair, and the agent, which
// does everything else with the user's own rights. Plain C++ on purpose: Qt refuses to run
// set-user-id, and everything this process links runs with root's rights.
//
//   sv3daemon                       the daemon of the calling user's session
//   sv3daemon --allow-volume PATH   run by root (through pkexec: an administrator's consent):
//                                   let the users of the volume mounted at PATH keep items there

#include "PrivilegedServer.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void die(const char *what)
{
    const int err = errno;
    std::fprintf(stderr, "sv3daemon: %s: %s\n", what, std::strerror(err));
    std::_Exit(1);
}

// A set-user-id program may be started with 0, 1 or 2 closed; whatever it opens next would
// then become the caller's stdout.
void ensureStandardDescriptors()
{
    for (int fd = 0; fd < 3; ++fd)
        if (fcntl(fd, F_GETFD) < 0 && errno == EBADF)
            if (open("/dev/null", O_RDWR) != fd) std::_Exit(1);
}

void closeInheritedDescriptors()
{
    if (syscall(SYS_close_range, 3U, ~0U, 0U) == 0) return;
    for (int fd = 3; fd < 1024; ++fd)
        close(fd);
}

std::string agentPath()
{
    char buf[PATH_MAX + 1];
    const ssize_t n = readlink("/proc/self/exe", buf, PATH_MAX);
    if (n <= 0) die("cannot find its own executable");
    std::string self(buf, std::size_t(n));
    const std::size_t slash = self.rfind('/');
    return self.substr(0, slash + 1) + "sv3daemon-agent";
}

// Keeps only what making a folder at a volume's root and giving it to the user needs.
void limitCapabilities()
{
    if (geteuid() != 0) return;
    const unsigned keep[] = {CAP_CHOWN, CAP_DAC_OVERRIDE};
    for (unsigned cap = 0; cap <= CAP_LAST_CAP; ++cap) {
        bool kept = false;
        for (unsigned k : keep)
            kept = kept || k == cap;
        if (!kept && prctl(PR_CAPBSET_DROP, cap, 0, 0, 0) != 0 && errno != EINVAL)
            die("cannot drop a capability from the bounding set");
    }
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    for (unsigned k : keep) {
        data[k / 32].effective |= 1U << (k % 32);
        data[k / 32].permitted |= 1U << (k % 32);
    }
    if (syscall(SYS_capset, &header, data) != 0) die("cannot limit capabilities");
}

[[noreturn]] void runHelper(int fd, const privileged::Context &context)
{
    // Root's ids all through, so that the user can neither signal (stop) nor trace the helper;
    // its files are root's, not the user's group's.
    if (geteuid() == 0 &&
        (setresgid(0, 0, 0) != 0 || setresuid(0, 0, 0) != 0 || prctl(PR_SET_DUMPABLE, 0) != 0))
        die("cannot take root's ids");
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) die("cannot set no_new_privs");
    clearenv();
    umask(022);
    if (chdir("/") != 0) die("cannot change to /");
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null < 0 || dup2(null, STDIN_FILENO) < 0 || dup2(null, STDOUT_FILENO) < 0)
        die("cannot open /dev/null");
    close(null);
    limitCapabilities();
    privileged::log("serving uid " + std::to_string(context.uid) +
                    (geteuid() == 0 ? " with root's rights" : ""));
    privileged::serve(fd, context);
    std::_Exit(0);
}

// Drops every privilege of this process for good, and proves it.
void dropPrivileges(uid_t uid, gid_t gid)
{
    if (geteuid() == 0) {
        // Exactly the caller's own supplementary groups: a set-user-id start does not change
        // them, and the agent must have the user's groups, no more.
        const int n = getgroups(0, nullptr);
        std::vector<gid_t> groups(std::size_t(n > 0 ? n : 0));
        if (n < 0 || getgroups(n, groups.data()) != n ||
            setgroups(groups.size(), groups.data()) != 0)
            die("cannot set the supplementary groups");
    }
    if (setresgid(gid, gid, gid) != 0) die("cannot drop the group id");
    if (setresuid(uid, uid, uid) != 0) die("cannot drop the user id");
    uid_t r = 0, e = 0, s = 0;
    gid_t rg = 0, eg = 0, sg = 0;
    if (getresuid(&r, &e, &s) != 0 || r != uid || e != uid || s != uid ||
        getresgid(&rg, &eg, &sg) != 0 || rg != gid || eg != gid || sg != gid)
        die("the ids did not drop");
    if (uid != 0 && (setuid(0) == 0 || seteuid(0) == 0)) {
        errno = EPERM;
        die("root could be regained");
    }
    if (gid != 0 && (setgid(0) == 0 || setegid(0) == 0)) {
        errno = EPERM;
        die("the root group could be regained");
    }
}

int allowVolume(const char *mountPoint)
{
    // Only root decides this: through pkexec after an administrator authenticated, or at a shell.
    // The set-user-id bit alone (a user starting this program) is not enough.
    if (getuid() != 0) {
        std::fprintf(stderr, "sv3daemon: only an administrator may allow a volume\n");
        return 1;
    }
    clearenv();
    umask(022);
    std::string message;
    const bool ok = privileged::allowVolume(privileged::Context{}, mountPoint, &message);
    std::fprintf(ok ? stdout : stderr, "sv3daemon: %s\n", message.c_str());
    return ok ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    // Nothing of the caller's environment steers this process; its one argument is a checked
    // mount point, for root only.
    ensureStandardDescriptors();
    closeInheritedDescriptors();
    if (argc == 3 && std::strcmp(argv[1], "--allow-volume") == 0) return allowVolume(argv[2]);
    if (argc > 1) {
        std::fprintf(stderr, "usage: sv3daemon [--allow-volume MOUNT-POINT]\n");
        return 2;
    }
    privileged::Context context;
    context.uid = getuid();
    context.gid = getgid();
    const std::string agent = agentPath();

    int sv[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sv) != 0)
        die("cannot create the socket pair");
    const pid_t helper = fork();
    if (helper < 0) die("cannot fork");
    if (helper == 0) {
        close(sv[0]);
        runHelper(sv[1], context);
    }
    close(sv[1]);
    // The agent holds open the files of what it is saving from a trash being emptied (one
    // descriptor a file): it may have as many as the system allows a process.
    if (geteuid() == 0) {
        const rlimit files{1 << 20, 1 << 20};
        setrlimit(RLIMIT_NOFILE, &files);
    }
    dropPrivileges(context.uid, context.gid);
    if (fcntl(sv[0], F_SETFD, 0) != 0) die("cannot hand the socket over");
    const std::string fdArg = "--privileged-fd=" + std::to_string(sv[0]);
    const std::string pidArg = "--privileged-pid=" + std::to_string(helper);
    char *const agentArgv[] = {const_cast<char *>(agent.c_str()), const_cast<char *>(fdArg.c_str()),
                               const_cast<char *>(pidArg.c_str()), nullptr};
    execv(agent.c_str(), agentArgv);
    die("cannot start sv3daemon-agent");
}
