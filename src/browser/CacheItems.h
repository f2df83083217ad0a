#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <string>
#include <vector>

// A compact list of cache items. An item is its time folder plus its own name as bytes; names
// live in one shared arena and time folders in a table, so a row costs a few bytes beyond its
// name, even for a million rows.
class CacheItems
{
public:
    enum class Kind : std::uint8_t { Unknown, Folder, File, Link, Other };

    struct Row
    {
        std::uint32_t folder = 0; // index into the time-folder table
        std::uint32_t offset = 0; // name's first byte in the arena
        std::uint16_t length = 0; // names are at most 255 bytes on Linux file systems
        Kind kind = Kind::Unknown;
        std::int64_t size = -1; // -1 when not read
    };

    qsizetype size() const { return qsizetype(mRows.size()); }
    bool isEmpty() const { return mRows.empty(); }
    void clear();
    void reserve(std::size_t rows, std::size_t nameBytes);

    // Adds a time folder (full path) and returns its index; rows refer to it.
    std::uint32_t addFolder(const QByteArray &timeFolderPath);
    void addItem(std::uint32_t folder, const char *name, std::size_t length, Kind kind, std::int64_t size = -1);
    // Moves another list's rows to the end of this one.
    void append(CacheItems &&other);

    const Row &row(qsizetype i) const { return mRows[std::size_t(i)]; }
    std::vector<Row> &rows() { return mRows; }
    const std::vector<Row> &rows() const { return mRows; }

    QByteArrayView name(const Row &r) const { return QByteArrayView(mArena.data() + r.offset, r.length); }
    QByteArrayView name(qsizetype i) const { return name(row(i)); }
    const QByteArray &timeFolderPath(std::uint32_t folder) const { return mFolders[folder]; }
    std::uint32_t folderCount() const { return std::uint32_t(mFolders.size()); }
    // The time folder's own name ("yyyy-MM-dd HH_mm_ss"), the caching time of its items.
    QByteArrayView timeFolderName(std::uint32_t folder) const;
    QByteArray fullPath(qsizetype i) const;
    // For display only: names that are not UTF-8 show with replacement characters.
    QString displayName(qsizetype i) const;

    // Approximate heap bytes held, names excluded (for the memory benchmark).
    std::size_t overheadBytes() const;
    std::size_t nameBytes() const { return mArena.size(); }

private:
    std::vector<QByteArray> mFolders;
    std::vector<std::uint32_t> mFolderNameOffsets; // where the last component starts
    std::string mArena;
    std::vector<Row> mRows;
};
