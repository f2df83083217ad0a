#pragma once

#include "common/Jobs.h"

#include <atomic>

// What the window shares with its worker threads: the running and stop flags, and its mailbox.
// Workers hold it by shared pointer and are never waited for, so a worker that outlives the
// window only finds its receiver gone.
class WorkerState : public Mailbox
{
public:
    std::atomic<bool> readingCacheContents{false};
    std::atomic<bool> readingCacheContentsMustStop{false};
    std::atomic<bool> calculatingSizeContents{false};
    std::atomic<bool> calculatingSizeContentsMustStop{false};
    // Seconds since 2001-01-01 00:00 UTC before which no size progress is shown.
    std::atomic<double> nextRefresh{0};

    explicit WorkerState(QObject *receiver) : Mailbox(receiver) {}
};
