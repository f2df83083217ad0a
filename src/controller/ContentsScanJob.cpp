#include "controller/ContentsScanJob.h"

#include "browser/ContentsSort.h"

#include <thread>

ContentsScanJob::ContentsScanJob(Request request, const std::atomic<bool> &stop)
    : sortCode(request.sortCode), mRequest(std::move(request)), mStop(stop)
{
}

void ContentsScanJob::run(const std::function<void()> &wake, const std::function<void()> &ended)
{
    ContentsScan::Options options;
    options.pattern = NameMatch::Pattern(mRequest.search);
    std::thread scanner([this, options] {
        ContentsScan::scan(mRequest.roots, options, mStop, [this](CacheItems &&batch) {
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
        const int code = sortCode.load();
        ContentsSort::sortCompact(chunk, code);
        addToReady(std::move(chunk), code, wake);
    }
    scanner.join();
    ended();
}

void ContentsScanJob::addToReady(CacheItems &&sorted, int code, const std::function<void()> &wake)
{
    CacheItems waiting;
    int waitingCode = code;
    {
        std::lock_guard lock(mReadyMutex);
        waiting = std::exchange(mReady, CacheItems());
        waitingCode = mReadyCode;
    }
    // Merged outside the lock: the main thread may take in the meantime and then finds nothing.
    if (!waiting.isEmpty()) {
        if (waitingCode != code) ContentsSort::sortCompact(waiting, code);
        CacheItems merged;
        ContentsSort::mergeSorted(waiting, sorted, code, merged);
        sorted = std::move(merged);
    }
    bool mustWake = false;
    {
        std::lock_guard lock(mReadyMutex);
        mReady = std::move(sorted); // only this thread fills mReady, so it is empty here
        mReadyCode = code;
        mustWake = !mWakePending;
        mWakePending = true;
    }
    if (mustWake) wake();
}

CacheItems ContentsScanJob::take(int *code)
{
    std::lock_guard lock(mReadyMutex);
    mWakePending = false;
    *code = mReadyCode;
    return std::exchange(mReady, CacheItems());
}
