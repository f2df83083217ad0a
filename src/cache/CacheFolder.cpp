#include "cache/CacheFolder.h"

#include "common/Locations.h"
#include "volumes/Volumes.h"

#include "PathJoin.h"
#include "SafeFile.h"
#include "UniqueFd.h"

#include <QCoreApplication>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace CacheFolder {

namespace {

using Fd = UniqueFd;

constexpr mode_t kGroupOrOthersWrite = S_IWGRP | S_IWOTH;

int finish(Status *status, State state, int err = 0)
{
    status->state = state;
    status->sysErrno = err;
    return -1;
}

State stateForOpenError(int err)
{
    if (err == ENOENT) return State::Missing;
    if (err == ELOOP || err == ENOTDIR) return State::Unsafe;
    return State::Failed;
}

// The per-user folder, or the home cache: the user's own, and only the user's.
int useOwnFolder(Fd &fd, dev_t dev, Status *status)
{
    struct stat st
    {
    };
    if (fstat(fd.fd, &st) != 0) return finish(status, State::Failed, errno);
    if (st.st_uid != geteuid()) return finish(status, State::NotOwned);
    if (st.st_dev != dev) return finish(status, State::OtherDevice);
    // Earlier versions made caches 0777: the user's own folder is tightened on its descriptor.
    if ((st.st_mode & 077) != 0 && fchmod(fd.fd, 0700) != 0)
        return finish(status, State::Failed, errno);
    status->state = State::Ready;
    return std::exchange(fd.fd, -1);
}

int openHomeCache(bool create, Status *status)
{
    const QByteArray home = CommonUtils::homeFolder();
    Fd homeFd(home.startsWith('/') ? ::open(home.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                                   : -1);
    struct stat hst
    {
    };
    if (homeFd.fd < 0 || fstat(homeFd.fd, &hst) != 0) return finish(status, State::NoVolume, errno);
    Fd cache(safefile::openFolder(homeFd.fd, kCacheFolderName, create, 0700));
    if (cache.fd < 0) {
        const int err = errno;
        return finish(status, stateForOpenError(err), err);
    }
    return useOwnFolder(cache, hst.st_dev, status);
}

int openVolumeCache(const QByteArray &volumePath, bool create, Status *status)
{
    Fd root(::open(volumePath.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat rst
    {
    };
    if (root.fd < 0 || fstat(root.fd, &rst) != 0) return finish(status, State::NoVolume, errno);
    const uid_t me = geteuid();
    // The user may set up a volume alone only where nobody else may write its root: a shared
    // folder of the user's own would shut the volume's other users out.
    const bool aloneAtRoot = rst.st_uid == me && (rst.st_mode & kGroupOrOthersWrite) == 0;
    // Root's own shared folder lets the other users through to theirs.
    Fd shared(safefile::openFolder(root.fd, kCacheFolderName, create && aloneAtRoot,
                                   me == 0 ? 0711 : 0700));
    if (shared.fd < 0) {
        const int err = errno;
        // Nothing there yet: the daemon makes it, with help where the user may not write.
        if (err == ENOENT && (create || faccessat(root.fd, ".", W_OK | X_OK, AT_EACCESS) != 0))
            return finish(status, State::NeedsHelper);
        return finish(status, stateForOpenError(err), err);
    }
    struct stat sst
    {
    };
    if (fstat(shared.fd, &sst) != 0) return finish(status, State::Failed, errno);
    if (sst.st_dev != rst.st_dev) return finish(status, State::OtherDevice);
    const bool rootOwned = sst.st_uid == 0 && me != 0;
    if (!rootOwned && sst.st_uid != me) return finish(status, State::NotOwned);
    // Where others may write the volume's root, any folder of the user's there may have been
    // renamed to the cache's name by someone else: only root's shared folder is used there.
    if (!rootOwned && !aloneAtRoot) return finish(status, State::Unsafe);
    if (rootOwned && (sst.st_mode & kGroupOrOthersWrite) != 0) {
        // A shared folder of an earlier version, open to all: only the helper may close it.
        return finish(status, create ? State::NeedsHelper : State::Unsafe);
    }
    if (!rootOwned && (sst.st_mode & kGroupOrOthersWrite) != 0 &&
        fchmod(shared.fd, (sst.st_mode & 07777 & ~kGroupOrOthersWrite)) != 0)
        return finish(status, State::Failed, errno);

    const QByteArray uid = QByteArray::number(me);
    Fd own(safefile::openFolder(shared.fd, uid.constData(), create && !rootOwned, 0700));
    if (own.fd < 0) {
        const int err = errno;
        if (err == ENOENT && create && rootOwned) return finish(status, State::NeedsHelper);
        return finish(status, stateForOpenError(err), err);
    }
    return useOwnFolder(own, rst.st_dev, status);
}

} // namespace

QByteArray pathFor(const QByteArray &volumePath)
{
    if (volumePath == "/") return joinPath(CommonUtils::homeFolder(), kCacheFolderName);
    return joinPath(joinPath(volumePath, kCacheFolderName), QByteArray::number(geteuid()));
}

int open(const QByteArray &volumePath, bool create, Status *status)
{
    status->path = pathFor(volumePath);
    status->sysErrno = 0;
    if (volumePath.isEmpty()) return finish(status, State::NoVolume);
    return volumePath == "/" ? openHomeCache(create, status)
                             : openVolumeCache(volumePath, create, status);
}

Status check(const QByteArray &volumePath, bool create)
{
    Status s;
    Fd fd(open(volumePath, create, &s));
    return s;
}

bool keepsNothing(const Status &status)
{
    // A volume that cannot even be opened (gone, or behind another user's folder) says nothing.
    return status.state != State::Ready && status.state != State::Missing &&
           status.state != State::NoVolume;
}

QList<Problem> problems()
{
    QList<Problem> out;
    for (const QString &volume : CommonUtils::getAllProtectedVolumes()) {
        const QByteArray path = QFile::encodeName(volume);
        const Status s = check(path, false);
        if (keepsNothing(s)) out.append({path, s});
    }
    return out;
}

QString Status::reason() const
{
    switch (state) {
    case State::Ready:
        //% "Deleted items are kept here."
        return qtTrId("CacheReady");
    case State::NoVolume:
        //% "The volume cannot be opened."
        return qtTrId("CacheNoVolume");
    case State::Missing:
        //% "Nothing has been kept on this volume yet."
        return qtTrId("CacheMissing");
    case State::NeedsHelper:
        //% "The daemon has not set up this volume's cache yet; on a volume only an administrator may write to, an administrator must allow it once."
        return qtTrId("CacheNeedsHelper");
    case State::Unsafe:
        //% "Nothing is kept on this volume: a link or a file, or a folder open to every account, stands where its cache should be."
        return qtTrId("CacheUnsafe");
    case State::NotOwned:
        //% "Nothing is kept on this volume: another account's folder stands where your cache should be."
        return qtTrId("CacheNotOwned");
    case State::OtherDevice:
        //% "Nothing is kept on this volume: another volume is mounted where its cache should be."
        return qtTrId("CacheOtherDevice");
    case State::Failed:
        break;
    }
    //% "Nothing is kept on this volume: %1."
    return qtTrId("CacheFailed")
        .arg(QString::fromLocal8Bit(std::strerror(sysErrno ? sysErrno : EIO)));
}

} // namespace CacheFolder
