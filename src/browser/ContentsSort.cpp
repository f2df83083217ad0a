#include "browser/ContentsSort.h"

#include "browser/NameMatch.h"
#include "common/Jobs.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace ContentsSort {

int compareKeys(const CacheItems::Row &a, const CacheItems::Row &b)
{
    // Keys hold folded characters up to a mark above ASCII, so where they differ they order the
    // names; equal keys decide only for names that they hold whole.
    if (a.key[0] != b.key[0]) return a.key[0] < b.key[0] ? -1 : 1;
    if (a.key[1] != b.key[1]) return a.key[1] < b.key[1] ? -1 : 1;
    if ((a.keyLength & b.keyLength & CacheItems::kKeyComplete) != 0) return 0;
    return kKeysUndecided;
}

namespace {

inline int compareNames(const CacheItems &x, const CacheItems::Row &a, const CacheItems &y,
                        const CacheItems::Row &b)
{
    const int c = compareKeys(a, b);
    if (c != kKeysUndecided) return c;
    // Equal keys made of the names' own first bytes: only the rest of the names can differ.
    constexpr std::uint8_t full = CacheItems::kKeyAsciiBytes | CacheItems::kKeyBytes;
    if ((a.keyLength & ~CacheItems::kKeyComplete) == full &&
        (b.keyLength & ~CacheItems::kKeyComplete) == full)
        return NameMatch::compare(x.name(a).sliced(CacheItems::kKeyBytes),
                                  y.name(b).sliced(CacheItems::kKeyBytes));
    return NameMatch::compare(x.name(a), y.name(b));
}

// Origin folders of two lists' rows: one table when they share it, else the folders themselves.
inline int compareOrigins(const CacheItems &x, const CacheItems::Row &a, const CacheItems &y,
                          const CacheItems::Row &b)
{
    if (x.origins() == y.origins())
        return x.origins() ? x.origins()->compare(a.origin, b.origin) : 0;
    return NameMatch::compare(x.originFolder(a), y.originFolder(b));
}

// Order of the time folders, as ranks: equal names share a rank. Sorting by time then compares
// two integers instead of two names.
std::vector<std::uint32_t> folderRanks(const CacheItems &items)
{
    const std::uint32_t folders = items.folderCount();
    std::vector<std::uint32_t> order(folders);
    for (std::uint32_t i = 0; i < folders; ++i)
        order[i] = i;
    auto cmp = [&](std::uint32_t a, std::uint32_t b) {
        return NameMatch::compare(items.timeFolderName(a), items.timeFolderName(b));
    };
    std::sort(order.begin(), order.end(),
              [&](std::uint32_t a, std::uint32_t b) { return cmp(a, b) < 0; });
    std::vector<std::uint32_t> rank(folders);
    std::uint32_t r = 0;
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (i > 0 && cmp(order[i - 1], order[i]) != 0) ++r;
        rank[order[i]] = r;
    }
    return rank;
}

// The one order of two rows of a list. A time sort over many rows ranks the folders first
// (`ranks`); without ranks it compares the folders' names. A name sort lets keys that differ
// decide before any call.
struct RowOrder
{
    const CacheItems &items;
    SortOrder order;
    const std::vector<std::uint32_t> *ranks = nullptr;

    int compare(const CacheItems::Row &a, const CacheItems::Row &b) const
    {
        int c = 0;
        switch (order.key) {
        case SortOrder::Origin:
            c = compareOrigins(items, a, items, b);
            if (c == 0) c = compareNames(items, a, items, b);
            break;
        case SortOrder::Time:
            // Time-folder names are ASCII digits, so equal folders need no look at the names.
            if (a.folder == b.folder) return 0;
            if (ranks)
                c = (*ranks)[a.folder] == (*ranks)[b.folder]
                        ? 0
                        : ((*ranks)[a.folder] < (*ranks)[b.folder] ? -1 : 1);
            else
                c = NameMatch::compare(items.timeFolderName(a.folder),
                                       items.timeFolderName(b.folder));
            break;
        case SortOrder::Name:
            c = compareNames(items, a, items, b);
            break;
        }
        return order.descending ? -c : c;
    }

    bool operator()(const CacheItems::Row &a, const CacheItems::Row &b) const
    {
        if (order.key == SortOrder::Name) {
            if (a.key[0] != b.key[0])
                return order.descending ? a.key[0] > b.key[0] : a.key[0] < b.key[0];
            if (a.key[1] != b.key[1])
                return order.descending ? a.key[1] > b.key[1] : a.key[1] < b.key[1];
        }
        return compare(a, b) < 0;
    }
};

} // namespace

int compare(const CacheItems &items, const CacheItems::Row &a, const CacheItems::Row &b,
            SortOrder order)
{
    return RowOrder{items, order}.compare(a, b);
}

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
        while (end < keys.size() && keys[end].k0 == keys[start].k0 &&
               keys[end].k1 == keys[start].k1) {
            whole = whole && (rows[keys[end].row].keyLength & CacheItems::kKeyComplete);
            ++end;
        }
        if (end - start > 1 && !whole) {
            // Each name of the run is decoded once, not at every comparison; the decoded texts
            // compare exactly as NameMatch::compare compares the names.
            std::vector<std::pair<QString, std::uint32_t>> texts;
            texts.reserve(end - start);
            for (std::size_t i = start; i < end; ++i)
                texts.emplace_back(NameMatch::decodedForOrder(items.name(rows[keys[i].row])),
                                   keys[i].row);
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
    const std::vector<std::uint32_t> rank = folderRanks(items);
    const auto &rows = items.rows();
    std::vector<std::uint32_t> order(rows.size());
    for (std::uint32_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        const std::uint32_t ra = rank[rows[a].folder], rb = rank[rows[b].folder];
        return descending ? ra > rb : ra < rb;
    });
    return order;
}

std::vector<std::uint32_t> orderOf(const CacheItems &items, SortOrder sortOrder)
{
    switch (sortOrder.key) {
    case SortOrder::Origin: {
        // Few folders, many names: by name first, then stably by folder.
        std::vector<std::uint32_t> order = nameOrder(items, sortOrder.descending);
        const auto &rows = items.rows();
        std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            const int c = compareOrigins(items, rows[a], items, rows[b]);
            return sortOrder.descending ? c > 0 : c < 0;
        });
        return order;
    }
    case SortOrder::Time:
        return timeOrder(items, sortOrder.descending);
    case SortOrder::Name:
        break;
    }
    return nameOrder(items, sortOrder.descending);
}

} // namespace

void sort(CacheItems &items, SortOrder order)
{
    // A short list (one time folder, say) sorts its rows in place; a long one sorts its keys
    // apart and moves each row once.
    auto &rows = items.rows();
    if (rows.size() <= 4096) {
        std::sort(rows.begin(), rows.end(), RowOrder{items, order});
        return;
    }
    const std::vector<std::uint32_t> byRow = orderOf(items, order);
    std::vector<CacheItems::Row> sorted(rows.size());
    for (std::size_t i = 0; i < byRow.size(); ++i)
        sorted[i] = rows[byRow[i]];
    rows.swap(sorted);
}

namespace {

// By name, a key's first byte already orders rows whose first bytes differ: the rows are put in
// runs of equal first bytes in place (one counting pass, one pass of swaps), and the runs are
// sorted on every core at once, largest first. Nothing is merged and no buffer is needed.
void sortByFirstKeyByte(std::vector<CacheItems::Row> &rows, const RowOrder &less, bool descending)
{
    auto bucket = [descending](const CacheItems::Row &r) {
        const auto b = std::size_t(r.key[0] >> 56);
        return descending ? 255 - b : b;
    };
    std::array<std::size_t, 257> begin{};
    for (const CacheItems::Row &r : rows)
        ++begin[bucket(r) + 1];
    for (std::size_t b = 1; b < begin.size(); ++b)
        begin[b] += begin[b - 1];
    std::array<std::size_t, 256> next;
    std::copy(begin.begin(), begin.end() - 1, next.begin());
    for (std::size_t b = 0; b < 256; ++b) {
        while (next[b] < begin[b + 1]) {
            const std::size_t to = bucket(rows[next[b]]);
            if (to == b)
                ++next[b];
            else
                std::swap(rows[next[b]], rows[next[to]++]);
        }
    }
    std::vector<std::size_t> runs;
    for (std::size_t b = 0; b < 256; ++b)
        if (begin[b + 1] - begin[b] > 1) runs.push_back(b);
    std::sort(runs.begin(), runs.end(), [&](std::size_t a, std::size_t b) {
        return begin[a + 1] - begin[a] > begin[b + 1] - begin[b];
    });
    Jobs::parallelFor(runs.size(), [&](std::size_t i) {
        const std::size_t b = runs[i];
        std::sort(rows.begin() + std::ptrdiff_t(begin[b]),
                  rows.begin() + std::ptrdiff_t(begin[b + 1]), less);
    });
}

} // namespace

void sortParallel(CacheItems &items, SortOrder order)
{
    auto &rows = items.rows();
    const auto ranks =
        order.key == SortOrder::Time ? folderRanks(items) : std::vector<std::uint32_t>();
    const RowOrder less{items, order, &ranks};
    if (rows.size() < 20000 || Jobs::cores() < 2) {
        std::sort(rows.begin(), rows.end(), less);
        return;
    }
    if (order.key == SortOrder::Name) {
        sortByFirstKeyByte(rows, less, order.descending);
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

void mergeSortedInto(CacheItems &items, CacheItems &&sortedBatch, SortOrder order)
{
    const std::size_t before = items.rows().size();
    items.append(std::move(sortedBatch));
    auto &rows = items.rows();
    std::inplace_merge(rows.begin(), rows.begin() + std::ptrdiff_t(before), rows.end(),
                       RowOrder{items, order});
}

void mergeRuns(CacheItems &items, SortOrder order)
{
    // Bottom-up: neighbouring runs are merged pairwise, level after level, each level one
    // front-to-back pass over the rows. Only the rows move; the names stay where they are.
    std::vector<CacheItems::Row> from = items.rows();
    std::vector<std::size_t> bounds;
    for (std::size_t i = 0; i < from.size(); ++i)
        if (i == 0 || from[i].folder != from[i - 1].folder) bounds.push_back(i);
    bounds.push_back(from.size());
    if (bounds.size() <= 2) return;
    std::vector<CacheItems::Row> to(from.size());
    const RowOrder less{items, order};
    while (bounds.size() > 2) {
        std::vector<std::size_t> merged;
        std::size_t i = 0;
        for (; i + 2 < bounds.size(); i += 2) {
            std::merge(from.begin() + std::ptrdiff_t(bounds[i]),
                       from.begin() + std::ptrdiff_t(bounds[i + 1]),
                       from.begin() + std::ptrdiff_t(bounds[i + 1]),
                       from.begin() + std::ptrdiff_t(bounds[i + 2]),
                       to.begin() + std::ptrdiff_t(bounds[i]), less);
            merged.push_back(bounds[i]);
        }
        if (i + 1 < bounds.size()) { // an odd run out: carried over as it is
            std::copy(from.begin() + std::ptrdiff_t(bounds[i]),
                      from.begin() + std::ptrdiff_t(bounds[i + 1]),
                      to.begin() + std::ptrdiff_t(bounds[i]));
            merged.push_back(bounds[i]);
        }
        merged.push_back(from.size());
        bounds.swap(merged);
        from.swap(to);
    }
    items.rows().swap(from);
}

void sortCompact(CacheItems &items, SortOrder sortOrder)
{
    const std::vector<std::uint32_t> order = orderOf(items, sortOrder);
    CacheItems out;
    out.setOrigins(items.origins());
    out.reserve(order.size(), items.nameBytes());
    for (std::uint32_t f = 0; f < items.folderCount(); ++f)
        out.addFolder(items.timeFolderPath(f));
    for (const std::uint32_t i : order)
        out.copyItem(items, items.rows()[i], items.rows()[i].folder);
    items = std::move(out);
}

} // namespace ContentsSort
