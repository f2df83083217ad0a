// Stands in for the daemon in the launcher's tests: writes what it was started with (identity,
// credentials, folder, umask, descriptors, signal mask, environment, arguments) to the file
// named by its first argument, one fact per line.
#include <csignal>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

extern char **environ;

int main(int argc, char **argv)
{
    if (argc < 2) return 2;
    FILE *out = std::fopen(argv[1], "we");
    if (!out) return 3;
    struct stat self = {};
    ::stat("/proc/self/exe", &self);
    std::fprintf(out, "exe:%lu:%lu\n", (unsigned long)self.st_dev, (unsigned long)self.st_ino);
    uid_t r, e, s;
    ::getresuid(&r, &e, &s);
    std::fprintf(out, "uid:%u:%u\n", r, e);
    char cwd[4096] = {};
    if (::getcwd(cwd, sizeof cwd)) std::fprintf(out, "cwd:%s\n", cwd);
    const mode_t mask = ::umask(0);
    std::fprintf(out, "umask:%03o\n", unsigned(mask));
    sigset_t blocked;
    ::sigprocmask(SIG_SETMASK, nullptr, &blocked);
    int nblocked = 0;
    for (int sig = 1; sig < NSIG; ++sig)
        nblocked += sigismember(&blocked, sig) == 1;
    std::fprintf(out, "blocked:%d\n", nblocked);
    if (DIR *fds = ::opendir("/proc/self/fd")) {
        const int skip[] = {::fileno(out), ::dirfd(fds)};
        while (const dirent *d = ::readdir(fds)) {
            if (d->d_name[0] == '.') continue;
            const int fd = std::stoi(d->d_name);
            if (fd != skip[0] && fd != skip[1]) std::fprintf(out, "fd:%d\n", fd);
        }
        ::closedir(fds);
    }
    for (char **e = environ; e && *e; ++e)
        std::fprintf(out, "env:%s\n", *e);
    for (int i = 2; i < argc; ++i)
        std::fprintf(out, "arg:%s\n", argv[i]);
    return std::fclose(out) == 0 ? 0 : 4;
}
