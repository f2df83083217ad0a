// Caches of earlier versions: one folder at a volume's root shared by all its users, open to all
// (0777). The user's own items, shadows and origin records move into the user's private folder
// (a rename each: same file system); other users' items stay where they are for their own
// daemons to take. Then the helper closes the shared folder to everyone but root.

#include "Agent.h"

#include "PrivilegedClient.h"
#include "UniqueFd.h"
#include "cache/CacheCommit.h"
#include "cache/CacheLayout.h"
#include "cache/FolderWalk.h"
#include "common/Locations.h"
#include "common/Log.h"

#include <QHash>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Fd = UniqueFd;

int openSub(int dirFd, const char *name)
{
    return openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

QByteArrayList namesIn(int dirFd, bool foldersOnly)
{
    QByteArrayList names;
    FolderWalk::forEachEntry(dirFd, [&](const char *name, FolderWalk::Type type) {
        if (!foldersOnly || type == FolderWalk::Type::Directory) names.append(QByteArray(name));
    });
    return names;
}

struct Moved
{
    int items = 0;
    int shadows = 0;
    int failed = 0;
};

// The user's items of one legacy day: those its origin records give to the user, or, without a
// record, those the user owns.
void moveDay(int sharedFd, const QByteArray &sharedPath, const QByteArray &day, int cacheFd,
             const QByteArray &cacheFolder, Moved &moved)
{
    Fd dayFd(openSub(sharedFd, day.constData()));
    if (dayFd.fd < 0) return;
    QHash<QByteArray, CacheCommit::Origin> origins;
    for (const CacheCommit::Origin &o : CacheCommit::readOrigins(sharedPath, day))
        origins.insert(o.time + '/' + o.name, o);
    const uid_t me = getuid();
    bool movedAny = false;
    for (const QByteArray &time : namesIn(dayFd.fd, true)) {
        Fd timeFd(openSub(dayFd.fd, time.constData()));
        if (timeFd.fd < 0) continue;
        for (const QByteArray &name : namesIn(timeFd.fd, false)) {
            const auto origin = origins.constFind(time + '/' + name);
            struct stat st
            {
            };
            const bool mine = origin != origins.cend() ? origin->uid == qint64(me)
                                                       : fstatat(timeFd.fd, name.constData(), &st,
                                                                 AT_SYMLINK_NOFOLLOW) == 0 &&
                                                             st.st_uid == me;
            if (!mine) continue;
            const CacheCommit::Result r =
                CacheCommit::moveIntoFolder(timeFd.fd, name, cacheFd, cacheFolder, day, time, name,
                                            origin != origins.cend() ? origin->path : QByteArray());
            r.ok() ? ++moved.items : ++moved.failed;
            movedAny = movedAny || r.ok();
        }
        unlinkat(dayFd.fd, time.constData(), AT_REMOVEDIR); // only when emptied
    }
    if (movedAny) unlinkat(dayFd.fd, CommonUtils::kCacheInformationName, 0);
    unlinkat(sharedFd, day.constData(), AT_REMOVEDIR);
}

// Shadows the earlier version kept in <shared>/.pending/<uid>: into the private pending area,
// where the trash watches adopt them like any other.
void moveShadows(int sharedFd, const PendingArea &pending, Moved &moved)
{
    Fd legacy(openSub(sharedFd, PendingArea::kFolderName));
    Fd mine(legacy.fd >= 0 ? openSub(legacy.fd, QByteArray::number(getuid()).constData()) : -1);
    struct stat st
    {
    };
    if (mine.fd < 0 || fstat(mine.fd, &st) != 0 || st.st_uid != getuid()) return;
    Fd target(pending.open(true));
    if (target.fd < 0) return;
    for (const QByteArray &id : namesIn(mine.fd, true)) {
        if (renameat2(mine.fd, id.constData(), target.fd, id.constData(), RENAME_NOREPLACE) == 0)
            ++moved.shadows;
        else
            ++moved.failed;
    }
    unlinkat(legacy.fd, QByteArray::number(getuid()).constData(), AT_REMOVEDIR);
}

} // namespace

void Agent::migrateLegacy(Volume &v, int cacheFd)
{
    if (v.mountPath == "/") return; // the home cache was always the user's own
    Fd root(::open(v.mountPath.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    Fd shared(root.fd >= 0 ? openSub(root.fd, kCacheFolderName) : -1);
    if (shared.fd < 0) return;
    QByteArrayList days;
    for (const QByteArray &name : namesIn(shared.fd, true))
        if (name.startsWith("20")) days.append(name);
    const QByteArray sharedPath = v.mountPath + '/' + kCacheFolderName;
    Moved moved;
    for (const QByteArray &day : std::as_const(days))
        moveDay(shared.fd, sharedPath, day, cacheFd, v.cacheFolder, moved);
    moveShadows(shared.fd, v.pending, moved);
    if (moved.items + moved.shadows + moved.failed == 0) return;
    CommonUtils::addToLogFile(
        QStringLiteral("sv3daemon moved %1 item(s) and %2 pending shadow(s) of an earlier version "
                       "into your private cache on %3%4.")
            .arg(moved.items)
            .arg(moved.shadows)
            .arg(logText(v.mountPath),
                 moved.failed ? QStringLiteral("; %1 could not be moved and stay where they were")
                                    .arg(moved.failed)
                              : QString()));
    // Root's shared folder is closed to everyone once no earlier version's day is left in it.
    struct stat st
    {
    };
    if (fstat(shared.fd, &st) == 0 && st.st_uid == 0 && (st.st_mode & 0777) != 0711)
        mPrivileged->createCacheFolder(v.mountPath);
    markDirty();
}

void Agent::tightenLegacyFolders()
{
    // Earlier versions made missing parents of the log's folder open to all (0777): anyone could
    // then put programs in ~/.local/bin. Folders of the user's own that are writable by others
    // lose that right (and only that).
    QByteArray data = qgetenv("XDG_DATA_HOME");
    const QByteArray home = CommonUtils::homeFolder();
    if (!data.startsWith('/')) data = home + "/.local/share";
    QByteArrayList tightened;
    for (const QByteArray &folder :
         {home + "/.local", home + "/.local/share", data, data + "/Salvora 3"}) {
        Fd fd(::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat st
        {
        };
        if (fd.fd < 0 || fstat(fd.fd, &st) != 0 || st.st_uid != getuid() ||
            (st.st_mode & S_IWOTH) == 0 || tightened.contains(folder))
            continue;
        if (fchmod(fd.fd, st.st_mode & 07777 & ~(S_IWGRP | S_IWOTH)) == 0) tightened << folder;
    }
    if (!tightened.isEmpty())
        CommonUtils::addToLogFile(
            QStringLiteral("sv3daemon closed folders that every account could write to: %1.")
                .arg(logText(tightened.join(", "))));
}
