#pragma once

#include "browser/CacheItems.h"
#include "browser/SortOrder.h"

// Order of the contents list. The time and name sorts deliberately have no secondary key: items
// of one time folder are equal under the time sort, equal names are equal under the name sort.
namespace ContentsSort {

inline constexpr SortOrder ByName{SortOrder::Name, false};
inline constexpr SortOrder ByNameDescending{SortOrder::Name, true};
inline constexpr SortOrder ByTime{SortOrder::Time, false};
inline constexpr SortOrder ByTimeDescending{SortOrder::Time, true};
inline constexpr SortOrder ByOrigin{SortOrder::Origin, false};
inline constexpr SortOrder ByOriginDescending{SortOrder::Origin, true};

// <0, 0, >0 like a comparison function.
int compare(const CacheItems &items, const CacheItems::Row &a, const CacheItems::Row &b,
            SortOrder order);
void sort(CacheItems &items, SortOrder order);
// The same on every core: halves sorted at once, then merged.
void sortParallel(CacheItems &items, SortOrder order);

// The order of two names from their rows' keys alone: <0, 0 or >0 when the keys decide, and
// kKeysUndecided when the names must be compared in full (NameMatch::compare).
inline constexpr int kKeysUndecided = 2;
int compareKeys(const CacheItems::Row &a, const CacheItems::Row &b);

// Merges an already sorted batch into the sorted `items`: the batch's names are appended, and
// only the rows move (linear in the list's size, the batch is not sorted again).
void mergeSortedInto(CacheItems &items, CacheItems &&sortedBatch, SortOrder order);
// Merges the runs of `items` into one sorted list (the rows move, the names stay). A run is
// the rows of one time folder, which must lie together and be sorted by `order` already.
void mergeRuns(CacheItems &items, SortOrder order);
// Sorts and lays the names out in row order, so that a later pass reads every name front to back
// instead of jumping around a large arena.
void sortCompact(CacheItems &items, SortOrder order);

} // namespace ContentsSort
