// The agent's removals: the retention purge and the window's delete requests. Both remove only
// inside the user's own cache folders, with the user's own rights.

#include "Agent.h"

#include "SafeRemove.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/FolderWalk.h"
#include "cache/SizeRecords.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "volumes/MountInfo.h"
#include "volumes/Volumes.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The user's cache folders a delete request may name, by the volume they are on: the home
// folder's and the user's folder on any mounted eligible volume (protected or not: the window
// may still show an old one).
QList<std::pair<QByteArray, QByteArray>> knownCacheFolders()
{
    QList<std::pair<QByteArray, QByteArray>> caches{{"/", CacheFolder::pathFor("/")}};
    for (const MountEntry &e : MountInfo::parse(MountInfo::readFile())) {
        if (e.mountPoint == "/" ||
            !CommonUtils::isEligibleMountPoint(QString::fromUtf8(e.mountPoint)))
            continue;
        const auto entry = std::make_pair(e.mountPoint, CacheFolder::pathFor(e.mountPoint));
        if (!caches.contains(entry)) caches.append(entry);
    }
    return caches;
}

// Removes a path relative to the user's checked cache folder of a volume.
int removeInCache(const QByteArray &volumePath, const QByteArray &relative)
{
    CacheFolder::Status status;
    const int fd = CacheFolder::open(volumePath, false, &status);
    if (fd < 0) return status.sysErrno ? status.sysErrno : EACCES;
    const int err = saferemove::removeBeneath(fd, relative.toStdString());
    ::close(fd);
    return err;
}

} // namespace

void Agent::purge(const QString &reason)
{
    mLastPurge = QDateTime::currentDateTime();
    const qint64 days = mPrefs.retention.value_or(0);
    if (days <= 0) return;
    const QDate today = QDate::currentDate();
    QStringList purged;
    QStringList failures;
    for (auto &v : mVolumes) {
        CacheFolder::Status status;
        const int fd = CacheFolder::open(v->mountPath, false, &status);
        if (fd < 0) continue;
        QByteArrayList old;
        FolderWalk::forEachEntry(fd, [&](const char *name, FolderWalk::Type type) {
            if (type != FolderWalk::Type::Directory || std::strncmp(name, "20", 2) != 0) return;
            const auto date = CommonUtils::dateForCacheFolder(QByteArrayView(name));
            if (date && date->date().daysTo(today) > days) old.append(QByteArray(name));
        });
        for (const QByteArray &day : std::as_const(old)) {
            const int err = removeInCache(v->mountPath, day);
            const QString where = logText(v->cacheFolder + '/' + day);
            if (err != 0) {
                failures << QStringLiteral("%1 (%2)").arg(
                    where, QString::fromLocal8Bit(std::strerror(err)));
                continue;
            }
            unlinkat(
                fd,
                (QByteArray(CacheCommit::kOriginsFolderName) + '/' + day + ".jsonl").constData(),
                0);
            purged << where;
        }
        ::close(fd);
    }
    if (!purged.isEmpty()) {
        CommonUtils::addToLogFile(
            QStringLiteral("sv3daemon purged %1 day(s) older than %2 day(s) (%3): %4.")
                .arg(purged.size())
                .arg(days)
                .arg(reason, purged.join(QStringLiteral(", "))));
        NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                              QLatin1String(Notifications::Salvora3CacheModified));
        markDirty();
    }
    if (!failures.isEmpty())
        CommonUtils::addToLogFile(QStringLiteral("sv3daemon could not purge %1.")
                                      .arg(failures.join(QStringLiteral(", "))));
}

void Agent::handleDeleteRequest(const QByteArrayList &paths)
{
    const auto caches = knownCacheFolders();
    int removed = 0;
    QStringList refused;
    QStringList failed;
    for (QByteArray path : paths) {
        while (path.size() > 1 && path.endsWith('/'))
            path.chop(1);
        QByteArray cache, volume;
        for (const auto &[v, c] : caches)
            if (path.startsWith(c + '/')) std::tie(volume, cache) = std::tie(v, c);
        const QByteArray relative = cache.isEmpty() ? QByteArray() : path.mid(cache.size() + 1);
        if (cache.isEmpty() || !saferemove::isCleanRelativePath(relative.toStdString())) {
            refused << logText(path);
            continue;
        }
        const int err = removeInCache(volume, relative);
        if (err != 0) {
            failed << QStringLiteral("%1 (%2)").arg(logText(path),
                                                    QString::fromLocal8Bit(std::strerror(err)));
            continue;
        }
        ++removed;
        const QByteArrayList parts = relative.split('/');
        if (parts.size() == 1) {
                ::unlink((cache + '/' + CacheCommit::kOriginsFolderName + '/' + relative + ".jsonl")
                         .constData());
        } else {
            // As the window does after its own removals: the day is recounted, and an emptied
            // time folder goes.
            const QByteArray parent = path.left(path.lastIndexOf('/'));
            CommonUtils::resetSizeOfCacheIn(parent);
            if (parts.size() >= 3) CommonUtils::removeEmptyCache(parent);
        }
    }
    QString line = QStringLiteral("sv3daemon deleted %1 of %2 item(s) on request.")
                       .arg(removed)
                       .arg(paths.size());
    if (!refused.isEmpty())
        line += QStringLiteral(" Refused (not in a cache): %1.")
                    .arg(refused.join(QStringLiteral(", ")));
    if (!failed.isEmpty())
        line += QStringLiteral(" Failed: %1.").arg(failed.join(QStringLiteral(", ")));
    CommonUtils::addToLogFile(line);
    if (removed > 0) {
        NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                              QLatin1String(Notifications::Salvora3CacheModified));
        markDirty();
    }
}
