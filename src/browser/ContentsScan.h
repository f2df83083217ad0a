#pragma once

#include "browser/CacheItems.h"
#include "browser/NameMatch.h"

#include <QList>

#include <atomic>
#include <functional>

// Lists the items of cache days or of one time folder, filtered by a search text. Time folders
// are read once each, in parallel, and never is an item stat'ed unless sizes are asked for.
namespace ContentsScan {

struct Root
{
    QByteArray path;           // a day folder, or a single time folder
    bool isTimeFolder = false; // a single time folder is scanned as is
};

struct Options
{
    NameMatch::Pattern pattern; // empty: every entry, hidden ones included
    bool readSizes = false;     // one size-only statx per listed non-folder item
    int threads = 0;            // 0: one per core
};

// The time folders to read, in scan order: each root's entries in file-system order, keeping
// directories whose names begin with "20".
QList<QByteArray> timeFoldersOf(const QList<Root> &roots, const std::atomic<bool> &stop);

// Calls `sink` with the matching items, in scan order, one call per run of finished time folders
// (so one or more folders a call). Calls come from scan threads, never two at once. Returns
// false when `stop` ended the scan early.
bool scan(const QList<Root> &roots, const Options &options, const std::atomic<bool> &stop,
          const std::function<void(CacheItems &&batch)> &sink);

} // namespace ContentsScan
