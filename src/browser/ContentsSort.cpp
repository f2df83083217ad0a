#include "browser/ContentsSort.h"

#include "browser/NameMatch.h"

#include <algorithm>
#include <cstdint>
#include <thread>
#include <vector>

namespace ContentsSort {

int compareKeys(const CacheItems::Row &a, const CacheItems::Row &b)
{
    // The first byte where the packed keys differ.
    int d = CacheItems::kKeyBytes;
    if (const std::uint64_t x = a.key[0] ^ b.key[0])
        d = __builtin_clzll(x) / 8;
    else if (const std::uint64_t y = a.key[1] ^ b.key[1])
        d = 8 + __builtin_clzll(y) / 8;
    const int la = a.keyLength & ~CacheItems::kKeyComplete;
    const int lb = b.keyLength & ~CacheItems::kKeyComplete;
    // A difference where both names are known decides, as the folded names would.
    if (d < la && d < lb) {
        const bool less = d < 8 ? a.key[0] < b.key[0] : a.key[1] < b.key[1];
        return less ? -1 : 1;
    }
    // The known bytes agree. A name known whole that is no longer than the other's known part
    // is its prefix: shorter first, equal when both are whole and as long.
    const bool ca = a.keyLength & CacheItems::kKeyComplete;
    const bool cb = b.keyLength & CacheItems::kKeyComplete;
    if (ca && cb)
        return la == lb ? 0 : (la < lb ? -1 : 1);
    if (ca && la <= lb)
        return -1;
    if (cb && lb <= la)
        return 1;
    return kKeysUndecided;
}

namespace {

inline int compareNames(const CacheItems &x, const CacheItems::Row &a, const CacheItems &y, const CacheItems::Row &b)
{
    const int c = compareKeys(a, b);
    return c != kKeysUndecided ? c : NameMatch::compare(x.name(a), y.name(b));
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
        c = compareNames(items, a, items, b);
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

void mergeSortedInto(CacheItems &items, CacheItems &&sortedBatch, int code)
{
    const std::size_t before = items.rows().size();
    items.append(std::move(sortedBatch));
    auto &rows = items.rows();
    std::inplace_merge(rows.begin(), rows.begin() + std::ptrdiff_t(before), rows.end(),
                       [&](const CacheItems::Row &a, const CacheItems::Row &b) { return compare(items, a, b, code) < 0; });
}

namespace {

// Compares rows of two different lists.
struct CrossCompare
{
    const CacheItems &x;
    const CacheItems &y;
    int code;
    // Time sorts compare few distinct folders many times over: remember the last pair.
    std::uint32_t lastX = UINT32_MAX, lastY = UINT32_MAX;
    int last = 0;

    int operator()(const CacheItems::Row &a, const CacheItems::Row &b)
    {
        int c = 0;
        if (code & 1) {
            if (a.folder != lastX || b.folder != lastY) {
                lastX = a.folder;
                lastY = b.folder;
                last = NameMatch::compare(x.timeFolderName(a.folder), y.timeFolderName(b.folder));
            }
            c = last;
        } else {
            c = compareNames(x, a, y, b);
        }
        return (code & 2) ? -c : c;
    }
};

void copyRow(CacheItems &out, const CacheItems &from, const CacheItems::Row &r, std::uint32_t folderBase)
{
    const QByteArrayView name = from.name(r);
    out.addItem(r.folder + folderBase, name.data(), std::size_t(name.size()), r.kind, r.size);
}

} // namespace

void mergeSorted(const CacheItems &a, const CacheItems &b, int code, CacheItems &out)
{
    out.clear();
    out.reserve(std::size_t(a.size() + b.size()), a.nameBytes() + b.nameBytes());
    for (std::uint32_t f = 0; f < a.folderCount(); ++f)
        out.addFolder(a.timeFolderPath(f));
    const std::uint32_t bBase = a.folderCount();
    for (std::uint32_t f = 0; f < b.folderCount(); ++f)
        out.addFolder(b.timeFolderPath(f));

    CrossCompare compare{a, b, code & 0xff};
    const auto &ra = a.rows();
    const auto &rb = b.rows();
    std::size_t i = 0, j = 0;
    while (i < ra.size() && j < rb.size()) {
        // Ties take `a` first, so that merging keeps what was already listed in front.
        if (compare(ra[i], rb[j]) > 0)
            copyRow(out, b, rb[j++], bBase);
        else
            copyRow(out, a, ra[i++], 0);
    }
    for (; i < ra.size(); ++i)
        copyRow(out, a, ra[i], 0);
    for (; j < rb.size(); ++j)
        copyRow(out, b, rb[j], bBase);
}

void sortCompact(CacheItems &items, int code)
{
    code &= 0xff;
    if (code & 1) {
        // By time: rank the few time folders once, then order the rows by rank.
        std::vector<std::uint32_t> order(items.folderCount());
        for (std::uint32_t f = 0; f < order.size(); ++f)
            order[f] = f;
        std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            const int c = NameMatch::compare(items.timeFolderName(a), items.timeFolderName(b));
            return (code & 2) ? c > 0 : c < 0;
        });
        std::vector<std::uint32_t> rank(order.size());
        for (std::uint32_t i = 0; i < order.size(); ++i)
            rank[order[i]] = i;
        // Equal folder names share one rank, as they compare equal.
        for (std::uint32_t i = 1; i < order.size(); ++i)
            if (NameMatch::compare(items.timeFolderName(order[i - 1]), items.timeFolderName(order[i])) == 0)
                rank[order[i]] = rank[order[i - 1]];
        auto &rows = items.rows();
        std::sort(rows.begin(), rows.end(),
                  [&](const CacheItems::Row &a, const CacheItems::Row &b) { return rank[a.folder] < rank[b.folder]; });
    } else {
        sort(items, code);
    }
    CacheItems out;
    mergeSorted(items, CacheItems(), code, out);
    items = std::move(out);
}

} // namespace ContentsSort
