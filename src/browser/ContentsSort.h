#pragma once

#include "browser/CacheItems.h"

// Order of the contents list. Sort code: bit 0 sorts by caching time (the time folder's name)
// instead of the item's name; bit 2 by the folder the item was deleted from, then by name; bit 1
// reverses. The time and name sorts deliberately have no secondary key: items of one time folder
// are equal under the time sort, equal names are equal under the name sort.
namespace ContentsSort {

enum Code : int {
    ByName = 0,
    ByTime = 1,
    ByNameDescending = 2,
    ByTimeDescending = 3,
    ByOrigin = 4,
    ByOriginDescending = 6
};

// <0, 0, >0 like a comparison function.
int compare(const CacheItems &items, const CacheItems::Row &a, const CacheItems::Row &b, int code);
void sort(CacheItems &items, int code);
// The same on every core: halves sorted at once, then merged.
void sortParallel(CacheItems &items, int code);

// The order of two names from their rows' keys alone: <0, 0 or >0 when the keys decide, and
// kKeysUndecided when the names must be compared in full (NameMatch::compare).
inline constexpr int kKeysUndecided = 2;
int compareKeys(const CacheItems::Row &a, const CacheItems::Row &b);

// Merges two lists already sorted by `code` into `out` (emptied first; its memory is reused).
// The names are laid out in `out` in row order, so that the next merge reads every name front
// to back instead of jumping around a large arena.
void mergeSorted(const CacheItems &a, const CacheItems &b, int code, CacheItems &out);
// Merges an already sorted batch into the sorted `items`: the batch's names are appended, and
// only the rows move (linear in the list's size, the batch is not sorted again).
void mergeSortedInto(CacheItems &items, CacheItems &&sortedBatch, int code);
// Merges the runs of `items` into one sorted list (the rows move, the names stay). A run is
// the rows of one time folder, which must lie together and be sorted by `code` already.
void mergeRuns(CacheItems &items, int code);
// Sorts and lays the names out in row order (see mergeSorted).
void sortCompact(CacheItems &items, int code);

} // namespace ContentsSort
