#include "browser/ContentsSort.h"

#include "browser/NameMatch.h"

#include <algorithm>
#include <thread>

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

void sortParallel(CacheItems &items, int code)
{
    auto &rows = items.rows();
    auto less = [&](const CacheItems::Row &a, const CacheItems::Row &b) { return compare(items, a, b, code) < 0; };
    if (rows.size() < 20000 || std::thread::hardware_concurrency() < 2) {
        std::sort(rows.begin(), rows.end(), less);
        return;
    }
    const auto middle = rows.begin() + std::ptrdiff_t(rows.size() / 2);
    std::thread other([&] { std::sort(rows.begin(), middle, less); });
    std::sort(middle, rows.end(), less);
    other.join();
    std::inplace_merge(rows.begin(), middle, rows.end(), less);
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
