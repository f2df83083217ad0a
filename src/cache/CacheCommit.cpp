#include "cache/CacheCommit.h"

#include "browser/NameMatch.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "cache/SizeRecords.h"
#include "common/Locations.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/Volumes.h"

#include "SafeFile.h"
#include "UniqueFd.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <climits>
#include <cstdlib>
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

bool isUtf8(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes).toUtf8() == bytes;
}

// Bytes that are UTF-8 are stored as text; others as base64 under the key with "64" appended.
void putBytes(QJsonObject &o, const char *key, const QByteArray &bytes)
{
    if (isUtf8(bytes))
        o.insert(QLatin1String(key), QString::fromUtf8(bytes));
    else
        o.insert(QLatin1String(key) + QLatin1String("64"), QString::fromLatin1(bytes.toBase64()));
}

QByteArray getBytes(const QJsonObject &o, const char *key)
{
    const QString k = QLatin1String(key);
    if (o.contains(k)) return o.value(k).toString().toUtf8();
    return QByteArray::fromBase64(o.value(k + QLatin1String("64")).toString().toLatin1());
}

// Written before the item takes its name, so that a crash in between leaves a record of an
// item that is not there (ignored) rather than an item without its record.
int appendOrigin(int cacheFd, const QByteArray &day, const Origin &origin)
{
    Fd folder(openOrMakeFolder(cacheFd, kOriginsFolderName));
    if (folder.fd < 0) return errno;
    QJsonObject o;
    o.insert(QLatin1String("time"), QString::fromLatin1(origin.time));
    putBytes(o, "name", origin.name);
    putBytes(o, "path", origin.path);
    o.insert(QLatin1String("uid"), origin.uid);
    if (origin.ino != 0) o.insert(QLatin1String("ino"), QString::number(origin.ino));
    if (origin.trashIno != 0)
        o.insert(QLatin1String("trashIno"), QString::number(origin.trashIno));
    if (!origin.completeness.complete) {
        o.insert(QLatin1String("incomplete"), true);
        o.insert(QLatin1String("missingFiles"), origin.completeness.missingFiles);
        o.insert(QLatin1String("missingBytes"), origin.completeness.missingBytes);
    }
    const QByteArray line = QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
    return safefile::appendRecord(folder.fd, (day + ".jsonl").constData(), line.toStdString(), 0600);
}

QByteArray joined(const QByteArray &folder, const QByteArray &name)
{
    return folder.endsWith('/') ? folder + name : folder + '/' + name;
}

QByteArray absolutePath(const QByteArray &path)
{
    QByteArray abs = path;
    if (!abs.startsWith('/')) {
        char cwd[PATH_MAX];
        if (!getcwd(cwd, sizeof cwd)) return {};
        abs = joined(QByteArray(cwd), abs);
    }
    while (abs.size() > 1 && abs.endsWith('/'))
        abs.chop(1);
    return abs;
}

QByteArray realPath(const QByteArray &path)
{
    char buf[PATH_MAX];
    return realpath(path.constData(), buf) ? QByteArray(buf) : QByteArray();
}

bool isWithin(const QByteArray &path, const QByteArray &folder)
{
    return !folder.isEmpty() &&
           (path == folder || path.startsWith(folder == "/" ? folder : folder + '/'));
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

Exclusions::Exclusions(const QString &names, const QString &extensions)
{
    for (const QString &n : names.split(QLatin1Char(';'), Qt::SkipEmptyParts))
        mNames.append(n.toUtf8());
    for (const QString &e : extensions.split(QLatin1Char(';'), Qt::SkipEmptyParts))
        mExtensions.append(e.toUtf8());
}

Exclusions Exclusions::fromSettings()
{
    return Exclusions(Settings::string(SettingsKeys::PrefsExcludeName).value_or(QString()),
                      Settings::string(SettingsKeys::PrefsExcludeExtension).value_or(QString()));
}

bool Exclusions::matches(QByteArrayView name) const
{
    for (const QByteArray &n : mNames)
        if (NameMatch::compare(name, n) == 0) return true;
    const qsizetype dot = name.lastIndexOf('.');
    // ".profile" has no extension; "archive." has an empty one, which matches nothing.
    if (dot <= 0 || dot == name.size() - 1) return false;
    const QByteArrayView extension = name.sliced(dot + 1);
    for (const QByteArray &e : mExtensions)
        if (NameMatch::compare(extension, e) == 0) return true;
    return false;
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

Destination destinationFor(dev_t dev, Error *error)
{
    const QStringList volumes = CommonUtils::getAllProtectedVolumes();
    for (qsizetype i = 0; i < volumes.size(); ++i) {
        const QByteArray volume = volumes.at(i).toUtf8();
        const QByteArray base = volume == "/" ? CommonUtils::homeFolder() : volume;
        struct stat st{};
        if (base.isEmpty() || ::stat(base.constData(), &st) != 0 || st.st_dev != dev) continue;
        Destination d;
        d.volumeIndex = i;
        d.volumePath = volume;
        d.cacheFolder = CacheFolder::pathFor(volume);
        *error = Error::None;
        return d;
    }
    *error = Error::NotOnProtectedVolume;
    for (const QString &v : volumes) {
        struct stat st{};
        if (::stat(v.toUtf8().constData(), &st) == 0 && st.st_dev == dev)
            *error = Error::CrossDevice;
    }
    return {};
}

Result moveIntoCache(int srcDirFd, const QByteArray &srcName, int cacheFd,
                     const QByteArray &cacheFolder, const QByteArray &name,
                     const QByteArray &originalPath, const QDateTime &when,
                     const Completeness &completeness)
{
    return moveIntoFolder(srcDirFd, srcName, cacheFd, cacheFolder,
                          CommonUtils::nameForCacheFolder(when).toLatin1(),
                          CommonUtils::nameForTimeFolder(when).toLatin1(), name, originalPath,
                          completeness);
}

Result moveIntoFolder(int srcDirFd, const QByteArray &srcName, int cacheFd,
                      const QByteArray &cacheFolder, const QByteArray &day, const QByteArray &time,
                      const QByteArray &givenName, const QByteArray &originalPath,
                      const Completeness &completeness)
{
    Result r;
    const QByteArray name = completeness.complete ? givenName : incompleteName(givenName);
    r.path = originalPath;
    struct stat item{};
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
        struct stat taken{};
        if (fstatat(timeFd.fd, finalName.constData(), &taken, AT_SYMLINK_NOFOLLOW) == 0 &&
            n <= kMaxNumberedNames) {
            finalName = numberedName(name, n);
            continue;
        }
        const int recorded =
            appendOrigin(cacheFd, day,
                         {time, finalName, originalPath, qint64(getuid()), quint64(item.st_ino), 0,
                          completeness});
        if (recorded != 0) {
            r.sysErrno = recorded;
            r.error = Error::NoOrigin;
            break;
        }
        if (renameat2(srcDirFd, srcName.constData(), timeFd.fd, finalName.constData(),
                      RENAME_NOREPLACE) == 0) {
            unlinkat(dayFd.fd, CommonUtils::kCacheInformationName, 0);
            r.cachedPath = joined(cacheFolder, day) + '/' + time + '/' + finalName;
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

QList<Result> deleteIntoCache(const QByteArrayList &paths, bool notify)
{
    const std::optional<qint64> protection =
        Settings::integer(SettingsKeys::PrefsProtectionEnabled);
    const bool protectionOn = !protection || *protection != 0;
    const Exclusions exclusions = Exclusions::fromSettings();
    const QDateTime when = QDateTime::currentDateTime();
    QList<Result> results;
    bool moved = false;
    for (const QByteArray &path : paths) {
        Result r;
        r.path = path;
        // An empty path would otherwise name the working folder.
        const QByteArray abs =
            path.isEmpty() || path.contains('\0') ? QByteArray() : absolutePath(path);
        const qsizetype slash = abs.lastIndexOf('/');
        const QByteArray name = slash >= 0 ? abs.mid(slash + 1) : QByteArray();
        const QByteArray parent = slash > 0 ? abs.left(slash) : QByteArray("/");
        struct stat st{};
        if (abs.isEmpty() || !isItemName(name)) {
            r.error = Error::InvalidPath;
        } else if (!protectionOn) {
            r.error = Error::ProtectionOff;
        } else if (exclusions.matches(name)) {
            r.error = Error::Excluded;
        } else if (::lstat(abs.constData(), &st) != 0) {
            r.sysErrno = errno;
            r.error = (errno == ENOENT || errno == ENOTDIR) ? Error::NotFound : Error::System;
        }
        if (r.error != Error::None) {
            results.append(r);
            continue;
        }
        const Destination d = destinationFor(st.st_dev, &r.error);
        if (r.error == Error::None) {
            const QByteArray item = joined(realPath(parent), name);
            const QByteArray cache = realPath(d.cacheFolder);
            if (isWithin(item, cache))
                r.error = Error::InsideCache;
            else if (isWithin(cache, item))
                r.error = Error::HoldsCache;
        }
        if (r.error != Error::None) {
            results.append(r);
            continue;
        }
        Fd parentFd(::open(parent.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        CacheFolder::Status cacheStatus;
        Fd cacheFd(parentFd.fd >= 0 ? CacheFolder::open(d.volumePath, true, &cacheStatus) : -1);
        if (parentFd.fd < 0 || cacheFd.fd < 0) {
            r.sysErrno = parentFd.fd < 0 ? errno : cacheStatus.sysErrno;
            r.error = parentFd.fd < 0 ? Error::System : Error::NoCacheFolder;
            r.detail = cacheStatus.reason();
            results.append(r);
            continue;
        }
        r = moveIntoCache(parentFd.fd, name, cacheFd.fd, d.cacheFolder, name, abs, when);
        r.path = path;
        moved = moved || r.ok();
        results.append(r);
    }
    if (moved && notify)
        NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                              QLatin1String(Notifications::Salvora3DataMovedToCache));
    return results;
}

QByteArray originsFileFor(const QByteArray &cacheFolder, const QByteArray &day)
{
    return joined(cacheFolder, kOriginsFolderName) + '/' + day + ".jsonl";
}

QList<Origin> readOrigins(const QByteArray &cacheFolder, const QByteArray &day)
{
    QList<Origin> out;
    const safefile::ReadResult file =
        safefile::readRegular(AT_FDCWD, originsFileFor(cacheFolder, day).constData(), 64u << 20);
    if (file.error != 0) return out;
    const QByteArray data = QByteArray::fromStdString(file.data);
    for (const QByteArray &line : data.split('\n')) {
        const QJsonDocument doc = QJsonDocument::fromJson(line);
        if (!doc.isObject()) continue;
        const QJsonObject o = doc.object();
        Origin origin;
        origin.time = o.value(QLatin1String("time")).toString().toLatin1();
        origin.name = getBytes(o, "name");
        origin.path = getBytes(o, "path");
        origin.uid = o.value(QLatin1String("uid")).toInteger(-1);
        origin.ino = o.value(QLatin1String("ino")).toString().toULongLong();
        origin.trashIno = o.value(QLatin1String("trashIno")).toString().toULongLong();
        origin.completeness.complete = !o.value(QLatin1String("incomplete")).toBool();
        origin.completeness.missingFiles = o.value(QLatin1String("missingFiles")).toInteger();
        origin.completeness.missingBytes = o.value(QLatin1String("missingBytes")).toInteger();
        if (!origin.time.isEmpty() && !origin.name.isEmpty()) out.append(origin);
    }
    return out;
}

} // namespace CacheCommit
