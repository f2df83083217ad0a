#pragma once

#include <QByteArrayList>

// Deleting from the caches for good, with the user's own rights. What those rights cannot
// remove, the daemon removes on request (postDeleteRequest).
namespace Removal {

// Deletes a file, link or whole tree without ever following a link. False when anything of it
// is left.
bool removeTree(const QByteArray &path);
// Each item (results ignored), then its time folder's record reset and the time folder removed
// when it is empty.
void removeItems(const QByteArrayList &itemPaths);
// Each day folder whole; its record goes with it.
void removeDays(const QByteArrayList &dayPaths);
// Protection off (stored, synchronised, announced), then every protected volume's cache folder.
void removeAllCaches();
// "Salvora3DaemonNotification" / "Salvora3DaemonMustDelete" with the paths, in the given order.
bool postDeleteRequest(const QByteArrayList &paths);

} // namespace Removal
