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
    // False: each time folder is handed on as soon as it is read, in no particular order.
    bool inOrder = true;
    // Called on the reading thread with each time folder's items before they are handed on
    // (to sort them while they are fresh in that core's cache, for one).
    std::function<void(CacheItems &folderItems)> prepare;
    // Set: each row learns the folder its item was deleted from, from its day's origin records
    // (<cache>/.origins/<day>.jsonl, each read once), and every list shares this table.
    std::shared_ptr<OriginFolders> origins;
};

// The time folders to read, in scan order: each root's entries in file-system order, keeping
// directories whose names begin with "20".
QList<QByteArray> timeFoldersOf(const QList<Root> &roots, const std::atomic<bool> &stop);

// Calls `sink` with the matching items, in scan order, one call per run of finished time folders
// (so one or more folders a call), or one call per folder as each is done when !inOrder. Calls
// come from scan threads, never two at once. Returns false when `stop` ended the scan early.
bool scan(const QList<Root> &roots, const Options &options, const std::atomic<bool> &stop,
          const std::function<void(CacheItems &&batch)> &sink);

} // namespace ContentsScan
