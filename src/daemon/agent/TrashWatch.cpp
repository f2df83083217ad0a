#include "TrashWatch.h"

#include "Agent.h"
#include "DirWatch.h"
#include "TrashInfo.h"
#include "UniqueFd.h"
#include "cache/FolderWalk.h"

#include <QLoggingCategory>
#include <QSet>
#include <QTimer>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

// Every trash event, for diagnosis: QT_LOGGING_RULES="salvora.daemon.events.debug=true".
Q_LOGGING_CATEGORY(lcEvents, "salvora.daemon.events", QtInfoMsg)

namespace {

using Fd = UniqueFd;

constexpr char kInfoSuffix[] = ".trashinfo";
// How long an item moved to expunged/ may take to be deleted there before it is settled anyway:
// GNOME deletes it at once, the preload library keeping it as it goes.
constexpr int kExpungedWaitMs = 300;

} // namespace

TrashWatch::TrashWatch(Agent *agent, Volume *volume, QByteArray trashDir, bool sharedTop,
                       QObject *parent)
    : QObject(parent), mAgent(agent), mVolume(volume), mTrashDir(std::move(trashDir)),
      mSharedTop(sharedTop)
{
    mFiles = new DirWatch(agent->inotify(), mTrashDir + "/files",
                          IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM, this);
    mInfo = new DirWatch(agent->inotify(), mTrashDir + "/info", IN_CLOSE_WRITE | IN_MOVED_TO, this);
    mExpunged =
        new DirWatch(agent->inotify(), mTrashDir + "/expunged", IN_DELETE | IN_MOVED_FROM, this);
    connect(mFiles, &DirWatch::event, this, &TrashWatch::onFilesEvent);
    connect(mExpunged, &DirWatch::event, this, &TrashWatch::onExpungedEvent);
    connect(mExpunged, &DirWatch::vanished, this, [this] {
        const auto waiting = std::exchange(mWaiting, {});
        for (const auto &[name, id] : waiting)
            if (mShadows.value(name).id == id) settle(name);
    });
    connect(mInfo, &DirWatch::event, this, &TrashWatch::onInfoEvent);
    connect(mFiles, &DirWatch::appeared, this, &TrashWatch::reconcile);
    connect(mFiles, &DirWatch::vanished, this, &TrashWatch::reconcile);
}

bool TrashWatch::isWatching() const
{
    return mFiles->isPresent() && usable();
}

bool TrashWatch::usable() const
{
    // Never a link, always the user's own; <top>/.Trash only while it is sticky.
    struct stat st
    {
    };
    if (::lstat(mTrashDir.constData(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != getuid())
        return false;
    if (!mSharedTop) return true;
    const QByteArray top = mTrashDir.left(mTrashDir.lastIndexOf('/'));
    return ::lstat(top.constData(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX);
}

int TrashWatch::openSub(const char *sub) const
{
    Fd trash(::open(mTrashDir.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (trash.fd < 0) return -1;
    return openat(trash.fd, sub, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

void TrashWatch::shadowWalked(const ShadowRecord &record)
{
    const auto it = mShadows.constFind(record.trashName);
    if (it != mShadows.cend() && it->id == record.id) mInFlight.remove(record.trashName);
}

void TrashWatch::adopt(const ShadowRecord &record)
{
    mShadows.insert(record.trashName, record);
    if (!record.walked) mResume.insert(record.trashName);
}

void TrashWatch::onFilesEvent(const Inotify::Event &e)
{
    qCDebug(lcEvents).noquote() << mTrashDir << "files/" << e.name << Qt::hex << e.mask << "cookie"
                                << e.cookie;
    if (e.name.isEmpty()) return;
    if (e.mask & (IN_CREATE | IN_MOVED_TO)) {
        if ((e.mask & IN_MOVED_TO) && e.cookie != 0) {
            // Renamed within files/: the shadow follows the new name.
            for (qsizetype i = 0; i < mLeaving.size(); ++i) {
                if (mLeaving[i].second != e.cookie) continue;
                ShadowRecord r = mShadows.take(mLeaving[i].first);
                mLeaving.removeAt(i);
                r.trashName = e.name;
                mVolume->pending.rewriteRecord(r);
                mShadows.insert(e.name, r);
                return;
            }
        }
        arrived(e.name, e.mask & IN_CREATE);
    } else if (e.mask & IN_MOVED_FROM) {
        if (!mShadows.contains(e.name)) return;
        // Whether it went to expunged/, back home or elsewhere in files/ is known at the end of
        // this batch of events, where its MOVED_TO would be.
        if (mLeaving.isEmpty()) QTimer::singleShot(0, this, &TrashWatch::processLeaving);
        mLeaving.append({e.name, e.cookie});
    } else if (e.mask & IN_DELETE) {
        left(e.name);
    }
}

void TrashWatch::processLeaving()
{
    const auto leaving = std::exchange(mLeaving, {});
    for (const auto &l : leaving)
        left(l.first);
}

void TrashWatch::onInfoEvent(const Inotify::Event &e)
{
    if (!e.name.endsWith(kInfoSuffix)) return;
    const QByteArray name = e.name.chopped(qsizetype(sizeof kInfoSuffix) - 1);
    auto it = mShadows.find(name);
    if (it == mShadows.end() || !it->origin.isEmpty()) return;
    // The item came before its .trashinfo: learn where it came from now.
    Fd info(openSub("info"));
    it->origin = TrashInfo::originalPath(info.fd, name, mVolume->topdir);
    if (!it->origin.isEmpty()) mAgent->setOrigin(*mVolume, *it);
}

void TrashWatch::onExpungedEvent(const Inotify::Event &e)
{
    qCDebug(lcEvents).noquote() << mTrashDir << "expunged/" << e.name << Qt::hex << e.mask;
    const auto waiting = mWaiting.take(e.name);
    if (!waiting.first.isEmpty() && mShadows.value(waiting.first).id == waiting.second)
        settle(waiting.first);
}

QByteArray TrashWatch::expungedName(quint64 ino) const
{
    Fd expunged(openSub("expunged"));
    QByteArray found;
    if (expunged.fd < 0) return found;
    FolderWalk::forEachEntry(expunged.fd, [&](const char *name, FolderWalk::Type) {
        struct stat st
        {
        };
        if (found.isEmpty() && fstatat(expunged.fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            quint64(st.st_ino) == ino)
            found = name;
    });
    return found;
}

void TrashWatch::arrived(const QByteArray &name, bool mayStillFill)
{
    Fd files(openSub("files"));
    struct stat st
    {
    };
    if (files.fd < 0 || fstatat(files.fd, name.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0) return;
    if (const auto it = mShadows.constFind(name); it != mShadows.cend()) {
        if (it->ino != quint64(st.st_ino)) {
            // The item we shadowed left unseen and another took its name.
            settle(name);
        } else if (mInFlight.contains(name) || shadowExists(*it)) {
            // Being taken, or taken. One an earlier run did not finish is completed now.
            if (mResume.remove(name)) mAgent->takeShadow(*mVolume, *it, false);
            return;
        } else {
            // Its shadow went with the cache (every cache removed at once): take a new one.
            mShadows.remove(name);
        }
    }
    if (!mAgent->prefs().protection || !usable()) return;
    Fd info(openSub("info"));
    const QByteArray origin =
        info.fd >= 0 ? TrashInfo::originalPath(info.fd, name, mVolume->topdir) : QByteArray();
    const QByteArray shownName = origin.isEmpty() ? name : origin.mid(origin.lastIndexOf('/') + 1);
    if (mAgent->prefs().exclusions.matches(shownName)) return;
    ShadowRecord r;
    r.id = PendingArea::newId(quint64(st.st_ino));
    r.trashDir = mTrashDir;
    r.trashName = name;
    r.origin = origin;
    r.dev = quint64(st.st_dev);
    r.ino = quint64(st.st_ino);
    mShadows.insert(name, r);
    mInFlight.insert(name);
    // Opened at once: an open file keeps its data whatever happens to its name, so a file
    // emptied from the trash right away is still saved. The worker does the rest.
    int item = -1;
    if (S_ISREG(st.st_mode) || S_ISDIR(st.st_mode)) {
        item = openat(files.fd, name.constData(),
                      O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        struct stat opened
        {
        };
        if (item >= 0 && (fstat(item, &opened) != 0 || opened.st_ino != st.st_ino)) {
            ::close(item);
            item = -1;
        }
    }
    // A folder made in place (copied into the trash rather than renamed) may still be filling.
    mAgent->takeShadow(*mVolume, r, mayStillFill && S_ISDIR(st.st_mode), item);
}

bool TrashWatch::shadowExists(const ShadowRecord &r) const
{
    Fd pending(mVolume->pending.open(false));
    struct stat st
    {
    };
    return pending.fd >= 0 &&
           fstatat(pending.fd, r.id.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(st.st_mode);
}

void TrashWatch::left(const QByteArray &name)
{
    const auto it = mShadows.constFind(name);
    if (it == mShadows.cend()) return;
    Fd files(openSub("files"));
    struct stat st
    {
    };
    if (files.fd >= 0 && fstatat(files.fd, name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
        it->ino == quint64(st.st_ino))
        return; // moved out and straight back
    if (const QByteArray there = expungedName(it->ino);
        !there.isEmpty() && mExpunged->isPresent()) {
        // Not for long: one that stays there (deleted at leisure) is settled all the same.
        const QByteArray id = it->id;
        mWaiting.insert(there, {name, id});
        QTimer::singleShot(kExpungedWaitMs, this, [this, there, name, id] {
            const auto w = mWaiting.constFind(there);
            if (w == mWaiting.cend() || w->second != id) return;
            mWaiting.erase(w);
            if (mShadows.value(name).id == id) settle(name);
        });
        return;
    }
    settle(name);
}

void TrashWatch::settle(const QByteArray &name)
{
    mInFlight.remove(name);
    mResume.remove(name);
    const ShadowRecord r = mShadows.take(name);
    mAgent->settle(*mVolume, r);
}

void TrashWatch::reconcile()
{
    qCDebug(lcEvents).noquote() << "reconcile" << mTrashDir << "present" << mFiles->isPresent()
                                << "shadows" << mShadows.size();
    if (!mAgent->isMounted(*mVolume)) {
        // Unmounted: nothing was deleted. The shadows wait on the volume for its return.
        mShadows.clear();
        return;
    }
    if (!mFiles->isPresent() || !usable()) {
        // The trash itself is gone: so is every item we shadowed from it.
        const QList<QByteArray> names = mShadows.keys();
        for (const QByteArray &name : names)
            settle(name);
        return;
    }
    Fd files(openSub("files"));
    if (files.fd < 0) return;
    QSet<QByteArray> present;
    FolderWalk::forEachEntry(
        files.fd, [&](const char *name, FolderWalk::Type) { present.insert(QByteArray(name)); });
    const QList<QByteArray> shadowed = mShadows.keys();
    for (const QByteArray &name : shadowed)
        if (!present.contains(name)) left(name);
    for (const QByteArray &name : std::as_const(present))
        arrived(name, false);
}
