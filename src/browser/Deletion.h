#pragma once

#include "cache/CacheCommit.h"

#include <QByteArrayList>
#include <QList>

#include <sys/types.h>

// `salvora rm`: deleting into the caches, as the settings and the volumes decide.
namespace Deletion {

// The cache that keeps deleted items of a given file system: the protected volume (by index of
// getAllProtectedVolumes) whose base folder (the home folder for "/") is on device `dev`. The
// cache folder is named, not checked: open it with CacheFolder::open(volumePath, ...).
struct Destination
{
    qsizetype volumeIndex = -1;
    QByteArray volumePath; // "/" for the home folder's cache
    QByteArray cacheFolder;
};
// volumeIndex -1 and *error set when there is none.
Destination destinationFor(dev_t dev, CacheCommit::Error *error);

// Checks protection, exclusions (KeepPolicy), the volume and the device of each path, then moves
// it into its cache. All items of one call share one time folder. Posts one
// "Salvora3Notification" / "Salvora3DataMovedToCache" when anything moved and `notify` is set.
QList<CacheCommit::Result> deleteIntoCache(const QByteArrayList &paths, bool notify = true);

} // namespace Deletion
