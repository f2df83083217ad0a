#include "browser/CacheItems.h"

#include <algorithm>

void CacheItems::clear()
{
    mFolders.clear();
    mFolderNameOffsets.clear();
    mArena.clear();
    mRows.clear();
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

void CacheItems::addItem(std::uint32_t folder, const char *name, std::size_t length, Kind kind, std::int64_t size)
{
    Row r;
    r.folder = folder;
    r.offset = std::uint32_t(mArena.size());
    r.length = std::uint16_t(length);
    r.kind = kind;
    r.size = size;
    mArena.append(name, length);
    mRows.push_back(r);
}

void CacheItems::append(CacheItems &&other)
{
    if (mRows.empty() && mFolders.empty()) {
        *this = std::move(other);
        return;
    }
    const auto folderBase = std::uint32_t(mFolders.size());
    const auto offsetBase = std::uint32_t(mArena.size());
    mFolders.insert(mFolders.end(), std::make_move_iterator(other.mFolders.begin()),
                    std::make_move_iterator(other.mFolders.end()));
    mFolderNameOffsets.insert(mFolderNameOffsets.end(), other.mFolderNameOffsets.begin(), other.mFolderNameOffsets.end());
    mArena.append(other.mArena);
    // Grow geometrically: many small batches must not copy the whole list each time.
    const std::size_t needed = mRows.size() + other.mRows.size();
    if (mRows.capacity() < needed)
        mRows.reserve(std::max(needed, mRows.capacity() * 2));
    for (Row r : other.mRows) {
        r.folder += folderBase;
        r.offset += offsetBase;
        mRows.push_back(r);
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
    return mRows.capacity() * sizeof(Row) + folders + (mArena.capacity() - mArena.size());
}
