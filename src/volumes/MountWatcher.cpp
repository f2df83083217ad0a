#include "volumes/MountWatcher.h"

#include "volumes/MountInfo.h"

#include <QFile>
#include <QHash>
#include <QSocketNotifier>

#include <fcntl.h>
#include <unistd.h>

namespace {

QList<QByteArray> mountPointsOf(const QByteArray &table)
{
    QList<QByteArray> points;
    for (const MountEntry &e : MountInfo::parse(table))
        points.append(e.mountPoint);
    return points;
}

} // namespace

MountWatcher::MountWatcher(QObject *parent, const char *mountInfoPath) : QObject(parent)
{
    mFd.reset(::open(mountInfoPath, O_RDONLY | O_CLOEXEC));
    if (mFd.fd < 0) return;
    mMountPoints = mountPointsOf(MountInfo::readAll(mFd.fd));
    // Never a Read notifier: the file is always readable, and that would spin.
    mNotifier = new QSocketNotifier(mFd.fd, QSocketNotifier::Exception, this);
    connect(mNotifier, &QSocketNotifier::activated, this, &MountWatcher::refresh);
}

MountWatcher::~MountWatcher()
{
    delete mNotifier;
}

void MountWatcher::diff(const QList<QByteArray> &before, const QList<QByteArray> &after,
                        QList<QByteArray> &mounted, QList<QByteArray> &unmounted)
{
    QHash<QByteArray, int> balance;
    for (const QByteArray &p : after)
        ++balance[p];
    for (const QByteArray &p : before)
        --balance[p];
    // Report in table order so that nested mounts come after their parents.
    for (const QByteArray &p : after) {
        int &b = balance[p];
        if (b > 0) {
            mounted.append(p);
            --b;
        }
    }
    for (const QByteArray &p : before) {
        int &b = balance[p];
        if (b < 0) {
            unmounted.append(p);
            ++b;
        }
    }
}

void MountWatcher::refresh()
{
    if (mFd.fd < 0) return;
    const QList<QByteArray> now = mountPointsOf(MountInfo::readAll(mFd.fd));
    QList<QByteArray> mounted, unmounted;
    diff(mMountPoints, now, mounted, unmounted);
    mMountPoints = now;
    for (const QByteArray &p : unmounted)
        emit deviceDidUnmount(QFile::decodeName(p));
    for (const QByteArray &p : mounted)
        emit deviceDidMount(QFile::decodeName(p));
}
