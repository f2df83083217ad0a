// What another local account does to a Salvora 3 user, run by tst_multiuser as that account:
//
//   race DIR SECONDS NAME TARGET...   for SECONDS, swap DIR/NAME with each DIR/TARGET and back
//                                     (RENAME_EXCHANGE), and every 20 ms move NAME away so that
//                                     a new one is made, then swap a target in for it at once
//   steal PID FD PROGRAM ARGS...      take descriptor FD of process PID (pidfd_getfd, which needs
//                                     no privilege over one's own processes) and run PROGRAM
//                                     with it as --privileged-fd
//   open PATH...                      try to read each path; prints "ok" or the errno's name
//
// Prints one line of results per command.

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

int exchange(int dir, const char *a, const char *b)
{
    return renameat2(dir, a, dir, b, RENAME_EXCHANGE);
}

int race(const char *dirPath, int seconds, const char *name, std::vector<const char *> targets)
{
    const int dir = open(dirPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return perror("open"), 1;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    long swaps = 0, fresh = 0, caught = 0;
    using Clock = std::chrono::steady_clock;
    for (std::size_t round = 0; Clock::now() < end; ++round) {
        const char *target = targets[round % targets.size()];
        // For 20 ms the folder at the name is now and then a target: while the helper checks
        // it, changes its mode or makes the user's folder in it.
        for (const auto until = Clock::now() + std::chrono::milliseconds(20); Clock::now() < until;)
            for (const char *t : targets)
                if (exchange(dir, name, t) == 0) {
                    ++swaps;
                    exchange(dir, name, t);
                }
        // Then the name is free: the helper makes a new folder there, and the target takes its
        // place between its mkdir and its open.
        if (renameat2(dir, name, dir, ".away", RENAME_NOREPLACE) != 0) continue;
        ++fresh;
        for (const auto until = Clock::now() + std::chrono::milliseconds(5);
             Clock::now() < until;) {
            if (exchange(dir, name, target) == 0) {
                ++caught;
                exchange(dir, name, target);
                break;
            }
        }
        // Whatever was made at the name goes aside; the real folder comes back.
        const std::string aside = ".made-" + std::to_string(round);
        renameat2(dir, name, dir, aside.c_str(), RENAME_NOREPLACE);
        for (int i = 0; i < 100 && renameat2(dir, ".away", dir, name, RENAME_NOREPLACE) != 0 &&
                        errno == EEXIST;
             ++i)
            renameat2(dir, name, dir, (aside + '-' + std::to_string(i)).c_str(), RENAME_NOREPLACE);
    }
    std::printf("swaps=%ld fresh=%ld caught=%ld\n", swaps, fresh, caught);
    return 0;
}

int steal(int pid, int fd, char **program)
{
    const int pidfd = int(syscall(SYS_pidfd_open, pid, 0));
    if (pidfd < 0) return std::printf("pidfd_open: %s\n", strerrorname_np(errno)), 1;
    const int stolen = int(syscall(SYS_pidfd_getfd, pidfd, fd, 0));
    if (stolen < 0) return std::printf("pidfd_getfd: %s\n", strerrorname_np(errno)), 1;
    // pidfd_getfd gives it close-on-exec.
    if (fcntl(stolen, F_SETFD, 0) != 0) return perror("fcntl"), 1;
    std::vector<char *> argv;
    for (char **a = program; *a; ++a)
        argv.push_back(*a);
    std::string fdArg = "--privileged-fd=" + std::to_string(stolen);
    argv.push_back(fdArg.data());
    argv.push_back(nullptr);
    std::fflush(stdout);
    execv(argv[0], argv.data());
    return perror("execv"), 1;
}

int tryOpen(int argc, char **argv)
{
    for (int i = 0; i < argc; ++i) {
        const int fd = open(argv[i], O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        char byte = 0;
        const bool ok = fd >= 0 && read(fd, &byte, 1) >= 0;
        std::printf("%s%s", i ? " " : "", ok ? "ok" : strerrorname_np(errno));
        if (fd >= 0) close(fd);
    }
    std::printf("\n");
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string cmd = argc > 1 ? argv[1] : "";
    if (cmd == "race" && argc > 5)
        return race(argv[2], std::atoi(argv[3]), argv[4],
                    std::vector<const char *>(argv + 5, argv + argc));
    if (cmd == "steal" && argc > 4) return steal(std::atoi(argv[2]), std::atoi(argv[3]), argv + 4);
    if (cmd == "open") return tryOpen(argc - 2, argv + 2);
    std::fprintf(stderr, "usage: see the source\n");
    return 2;
}
