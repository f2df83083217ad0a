// What another local account does to a Salvora 3 user; run by tst_multiuser as that account, it
// prints one line of results per command:
//   race DIR SECONDS NAME TARGET...  for SECONDS, swap DIR/NAME with each DIR/TARGET and back
//                                    (RENAME_EXCHANGE), and every 20 ms move NAME away so that a
//                                    new one is made, then swap a target in for it at once
//   steal PID FD                     take descriptor FD of process PID (pidfd_getfd, which needs no
//                                    privilege over one's own processes) and serve as agent on it
//   open PATH...                     try to read each path: "ok" or the errno's name
// With --privileged-fd=N (as sv3daemon starts its agent) it is a stand-in agent: it sends the root
// helper whatever stdin asks and prints the answer ("-" is the empty string): `create HEX` (the
// cache folder at the root of mount point HEX), `remove HEX HEX` (the removal request of earlier
// versions), `raw HEX` (these bytes as one datagram), `quit`.

#include "Printable.h"
#include "Protocol.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/socket.h>
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
    long swaps = 0;
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
        for (const auto until = Clock::now() + std::chrono::milliseconds(5); Clock::now() < until;)
            if (exchange(dir, name, target) == 0) {
                exchange(dir, name, target);
                break;
            }
        // Whatever was made at the name goes aside; the real folder comes back.
        const std::string aside = ".made-" + std::to_string(round);
        renameat2(dir, name, dir, aside.c_str(), RENAME_NOREPLACE);
        for (int i = 0; i < 100 && renameat2(dir, ".away", dir, name, RENAME_NOREPLACE) != 0 &&
                        errno == EEXIST;
             ++i)
            renameat2(dir, name, dir, (aside + '-' + std::to_string(i)).c_str(), RENAME_NOREPLACE);
    }
    std::printf("swaps=%ld\n", swaps);
    return 0;
}

int steal(int pid, int fd)
{
    const int pidfd = int(syscall(SYS_pidfd_open, pid, 0));
    if (pidfd < 0) return std::printf("pidfd_open: %s\n", strerrorname_np(errno)), 1;
    const int stolen = int(syscall(SYS_pidfd_getfd, pidfd, fd, 0));
    if (stolen < 0) return std::printf("pidfd_getfd: %s\n", strerrorname_np(errno)), 1;
    // pidfd_getfd gives it close-on-exec.
    if (fcntl(stolen, F_SETFD, 0) != 0) return perror("fcntl"), 1;
    std::string fdArg = "--privileged-fd=" + std::to_string(stolen);
    char *argv[] = {const_cast<char *>("sv3daemon-attacker"), fdArg.data(), nullptr};
    std::fflush(stdout);
    execv("/proc/self/exe", argv);
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

std::string unhex(const std::string &hex)
{
    if (hex == "-") return {};
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(char(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

std::string ask(int fd, const std::string &datagram)
{
    if (send(fd, datagram.data(), datagram.size(), MSG_NOSIGNAL) < 0)
        return std::string("nosend ") + std::strerror(errno);
    char buf[privileged::kMaxDatagram];
    const ssize_t n = recv(fd, buf, sizeof buf, 0);
    if (n <= 0) return "noanswer";
    const auto r = privileged::decodeResponse({buf, std::size_t(n)});
    if (!r) return "badanswer";
    const char *status = r->status == privileged::Status::Done           ? "done"
                         : r->status == privileged::Status::Refused      ? "refused"
                         : r->status == privileged::Status::NeedsConsent ? "consent"
                                                                         : "failed";
    return std::string(status) + " " + std::to_string(r->error) + " " + printable(r->message);
}

int agent(int fd)
{
    std::cout << "fakeagent ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream in(line);
        std::string cmd, a, b;
        in >> cmd >> a >> b;
        if (cmd == "quit") break;
        privileged::Request r;
        r.first = unhex(a);
        r.second = unhex(b);
        if (cmd == "create") r.op = privileged::Op::CreateCacheFolder;
        std::string datagram = cmd == "raw" ? r.first : privileged::encode(r);
        // The removal request of earlier versions, which the helper no longer knows.
        if (cmd == "remove") datagram[2] = 2;
        std::cout << ask(fd, datagram) << std::endl;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], "--privileged-fd=", 16) == 0)
            return agent(std::atoi(argv[i] + 16));
    const std::string cmd = argc > 1 ? argv[1] : "";
    if (cmd == "race" && argc > 5)
        return race(argv[2], std::atoi(argv[3]), argv[4],
                    std::vector<const char *>(argv + 5, argv + argc));
    if (cmd == "steal" && argc == 4) return steal(std::atoi(argv[2]), std::atoi(argv[3]));
    if (cmd == "open") return tryOpen(argc - 2, argv + 2);
    std::fprintf(stderr, "usage: see the source\n");
    return 2;
}
