#pragma once

#include "cache/DayEntry.h"

#include <QList>

namespace CommonUtils {

// The day folders of a cache, oldest first, each with its totals (see getSizeOfCache). Hidden
// names and folders not named "20…" are left alone; any stray non-folder entry is deleted.
// Days whose totals must be recounted are recounted in parallel.
QList<DayEntry> getListOfDaysInCache(const QByteArray &cachePath);
QList<DayEntry> getListOfDaysInCacheInVolume(qsizetype volumeIndex);
// Removes the folder when it holds no entry at all (a hidden file counts as an entry).
void removeEmptyCache(const QByteArray &folder);

// Byte-wise comparison that folds ASCII letters, the order of day listings.
int compareCaseInsensitive(QByteArrayView a, QByteArrayView b);

} // namespace CommonUtils
