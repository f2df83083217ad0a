#include "browser/Deletion.h"

#include "browser/KeepPolicy.h"
#include "cache/CacheFolder.h"
#include "common/Locations.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "volumes/Volumes.h"

#include "PathJoin.h"
#include "UniqueFd.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Deletion {

using CacheCommit::Error;
using CacheCommit::Result;

namespace {

using Fd = UniqueFd;

bool isItemName(QByteArrayView name)
{
    return !name.isEmpty() && name != "." && name != ".." && !name.contains('/') &&
           !name.contains('\0');
}

QByteArray absolutePath(const QByteArray &path)
{
    QByteArray abs = path;
    if (!abs.startsWith('/')) {
        char cwd[PATH_MAX];
        if (!getcwd(cwd, sizeof cwd)) return {};
        abs = joinPath(QByteArray(cwd), abs);
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

Destination destinationFor(dev_t dev, Error *error)
{
    const QStringList volumes = CommonUtils::getAllProtectedVolumes();
    for (qsizetype i = 0; i < volumes.size(); ++i) {
        const QByteArray volume = volumes.at(i).toUtf8();
        const QByteArray base = volume == "/" ? CommonUtils::homeFolder() : volume;
        struct stat st
        {
        };
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
        struct stat st
        {
        };
        if (::stat(v.toUtf8().constData(), &st) == 0 && st.st_dev == dev)
            *error = Error::CrossDevice;
    }
    return {};
}

QList<Result> deleteIntoCache(const QByteArrayList &paths, bool notify)
{
    const KeepPolicy policy = KeepPolicy::read();
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
        struct stat st
        {
        };
        if (abs.isEmpty() || !isItemName(name)) {
            r.error = Error::InvalidPath;
        } else if (!policy.protection) {
            r.error = Error::ProtectionOff;
        } else if (policy.exclusions.matches(name)) {
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
            const QByteArray item = joinPath(realPath(parent), name);
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
        r = CacheCommit::moveIntoCache(parentFd.fd, name, cacheFd.fd, d.cacheFolder, name, abs,
                                       when);
        r.path = path;
        moved = moved || r.ok();
        results.append(r);
    }
    if (moved && notify)
        NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                              QLatin1String(Notifications::Salvora3DataMovedToCache));
    return results;
}

} // namespace Deletion
