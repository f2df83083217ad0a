#pragma once

#include <QMetaObject>
#include <QObject>

#include <atomic>
#include <functional>
#include <mutex>

// What the window shares with its worker threads: the running and stop flags, and a way to hand
// work to the main thread. Workers hold it by shared pointer and are never waited for, so a
// worker that outlives the window only finds its receiver gone.
class WorkerState
{
public:
    std::atomic<bool> readingCacheContents{false};
    std::atomic<bool> readingCacheContentsMustStop{false};
    std::atomic<bool> calculatingSizeContents{false};
    std::atomic<bool> calculatingSizeContentsMustStop{false};
    // Seconds since 2001-01-01 00:00 UTC before which no size progress is shown.
    std::atomic<double> nextRefresh{0};

    explicit WorkerState(QObject *receiver) : mReceiver(receiver) {}

    // Runs `fn` on the receiver's thread, in posting order, unless the receiver is gone. Never
    // waits.
    template <typename F> void post(F &&fn)
    {
        std::lock_guard lock(postMutex());
        if (!mReceiver)
            return;
        // Taking the lock once more before running orders the worker's writes before the
        // receiver's reads in a way ThreadSanitizer sees (Qt's own event queue lock it does not).
        // The lock is a static one, so that nothing posted is read before it is taken.
        QMetaObject::invokeMethod(
            mReceiver,
            [fn = std::forward<F>(fn)]() mutable {
                { std::lock_guard sync(postMutex()); }
                fn();
            },
            Qt::QueuedConnection);
    }

    // The receiver is going away: later posts are dropped.
    void detach()
    {
        std::lock_guard lock(postMutex());
        mReceiver = nullptr;
    }

private:
    static std::mutex &postMutex()
    {
        static std::mutex m;
        return m;
    }

    QObject *mReceiver;
};
