#pragma once

#include "PendingArea.h"
#include "Shadow.h"
#include "browser/KeepPolicy.h"
#include "cache/CacheCommit.h"
#include "common/Jobs.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

// The agent's file-system work, off its event thread, so that the trash keeps being watched
// whatever it costs. Two threads:
//  - the shadow worker takes shadows and commits them. A shadow is walked a few entries at a time
//    (Shadow::Mirror), the newest item first, so that a large folder never keeps the small files
//    trashed after it waiting; an item that left the trash is settled before any walking goes on.
//  - the background worker runs the rest one job at a time (purges, delete requests, the volumes'
//    snapshot), looking at its stop flag as it goes.
// Both stop within a step when the agent quits; a shadow not walked to its end is walked again at
// the next start (its record says so).

// A shadow walked to its end (or that could not even be started).
struct ShadowTaken
{
    QByteArray volume;
    ShadowRecord record;
    Shadow::Stats stats;
    bool complete = false;
    int startError = 0; // the shadow could not be made at all (errno)
    qint64 ms = 0;
};

// An item that left the trash, as it was settled.
struct Settled
{
    enum class Outcome {
        Kept,    // in the cache (result.cachedPath), whole or not (completeness)
        Dropped, // put back where it came from, or not to be kept: its shadow is gone
        Failed,  // could not be committed now; the shadow stays pending for another try
        Lost,    // nothing of it could be kept
    };
    QByteArray volume;
    ShadowRecord record;
    Outcome outcome = Outcome::Failed;
    CacheCommit::Result result;
    CacheCommit::Completeness completeness;
    QString reason; // why it was lost or failed, in English for the log
    qint64 ms = 0;
};

class ShadowWorker
{
public:
    // Called on the worker thread: the agent hands them over to its own thread.
    using OnShadow = std::function<void(const ShadowTaken &)>;
    using OnSettled = std::function<void(const Settled &)>;

    ShadowWorker(OnShadow onShadow, OnSettled onSettled);
    ~ShadowWorker();
    ShadowWorker(const ShadowWorker &) = delete;
    ShadowWorker &operator=(const ShadowWorker &) = delete;

    // Takes the shadow of <record.trashDir>/files/<record.trashName> in the pending area of the
    // volume mounted at `volume`; one whose shadow exists already (record.id) is completed. An
    // item being filled in place (`follow`) is walked again until it has been quiet a while.
    // `item` is the item opened when it arrived (or -1); the worker takes it over.
    void shadow(const QByteArray &volume, const ShadowRecord &record, bool follow, int item = -1);
    // The item left the trash: its shadow stops where it is, then is committed (whole or marked
    // incomplete), or dropped when the item was put back or is not to be kept.
    void settle(const QByteArray &volume, const ShadowRecord &record, const KeepPolicy &policy);
    // The .trashinfo came after the item: its record learns where it came from.
    void setOrigin(const QByteArray &volume, const QByteArray &id, const QByteArray &origin);
    // Stops after the current step and waits for the thread.
    void stop();
    // Shadows or commits are under way (read from any thread).
    bool busy() const { return mBusy.load(std::memory_order_relaxed); }

private:
    struct Task;
    struct Command;
    void run();
    void take(std::deque<Command> &commands);
    bool stepNewestShadow();
    bool racing() const;
    void finishWalk(Task &task);
    void settleNow(const QByteArray &volume, const ShadowRecord &record, const KeepPolicy &policy);
    void post(Command command);

    OnShadow mOnShadow;
    OnSettled mOnSettled;
    std::mutex mMutex;
    std::condition_variable mWake;
    std::deque<Command> mInbox; // guarded by mMutex
    std::atomic<bool> mStop{false};
    std::atomic<bool> mBusy{false};
    // The worker thread's own state.
    std::vector<std::unique_ptr<Task>> mTasks;
    std::deque<Command> mSettles;
    unsigned long long mArrivals = 0;
    std::shared_ptr<Jobs::Handle> mThread;
};

class BackgroundWorker
{
public:
    using Job = std::function<void(const std::atomic<bool> &stop)>;
    BackgroundWorker();
    ~BackgroundWorker();
    BackgroundWorker(const BackgroundWorker &) = delete;
    BackgroundWorker &operator=(const BackgroundWorker &) = delete;
    void post(Job job);
    void stop();
    bool busy() const { return mBusy.load(std::memory_order_relaxed); }

private:
    std::mutex mMutex;
    std::condition_variable mWake;
    std::deque<Job> mJobs;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mBusy{false};
    std::shared_ptr<Jobs::Handle> mThread;
};
