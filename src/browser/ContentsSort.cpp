#include "browser/ContentsSort.h"

#include "browser/NameMatch.h"
#include "common/Jobs.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace ContentsSort {

int compareKeys(const CacheItems::Row &a, const CacheItems::Row &b)
{
    // Keys hold folded characters up to a mark above ASCII, so where they differ they order the
    // names; equal keys decide only for names that they hold whole.
    if (a.key[0] != b.key[0])
        return a.key[0] < b.key[0] ? -1 : 1;
    if (a.key[1] != b.key[1])
        return a.key[1] < b.key[1] ? -1 : 1;
    if ((a.keyLength & b.keyLength & CacheItems::kKeyComplete) != 0)
        return 0;
    return kKeysUndecided;
}

namespace {

inline int compareNames(const CacheItems &x, const CacheItems::Row &a, const CacheItems &y, const CacheItems::Row &b)
{
    const int c = compareKeys(a, b);
    if (c != kKeysUndecided)
        return c;
    // Equal keys made of the names' own first bytes: only the rest of the names can differ.
    constexpr std::uint8_t full = CacheItems::kKeyAsciiBytes | CacheItems::kKeyBytes;
    if ((a.keyLength & ~CacheItems::kKeyComplete) == full && (b.keyLength & ~CacheItems::kKeyComplete) == full)
        return NameMatch::compare(x.name(a).sliced(CacheItems::kKeyBytes), y.name(b).sliced(CacheItems::kKeyBytes));
    return NameMatch::compare(x.name(a), y.name(b));
}

// Origin folders of two lists' rows: one table when they share it, else the folders themselves.
inline int compareOrigins(const CacheItems &x, const CacheItems::Row &a, const CacheItems &y, const CacheItems::Row &b)
{
    if (x.origins() == y.origins())
        return x.origins() ? x.origins()->compare(a.origin, b.origin) : 0;
    return NameMatch::compare(x.originFolder(a), y.originFolder(b));
}

} // namespace

int compare(const CacheItems &items, const CacheItems::Row &a, const CacheItems::Row &b, int code)
{
    code &= 0xff;
    int c = 0;
    if (code & 4) {
        c = compareOrigins(items, a, items, b);
        if (c == 0)
            c = compareNames(items, a, items, b);
    } else if (code & 1) {
        // Time-folder names are ASCII digits, so equal folders need no look at the names.
        if (a.folder == b.folder)
            return 0;
        c = NameMatch::compare(items.timeFolderName(a.folder), items.timeFolderName(b.folder));
    } else {
        c = compareNames(items, a, items, b);
    }
    return (code & 2) ? -c : c;
}

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

auto lessFor(const CacheItems &items, int code, const std::vector<std::uint32_t> &ranks)
{
    code &= 0xff;
    return [&items, code, &ranks](const CacheItems::Row &a, const CacheItems::Row &b) {
        int c = 0;
        if (code & 4)
            return compare(items, a, b, code) < 0;
        if (code & 1)
            c = ranks[a.folder] == ranks[b.folder] ? 0 : (ranks[a.folder] < ranks[b.folder] ? -1 : 1);
        else
            c = compareNames(items, a, items, b);
        return ((code & 2) ? -c : c) < 0;
    };
}

} // namespace

namespace {

// `a` before `b`: keys that differ decide at once, without a call; anything else asks compare().
struct RowLess
{
    const CacheItems &items;
    int code;
    bool operator()(const CacheItems::Row &a, const CacheItems::Row &b) const
    {
        if ((code & 5) == 0) {
            const bool descending = code & 2;
            if (a.key[0] != b.key[0])
                return descending ? a.key[0] > b.key[0] : a.key[0] < b.key[0];
            if (a.key[1] != b.key[1])
                return descending ? a.key[1] > b.key[1] : a.key[1] < b.key[1];
        }
        return compare(items, a, b, code) < 0;
    }
};

} // namespace

namespace {

// The order of the rows by name, as row indexes: an integer sort of the keys, then, within each
// run of equal keys that holds a name the key does not hold whole, the full comparison.
std::vector<std::uint32_t> nameOrder(const CacheItems &items, bool descending)
{
    const auto &rows = items.rows();
    struct Key
    {
        std::uint64_t k0, k1;
        std::uint32_t row;
    };
    std::vector<Key> keys(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        keys[i] = {rows[i].key[0], rows[i].key[1], std::uint32_t(i)};
    std::sort(keys.begin(), keys.end(), [descending](const Key &a, const Key &b) {
        const bool less = a.k0 != b.k0 ? a.k0 < b.k0 : a.k1 < b.k1;
        const bool equal = a.k0 == b.k0 && a.k1 == b.k1;
        return descending ? !less && !equal : less;
    });
    for (std::size_t start = 0; start < keys.size();) {
        std::size_t end = start + 1;
        bool whole = rows[keys[start].row].keyLength & CacheItems::kKeyComplete;
        while (end < keys.size() && keys[end].k0 == keys[start].k0 && keys[end].k1 == keys[start].k1) {
            whole = whole && (rows[keys[end].row].keyLength & CacheItems::kKeyComplete);
            ++end;
        }
        if (end - start > 1 && !whole) {
            // Each name of the run is decoded once, not at every comparison; the decoded texts
            // compare exactly as NameMatch::compare compares the names.
            std::vector<std::pair<QString, std::uint32_t>> texts;
            texts.reserve(end - start);
            for (std::size_t i = start; i < end; ++i)
                texts.emplace_back(NameMatch::decodedForOrder(items.name(rows[keys[i].row])), keys[i].row);
            std::sort(texts.begin(), texts.end(), [descending](const auto &a, const auto &b) {
                const int c = QString::compare(a.first, b.first, Qt::CaseInsensitive);
                return descending ? c > 0 : c < 0;
            });
            for (std::size_t i = start; i < end; ++i)
                keys[i].row = texts[i - start].second;
        }
        start = end;
    }
    std::vector<std::uint32_t> order(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i)
        order[i] = keys[i].row;
    return order;
}

// The order of the rows by caching time: the few time folders are ranked once.
std::vector<std::uint32_t> timeOrder(const CacheItems &items, bool descending)
{
    std::vector<std::uint32_t> folders(items.folderCount());
    for (std::uint32_t f = 0; f < folders.size(); ++f)
        folders[f] = f;
    std::sort(folders.begin(), folders.end(), [&](std::uint32_t a, std::uint32_t b) {
        const int c = NameMatch::compare(items.timeFolderName(a), items.timeFolderName(b));
        return descending ? c > 0 : c < 0;
    });
    std::vector<std::uint32_t> rank(folders.size());
    for (std::uint32_t i = 0; i < folders.size(); ++i)
        rank[folders[i]] = i;
    // Equal folder names share one rank, as they compare equal.
    for (std::uint32_t i = 1; i < folders.size(); ++i)
        if (NameMatch::compare(items.timeFolderName(folders[i - 1]), items.timeFolderName(folders[i])) == 0)
            rank[folders[i]] = rank[folders[i - 1]];
    const auto &rows = items.rows();
    std::vector<std::uint32_t> order(rows.size());
    for (std::uint32_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(),
              [&](std::uint32_t a, std::uint32_t b) { return rank[rows[a].folder] < rank[rows[b].folder]; });
    return order;
}

std::vector<std::uint32_t> orderOf(const CacheItems &items, int code)
{
    code &= 0xff;
    if (code & 4) {
        // Few folders, many names: by name first, then stably by folder.
        std::vector<std::uint32_t> order = nameOrder(items, code & 2);
        const auto &rows = items.rows();
        std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            const int c = compareOrigins(items, rows[a], items, rows[b]);
            return (code & 2) ? c > 0 : c < 0;
        });
        return order;
    }
    return (code & 1) ? timeOrder(items, code & 2) : nameOrder(items, code & 2);
}

} // namespace

void sort(CacheItems &items, int code)
{
    // A short list (one time folder, say) sorts its rows in place; a long one sorts its keys
    // apart and moves each row once.
    auto &rows = items.rows();
    if (rows.size() <= 4096) {
        std::sort(rows.begin(), rows.end(), RowLess{items, code & 0xff});
        return;
    }
    const std::vector<std::uint32_t> order = orderOf(items, code);
    std::vector<CacheItems::Row> sorted(rows.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        sorted[i] = rows[order[i]];
    rows.swap(sorted);
}

void sortParallel(CacheItems &items, int code)
{
    auto &rows = items.rows();
    const auto ranks = (code & 1) ? folderRanks(items) : std::vector<std::uint32_t>();
    const auto less = lessFor(items, code, ranks);
    if (rows.size() < 20000 || Jobs::cores() < 2) {
        std::sort(rows.begin(), rows.end(), less);
        return;
    }
    // Split around the median in place, then sort the halves at once: no merge, so no buffer
    // of half the list (which would cost 20 bytes a row at the peak).
    const auto middle = rows.begin() + std::ptrdiff_t(rows.size() / 2);
    std::nth_element(rows.begin(), middle, rows.end(), less);
    Jobs::parallelFor(2, [&](std::size_t half) {
        if (half == 0)
            std::sort(rows.begin(), middle, less);
        else
            std::sort(middle, rows.end(), less);
    });
}

void mergeSortedInto(CacheItems &items, CacheItems &&sortedBatch, int code)
{
    const std::size_t before = items.rows().size();
    items.append(std::move(sortedBatch));
    auto &rows = items.rows();
    std::inplace_merge(rows.begin(), rows.begin() + std::ptrdiff_t(before), rows.end(), RowLess{items, code & 0xff});
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
        if (code & 4) {
            c = compareOrigins(x, a, y, b);
            if (c == 0)
                c = compareNames(x, a, y, b);
        } else if (code & 1) {
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
    out.copyItem(from, r, r.folder + folderBase);
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

void mergeRuns(CacheItems &items, int code)
{
    // Bottom-up: neighbouring runs are merged pairwise, level after level, each level one
    // front-to-back pass over the rows. Only the rows move; the names stay where they are.
    std::vector<CacheItems::Row> from = items.rows();
    std::vector<std::size_t> bounds;
    for (std::size_t i = 0; i < from.size(); ++i)
        if (i == 0 || from[i].folder != from[i - 1].folder)
            bounds.push_back(i);
    bounds.push_back(from.size());
    if (bounds.size() <= 2)
        return;
    std::vector<CacheItems::Row> to(from.size());
    const RowLess less{items, code & 0xff};
    while (bounds.size() > 2) {
        std::vector<std::size_t> merged;
        std::size_t i = 0;
        for (; i + 2 < bounds.size(); i += 2) {
            std::merge(from.begin() + std::ptrdiff_t(bounds[i]), from.begin() + std::ptrdiff_t(bounds[i + 1]),
                       from.begin() + std::ptrdiff_t(bounds[i + 1]), from.begin() + std::ptrdiff_t(bounds[i + 2]),
                       to.begin() + std::ptrdiff_t(bounds[i]), less);
            merged.push_back(bounds[i]);
        }
        if (i + 1 < bounds.size()) { // an odd run out: carried over as it is
            std::copy(from.begin() + std::ptrdiff_t(bounds[i]), from.begin() + std::ptrdiff_t(bounds[i + 1]),
                      to.begin() + std::ptrdiff_t(bounds[i]));
            merged.push_back(bounds[i]);
        }
        merged.push_back(from.size());
        bounds.swap(merged);
        from.swap(to);
    }
    items.rows().swap(from);
}

void sortCompact(CacheItems &items, int code)
{
    const std::vector<std::uint32_t> order = orderOf(items, code);
    CacheItems out;
    out.setOrigins(items.origins());
    out.reserve(order.size(), items.nameBytes());
    for (std::uint32_t f = 0; f < items.folderCount(); ++f)
        out.addFolder(items.timeFolderPath(f));
    for (const std::uint32_t i : order)
        copyRow(out, items, items.rows()[i], 0);
    items = std::move(out);
}

} // namespace ContentsSort
