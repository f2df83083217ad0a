#pragma once

#include "Inotify.h"

#include <QByteArray>
#include <QObject>

#include <sys/types.h>

// Watches one folder that may not exist yet, or may come and go (a trash is created on the first
// deletion, a settings folder on the first save). While it is missing, the nearest existing
// ancestor is watched for its creation instead, so nothing is ever polled. The folder itself is
// never reached through a link.
class DirWatch : public QObject
{
    Q_OBJECT
public:
    // `mask`: the events wanted for entries inside the folder.
    DirWatch(Inotify *inotify, const QByteArray &path, std::uint32_t mask,
             QObject *parent = nullptr);
    ~DirWatch() override;

    const QByteArray &path() const { return mPath; }
    bool isPresent() const { return mPresent; }
    // Looks again (after an overflow, when events may have been lost).
    void rearm();

signals:
    void appeared();
    void vanished();
    void event(const Inotify::Event &event);

private:
    void arm();
    void onTargetEvent(const Inotify::Event &e);
    void onAncestorEvent(const Inotify::Event &e);

    Inotify *mInotify;
    QByteArray mPath;
    std::uint32_t mMask;
    int mHandle = -1;
    bool mPresent = false;
    QByteArray mAncestor;
    dev_t mDev = 0;
    ino_t mIno = 0;
};
