#include "common/Jobs.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <thread>
#include <vector>

std::mutex &Mailbox::orderingMutex()
{
    static std::mutex m;
    return m;
}

namespace Jobs {

bool Handle::finished() const
{
    std::lock_guard lock(mMutex);
    return mFinished;
}

bool Handle::wait(int timeoutMs) const
{
    std::unique_lock lock(mMutex);
    if (timeoutMs < 0) {
        mEnded.wait(lock, [this] { return mFinished; });
        return true;
    }
    return mEnded.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                           [this] { return mFinished; });
}

void Handle::markFinished()
{
    {
        std::lock_guard lock(mMutex);
        mFinished = true;
    }
    mEnded.notify_all();
}

void detail::launch(std::function<void()> run)
{
    std::thread(std::move(run)).detach();
}

unsigned cores()
{
    return std::max(1u, std::thread::hardware_concurrency());
}

void parallelFor(std::size_t n, const std::function<void(std::size_t)> &body, unsigned threads)
{
    if (n == 0) return;
    const std::size_t helpers = std::min<std::size_t>(threads > 0 ? threads : cores(), n) - 1;
    std::atomic<std::size_t> next{0};
    auto worker = [&] {
        for (std::size_t i; (i = next.fetch_add(1, std::memory_order_relaxed)) < n;)
            body(i);
    };
    std::vector<std::thread> pool;
    pool.reserve(helpers);
    try {
        for (std::size_t i = 0; i < helpers; ++i)
            pool.emplace_back(worker);
    } catch (const std::system_error &) {
        // Out of threads: the ones that started, and this one, do the rest.
    }
    worker();
    for (std::thread &t : pool)
        t.join();
}

} // namespace Jobs
