// The agent's removals: the retention purge and the window's delete requests. Both remove only
// inside the user's own cache folders, with the user's own rights.

#include "Agent.h"

#include "SafeRemove.h"
#include "UniqueFd.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/FolderWalk.h"
#include "cache/SizeRecords.h"
#include "cache/SpaceGuard.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/SizeText.h"
#include "volumes/MountInfo.h"
#include "volumes/Volumes.h"

#include <QFile>
#include <QTimer>

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
int removeInCache(const QByteArray &volumePath, const QByteArray &relative,
                  const std::atomic<bool> &stop)
{
    CacheFolder::Status status;
    const int fd = CacheFolder::open(volumePath, false, &status);
    if (fd < 0) return status.sysErrno ? status.sysErrno : EACCES;
    const int err = saferemove::removeBeneath(fd, relative.toStdString(), &stop);
    ::close(fd);
    return err;
}

QString errnoText(int err)
{
    return QString::fromLocal8Bit(std::strerror(err));
}

// A burst of deletions checks the free space this often at most: reading it is cheap, but each
// check is a job on the background worker.
constexpr qint64 kGuardIntervalMs = 3000;

} // namespace

void Agent::purge(const QString &reason)
{
    mLastPurge = QDateTime::currentDateTime();
    const qint64 days = mPrefs.retention.value_or(0);
    if (days <= 0) return;
    QList<std::pair<QByteArray, QByteArray>> volumes; // mount path, cache folder
    for (const auto &v : mVolumes)
        volumes.append({v->mountPath, v->cacheFolder});
    const QDate today = QDate::currentDate();
    // Removing a year of days takes a while: on the background worker, which gives up at once
    // when the agent quits (the next purge goes on from there).
    mBackground->post([this, volumes, days, today, reason](const std::atomic<bool> &stop) {
        QStringList purged;
        QStringList failures;
        for (const auto &[mount, cacheFolder] : volumes) {
            CacheFolder::Status status;
            UniqueFd fd(CacheFolder::open(mount, false, &status));
            if (fd.fd < 0) continue;
            QByteArrayList old;
            FolderWalk::forEachEntry(fd.fd, [&](const char *name, FolderWalk::Type type) {
                if (type != FolderWalk::Type::Directory || std::strncmp(name, "20", 2) != 0) return;
                const auto date = CommonUtils::dateForCacheFolder(QByteArrayView(name));
                if (date && date->date().daysTo(today) > days) old.append(QByteArray(name));
            });
            for (const QByteArray &day : std::as_const(old)) {
                const int err = removeInCache(mount, day, stop);
                if (err == ECANCELED) return;
                const QString where = logText(cacheFolder + '/' + day);
                if (err != 0) {
                    failures << QStringLiteral("%1 (%2)").arg(where, errnoText(err));
                    continue;
                }
                unlinkat(fd.fd,
                         (QByteArray(CacheCommit::kOriginsFolderName) + '/' + day + ".jsonl")
                             .constData(),
                         0);
                purged << where;
            }
        }
        mMailbox.post([this, purged, failures, days, reason] {
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
        });
    });
    watchTheLoop();
}

void Agent::guardSpace()
{
    if (!mBackground) return;
    if (!mGuardTimer) {
        mGuardTimer = new QTimer(this);
        mGuardTimer->setSingleShot(true);
        connect(mGuardTimer, &QTimer::timeout, this, &Agent::guardSpace);
    }
    const qint64 since = mGuardClock.isValid() ? mGuardClock.elapsed() : kGuardIntervalMs;
    if (mGuardQueued || since < kGuardIntervalMs) {
        // One more check once the last one is done and the interval over, whatever asked.
        if (!mGuardTimer->isActive())
            mGuardTimer->start(int(std::max<qint64>(kGuardIntervalMs - since, 100)));
        return;
    }
    mGuardClock.start();
    mGuardQueued = true;
    QList<std::pair<QByteArray, QByteArray>> volumes; // mount path, cache folder
    for (const auto &v : mVolumes)
        volumes.append({v->mountPath, v->cacheFolder});
    const SpaceGuard::Threshold threshold = SpaceGuard::readThreshold();
    const QDate today = QDate::currentDate();
    mBackground->post([this, volumes, threshold, today](const std::atomic<bool> &stop) {
        QStringList lines;
        QHash<QByteArray, QString> stuck; // volumes still short of space, nothing left to remove
        bool removedAny = false;
        for (const auto &[mount, cacheFolder] : volumes) {
            CacheFolder::Status status;
            UniqueFd fd(CacheFolder::open(mount, false, &status));
            if (fd.fd < 0) continue;
            const SpaceGuard::Outcome o = SpaceGuard::run(fd.fd, threshold, today, stop);
            const QString free = o.after ? CommonUtils::getSizeStr(o.after->availableBytes)
                                         : QStringLiteral("unknown");
            for (const QByteArray &day : o.removed)
                lines << QStringLiteral("sv3daemon: the day %1 was removed to free space on %2 "
                                        "(%3 wanted free).")
                             .arg(logText(cacheFolder + '/' + day), logText(mount),
                                  CommonUtils::getSizeStr(o.wantedFree));
            if (!o.failures.isEmpty())
                lines << QStringLiteral("sv3daemon could not remove to free space on %1: %2.")
                             .arg(logText(mount), o.failures.join(QStringLiteral(", ")));
            if (!o.removed.isEmpty()) {
                removedAny = true;
                SpaceGuard::recordAction(
                    {QDateTime::currentDateTime(), mount, o.wantedFree, int(o.removed.size())});
                lines << QStringLiteral("sv3daemon: %1 free on %2 after removing %3 day(s).")
                             .arg(free, logText(mount))
                             .arg(o.removed.size());
            }
            if (o.cancelled) break;
            if (o.after && o.after->availableBytes < o.wantedFree)
                stuck.insert(mount, QStringLiteral("sv3daemon: only %1 free on %2, and no day "
                                                   "older than today is left to remove.")
                                        .arg(free, logText(mount)));
        }
        mMailbox.post([this, lines, stuck, removedAny] {
            mGuardQueued = false;
            for (const QString &line : lines)
                CommonUtils::addToLogFile(line);
            // Told once while it lasts, not at every check of a burst.
            for (auto it = stuck.cbegin(); it != stuck.cend(); ++it)
                if (!mGuardStuck.contains(it.key())) CommonUtils::addToLogFile(it.value());
            mGuardStuck = QSet<QByteArray>(stuck.keyBegin(), stuck.keyEnd());
            if (removedAny) {
                NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                                      QLatin1String(Notifications::Salvora3CacheModified));
                markDirty();
            }
        });
    });
    watchTheLoop();
}

void Agent::handleDeleteRequest(const QByteArrayList &paths)
{
    mBackground->post([this, paths](const std::atomic<bool> &stop) {
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
            const int err = removeInCache(volume, relative, stop);
            if (err == ECANCELED) return;
            if (err != 0) {
                failed << QStringLiteral("%1 (%2)").arg(logText(path), errnoText(err));
                continue;
            }
            ++removed;
            const QByteArrayList parts = relative.split('/');
            if (parts.size() == 1) {
                ::unlink((cache + '/' + CacheCommit::kOriginsFolderName + '/' + relative + ".jsonl")
                             .constData());
            } else {
                // As the window does after its own removals: the day is recounted, and an
                // emptied time folder goes.
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
        mMailbox.post([this, line, removed] {
            CommonUtils::addToLogFile(line);
            if (removed > 0) {
                NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                                      QLatin1String(Notifications::Salvora3CacheModified));
                markDirty();
            }
        });
    });
    watchTheLoop();
}
