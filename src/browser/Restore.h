#pragma once

#include <QByteArrayList>
#include <QList>
#include <QString>

#include <atomic>
#include <functional>

// Copies items out of a cache. A copy never overwrites anything and never leaves a partial file
// under its final name: it is built under a hidden temporary name in the destination folder and
// renamed into place only if the final name is still free. Files are cloned where the file
// system can; modes, times and symbolic links are kept as they are.
namespace Restore {

enum class Outcome { Copied, SkippedExisting, Failed, Stopped };

// A piece of a folder that could not be copied (a socket, a device, an unreadable file); the
// rest of the folder is copied all the same.
struct LeftOut
{
    QByteArray path; // below the item: "sub/sock"
    QString reason;
};

struct ItemResult
{
    QByteArray source;
    QByteArray target;
    Outcome outcome = Outcome::Failed;
    QString error;          // for Failed: what went wrong, in one line
    QList<LeftOut> leftOut; // for Copied: what is missing from a folder
    bool moved = false; // put back: the item left the cache (renamed, or copied whole and removed)
};

// What a put back does when the original name is taken again.
enum class Clash { Skip, KeepBoth };

// Copies one item to exactly `target`.
ItemResult copyItem(const QByteArray &source, const QByteArray &target,
                    const std::atomic<bool> *stop = nullptr);
// Copies each source into `destinationFolder` under its own last name, in order; an existing name
// is skipped (so of two sources with one name only the first is copied).
QList<ItemResult> copyItems(const QByteArray &destinationFolder, const QByteArrayList &sources,
                            const std::atomic<bool> *stop = nullptr,
                            const std::function<void(const ItemResult &)> &onItemDone = {});

QByteArray lastComponent(const QByteArray &path);

// The path a cache item (<cache>/<day>/<time>/<name>) was deleted from, from its day's origin
// records; empty when none was recorded. Of several records for one name, the one with the item's
// inode wins, else the last.
QByteArray originalPathOf(const QByteArray &cachedItem);
// Whether something (even a dangling link) stands at the path.
bool pathTaken(const QByteArray &path);
// The first free "name N" beside a taken path, as a clash in the cache numbers it.
QByteArray freeNumberedPath(const QByteArray &path);

// Puts a cache item back at `original`. Missing parent folders are made with the user's normal
// modes (0755 narrowed by the umask). On the same file system the item is renamed, which cannot
// replace anything; elsewhere it is copied as copyItem does and removed from the cache only when
// the copy is whole. Afterwards its time folder goes when empty and the day's size record is reset.
ItemResult putBack(const QByteArray &cachedItem, const QByteArray &original, Clash clash,
                   const std::atomic<bool> *stop = nullptr);

} // namespace Restore
