#include "cache/CacheCommit.h"

#include "cache/CacheLayout.h"

#include "PathJoin.h"
#include "SafeFile.h"
#include "UniqueFd.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace CacheCommit {

namespace {

using Fd = UniqueFd;

bool isItemName(QByteArrayView name)
{
    return !name.isEmpty() && name != "." && name != ".." && !name.contains('/') &&
           !name.contains('\0');
}

Error folderError(int err)
{
    if (err == ELOOP || err == ENOTDIR) return Error::UnsafeCache;
    if (err == ENOENT) return Error::NoCacheFolder;
    return Error::System;
}

// Opens (creating it when missing) a folder of the cache, private and never through a link.
// -1 with errno set on failure.
int openOrMakeFolder(int parentFd, const char *name)
{
    return safefile::openFolder(parentFd, name, true, 0700);
}

} // namespace

QString describe(Error error, int sysErrno)
{
    switch (error) {
    case Error::None:
        return QStringLiteral("done");
    case Error::InvalidPath:
        return QStringLiteral("not a file or folder name");
    case Error::NotFound:
        return QStringLiteral("no such file or folder");
    case Error::ProtectionOff:
        return QStringLiteral("protection is off, so nothing is kept");
    case Error::Excluded:
        return QStringLiteral("excluded from the cache by its name or extension");
    case Error::NotOnProtectedVolume:
        return QStringLiteral("not on a protected volume");
    case Error::CrossDevice:
        return QStringLiteral("on another file system than the volume's cache");
    case Error::InsideCache:
        return QStringLiteral("already in a cache");
    case Error::HoldsCache:
        return QStringLiteral("holds the cache itself");
    case Error::NoCacheFolder:
        return QStringLiteral("the volume's cache folder does not exist and cannot be created");
    case Error::UnsafeCache:
        return QStringLiteral("a link or a file stands where a cache folder should be");
    case Error::NoOrigin:
        return QStringLiteral("its original place could not be recorded (%1)")
            .arg(QString::fromLocal8Bit(std::strerror(sysErrno ? sysErrno : EIO)));
    case Error::System:
        break;
    }
    return QString::fromLocal8Bit(std::strerror(sysErrno ? sysErrno : EIO));
}

// The name with `words` before its last extension: "report 2.txt", "photos (incomplete)". A name
// may not exceed 255 bytes: the stem gives way, whole characters at a time, and an extension too
// long to leave room for any stem goes before the stem does.
static QByteArray nameWith(const QByteArray &name, const QByteArray &words)
{
    const qsizetype dot = name.lastIndexOf('.');
    const bool hasExtension = dot > 0 && dot < name.size() - 1;
    QByteArray stem = hasExtension ? name.left(dot) : name;
    QByteArray extension = hasExtension ? name.mid(dot) : QByteArray();
    if (extension.size() + words.size() >= kMaxNameBytes) extension.clear();
    const qsizetype room = kMaxNameBytes - words.size() - extension.size();
    if (stem.size() > room) {
        qsizetype cut = room;
        while (cut > 0 && (static_cast<unsigned char>(stem.at(cut)) & 0xC0) == 0x80)
            --cut;
        stem.truncate(cut);
    }
    return stem + words + extension;
}

QByteArray numberedName(const QByteArray &name, int n)
{
    return nameWith(name, ' ' + QByteArray::number(n));
}

QByteArray incompleteName(const QByteArray &name)
{
    return nameWith(name, " (incomplete)");
}

Result moveIntoCache(int srcDirFd, const QByteArray &srcName, int cacheFd,
                     const QByteArray &cacheFolder, const QByteArray &name,
                     const QByteArray &originalPath, const QDateTime &when,
                     const Completeness &completeness)
{
    return moveIntoFolder(
        srcDirFd, srcName, cacheFd, cacheFolder, CommonUtils::nameForCacheFolder(when).toLatin1(),
        CommonUtils::nameForTimeFolder(when).toLatin1(), name, originalPath, completeness);
}

Result moveIntoFolder(int srcDirFd, const QByteArray &srcName, int cacheFd,
                      const QByteArray &cacheFolder, const QByteArray &day, const QByteArray &time,
                      const QByteArray &givenName, const QByteArray &originalPath,
                      const Completeness &completeness)
{
    Result r;
    const QByteArray name = completeness.complete ? givenName : incompleteName(givenName);
    r.path = originalPath;
    struct stat item
    {
    };
    if (!isItemName(srcName) || !isItemName(name)) {
        r.error = Error::InvalidPath;
        return r;
    }
    if (fstatat(srcDirFd, srcName.constData(), &item, AT_SYMLINK_NOFOLLOW) != 0) {
        r.sysErrno = errno;
        r.error = errno == ENOENT ? Error::NotFound : Error::System;
        return r;
    }
    Fd dayFd(openOrMakeFolder(cacheFd, day.constData()));
    Fd timeFd(dayFd.fd >= 0 ? openOrMakeFolder(dayFd.fd, time.constData()) : -1);
    if (timeFd.fd < 0) {
        r.sysErrno = errno;
        r.error = folderError(r.sysErrno);
        return r;
    }
    // Discarded before and after: a crash in between leaves no record that misses the item.
    unlinkat(dayFd.fd, CommonUtils::kCacheInformationName, 0);
    QByteArray finalName = name;
    for (int n = 2;; ++n) {
        struct stat taken
        {
        };
        if (fstatat(timeFd.fd, finalName.constData(), &taken, AT_SYMLINK_NOFOLLOW) == 0 &&
            n <= kMaxNumberedNames) {
            finalName = numberedName(name, n);
            continue;
        }
        const int recorded = appendOrigin(cacheFd, day,
                                          {time, finalName, originalPath, qint64(getuid()),
                                           quint64(item.st_ino), 0, completeness});
        if (recorded != 0) {
            r.sysErrno = recorded;
            r.error = Error::NoOrigin;
            break;
        }
        if (renameat2(srcDirFd, srcName.constData(), timeFd.fd, finalName.constData(),
                      RENAME_NOREPLACE) == 0) {
            unlinkat(dayFd.fd, CommonUtils::kCacheInformationName, 0);
            r.cachedPath = joinPath(joinPath(joinPath(cacheFolder, day), time), finalName);
            return r;
        }
        const int err = errno;
        if (err == EEXIST && n <= kMaxNumberedNames) {
            finalName = numberedName(name, n);
            continue;
        }
        r.sysErrno = err;
        r.error =
            err == EXDEV ? Error::CrossDevice : (err == ENOENT ? Error::NotFound : Error::System);
        break;
    }
    // An emptied time folder is not left behind; one that holds anything stays.
    unlinkat(dayFd.fd, time.constData(), AT_REMOVEDIR);
    return r;
}

} // namespace CacheCommit
