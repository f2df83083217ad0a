// `salvora keep on|off|status`: whether the user's session preloads the library that keeps what
// programs delete without the trash (src/keep). On writes the session's environment
// (~/.config/environment.d, read by the systemd user manager at login) and a marked block in
// ~/.profile for login shells; off removes both. Either takes effect at the next login.
#include "cli/Args.h"
#include "cli/CliIo.h"
#include "cli/Commands.h"
#include "common/Locations.h"

#include "KeepTable.h"
#include "SafeFile.h"

#include <QCoreApplication>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kLibraryName[] = "libsalvora3-keep.so";
constexpr char kEnvironmentFile[] = "60-salvora3-keep.conf";
constexpr char kBlockStart[] = "# >>> salvora3 keep: what programs delete is kept (salvora keep off) >>>\n";
constexpr char kBlockEnd[] = "# <<< salvora3 keep <<<\n";

// The library beside a build tree's programs, else where the package installs it.
QByteArray libraryPath()
{
    const QByteArray dir = QFile::encodeName(QCoreApplication::applicationDirPath());
    const QByteArray built = dir + "/../lib/" + kLibraryName;
    char real[PATH_MAX];
    if (::realpath(built.constData(), real)) return QByteArray(real);
    return QByteArray(SALVORA_KEEP_LIBRARY_DIR "/") + kLibraryName;
}

QByteArray configHome()
{
    const QByteArray xdg = qgetenv("XDG_CONFIG_HOME");
    return xdg.startsWith('/') ? xdg : CommonUtils::homeFolder() + "/.config";
}

QByteArray environmentFile() { return configHome() + "/environment.d/" + kEnvironmentFile; }
QByteArray profileFile() { return CommonUtils::homeFolder() + "/.profile"; }

// The profile without our block.
QByteArray withoutBlock(const QByteArray &profile)
{
    const qsizetype start = profile.indexOf(kBlockStart);
    if (start < 0) return profile;
    const qsizetype end = profile.indexOf(kBlockEnd, start);
    return end < 0 ? profile.left(start) : profile.left(start) + profile.mid(end + qsizetype(std::strlen(kBlockEnd)));
}

int writeFile(const QByteArray &path, const QByteArray &data, mode_t mode)
{
    const qsizetype slash = path.lastIndexOf('/');
    const int dir = safefile::openPathCreating(path.left(slash).toStdString(), 0700);
    if (dir < 0) return errno;
    const int err = safefile::replaceFile(dir, path.mid(slash + 1).constData(), data.toStdString(), mode);
    ::close(dir);
    return err;
}

QByteArray readProfile(int *error)
{
    const safefile::ReadResult r = safefile::readRegular(AT_FDCWD, profileFile().constData(), 1 << 20);
    *error = r.error == ENOENT ? 0 : r.error;
    return QByteArray::fromStdString(r.data);
}

bool sessionHasIt()
{
    // This very process: the session's environment reaches every program started in it.
    return qgetenv("LD_PRELOAD").contains(kLibraryName);
}

int on()
{
    const QByteArray lib = libraryPath();
    if (::access(lib.constData(), R_OK) != 0)
        return CliIo::fail(QStringLiteral("the library is not installed (%1)").arg(QString::fromLocal8Bit(lib)));
    // Programs that already preload something keep it, after ours.
    const QByteArray env = "LD_PRELOAD=" + lib + "${LD_PRELOAD:+ $LD_PRELOAD}\n";
    if (const int err = writeFile(environmentFile(), env, 0644))
        return CliIo::fail(QStringLiteral("%1: %2").arg(QString::fromLocal8Bit(environmentFile()),
                                                         QString::fromLocal8Bit(std::strerror(err))));
    int err = 0;
    const QByteArray profile = withoutBlock(readProfile(&err));
    if (err) return CliIo::fail(QStringLiteral("~/.profile: %1").arg(QString::fromLocal8Bit(std::strerror(err))));
    const QByteArray block = QByteArray(kBlockStart) + "case \" $LD_PRELOAD \" in *\"" + kLibraryName +
                             "\"*) ;; *) [ -r \"" + lib + "\" ] && export LD_PRELOAD=\"" + lib +
                             "${LD_PRELOAD:+ $LD_PRELOAD}\" ;; esac\n" + kBlockEnd;
    const QByteArray joined = profile.isEmpty() || profile.endsWith('\n') ? profile + block : profile + '\n' + block;
    struct stat st{};
    const mode_t mode = ::stat(profileFile().constData(), &st) == 0 ? (st.st_mode & 07777) : 0644;
    if (const int werr = writeFile(profileFile(), joined, mode))
        return CliIo::fail(QStringLiteral("~/.profile: %1").arg(QString::fromLocal8Bit(std::strerror(werr))));
    CliIo::Out out;
    out << "Files deleted without the trash (rm, \"Delete permanently\") will be kept from your next login on.\n";
    return 0;
}

int off()
{
    if (::unlink(environmentFile().constData()) != 0 && errno != ENOENT)
        return CliIo::fail(QStringLiteral("%1: %2").arg(QString::fromLocal8Bit(environmentFile()),
                                                         QString::fromLocal8Bit(std::strerror(errno))));
    int err = 0;
    const QByteArray profile = readProfile(&err);
    const QByteArray cleaned = withoutBlock(profile);
    if (!err && cleaned != profile) {
        struct stat st{};
        const mode_t mode = ::stat(profileFile().constData(), &st) == 0 ? (st.st_mode & 07777) : 0644;
        err = writeFile(profileFile(), cleaned, mode);
    }
    if (err) return CliIo::fail(QStringLiteral("~/.profile: %1").arg(QString::fromLocal8Bit(std::strerror(err))));
    CliIo::Out out;
    out << "Files deleted without the trash will no longer be kept from your next login on"
        << (sessionHasIt() ? " (this session still keeps them).\n" : ".\n");
    return 0;
}

// Whether the agent published a table, and whether it says on.
const char *tableState()
{
    const std::string path = keeptable::defaultPath();
    const int fd = safefile::openRegular(AT_FDCWD, path.c_str(), O_RDONLY, 0, true);
    if (fd < 0) return "not published (the daemon is not running)";
    struct stat st{};
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

int keepStatus()
{
    int err = 0;
    const bool configured = QFile::exists(QFile::decodeName(environmentFile())) ||
                            readProfile(&err).contains(kBlockStart);
    CliIo::Out out;
    out << "keep permanent deletions: " << (configured ? "on" : "off") << '\n'
        << "this session: " << (sessionHasIt() ? "has the library" : "does not have the library")
        << (configured != sessionHasIt() ? " (takes effect at the next login)" : "") << '\n'
        << "daemon's table: " << tableState() << '\n'
        << "library: " << libraryPath() << '\n';
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
