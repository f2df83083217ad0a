#include "browser/ContentsSort.h"

#include "browser/NameMatch.h"

#include <algorithm>

namespace ContentsSort {

int compare(const CacheItems &items, const CacheItems::Row &a, const CacheItems::Row &b, int code)
{
    code &= 0xff;
    int c = 0;
    if (code & 1) {
        // Time-folder names are ASCII digits, so equal folders need no look at the names.
        if (a.folder == b.folder)
            return 0;
        c = NameMatch::compare(items.timeFolderName(a.folder), items.timeFolderName(b.folder));
    } else {
        c = NameMatch::compare(items.name(a), items.name(b));
    }
    return (code & 2) ? -c : c;
}

void sort(CacheItems &items, int code)
{
    auto &rows = items.rows();
    std::sort(rows.begin(), rows.end(), [&](const CacheItems::Row &a, const CacheItems::Row &b) {
        return compare(items, a, b, code) < 0;
    });
}

void mergeInto(CacheItems &items, CacheItems &&batch, int code)
{
    const std::size_t before = items.rows().size();
    sort(batch, code);
    items.append(std::move(batch));
    auto &rows = items.rows();
    std::inplace_merge(rows.begin(), rows.begin() + std::ptrdiff_t(before), rows.end(),
                       [&](const CacheItems::Row &a, const CacheItems::Row &b) { return compare(items, a, b, code) < 0; });
}

} // namespace ContentsSort
