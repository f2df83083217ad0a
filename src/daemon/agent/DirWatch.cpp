#include "DirWatch.h"

#include <sys/inotify.h>
#include <sys/stat.h>

namespace {

constexpr std::uint32_t kSelf = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;

QByteArray parentOf(const QByteArray &path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArray("/") : path.left(slash);
}

} // namespace

DirWatch::DirWatch(Inotify *inotify, const QByteArray &path, std::uint32_t mask, QObject *parent)
    : QObject(parent), mInotify(inotify), mPath(path), mMask(mask)
{
    arm();
}

DirWatch::~DirWatch()
{
    if (mHandle > 0) mInotify->removeWatch(mHandle);
}

void DirWatch::rearm()
{
    arm();
}

void DirWatch::arm()
{
    const bool wasPresent = mPresent;
    if (mHandle > 0) mInotify->removeWatch(mHandle);
    mHandle = -1;
    mPresent = false;
    mAncestor.clear();

    struct stat st
    {
    };
    if (::lstat(mPath.constData(), &st) == 0 && S_ISDIR(st.st_mode)) {
        mHandle =
            mInotify->addWatch(mPath, mMask | kSelf | IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK,
                               [this](const Inotify::Event &e) { onTargetEvent(e); });
        if (mHandle > 0) {
            mPresent = true;
            const bool same = wasPresent && st.st_dev == mDev && st.st_ino == mIno;
            mDev = st.st_dev;
            mIno = st.st_ino;
            if (wasPresent && !same) emit vanished();
            if (!same) emit appeared();
            return;
        }
    }
    if (wasPresent) emit vanished();

    // Missing (or a link, which is never followed): wait for it to appear.
    QByteArray ancestor = parentOf(mPath);
    while (ancestor != "/" && ::stat(ancestor.constData(), &st) != 0)
        ancestor = parentOf(ancestor);
    mAncestor = ancestor;
    mHandle = mInotify->addWatch(ancestor, IN_CREATE | IN_MOVED_TO | kSelf | IN_ONLYDIR,
                                 [this](const Inotify::Event &e) { onAncestorEvent(e); });
    // It may have appeared between the look and the watch.
    if (::lstat(mPath.constData(), &st) == 0 && S_ISDIR(st.st_mode)) arm();
}

void DirWatch::onTargetEvent(const Inotify::Event &e)
{
    if (e.mask & (kSelf | IN_IGNORED)) {
        arm();
        return;
    }
    emit event(e);
}

void DirWatch::onAncestorEvent(const Inotify::Event &e)
{
    if (e.mask & (kSelf | IN_IGNORED)) {
        arm();
        return;
    }
    // Only the next component of the path on the way down matters.
    const QByteArray prefix = mAncestor == "/" ? mAncestor : mAncestor + '/';
    if (!mPath.startsWith(prefix)) return;
    const QByteArray rest = mPath.mid(prefix.size());
    const qsizetype slash = rest.indexOf('/');
    if (e.name == (slash < 0 ? rest : rest.left(slash))) arm();
}
