#pragma once

#include "logic/WorkProgress.h"

#include <QByteArrayList>
#include <QList>
#include <QObject>

#include <functional>
#include <memory>

// Deletes from the caches on a worker thread, one removal at a time: a removal asked for while
// another deletes waits its turn. The steps around the deleting run on the main thread: a start
// step right before it, then, once it ended (stopped or not), the window's refresh and the
// daemon's delete request for exactly the paths that were handed to deletion.
class RemovalQueue : public QObject
{
    Q_OBJECT
public:
    // How long quitting waits for the item being deleted.
    static constexpr int kQuitWaitMs = 10000;

    struct Request
    {
        enum class Mode {
            Items,       // cache items: each time folder's record reset, emptied ones removed
            Trees,       // day folders, each whole
            CacheFolders // cache folders, entry by entry, then the folder
        };
        Mode mode = Mode::Items;
        QByteArrayList paths;
        bool tellDaemon = false;
        // Main thread. Not run when the removal was cancelled before its turn came.
        std::function<void()> start;
        std::function<void()> refresh;
    };

    explicit RemovalQueue(WorkProgress *progress = nullptr, QObject *parent = nullptr);
    // Shuts down as at quit, if that was not done.
    ~RemovalQueue() override;

    // False after shutdown (nothing is done then).
    bool enqueue(Request request);
    // A removal deletes or waits to.
    bool busy() const;
    // Quit: the running removal stops after its current item, the waiting ones are dropped, and
    // the running one is waited for at most `timeoutMs`. If it ended, the daemon is asked to
    // delete what it handed to deletion; the window is not refreshed. False on timeout. Nothing
    // is queued afterwards.
    bool shutdown(int timeoutMs = kQuitWaitMs);

    // Tests: runs on the worker after each path handed to deletion (to slow it down, or to see
    // the thread). Applies to removals that start afterwards.
    void setItemHookForTesting(std::function<void(const QByteArray &)> hook);

signals:
    // After a removal's refresh and delete request, with the paths handed to deletion (none when
    // it was cancelled before its turn came).
    void removalFinished(const QByteArrayList &handed);

private:
    struct Pending
    {
        Request request;
        std::shared_ptr<WorkJob> job;
    };
    struct Running;

    void startNext();
    void workerEnded();

    WorkProgress *mProgress;
    std::shared_ptr<Mailbox> mMailbox;
    QList<Pending> mWaiting;
    std::shared_ptr<Running> mRunning;
    Request mRunningRequest;
    std::function<void(const QByteArray &)> mItemHook;
    bool mShutDown = false;
};
