#pragma once

#include "UniqueFd.h"

#include <QByteArray>
#include <QHash>
#include <QObject>

#include <cstdint>
#include <functional>

class QSocketNotifier;

// One inotify instance for the whole agent, read when the kernel has events (never polled).
// Several owners may watch the same folder: the kernel gives one watch per inode, so masks are
// merged and every owner of a watch gets all of its events to filter.
class Inotify : public QObject
{
    Q_OBJECT
public:
    struct Event
    {
        int wd = -1;
        std::uint32_t mask = 0;
        std::uint32_t cookie = 0;
        QByteArray name;
    };
    using Handler = std::function<void(const Event &)>;

    explicit Inotify(QObject *parent = nullptr);

    bool isValid() const { return mFd.fd >= 0; }
    // A handle (> 0) for removeWatch, or -1 with errno set.
    int addWatch(const QByteArray &path, std::uint32_t mask, Handler handler);
    void removeWatch(int handle);
    // Reads and dispatches whatever is queued now (tests and shutdown).
    void drain();

signals:
    // The kernel dropped events: whoever relies on them must look again.
    void overflowed();

private:
    void readEvents();

    struct Watch
    {
        int wd;
        Handler handler;
    };
    UniqueFd mFd;
    QSocketNotifier *mNotifier = nullptr;
    QHash<int, Watch> mWatches; // handle -> watch
    QMultiHash<int, int> mByWd; // wd -> handles
    int mNextHandle = 1;
};
