#pragma once

#include "common/Jobs.h"
#include "logic/WorkerState.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QTimer>

#include <array>
#include <atomic>
#include <memory>

class WorkProgress;

// One piece of long work on a worker thread: items done out of items in all, and a flag that asks
// it to stop. The worker writes the counts; the window reads them when it is told they moved.
class WorkJob : public std::enable_shared_from_this<WorkJob>
{
public:
    enum class Kind { Restore = 0, Removal = 1 };

    explicit WorkJob(Kind kind, qint64 total = 0) : mKind(kind), mTotal(total) {}

    Kind kind() const { return mKind; }
    qint64 done() const { return mDone.load(); }
    qint64 total() const { return mTotal.load(); }
    bool finished() const { return mFinished.load(); }

    // Any thread. The worker looks at the flag between items.
    void requestStop() { mStop.store(true); }
    bool stopRequested() const { return mStop.load(); }
    const std::atomic<bool> *stopFlag() const { return &mStop; }

    // Worker side. Each tells the watching WorkProgress, if any; at most one such message waits
    // in its queue at a time, however fast the worker goes.
    void setTotal(qint64 total);
    void advance(qint64 items = 1);
    void finish();

private:
    friend class WorkProgress;
    void announce();

    const Kind mKind;
    std::atomic<qint64> mDone{0};
    std::atomic<qint64> mTotal;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mFinished{false};
    std::atomic<bool> mAnnounced{false};
    // Set on the main thread before the worker starts, never changed afterwards.
    std::shared_ptr<Mailbox> mWatcher;
    WorkProgress *mProgress = nullptr;
};

// What the window shows of its long work, per kind: the counts summed over the jobs that run
// together, whether the progress is worth showing, and cancelling. Main thread. Its `changed`
// signal comes at most every kUpdateIntervalMs, however fast the workers report.
class WorkProgress : public QObject
{
    Q_OBJECT
public:
    // A job of more items shows at once; a smaller one only once it has lasted kShowAfterMs, so
    // that a quick copy of one file flashes nothing.
    static constexpr qint64 kFewItems = 10;
    static constexpr int kShowAfterMs = 500;
    static constexpr int kUpdateIntervalMs = 50;

    explicit WorkProgress(QObject *parent = nullptr);
    ~WorkProgress() override;

    // Follows a job from now on. Call before its worker starts.
    void track(const std::shared_ptr<WorkJob> &job);

    struct Summary
    {
        qint64 done = 0;
        qint64 total = 0;
        bool running = false;
        bool visible = false;
        // Every running job of the kind was asked to stop.
        bool stopping = false;
    };
    // As of the last `changed`. The counts of jobs of one kind add up until all of them ended;
    // then they stay as they ended (not running, not visible) until a job of that kind starts.
    Summary summary(WorkJob::Kind kind) const { return mSummary[index(kind)]; }
    // Asks every job of that kind to stop after the item it is at.
    void cancel(WorkJob::Kind kind);

signals:
    void changed();

private:
    friend class WorkJob;
    static int index(WorkJob::Kind kind) { return int(kind); }
    void jobMoved();
    void flush();

    struct Entry
    {
        std::shared_ptr<WorkJob> job;
        QElapsedTimer age;
    };
    QList<Entry> mJobs;
    std::array<Summary, 2> mSummary{};
    std::shared_ptr<Mailbox> mMailbox;
    QTimer mThrottle;
    bool mDirty = false;
};
