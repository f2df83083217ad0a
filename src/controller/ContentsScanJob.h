#pragma once

#include "browser/CacheItems.h"
#include "browser/ContentsScan.h"
#include "browser/SortOrder.h"

#include <QString>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

// One run of the contents scan, off the main thread. Scan threads read the time folders; this
// job's own thread sorts what they found and merges it into one sorted run that waits for the
// main thread. The main thread takes the run whole (a swap under a lock that is only ever held
// for a swap), so it never waits for the sorting, and merges it into the list it shows. Once
// every row is handed over, this thread finds where the rows' items were deleted from and hands
// that over in batches: the rows never wait for the origin records.
class ContentsScanJob
{
public:
    struct Request
    {
        QList<ContentsScan::Root> roots;
        QString search;
        SortOrder sortOrder;
    };

    ContentsScanJob(Request request, const std::atomic<bool> &stop);

    // The order the worker sorts in; the main thread changes it when the user re-sorts mid-scan.
    std::atomic<SortOrder> sortOrder;
    // Set by the main thread when it no longer wants the origins (a new scan, say).
    std::atomic<bool> originsMustStop{false};

    // Worker thread: scans and sorts until done or stopped. `wake` is called (on this thread)
    // when a run is waiting and the main thread has not been told yet; `listed` once every row is
    // waiting, after the last `wake`; then `origins` with each batch of the rows' origins, in
    // table(); `ended` once at the end. After a stop, no `origins` follow.
    void run(const std::function<void()> &wake, const std::function<void()> &listed,
             const std::function<void(ContentsScan::OriginFill::Batch &&)> &origins,
             const std::function<void()> &ended);
    const std::shared_ptr<OriginFolders> &table() const { return mFill->table(); }

    // Main thread: what is waiting (possibly nothing), sorted by *order.
    CacheItems take(SortOrder *order);

private:
    // Sorts a chunk (merging the folders' sorted runs when it can); returns the order used.
    SortOrder prepareChunk(CacheItems &chunk);
    // Called by one thread at a time: the first hand-over's scan thread, then this job's thread.
    void addToReady(CacheItems &&sorted, SortOrder order, const std::function<void()> &wake);

    Request mRequest;
    const std::atomic<bool> &mStop;
    const std::shared_ptr<ContentsScan::OriginFill> mFill =
        std::make_shared<ContentsScan::OriginFill>();
    // One bit per order (by its code) that the reading threads have sorted folders by.
    std::atomic<unsigned> mFolderCodes{0};

    // Found by the scan threads, not sorted yet.
    std::mutex mRawMutex;
    std::condition_variable mRawReady;
    CacheItems mRaw;
    bool mScanDone = false;

    // Sorted, waiting for the main thread.
    std::mutex mReadyMutex;
    CacheItems mReady;
    SortOrder mReadyOrder;
    bool mWakePending = false;
};
