#pragma once

#include <QMetaObject>
#include <QObject>

#include <mutex>
#include <utility>

// Runs `fn` on the receiver's thread, in posting order, from any thread; never waits. Taking a
// lock before posting and once more before running orders the poster's writes before the
// receiver's reads in a way ThreadSanitizer sees (Qt's own event queue lock it does not).
namespace PostTo {

inline std::mutex &orderingMutex()
{
    static std::mutex m;
    return m;
}

template <typename F> void receiver(QObject *target, F &&fn)
{
    std::lock_guard lock(orderingMutex());
    QMetaObject::invokeMethod(
        target,
        [fn = std::forward<F>(fn)]() mutable {
            { std::lock_guard sync(orderingMutex()); }
            fn();
        },
        Qt::QueuedConnection);
}

} // namespace PostTo
