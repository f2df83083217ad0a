#include "logic/ContextMenus.h"

#include "browser/NameMatch.h"
#include "browser/Restore.h"
#include "cache/FolderWalk.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ContextMenus {

QList<CacheTime> cacheTimesInDay(const QByteArray &dayFolder)
{
    QList<CacheTime> out;
    const int fd = FolderWalk::openFolder(dayFolder);
    if (fd < 0) return out;
    QByteArrayList names;
    FolderWalk::forEachEntry(fd, [&](const char *name, FolderWalk::Type) { names.append(name); });
    std::sort(names.begin(), names.end(), [](const QByteArray &a, const QByteArray &b) {
        return NameMatch::compare(a, b) < 0;
    });
    for (const QByteArray &name : std::as_const(names)) {
        // Time folders are named "yyyy-MM-dd HH_mm_ss".
        if (!name.startsWith("20")) continue;
        struct stat st
        {
        };
        if (fstatat(fd, name.constData(), &st, 0) != 0 || !S_ISDIR(st.st_mode)) continue;
        const QString time =
            QString::fromUtf8(name.mid(11)).replace(QLatin1Char('_'), QLatin1Char(':'));
        //% "Moved into the cache at %1"
        out.append({qtTrId("MovedIntoCacheAt").arg(time), dayFolder + '/' + name});
    }
    close(fd);
    return out;
}

std::optional<QString> contentsMenuName(const QByteArray &itemPath)
{
    struct stat st
    {
    };
    if (itemPath.isEmpty() || ::stat(itemPath.constData(), &st) != 0) return std::nullopt;
    return QString::fromUtf8(Restore::lastComponent(itemPath));
}

QString revealTitle(const QString &name)
{
    //% "Show “%1” in the File Manager"
    return qtTrId("ContextualMenuRevealInFinder").arg(name);
}

QString deleteTitle(const QString &name)
{
    //% "Delete “%1” from the Cache…"
    return qtTrId("ContextualMenuDelete").arg(name);
}

} // namespace ContextMenus
