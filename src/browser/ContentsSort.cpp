#include "browser/ContentsSort.h"

#include "browser/NameMatch.h"

#include <algorithm>
#include <vector>
#include <thread>

namespace ContentsSort {

namespace {

// Order of the time folders, as ranks: equal names share a rank. Sorting by time then compares
// two integers instead of two names.
std::vector<std::uint32_t> folderRanks(const CacheItems &items)
{
    std::uint32_t folders = 0;
    for (const CacheItems::Row &r : items.rows())
        folders = std::max(folders, r.folder + 1);
    std::vector<std::uint32_t> order(folders);
    for (std::uint32_t i = 0; i < folders; ++i)
        order[i] = i;
    auto cmp = [&](std::uint32_t a, std::uint32_t b) {
        return NameMatch::compare(items.timeFolderName(a), items.timeFolderName(b));
    };
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) { return cmp(a, b) < 0; });
    std::vector<std::uint32_t> rank(folders);
    std::uint32_t r = 0;
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (i > 0 && cmp(order[i - 1], order[i]) != 0)
            ++r;
        rank[order[i]] = r;
    }
    return rank;
}

int compareNames(const CacheItems &items, const CacheItems::Row &a, const CacheItems::Row &b)
{
    return NameMatch::compare(items.name(a), items.name(b));
}

auto lessFor(const CacheItems &items, int code, const std::vector<std::uint32_t> &ranks)
{
    code &= 0xff;
    return [&items, code, &ranks](const CacheItems::Row &a, const CacheItems::Row &b) {
        int c = 0;
        if (code & 1)
            c = ranks[a.folder] == ranks[b.folder] ? 0 : (ranks[a.folder] < ranks[b.folder] ? -1 : 1);
        else
            c = compareNames(items, a, b);
        return ((code & 2) ? -c : c) < 0;
    };
}

} // namespace

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
        c = compareNames(items, a, b);
    }
    return (code & 2) ? -c : c;
}

void sort(CacheItems &items, int code)
{
    const auto ranks = (code & 1) ? folderRanks(items) : std::vector<std::uint32_t>();
    auto &rows = items.rows();
    std::sort(rows.begin(), rows.end(), lessFor(items, code, ranks));
}

void sortParallel(CacheItems &items, int code)
{
    auto &rows = items.rows();
    const auto ranks = (code & 1) ? folderRanks(items) : std::vector<std::uint32_t>();
    const auto less = lessFor(items, code, ranks);
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
    const auto ranks = (code & 1) ? folderRanks(items) : std::vector<std::uint32_t>();
    std::inplace_merge(rows.begin(), rows.begin() + std::ptrdiff_t(before), rows.end(), lessFor(items, code, ranks));
}

} // namespace ContentsSort
