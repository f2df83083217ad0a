#include "controller/ContentsScanJob.h"

#include "browser/ContentsSort.h"
#include "common/Jobs.h"

ContentsScanJob::ContentsScanJob(Request request, const std::atomic<bool> &stop)
    : sortOrder(request.sortOrder), mRequest(std::move(request)), mStop(stop)
{
}

void ContentsScanJob::run(const std::function<void()> &wake, const std::function<void()> &listed,
                          const std::function<void(ContentsScan::OriginFill::Batch &&)> &origins,
                          const std::function<void()> &ended)
{
    ContentsScan::Options options;
    options.pattern = NameMatch::Pattern(mRequest.search);
    // The order of the folders does not matter, the list is sorted anyway. Each reading thread
    // sorts its own folders; this thread only merges them.
    options.inOrder = false;
    options.originFill = mFill;
    options.prepare = [this](CacheItems &folder) {
        const SortOrder order = sortOrder.load();
        ContentsSort::sort(folder, order);
        if (!folder.isEmpty()) mFolderCodes.fetch_or(1u << order.code());
    };
    bool first = true;
    const auto scanner = Jobs::start([this, options, &first, &wake] {
        ContentsScan::scan(mRequest.roots, options, mStop, [&](CacheItems &&batch) {
            // The first rows go straight to the window, whatever this thread is busy with.
            if (first && !batch.isEmpty()) {
                first = false;
                prepareChunk(batch);
                addToReady(std::move(batch), sortOrder.load(), wake);
                return;
            }
            std::lock_guard lock(mRawMutex);
            mRaw.append(std::move(batch));
            mRawReady.notify_one();
        });
        std::lock_guard lock(mRawMutex);
        mScanDone = true;
        mRawReady.notify_one();
    });

    // Sort whatever piled up since the last round: the slower the sorting, the larger the runs.
    for (;;) {
        CacheItems chunk;
        {
            std::unique_lock lock(mRawMutex);
            mRawReady.wait(lock, [this] { return !mRaw.isEmpty() || mScanDone; });
            if (mRaw.isEmpty() && mScanDone) break;
            chunk = std::exchange(mRaw, CacheItems());
        }
        if (mStop.load(std::memory_order_relaxed))
            continue; // drain until the scan threads have noticed the stop
        const SortOrder order = prepareChunk(chunk);
        addToReady(std::move(chunk), order, wake);
    }
    scanner->wait();
    listed();
    mFill->run(
        [this] {
            return mStop.load(std::memory_order_relaxed) ||
                   originsMustStop.load(std::memory_order_relaxed);
        },
        origins);
    ended();
}

SortOrder ContentsScanJob::prepareChunk(CacheItems &chunk)
{
    const SortOrder order = sortOrder.load();
    // The folders come sorted; after a change of order mid-scan they may not all agree.
    if (mFolderCodes.load() == (1u << order.code()))
        ContentsSort::mergeRuns(chunk, order);
    else
        ContentsSort::sort(chunk, order);
    return order;
}

void ContentsScanJob::addToReady(CacheItems &&sorted, SortOrder order,
                                 const std::function<void()> &wake)
{
    CacheItems waiting;
    SortOrder waitingOrder = order;
    {
        std::lock_guard lock(mReadyMutex);
        waiting = std::exchange(mReady, CacheItems());
        waitingOrder = mReadyOrder;
    }
    // Merged outside the lock: the main thread may take in the meantime and then finds nothing.
    if (!waiting.isEmpty()) {
        if (waitingOrder != order) ContentsSort::sort(waiting, order);
        ContentsSort::mergeSortedInto(waiting, std::move(sorted), order);
        sorted = std::move(waiting);
    }
    bool mustWake = false;
    {
        std::lock_guard lock(mReadyMutex);
        mReady = std::move(sorted); // one producer at a time, so nobody filled it meanwhile
        mReadyOrder = order;
        mustWake = !mWakePending;
        mWakePending = true;
    }
    if (mustWake) wake();
}

CacheItems ContentsScanJob::take(SortOrder *order)
{
    std::lock_guard lock(mReadyMutex);
    mWakePending = false;
    *order = mReadyOrder;
    return std::exchange(mReady, CacheItems());
}
