#pragma once

#include "UniqueFd.h"

#include <QByteArray>
#include <QList>
#include <QObject>

class QSocketNotifier;

// Reports mounts and unmounts. The kernel flags /proc/self/mountinfo with POLLPRI on every
// change of the mount table; each event re-reads the table and reports the mount points that
// appeared or vanished since the previous one.
class MountWatcher : public QObject
{
    Q_OBJECT
public:
    explicit MountWatcher(QObject *parent = nullptr,
                          const char *mountInfoPath = "/proc/self/mountinfo");
    ~MountWatcher() override;

    bool isWatching() const { return mFd.fd >= 0; }
    // Re-reads the table now and reports the differences (also called on every kernel event).
    void refresh();

    // Pure diff of two tables' mount points (a path mounted twice counts twice).
    static void diff(const QList<QByteArray> &before, const QList<QByteArray> &after,
                     QList<QByteArray> &mounted, QList<QByteArray> &unmounted);

signals:
    void deviceDidMount(const QString &path);
    void deviceDidUnmount(const QString &path);

private:
    UniqueFd mFd;
    QSocketNotifier *mNotifier = nullptr;
    QList<QByteArray> mMountPoints;
};
