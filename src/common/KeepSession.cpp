#include "common/KeepSession.h"

#include "SafeFile.h"
#include "common/Locations.h"

#include <QCoreApplication>
#include <QFile>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KeepSession {

namespace {

constexpr char kEnvironmentFile[] = "60-salvora3-keep.conf";
constexpr char kBlockStart[] =
    "# >>> salvora3 keep: what programs delete is kept (salvora keep off) >>>\n";
constexpr char kBlockEnd[] = "# <<< salvora3 keep <<<\n";

QByteArray configHome()
{
    const QByteArray xdg = qgetenv("XDG_CONFIG_HOME");
    return xdg.startsWith('/') ? xdg : CommonUtils::homeFolder() + "/.config";
}

// The profile without our block.
QByteArray withoutBlock(const QByteArray &profile)
{
    const qsizetype start = profile.indexOf(kBlockStart);
    if (start < 0) return profile;
    const qsizetype end = profile.indexOf(kBlockEnd, start);
    return end < 0 ? profile.left(start)
                   : profile.left(start) + profile.mid(end + qsizetype(std::strlen(kBlockEnd)));
}

int writeFile(const QByteArray &path, const QByteArray &data, mode_t mode)
{
    const qsizetype slash = path.lastIndexOf('/');
    const int dir = safefile::openPathCreating(path.left(slash).toStdString(), 0700);
    if (dir < 0) return errno;
    const int err =
        safefile::replaceFile(dir, path.mid(slash + 1).constData(), data.toStdString(), mode);
    ::close(dir);
    return err;
}

QByteArray readProfile(int *error)
{
    const safefile::ReadResult r =
        safefile::readRegular(AT_FDCWD, profileFile().constData(), 1 << 20);
    *error = r.error == ENOENT ? 0 : r.error;
    return QByteArray::fromStdString(r.data);
}

mode_t profileMode()
{
    struct stat st
    {
    };
    return ::stat(profileFile().constData(), &st) == 0 ? (st.st_mode & 07777) : 0644;
}

Result failure(Result::Failed what, int err)
{
    return Result{what, err};
}

} // namespace

QByteArray libraryPath()
{
    const QByteArray dir = QFile::encodeName(QCoreApplication::applicationDirPath());
    const QByteArray built = dir + "/../lib/" + kLibraryName;
    char real[PATH_MAX];
    if (::realpath(built.constData(), real)) return QByteArray(real);
    return QByteArray(SALVORA_KEEP_LIBRARY_DIR "/") + kLibraryName;
}

QByteArray environmentFile()
{
    return configHome() + "/environment.d/" + kEnvironmentFile;
}

QByteArray profileFile()
{
    return CommonUtils::homeFolder() + "/.profile";
}

bool configured()
{
    struct stat st
    {
    };
    int err = 0;
    return ::lstat(environmentFile().constData(), &st) == 0 ||
           readProfile(&err).contains(kBlockStart);
}

bool sessionHasIt()
{
    return qgetenv("LD_PRELOAD").contains(kLibraryName);
}

Result enable(const QByteArray &lib)
{
    if (::access(lib.constData(), R_OK) != 0) return failure(Result::Failed::Library, errno);
    // Not LD_PRELOAD itself: the package's session generator turns this into LD_PRELOAD while the
    // library is installed, so that a removed package leaves no preload the loader complains of.
    const QByteArray env =
        QByteArray("# salvora keep on: what programs delete is kept (salvora keep off)\n") +
        kLibraryVariable + '=' + lib + '\n';
    int err = 0;
    const QByteArray profile = withoutBlock(readProfile(&err));
    if (err) return failure(Result::Failed::Profile, err);
    if (const int werr = writeFile(environmentFile(), env, 0644))
        return failure(Result::Failed::EnvironmentFile, werr);
    const QByteArray block = QByteArray(kBlockStart) + "case \" $LD_PRELOAD \" in *\"" +
                             kLibraryName + "\"*) ;; *) [ -r \"" + lib +
                             "\" ] && export LD_PRELOAD=\"" + lib +
                             "${LD_PRELOAD:+ $LD_PRELOAD}\" ;; esac\n" + kBlockEnd;
    const QByteArray joined =
        profile.isEmpty() || profile.endsWith('\n') ? profile + block : profile + '\n' + block;
    if (const int werr = writeFile(profileFile(), joined, profileMode())) {
        // All or nothing: a half-made setting would say on while login shells miss it.
        ::unlink(environmentFile().constData());
        return failure(Result::Failed::Profile, werr);
    }
    return {};
}

Result disable()
{
    if (::unlink(environmentFile().constData()) != 0 && errno != ENOENT)
        return failure(Result::Failed::EnvironmentFile, errno);
    int err = 0;
    const QByteArray profile = readProfile(&err);
    const QByteArray cleaned = withoutBlock(profile);
    if (!err && cleaned != profile) err = writeFile(profileFile(), cleaned, profileMode());
    if (err) return failure(Result::Failed::Profile, err);
    return {};
}

} // namespace KeepSession
