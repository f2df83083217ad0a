#include "browser/Removal.h"

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
        if (unlinkat(fd, d.constData(), AT_REMOVEDIR) != 0 && errno != ENOENT)
            ok = false;
    }
    return ok;
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
    if (path.isEmpty())
        return false;
    struct stat st{};
    if (lstat(path.constData(), &st) != 0)
        return errno == ENOENT;
    if (!S_ISDIR(st.st_mode))
        return unlink(path.constData()) == 0 || errno == ENOENT;
    const int fd = FolderWalk::openFolder(path);
    if (fd < 0)
        return false;
    const bool emptied = emptyFolder(fd);
    close(fd);
    return (rmdir(path.constData()) == 0 || errno == ENOENT) && emptied;
}

void removeItems(const QByteArrayList &itemPaths)
{
    for (const QByteArray &p : itemPaths) {
        removeTree(p);
        const QByteArray timeFolder = parentOf(p);
        CommonUtils::resetSizeOfCacheIn(timeFolder);
        CommonUtils::removeEmptyCache(timeFolder);
    }
}

void removeDays(const QByteArrayList &dayPaths)
{
    for (const QByteArray &p : dayPaths)
        removeTree(p);
}

void removeAllCaches()
{
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
    NotificationBus::post(QLatin1String(Notifications::Salvora3MenuNotification),
                          QLatin1String(Notifications::Salvora3SettingsDidChange));
    const qsizetype n = CommonUtils::getAllProtectedVolumes().size();
    for (qsizetype i = 0; i < n; ++i) {
        const QByteArray cache = CommonUtils::pathForCacheFolderInVolume(i);
        if (!cache.isEmpty())
            removeTree(cache);
    }
}

bool postDeleteRequest(const QByteArrayList &paths)
{
    return NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                                 QLatin1String(Notifications::Salvora3DaemonMustDelete),
                                 NotificationBus::deleteListUserInfo(paths));
}

} // namespace Removal
