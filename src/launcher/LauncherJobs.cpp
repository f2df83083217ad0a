#include "LauncherJobs.h"

#include "Printable.h"
#include "TrustedPath.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace launcher {

namespace {

Outcome refused(std::string *why, std::string text)
{
    *why = std::move(text);
    return Outcome::Refused;
}

Outcome failed(std::string *why, const std::string &path, const char *what)
{
    *why = printable(path) + ": " + what + ": " + std::strerror(errno);
    return Outcome::Failed;
}

// Root-owned with the set-user-id bit, through the descriptor only: the path may have been
// renamed since, the open file cannot change.
Outcome makeRootSetUid(const TrustedFile &file, const std::string &path, std::string *why)
{
    const struct stat &status = file.status();
    if ((status.st_mode & S_IXUSR) == 0)
        return refused(why, printable(path) + ": is not executable");
    // Changing the owner clears the set-user-id bit, so the mode comes second.
    if (::fchown(file.fd(), 0, 0) != 0) return failed(why, path, "cannot change the owner");
    if (::fchmod(file.fd(), (status.st_mode & 0755) | S_ISUID) != 0)
        return failed(why, path, "cannot change the permissions");
    struct stat after = {};
    if (::fstat(file.fd(), &after) != 0) return failed(why, path, "cannot read the status");
    if (after.st_uid != 0 || (after.st_mode & S_ISUID) == 0)
        return refused(why, printable(path) + ": the change did not hold");
    return Outcome::Done;
}

// The daemon must be the one in the folder that holds this launcher: the path as text, and the
// folder that was walked must hold this very executable.
Outcome checkIsOwnDaemon(const Command &command, const TrustedFile &file, const Self &self,
                         std::string *why)
{
    const std::string expected =
        (self.folder == "/" ? std::string() : self.folder) + '/' + kDaemonName;
    if (command.target != expected)
        return refused(why, printable(command.target) + ": only " + printable(expected) +
                                " is accepted");
    struct stat own = {};
    if (::fstatat(file.folderFd(), self.name.c_str(), &own, AT_SYMLINK_NOFOLLOW) != 0 ||
        own.st_dev != self.device || own.st_ino != self.inode)
        return refused(why, printable(command.target) + ": not beside this launcher");
    return Outcome::Done;
}

} // namespace

bool identifySelf(Self *self, std::string *why)
{
    char buffer[PATH_MAX + 1];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, PATH_MAX);
    if (n <= 0) {
        *why = std::string("cannot find its own executable: ") + std::strerror(errno);
        return false;
    }
    self->path.assign(buffer, std::size_t(n));
    static const std::string deleted = " (deleted)";
    if (self->path.front() != '/' ||
        (self->path.size() > deleted.size() &&
         self->path.compare(self->path.size() - deleted.size(), deleted.size(), deleted) == 0)) {
        *why = "its own executable was replaced or removed";
        return false;
    }
    const std::size_t slash = self->path.rfind('/');
    self->folder = slash == 0 ? std::string("/") : self->path.substr(0, slash);
    self->name = self->path.substr(slash + 1);

    const int fd = ::open("/proc/self/exe", O_PATH | O_CLOEXEC);
    struct stat status = {};
    const bool ok = fd >= 0 && ::fstat(fd, &status) == 0;
    if (fd >= 0) ::close(fd);
    if (!ok) {
        *why = std::string("cannot read its own executable: ") + std::strerror(errno);
        return false;
    }
    self->device = status.st_dev;
    self->inode = status.st_ino;
    return true;
}

Outcome runJob(const Command &command, const Self &self,
               const std::vector<std::string> &environment, std::string *why)
{
    TrustedFile file;
    if (!openTrusted(command.names, &file, why)) return Outcome::Refused;

    switch (command.job) {
    case Job::OwnPrivileges:
        if (command.target != self.path || file.status().st_dev != self.device ||
            file.status().st_ino != self.inode)
            return refused(why,
                           printable(command.target) + ": job 9 works on the launcher itself only");
        return makeRootSetUid(file, command.target, why);

    case Job::DaemonPrivileges:
        if (const Outcome o = checkIsOwnDaemon(command, file, self, why); o != Outcome::Done)
            return o;
        return makeRootSetUid(file, command.target, why);

    case Job::Launch: {
        if (const Outcome o = checkIsOwnDaemon(command, file, self, why); o != Outcome::Done)
            return o;
        std::vector<char *> argv;
        argv.push_back(const_cast<char *>(command.target.c_str()));
        for (const std::string &a : command.arguments)
            argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        std::vector<char *> envp;
        for (const std::string &e : environment)
            envp.push_back(const_cast<char *>(e.c_str()));
        envp.push_back(nullptr);
        // The checked file itself is started, whatever its path names by now.
        ::execveat(file.fd(), "", argv.data(), envp.data(), AT_EMPTY_PATH);
        return failed(why, command.target, "cannot start");
    }
    }
    return refused(why, "unknown job");
}

} // namespace launcher
