#pragma once

#include "browser/CacheItems.h"
#include "browser/NameMatch.h"

#include <QList>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Lists the items of cache days or of one time folder, filtered by a search text. Time folders
// are read once each, in parallel, and never is an item stat'ed unless sizes are asked for.
namespace ContentsScan {

struct Root
{
    QByteArray path;           // a day folder, or a single time folder
    bool isTimeFolder = false; // a single time folder is scanned as is
};

class OriginFill;

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
    // Set: each row is handed on waiting for its origin (CacheItems::kOriginWaiting), and the
    // fill keeps what it needs to find it once the scan is over.
    std::shared_ptr<OriginFill> originFill;
};

// Finds the folders the rows of a scan were deleted from, after the rows were handed on: reading
// a day's origin records (<cache>/.origins/<day>.jsonl) costs several times listing its items, so
// the rows do not wait for them.
class OriginFill
{
public:
    // Tickets [first, first + ids.size()): ids[i] is the origin (0: none recorded) in table(),
    // or CacheItems::kOriginWaiting for a ticket of another batch. See CacheItems::fillOrigins.
    struct Batch
    {
        std::uint32_t first = 0;
        std::vector<std::uint32_t> ids;
    };

    OriginFill() : mTable(std::make_shared<OriginFolders>()) {}
    const std::shared_ptr<OriginFolders> &table() const { return mTable; }

    // Scan threads: gives the rows of a time folder just read their tickets, and keeps their names.
    void keep(const QByteArray &timeFolder, CacheItems &folderItems);
    // After the scan, on one thread: reads each day's records once and calls `sink` with the
    // origins of every kept row, in batches of one or more days. False when `stopped` ended it.
    bool run(const std::function<bool()> &stopped, const std::function<void(Batch &&)> &sink);

private:
    struct Folder
    {
        QByteArray path; // the time folder
        std::uint32_t first = 0;
        std::string names;
        std::vector<std::uint16_t> lengths;
    };
    void fillDay(std::vector<Folder *> &folders, Batch &out);

    std::shared_ptr<OriginFolders> mTable;
    std::mutex mMutex;
    std::uint32_t mNext = 0;
    std::vector<Folder> mFolders;
};

// The time folders to read, in scan order: each root's entries in file-system order, keeping
// directories whose names begin with "20".
QList<QByteArray> timeFoldersOf(const QList<Root> &roots, const std::atomic<bool> &stop);

// Calls `sink` with the matching items of each time folder, in scan order, or as each is done
// when !inOrder. Calls come from scan threads, never two at once. Returns false when `stop` ended
// the scan early.
bool scan(const QList<Root> &roots, const Options &options, const std::atomic<bool> &stop,
          const std::function<void(CacheItems &&batch)> &sink);

} // namespace ContentsScan
