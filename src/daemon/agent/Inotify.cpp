#include "Inotify.h"

#include <QList>
#include <QSocketNotifier>

#include <cerrno>
#include <sys/inotify.h>
#include <unistd.h>

Inotify::Inotify(QObject *parent) : QObject(parent)
{
    mFd.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (mFd.fd < 0) return;
    mNotifier = new QSocketNotifier(mFd.fd, QSocketNotifier::Read, this);
    connect(mNotifier, &QSocketNotifier::activated, this, &Inotify::readEvents);
}

int Inotify::addWatch(const QByteArray &path, std::uint32_t mask, Handler handler)
{
    if (mFd.fd < 0) {
        errno = EBADF;
        return -1;
    }
    // IN_MASK_ADD: another owner of the same folder keeps its events.
    const int wd = inotify_add_watch(mFd.fd, path.constData(), mask | IN_MASK_ADD);
    if (wd < 0) return -1;
    const int handle = mNextHandle++;
    mWatches.insert(handle, {wd, std::move(handler)});
    mByWd.insert(wd, handle);
    return handle;
}

void Inotify::removeWatch(int handle)
{
    const auto it = mWatches.constFind(handle);
    if (it == mWatches.cend()) return;
    const int wd = it->wd;
    mWatches.erase(it);
    mByWd.remove(wd, handle);
    if (!mByWd.contains(wd)) inotify_rm_watch(mFd.fd, wd);
}

void Inotify::drain()
{
    readEvents();
}

void Inotify::readEvents()
{
    alignas(inotify_event) char buf[65536];
    for (;;) {
        const ssize_t n = ::read(mFd.fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        QList<Event> events;
        for (ssize_t off = 0; off + ssize_t(sizeof(inotify_event)) <= n;) {
            const auto *e = reinterpret_cast<const inotify_event *>(buf + off);
            Event ev;
            ev.wd = e->wd;
            ev.mask = e->mask;
            ev.cookie = e->cookie;
            if (e->len > 0) ev.name = QByteArray(e->name); // NUL-padded
            events.append(ev);
            off += ssize_t(sizeof(inotify_event)) + e->len;
        }
        for (const Event &ev : events) {
            if (ev.mask & IN_Q_OVERFLOW) {
                emit overflowed();
                continue;
            }
            // Handlers may add or remove watches: work on a copy, and skip handles gone meanwhile.
            const QList<int> handles = mByWd.values(ev.wd);
            for (int h : handles) {
                const auto it = mWatches.constFind(h);
                if (it == mWatches.cend()) continue;
                const Handler handler = it->handler;
                handler(ev);
            }
            if (ev.mask & IN_IGNORED) {
                // The kernel removed the watch (folder deleted, file system unmounted).
                for (int h : handles)
                    mWatches.remove(h);
                mByWd.remove(ev.wd);
            }
        }
    }
}
