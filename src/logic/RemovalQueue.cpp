#include "logic/RemovalQueue.h"

#include "browser/Removal.h"
#include "common/NotificationBus.h"

// Shared by the main thread and one removal's worker.
struct RemovalQueue::Running
{
    std::shared_ptr<WorkJob> job;
    std::shared_ptr<Jobs::Handle> worker;
    // Written by the worker; read once it has finished.
    QByteArrayList handed;
};

RemovalQueue::RemovalQueue(WorkProgress *progress, QObject *parent)
    : QObject(parent), mProgress(progress), mMailbox(std::make_shared<Mailbox>(this))
{
}

RemovalQueue::~RemovalQueue()
{
    shutdown();
}

bool RemovalQueue::enqueue(Request request)
{
    if (mShutDown) return false;
    auto job = std::make_shared<WorkJob>(WorkJob::Kind::Removal, request.paths.size());
    if (mProgress) mProgress->track(job);
    mWaiting.append(Pending{std::move(request), std::move(job)});
    startNext();
    return true;
}

bool RemovalQueue::busy() const
{
    return mRunning || !mWaiting.isEmpty();
}

void RemovalQueue::setItemHookForTesting(std::function<void(const QByteArray &)> hook)
{
    mItemHook = std::move(hook);
}

void RemovalQueue::startNext()
{
    while (!mRunning && !mShutDown && !mWaiting.isEmpty()) {
        Pending next = mWaiting.takeFirst();
        if (next.job->stopRequested()) {
            // Cancelled before its turn: nothing was touched, so nothing to refresh or tell.
            next.job->finish();
            emit removalFinished({});
            continue;
        }
        if (next.request.start) next.request.start();

        auto running = std::make_shared<Running>();
        running->job = next.job;
        const Request::Mode mode = next.request.mode;
        const QByteArrayList paths = next.request.paths;
        mRunningRequest = std::move(next.request);
        mRunning = running;
        running->worker =
            Jobs::start([this, running, mode, paths, hook = mItemHook, mailbox = mMailbox] {
                WorkJob &job = *running->job;
                QByteArrayList pieces = paths;
                if (mode == Request::Mode::CacheFolders) {
                    pieces = Removal::cacheFolderPieces(paths);
                    job.setTotal(pieces.size());
                }
                QByteArrayList handed;
                const Removal::ItemDone itemDone = [&](const QByteArray &path) {
                    handed.append(path);
                    job.advance();
                    if (hook) hook(path);
                };
                if (mode == Request::Mode::Items)
                    Removal::removeItems(pieces, job.stopFlag(), itemDone);
                else
                    Removal::removeTrees(pieces, job.stopFlag(), itemDone);
                running->handed = std::move(handed);
                job.finish();
                mailbox->post([this] { workerEnded(); });
            });
    }
}

void RemovalQueue::workerEnded()
{
    if (!mRunning) return; // shut down meanwhile
    const std::shared_ptr<Running> running = std::move(mRunning);
    mRunning.reset();
    running->worker->wait();
    const QByteArrayList handed = running->handed;
    const Request request = std::move(mRunningRequest);
    mRunningRequest = Request{};
    if (request.refresh) request.refresh();
    // Whatever the user's rights could not remove, the daemon removes.
    if (request.tellDaemon && !handed.isEmpty()) Removal::postDeleteRequest(handed);
    emit removalFinished(handed);
    startNext();
}

bool RemovalQueue::shutdown(int timeoutMs)
{
    if (mShutDown) return !mRunning;
    mShutDown = true;
    for (const Pending &p : std::as_const(mWaiting)) {
        p.job->requestStop();
        p.job->finish();
    }
    mWaiting.clear();
    bool ended = true;
    if (mRunning) {
        const std::shared_ptr<Running> running = std::move(mRunning);
        mRunning.reset();
        running->job->requestStop();
        ended = running->worker->wait(timeoutMs);
        if (ended) {
            if (mRunningRequest.tellDaemon && !running->handed.isEmpty()) {
                Removal::postDeleteRequest(running->handed);
                NotificationBus::flush();
            }
        } else {
            // It holds only shared state; what it reports from now on is dropped.
            mRunning = running; // remembered, so that a second call still answers false
        }
        mRunningRequest = Request{};
    }
    mMailbox->detach();
    return ended;
}
