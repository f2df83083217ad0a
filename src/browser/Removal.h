#pragma once

#include <QByteArrayList>

#include <atomic>
#include <functional>

// Deleting from the caches for good, with the user's own rights. What those rights cannot
// remove, the daemon removes on request (postDeleteRequest).
namespace Removal {

// Deletes a file, link or whole tree without ever following a link. False when anything of it
// is left.
bool removeTree(const QByteArray &path);

// Called after each path was handed to deletion, whatever the result.
using ItemDone = std::function<void(const QByteArray &path)>;

// Each item (results ignored), then its time folder's record reset and the time folder removed
// when it is empty. A set `stop` is looked at before each item: the item being deleted is
// finished, the rest are left alone. Returns how many were handed to deletion.
qsizetype removeItems(const QByteArrayList &itemPaths, const std::atomic<bool> *stop = nullptr,
                      const ItemDone &onItemDone = {});
// Protection off (stored, synchronised, announced), then every protected volume's cache folder.
void removeAllCaches();
// The two halves of removeAllCaches, for callers that delete on another thread: protection off,
// and the cache folders of the protected volumes that exist (read the volume list, so call it
// where the volume list is used).
void switchProtectionOff();
QByteArrayList protectedCacheFolders();
// The pieces a cache folder is deleted in, so that deleting it can be followed and stopped: each
// entry of each folder, then the folder itself. Missing folders give nothing.
QByteArrayList cacheFolderPieces(const QByteArrayList &cacheFolders);
// Each path whole, in order (day folders: their records go with them); stops as removeItems
// does.
qsizetype removeTrees(const QByteArrayList &paths, const std::atomic<bool> *stop = nullptr,
                      const ItemDone &onItemDone = {});
// "Salvora3DaemonNotification" / "Salvora3DaemonMustDelete" with the paths, in the given order.
bool postDeleteRequest(const QByteArrayList &paths);

} // namespace Removal
