#include "controller/ContentsScanJob.h"

#include "browser/ContentsSort.h"
#include "common/Jobs.h"

ContentsScanJob::ContentsScanJob(Request request, const std::atomic<bool> &stop)
    : sortCode(request.sortCode), mRequest(std::move(request)), mStop(stop)
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
        const int code = sortCode.load();
        ContentsSort::sort(folder, code);
        if (!folder.isEmpty()) mFolderCodes.fetch_or(1u << (code & 7));
    };
    bool first = true;
    const auto scanner = Jobs::start([this, options, &first, &wake] {
        ContentsScan::scan(mRequest.roots, options, mStop, [&](CacheItems &&batch) {
            // The first rows go straight to the window, whatever this thread is busy with.
            if (first && !batch.isEmpty()) {
                first = false;
                prepareChunk(batch);
                addToReady(std::move(batch), sortCode.load(), wake);
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
        const int code = prepareChunk(chunk);
        addToReady(std::move(chunk), code, wake);
    }
    scanner->wait();
    listed();
    mFill->run([this] { return mStop.load(std::memory_order_relaxed) || originsMustStop.load(std::memory_order_relaxed); },
               origins);
    ended();
}

int ContentsScanJob::prepareChunk(CacheItems &chunk)
{
    const int code = sortCode.load();
    // The folders come sorted; after a change of order mid-scan they may not all agree.
    if (mFolderCodes.load() == (1u << (code & 7)))
        ContentsSort::mergeRuns(chunk, code);
    else
        ContentsSort::sort(chunk, code);
    return code;
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
        if (waitingCode != code) ContentsSort::sort(waiting, code);
        ContentsSort::mergeSortedInto(waiting, std::move(sorted), code);
        sorted = std::move(waiting);
    }
    bool mustWake = false;
    {
        std::lock_guard lock(mReadyMutex);
        mReady = std::move(sorted); // one producer at a time, so nobody filled it meanwhile
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
