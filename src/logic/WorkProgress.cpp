#include "logic/WorkProgress.h"

void WorkJob::setTotal(qint64 total)
{
    mTotal.store(total);
    announce();
}

void WorkJob::advance(qint64 items)
{
    mDone.fetch_add(items);
    announce();
}

void WorkJob::finish()
{
    mFinished.store(true);
    announce();
}

void WorkJob::announce()
{
    if (!mWatcher || mAnnounced.exchange(true)) return;
    // The flag is cleared before the counts are read, so a change made after the reading always
    // sends a message of its own.
    mWatcher->post([progress = mProgress, self = shared_from_this()] {
        self->mAnnounced.store(false);
        progress->jobMoved();
    });
}

WorkProgress::WorkProgress(QObject *parent)
    : QObject(parent), mMailbox(std::make_shared<Mailbox>(this))
{
    mThrottle.setSingleShot(true);
    mThrottle.setInterval(kUpdateIntervalMs);
    connect(&mThrottle, &QTimer::timeout, this, [this] {
        if (mDirty) flush();
    });
}

WorkProgress::~WorkProgress()
{
    // Workers may outlive the window; what they report from now on is dropped.
    mMailbox->detach();
}

void WorkProgress::track(const std::shared_ptr<WorkJob> &job)
{
    if (!job || job->mWatcher) return;
    job->mWatcher = mMailbox;
    job->mProgress = this;
    Entry entry{job, {}};
    entry.age.start();
    mJobs.append(entry);
    // A small job that is still running then becomes worth showing.
    QTimer::singleShot(kShowAfterMs + 1, this, &WorkProgress::jobMoved);
    jobMoved();
}

void WorkProgress::cancel(WorkJob::Kind kind)
{
    for (const Entry &e : std::as_const(mJobs))
        if (e.job->kind() == kind) e.job->requestStop();
    jobMoved();
}

void WorkProgress::jobMoved()
{
    mDirty = true;
    if (!mThrottle.isActive()) flush();
}

void WorkProgress::flush()
{
    mDirty = false;
    for (const WorkJob::Kind kind : {WorkJob::Kind::Restore, WorkJob::Kind::Removal}) {
        Summary &shown = mSummary[index(kind)];
        Summary s;
        qint64 oldest = 0;
        bool allStopping = true;
        bool any = false;
        for (const Entry &e : std::as_const(mJobs)) {
            if (e.job->kind() != kind) continue;
            any = true;
            s.done += e.job->done();
            s.total += e.job->total();
            if (!e.job->finished()) {
                s.running = true;
                allStopping = allStopping && e.job->stopRequested();
                oldest = qMax(oldest, e.age.elapsed());
            }
        }
        if (!any) {
            shown.running = shown.visible = shown.stopping = false;
            continue;
        }
        // Once shown, the bar stays until the last job of its kind has ended.
        s.visible = s.running && (shown.visible || s.total > kFewItems || oldest >= kShowAfterMs);
        s.stopping = s.running && allStopping;
        // All of that kind ended: the last counts stay readable, the next job counts anew.
        if (!s.running) mJobs.removeIf([kind](const Entry &e) { return e.job->kind() == kind; });
        shown = s;
    }
    mThrottle.start();
    emit changed();
}
