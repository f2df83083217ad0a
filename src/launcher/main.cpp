// adminlauncher: the set-user-id root helper of Salvora 3. It does three jobs, each on one file
// of its own installation, and nothing else:
//   adminlauncher OWN-PATH 9               make itself root-owned with the set-user-id bit
//   adminlauncher FOLDER/sv3daemon 2       the same for the daemon beside it
//   adminlauncher FOLDER/sv3daemon LA ...  start that daemon with the given arguments
// Whoever runs it controls its arguments, environment, descriptors, umask, signals and working
// folder, so all of those are reset before anything else, and every refusal is one line on
// stderr with a non-zero exit status.

#include "LauncherCommand.h"
#include "LauncherJobs.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitRefused = 2;
constexpr int kExitBroken = 127;
constexpr char kSafePath[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";

// What the daemon needs to find the user's session; it is set-user-id itself and treats these
// as untrusted. Nothing that steers a loader, a library or Qt passes.
constexpr const char *kKeptForDaemon[] = {"HOME",
                                          "USER",
                                          "LOGNAME",
                                          "DBUS_SESSION_BUS_ADDRESS",
                                          "XDG_RUNTIME_DIR",
                                          "XDG_CONFIG_HOME",
                                          "XDG_DATA_HOME",
                                          "XDG_CACHE_HOME"};
constexpr std::size_t kMaxValueLength = 4096;

void say(const char *kind, const std::string &text)
{
    std::string line = std::string("adminlauncher: ") + kind + ": " + text + '\n';
    // One write, so that the line stays whole; errors on stderr cannot be reported anywhere.
    const ssize_t ignored = ::write(STDERR_FILENO, line.data(), line.size());
    (void)ignored;
}

// A closed 0, 1 or 2 would be taken by the next file opened, and our message on stderr would
// be written into it.
bool openStandardDescriptors()
{
    for (int fd = 0; fd <= 2; ++fd) {
        if (::fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
        const int null = ::open("/dev/null", O_RDWR | O_NOCTTY);
        if (null != fd) return false;
    }
    return true;
}

void closeInheritedDescriptors()
{
    if (::close_range(3, ~0U, 0) == 0) return;
    const long max = ::sysconf(_SC_OPEN_MAX);
    for (long fd = 3; fd < (max > 0 ? max : 1024); ++fd)
        ::close(int(fd));
}

void resetSignals()
{
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    struct sigaction dfl = {};
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    for (int s = 1; s < NSIG; ++s)
        ::sigaction(s, &dfl, nullptr); // SIGKILL and SIGSTOP refuse, as they should
}

// Copies what the daemon may get, then empties the environment.
std::vector<std::string> sanitiseEnvironment()
{
    std::vector<std::string> kept;
    for (const char *name : kKeptForDaemon) {
        const char *value = std::getenv(name);
        if (value && std::strlen(value) <= kMaxValueLength)
            kept.push_back(std::string(name) + '=' + value);
    }
    ::clearenv();
    ::putenv(const_cast<char *>(kSafePath));
    kept.emplace_back(kSafePath);
    return kept;
}

} // namespace

int main(int argc, char **argv)
{
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    if (!openStandardDescriptors()) return kExitBroken;
    closeInheritedDescriptors();
    ::umask(022);
    resetSignals();
    const std::vector<std::string> environment = sanitiseEnvironment();
    if (::chdir("/") != 0) {
        say("failed", "cannot change to the root folder");
        return kExitFailed;
    }

    std::string why;
    const auto command = launcher::parseCommand(argc, argv, &why);
    if (!command) {
        say("refused", why);
        return kExitRefused;
    }
    launcher::Self self;
    if (!launcher::identifySelf(&self, &why)) {
        say("refused", why);
        return kExitRefused;
    }
    switch (launcher::runJob(*command, self, environment, &why)) {
    case launcher::Outcome::Done:
        return 0;
    case launcher::Outcome::Refused:
        say("refused", why);
        return kExitRefused;
    case launcher::Outcome::Failed:
        say("failed", why);
        return kExitFailed;
    }
    return kExitFailed;
}
