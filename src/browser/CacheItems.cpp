#include "browser/CacheItems.h"

#include "browser/NameMatch.h"

#include <algorithm>
#include <cstring>

std::uint32_t OriginFolders::intern(const QByteArray &folder)
{
    std::lock_guard lock(mMutex);
    const auto it = mIds.constFind(folder);
    if (it != mIds.cend()) return *it;
    mFolders.push_back(folder);
    const auto id = std::uint32_t(mFolders.size());
    mIds.insert(folder, id);
    return id;
}

QByteArray OriginFolders::folder(std::uint32_t id) const
{
    std::lock_guard lock(mMutex);
    return id == 0 || id > mFolders.size() ? QByteArray() : mFolders[id - 1];
}

int OriginFolders::compare(std::uint32_t a, std::uint32_t b) const
{
    // Not known yet sorts as none recorded.
    if (a & CacheItems::kOriginWaiting) a = 0;
    if (b & CacheItems::kOriginWaiting) b = 0;
    if (a == b) return 0;
    if (a == 0 || b == 0) return a == 0 ? -1 : 1;
    std::lock_guard lock(mMutex);
    return NameMatch::compare(mFolders[a - 1], mFolders[b - 1]);
}

std::size_t OriginFolders::bytes() const
{
    std::lock_guard lock(mMutex);
    std::size_t n = mFolders.capacity() * sizeof(QByteArray) +
                    std::size_t(mIds.capacity()) * 2 * sizeof(void *);
    for (const QByteArray &f : mFolders)
        n += std::size_t(f.capacity());
    return n;
}

QByteArray CacheItems::originFolder(const Row &r) const
{
    return r.origin && !originWaiting(r) && mOrigins ? mOrigins->folder(r.origin) : QByteArray();
}

qsizetype CacheItems::fillOrigins(const std::shared_ptr<OriginFolders> &table, std::uint32_t first,
                                  const std::vector<std::uint32_t> &ids)
{
    if (!mOrigins) mOrigins = table;
    const bool same = mOrigins == table;
    qsizetype changed = 0;
    for (Row &r : mRows) {
        if (!originWaiting(r)) continue;
        const std::uint32_t k = (r.origin & ~kOriginWaiting) - first;
        if (k >= ids.size()) continue;
        const std::uint32_t id = ids[k];
        if (id == kOriginWaiting) continue; // another batch's
        r.origin = same || id == 0 ? id : mOrigins->intern(table->folder(id));
        ++changed;
    }
    return changed;
}

std::uint32_t CacheItems::adoptOrigin(const CacheItems &from, std::uint32_t id)
{
    if ((id & kOriginWaiting) || id == 0) return id; // a ticket stays with its row
    if (!from.mOrigins) return 0;
    if (!mOrigins) mOrigins = from.mOrigins;
    return mOrigins == from.mOrigins ? id : mOrigins->intern(from.mOrigins->folder(id));
}

void CacheItems::clear()
{
    mOrigins.reset();
    mFolders.clear();
    mFolderNameOffsets.clear();
    mArena.clear();
    mRows.clear();
}

void CacheItems::shrinkToFit()
{
    mFolders.shrink_to_fit();
    mFolderNameOffsets.shrink_to_fit();
    mArena.shrink_to_fit();
    mRows.shrink_to_fit();
}

void CacheItems::reserve(std::size_t rows, std::size_t nameBytes)
{
    mRows.reserve(rows);
    mArena.reserve(nameBytes);
}

std::uint32_t CacheItems::addFolder(const QByteArray &timeFolderPath)
{
    QByteArray path = timeFolderPath;
    while (path.size() > 1 && path.endsWith('/'))
        path.chop(1);
    mFolders.push_back(path);
    mFolderNameOffsets.push_back(std::uint32_t(path.lastIndexOf('/') + 1));
    return std::uint32_t(mFolders.size() - 1);
}

void CacheItems::setKey(Row &r, const char *name, std::size_t length)
{
    // The key holds the name's first characters as the case-insensitive order folds them. ASCII
    // folds to lower case; the Kelvin sign (E2 84 AA) and the long s (C5 BF) fold onto "k" and
    // "s"; every other character beyond ASCII (and every byte that is not UTF-8) folds to
    // something above all of ASCII: the key ends there with kKeyAboveAscii.
    // Names whose first 16 bytes are ASCII, nearly all: eight bytes at a time, upper case
    // found by carries (a byte's top bit set once it is past 'Z', or at least 'A').
    {
        const std::size_t m = std::min<std::size_t>(length, kKeyBytes);
        std::uint64_t w[2] = {0, 0};
        std::memcpy(w, name, m);
        constexpr std::uint64_t kHigh = 0x8080808080808080ull;
        if (((w[0] | w[1]) & kHigh) == 0) {
            for (std::uint64_t &x : w) {
                const std::uint64_t upper =
                    (x + 0x3f3f3f3f3f3f3f3full) & ~(x + 0x2525252525252525ull) & kHigh;
                r.key[&x - w] = __builtin_bswap64(x | (upper >> 2));
            }
            r.keyLength = std::uint8_t(m | (length <= std::size_t(kKeyBytes) ? kKeyComplete : 0) |
                                       kKeyAsciiBytes);
            return;
        }
    }
    const auto *p = reinterpret_cast<const unsigned char *>(name);
    std::size_t i = 0;
    int n = 0;
    bool complete = true;
    bool asciiBytes = true;
    auto put = [&](unsigned char c) {
        r.key[n / 8] |= std::uint64_t(c) << (56 - 8 * (n % 8));
        ++n;
    };
    while (i < length) {
        if (n == kKeyBytes) {
            complete = false;
            break;
        }
        const unsigned char c = p[i];
        if (c < 0x80) {
            put((c >= 'A' && c <= 'Z') ? (c | 0x20) : c);
            ++i;
        } else if (c == 0xc5 && i + 1 < length && p[i + 1] == 0xbf) {
            put('s');
            i += 2;
            asciiBytes = false;
        } else if (c == 0xe2 && i + 2 < length && p[i + 1] == 0x84 && p[i + 2] == 0xaa) {
            put('k');
            i += 3;
            asciiBytes = false;
        } else {
            put(kKeyAboveAscii);
            complete = false;
            asciiBytes = false;
            break;
        }
    }
    r.keyLength =
        std::uint8_t(n | (complete ? kKeyComplete : 0) | (asciiBytes ? kKeyAsciiBytes : 0));
}

void CacheItems::addItem(std::uint32_t folder, const char *name, std::size_t length, Kind kind,
                         std::int64_t size)
{
    Row r;
    r.folder = folder;
    r.offset = std::uint32_t(mArena.size());
    r.length = std::uint16_t(length);
    r.kind = kind;
    r.size = size;
    setKey(r, name, length);
    mArena.append(name, length);
    mRows.push_back(r);
}

void CacheItems::copyItem(const CacheItems &from, const Row &row, std::uint32_t folder)
{
    Row r = row;
    r.folder = folder;
    r.offset = std::uint32_t(mArena.size());
    r.origin = adoptOrigin(from, row.origin);
    mArena.append(from.mArena.data() + row.offset, row.length);
    mRows.push_back(r);
}

void CacheItems::append(CacheItems &&other)
{
    // Taking the other list whole is cheapest, unless room was reserved here on purpose.
    if (mRows.empty() && mFolders.empty() && mRows.capacity() <= other.mRows.capacity()) {
        *this = std::move(other);
        return;
    }
    const auto folderBase = std::uint32_t(mFolders.size());
    const auto offsetBase = std::uint32_t(mArena.size());
    mFolders.insert(mFolders.end(), std::make_move_iterator(other.mFolders.begin()),
                    std::make_move_iterator(other.mFolders.end()));
    mFolderNameOffsets.insert(mFolderNameOffsets.end(), other.mFolderNameOffsets.begin(),
                              other.mFolderNameOffsets.end());
    mArena.append(other.mArena);
    // Grow geometrically: many small batches must not copy the whole list each time.
    const std::size_t needed = mRows.size() + other.mRows.size();
    if (mRows.capacity() < needed) mRows.reserve(std::max(needed, mRows.capacity() * 2));
    if (!mOrigins) mOrigins = other.mOrigins;
    const bool sameOrigins = mOrigins == other.mOrigins;
    const std::size_t first = mRows.size();
    mRows.resize(needed);
    Row *to = mRows.data() + first;
    for (Row r : other.mRows) {
        r.folder += folderBase;
        r.offset += offsetBase;
        if (!sameOrigins) r.origin = adoptOrigin(other, r.origin);
        *to++ = r;
    }
    other.clear();
}

QByteArrayView CacheItems::timeFolderName(std::uint32_t folder) const
{
    const QByteArray &p = mFolders[folder];
    const std::uint32_t start = mFolderNameOffsets[folder];
    return QByteArrayView(p.constData() + start, p.size() - start);
}

QByteArray CacheItems::fullPath(qsizetype i) const
{
    const Row &r = row(i);
    const QByteArray &folder = mFolders[r.folder];
    QByteArray path;
    path.reserve(folder.size() + 1 + r.length);
    path.append(folder).append('/').append(name(r));
    return path;
}

QString CacheItems::displayName(qsizetype i) const
{
    return QString::fromUtf8(name(i));
}

std::size_t CacheItems::overheadBytes() const
{
    std::size_t folders = 0;
    for (const QByteArray &f : mFolders)
        folders += sizeof(QByteArray) + std::size_t(f.capacity()) + sizeof(std::uint32_t);
    return mRows.capacity() * sizeof(Row) + folders + (mArena.capacity() - mArena.size()) +
           (mOrigins ? mOrigins->bytes() : 0);
}
