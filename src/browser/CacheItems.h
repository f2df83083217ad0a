#pragma once

#include <QByteArray>
#include <QString>

#include <QHash>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// The folders items were deleted from, each held once however many items came from it. One scan
// fills one table from all its threads, and its lists share it.
class OriginFolders
{
public:
    // 1-based; 0 stands for "not recorded". Ids stay below CacheItems::kOriginWaiting.
    std::uint32_t intern(const QByteArray &folder);
    QByteArray folder(std::uint32_t id) const;
    // The order of two folders (NameMatch::compare), without copying them; 0 sorts first.
    int compare(std::uint32_t a, std::uint32_t b) const;
    std::size_t bytes() const;

private:
    mutable std::mutex mMutex;
    std::vector<QByteArray> mFolders;
    QHash<QByteArray, std::uint32_t> mIds;
};

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
        // The name's first characters as the case-insensitive order folds them, one byte each,
        // packed big-endian (see setKey): two keys that differ order their names as the full
        // comparison does, so most comparisons end here without reading the arena. keyLength
        // counts the packed bytes (kKeyLengthMask); kKeyComplete marks a name packed whole,
        // kKeyAsciiBytes a key made of the name's own first bytes.
        std::uint8_t keyLength = 0;
        // The folder it was deleted from, in origins(); 0 when none was recorded. It fills the
        // padding before `size`: a row stays 40 bytes. With kOriginWaiting set, the origin is
        // not known yet and the rest is the row's ticket for the pass that fills it in.
        std::uint32_t origin = 0;
        std::int64_t size = -1; // -1 when not read
        std::uint64_t key[2] = {0, 0};
    };
    static constexpr std::uint8_t kKeyComplete = 0x80;
    // The key's bytes are the name's first bytes (all ASCII), so the names' rest starts there.
    static constexpr std::uint8_t kKeyAsciiBytes = 0x40;
    static constexpr std::uint8_t kKeyLengthMask = 0x1f;
    static constexpr std::uint8_t kKeyAboveAscii = 0xff;
    static constexpr int kKeyBytes = 16;
    static constexpr std::uint32_t kOriginWaiting = 0x80000000u;
    static bool originWaiting(const Row &r) { return (r.origin & kOriginWaiting) != 0; }

    qsizetype size() const { return qsizetype(mRows.size()); }
    bool isEmpty() const { return mRows.empty(); }
    void clear();
    void reserve(std::size_t rows, std::size_t nameBytes);

    // Adds a time folder (full path) and returns its index; rows refer to it.
    std::uint32_t addFolder(const QByteArray &timeFolderPath);
    void addItem(std::uint32_t folder, const char *name, std::size_t length, Kind kind,
                 std::int64_t size = -1);
    // Adds a row of another list, with its name and all it knows, under this list's `folder`.
    void copyItem(const CacheItems &from, const Row &row, std::uint32_t folder);
    // Moves another list's rows to the end of this one.
    void append(CacheItems &&other);

    const Row &row(qsizetype i) const { return mRows[std::size_t(i)]; }
    std::vector<Row> &rows() { return mRows; }
    const std::vector<Row> &rows() const { return mRows; }

    QByteArrayView name(const Row &r) const
    {
        return QByteArrayView(mArena.data() + r.offset, r.length);
    }
    QByteArrayView name(qsizetype i) const { return name(row(i)); }
    const QByteArray &timeFolderPath(std::uint32_t folder) const { return mFolders[folder]; }
    std::uint32_t folderCount() const { return std::uint32_t(mFolders.size()); }
    // The time folder's own name ("yyyy-MM-dd HH_mm_ss"), the caching time of its items.
    QByteArrayView timeFolderName(std::uint32_t folder) const;
    QByteArray fullPath(qsizetype i) const;
    // For display only: names that are not UTF-8 show with replacement characters.
    QString displayName(qsizetype i) const;

    // The table that rows' origins refer to; rows of lists with another table are moved over.
    void setOrigins(std::shared_ptr<OriginFolders> origins) { mOrigins = std::move(origins); }
    const std::shared_ptr<OriginFolders> &origins() const { return mOrigins; }
    // The folder the row's item was deleted from; empty when not recorded or not known yet.
    QByteArray originFolder(const Row &r) const;
    // Gives waiting rows whose ticket is in [first, first + ids.size()) their origin, ids[ticket
    // - first] in `table` (0: none recorded); returns how many rows changed.
    qsizetype fillOrigins(const std::shared_ptr<OriginFolders> &table, std::uint32_t first,
                          const std::vector<std::uint32_t> &ids);

    // Approximate heap bytes held, names excluded (for the memory benchmark).
    std::size_t overheadBytes() const;
    std::size_t nameBytes() const { return mArena.size(); }
    // Gives back the memory that clear() and reserve() kept.
    void shrinkToFit();

private:
    static void setKey(Row &r, const char *name, std::size_t length);
    // A row's origin id in this list's table, for a row of `from`.
    std::uint32_t adoptOrigin(const CacheItems &from, std::uint32_t id);

    std::vector<QByteArray> mFolders;
    std::vector<std::uint32_t> mFolderNameOffsets; // where the last component starts
    std::string mArena;
    std::vector<Row> mRows;
    std::shared_ptr<OriginFolders> mOrigins;
};
