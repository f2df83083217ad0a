// `salvora keep on|off|status`: whether the user's session preloads the library that keeps what
// programs delete without the trash (common/KeepSession.h does the writing, for the Preferences
// too).
#include "cli/Args.h"
#include "cli/CliIo.h"
#include "cli/Commands.h"
#include "common/KeepSession.h"

#include "KeepTable.h"
#include "SafeFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString errorText(int err)
{
    return QString::fromLocal8Bit(std::strerror(err));
}

int failed(const KeepSession::Result &r)
{
    switch (r.failed) {
    case KeepSession::Result::Failed::Library:
        return CliIo::fail(QStringLiteral("the library is not installed (%1)")
                               .arg(QString::fromLocal8Bit(KeepSession::libraryPath())));
    case KeepSession::Result::Failed::EnvironmentFile:
        return CliIo::fail(QStringLiteral("%1: %2").arg(
            QString::fromLocal8Bit(KeepSession::environmentFile()), errorText(r.error)));
    case KeepSession::Result::Failed::Profile:
    case KeepSession::Result::Failed::Nothing:
        break;
    }
    if (r.error == ELOOP)
        return CliIo::fail(
            QStringLiteral("~/.profile is a symbolic link, which Salvora 3 does not write through; "
                           "nothing was changed"));
    return CliIo::fail(
        QStringLiteral("~/.profile: %1 (nothing was changed)").arg(errorText(r.error)));
}

int on()
{
    if (const KeepSession::Result r = KeepSession::enable(); !r.ok()) return failed(r);
    CliIo::Out out;
    out << "Files deleted without the trash (rm, \"Delete permanently\") will be kept from your "
           "next login on.\n";
    return 0;
}

int off()
{
    if (const KeepSession::Result r = KeepSession::disable(); !r.ok()) return failed(r);
    CliIo::Out out;
    out << "Files deleted without the trash will no longer be kept from your next login on"
        << (KeepSession::sessionHasIt() ? " (this session still keeps them).\n" : ".\n");
    return 0;
}

// Whether the agent published a table, and whether it says on.
const char *tableState()
{
    const std::string path = keeptable::defaultPath();
    const int fd = safefile::openRegular(AT_FDCWD, path.c_str(), O_RDONLY, 0, true);
    if (fd < 0) return "not published (the daemon is not running)";
    struct stat st
    {
    };
    const char *state = "unreadable";
    if (fstat(fd, &st) == 0 && st.st_size > 0) {
        void *data = mmap(nullptr, std::size_t(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
        if (data != MAP_FAILED) {
            const keeptable::View v = keeptable::check(data, std::size_t(st.st_size));
            state = !v.valid() ? "unreadable" : v.on() ? "on" : "off (protection is off)";
            munmap(data, std::size_t(st.st_size));
        }
    }
    ::close(fd);
    return state;
}

// Where the user's systemd manager finds the generator that turns the setting into LD_PRELOAD.
QByteArray generator()
{
    for (const char *dir : {"/etc/systemd/user-environment-generators",
                            "/usr/local/lib/systemd/user-environment-generators",
                            "/usr/lib/systemd/user-environment-generators"}) {
        const QByteArray path = QByteArray(dir) + "/60-salvora3-keep";
        if (::access(path.constData(), X_OK) == 0) return path;
    }
    return {};
}

int keepStatus()
{
    const bool configured = KeepSession::configured();
    const bool sessionHasIt = KeepSession::sessionHasIt();
    CliIo::Out out;
    out << "keep permanent deletions: " << (configured ? "on" : "off") << '\n'
        << "this session: " << (sessionHasIt ? "has the library" : "does not have the library")
        << (configured != sessionHasIt ? " (takes effect at the next login)" : "") << '\n'
        << "daemon's table: " << tableState() << '\n'
        << "library: " << KeepSession::libraryPath() << '\n';
    const QByteArray gen = generator();
    out << "session generator: "
        << (gen.isEmpty()
                ? QByteArray("not installed (the package installs it; without it the session never "
                             "gets the library)")
                : gen)
        << '\n';
    return 0;
}

} // namespace

namespace Commands {

int keep(int argc, char **argv)
{
    const Args a(argc, argv, 2, {}, {});
    if (!a.ok()) return CliIo::fail(a.error(), 2);
    const QByteArray what = a.positional().size() == 1 ? a.positional().first() : QByteArray();
    if (what == "on") return on();
    if (what == "off") return off();
    if (what == "status") return keepStatus();
    return CliIo::fail(QStringLiteral("keep takes on, off or status"), 2);
}

} // namespace Commands
