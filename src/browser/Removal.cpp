#include "browser/Removal.h"

#include "PathJoin.h"

#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/FolderWalk.h"
#include "cache/SizeRecords.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/Volumes.h"

#include <QList>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Empties the folder open at fd; false when something could not be removed.
bool emptyFolder(int fd)
{
    bool ok = true;
    QList<QByteArray> files, folders;
    if (!FolderWalk::forEachEntry(fd, [&](const char *name, FolderWalk::Type type) {
            (type == FolderWalk::Type::Directory ? folders : files).append(QByteArray(name));
        }))
        return false;
    for (const QByteArray &f : files)
        if (unlinkat(fd, f.constData(), 0) != 0 && errno != ENOENT) {
            // The entry may have been a folder whose type the listing could not tell.
            if (errno != EISDIR)
                ok = false;
            else
                folders.append(f);
        }
    for (const QByteArray &d : folders) {
        const int sub = FolderWalk::openFolder(fd, d.constData());
        if (sub < 0) {
            ok = ok && errno == ENOENT;
            continue;
        }
        ok = emptyFolder(sub) && ok;
        close(sub);
        if (unlinkat(fd, d.constData(), AT_REMOVEDIR) != 0 && errno != ENOENT) ok = false;
    }
    return ok;
}

// Runs `remove` on each path in order until `stop` is set, telling `onItemDone` after each;
// returns how many were handed to it.
template <typename Remove>
qsizetype eachUntilStopped(const QByteArrayList &paths, const std::atomic<bool> *stop,
                           const Removal::ItemDone &onItemDone, Remove remove)
{
    qsizetype handed = 0;
    for (const QByteArray &p : paths) {
        if (stop && stop->load(std::memory_order_relaxed)) break;
        remove(p);
        ++handed;
        if (onItemDone) onItemDone(p);
    }
    return handed;
}

QByteArray parentOf(const QByteArray &path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArray("/") : path.left(slash);
}

} // namespace

namespace Removal {

bool removeTree(const QByteArray &path)
{
    if (path.isEmpty()) return false;
    struct stat st
    {
    };
    if (lstat(path.constData(), &st) != 0) return errno == ENOENT;
    if (!S_ISDIR(st.st_mode)) return unlink(path.constData()) == 0 || errno == ENOENT;
    const int fd = FolderWalk::openFolder(path);
    if (fd < 0) return false;
    const bool emptied = emptyFolder(fd);
    close(fd);
    return (rmdir(path.constData()) == 0 || errno == ENOENT) && emptied;
}

qsizetype removeItems(const QByteArrayList &itemPaths, const std::atomic<bool> *stop,
                      const ItemDone &onItemDone)
{
    return eachUntilStopped(itemPaths, stop, onItemDone, [](const QByteArray &p) {
        removeTree(p);
        const QByteArray timeFolder = parentOf(p);
        CommonUtils::resetSizeOfCacheIn(timeFolder);
        CommonUtils::removeEmptyCache(timeFolder);
    });
}

qsizetype removeTrees(const QByteArrayList &paths, const std::atomic<bool> *stop,
                      const ItemDone &onItemDone)
{
    return eachUntilStopped(paths, stop, onItemDone, [](const QByteArray &p) { removeTree(p); });
}

void switchProtectionOff()
{
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
    NotificationBus::post(QLatin1String(Notifications::Salvora3MenuNotification),
                          QLatin1String(Notifications::Salvora3SettingsDidChange));
}

QByteArrayList protectedCacheFolders()
{
    QByteArrayList folders;
    const qsizetype n = CommonUtils::getAllProtectedVolumes().size();
    for (qsizetype i = 0; i < n; ++i) {
        const QByteArray cache = CommonUtils::pathForCacheFolderInVolume(i);
        if (!cache.isEmpty()) folders.append(cache);
    }
    return folders;
}

QByteArrayList cacheFolderPieces(const QByteArrayList &cacheFolders)
{
    QByteArrayList pieces;
    for (const QByteArray &cache : cacheFolders) {
        struct stat st
        {
        };
        if (cache.isEmpty() || lstat(cache.constData(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            const int fd = FolderWalk::openFolder(cache);
            if (fd >= 0) {
                const QByteArray base = folderPrefix(cache);
                FolderWalk::forEachEntry(
                    fd, [&](const char *name, FolderWalk::Type) { pieces.append(base + name); });
                close(fd);
            }
        }
        pieces.append(cache);
    }
    return pieces;
}

void removeAllCaches()
{
    switchProtectionOff();
    removeTrees(protectedCacheFolders());
}

bool postDeleteRequest(const QByteArrayList &paths)
{
    return NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                                 QLatin1String(Notifications::Salvora3DaemonMustDelete),
                                 NotificationBus::deleteListUserInfo(paths));
}

} // namespace Removal
