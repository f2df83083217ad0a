#pragma once

#include <QMetaObject>
#include <QObject>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

// Hands work from any thread to a receiver's thread, in posting order, without waiting. Once
// detached (the receiver is going away), later posts are dropped: a job that outlives its window
// only finds nobody to tell. The receiver and its jobs hold it by shared pointer.
class Mailbox
{
public:
    explicit Mailbox(QObject *receiver) : mReceiver(receiver) {}
    Mailbox(const Mailbox &) = delete;
    Mailbox &operator=(const Mailbox &) = delete;

    template <typename F> void post(F &&fn)
    {
        std::lock_guard lock(orderingMutex());
        if (!mReceiver) return;
        // Taking the lock once more before running orders the poster's writes before the
        // receiver's reads in a way ThreadSanitizer sees (Qt's own event queue lock it does not).
        // The lock is a static one, so that nothing posted is read before it is taken.
        QMetaObject::invokeMethod(
            mReceiver,
            [fn = std::forward<F>(fn)]() mutable {
                {
                    std::lock_guard sync(orderingMutex());
                }
                fn();
            },
            Qt::QueuedConnection);
    }

    // The receiver is going away: later posts are dropped. Receiver's thread.
    void detach()
    {
        std::lock_guard lock(orderingMutex());
        mReceiver = nullptr;
    }

private:
    static std::mutex &orderingMutex();

    QObject *mReceiver;
};

namespace Jobs {

// A job started by start(), shared by its thread and whoever started it, so that either may go
// first. Nothing waits for the job unless asked to.
class Handle
{
public:
    void requestStop() { mStop.store(true); }
    bool stopRequested() const { return mStop.load(); }
    const std::atomic<bool> &stopFlag() const { return mStop; }
    bool finished() const;
    // Until the job has returned, at most `timeoutMs` (negative: however long it takes); true
    // when it has. Everything the job wrote is then seen by the caller.
    bool wait(int timeoutMs = -1) const;

    void markFinished(); // the job's thread, as its last act

private:
    std::atomic<bool> mStop{false};
    mutable std::mutex mMutex;
    mutable std::condition_variable mEnded;
    bool mFinished = false;
};

namespace detail {
void launch(std::function<void()> run);
}

// Runs `work` on a thread of its own that is never joined. `work` takes the handle's stop flag
// (const std::atomic<bool> &) or nothing; it must own, or share by pointer, everything it
// touches, and hands its results back through a Mailbox.
template <typename F> std::shared_ptr<Handle> start(F &&work)
{
    auto handle = std::make_shared<Handle>();
    detail::launch([handle, work = std::forward<F>(work)]() mutable {
        {
            // Moved out, so that what it holds is released before the job counts as finished.
            auto run = std::move(work);
            if constexpr (std::is_invocable_v<decltype(run) &, const std::atomic<bool> &>)
                run(handle->stopFlag());
            else
                run();
        }
        handle->markFinished();
    });
    return handle;
}

// The number of threads that run at once here (at least 1).
unsigned cores();

// Calls body(i) for every i in [0, n) on `threads` threads (0: one per core), the calling one
// among them, and returns once every call has returned. Each thread takes the next index as it
// gets free, in increasing order, so one slow item holds no other up.
void parallelFor(std::size_t n, const std::function<void(std::size_t)> &body, unsigned threads = 0);

} // namespace Jobs
