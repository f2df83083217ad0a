#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstring>

// Low-level directory reading relative to descriptors, never following symbolic links. The
// building block of every walk of a cache: one getdents64 pass per folder and, where the caller
// needs it, one size-only statx per entry.
namespace FolderWalk {

enum class Type : std::uint8_t { Unknown, Directory, Regular, Symlink, Other };

// Opens a folder for reading without following a link at its last component. -1 on failure.
int openFolder(int dirFd, const char *name);
int openFolder(const QByteArray &path);

// One batch of raw directory entries (getdents64): bytes read, 0 at the end, -1 on error.
long readEntries(int dirFd, char *buffer, std::size_t size);
// The entry type from the directory record, or from fstatat when the file system gives none.
Type entryType(int dirFd, const char *name, unsigned char direntType);
inline constexpr std::size_t kEntryBufferSize = 32768;

// Calls fn(name, type) for each entry but "." and "..", reading from the descriptor's current
// position (a freshly opened descriptor lists everything). Types come from the directory entry
// when the file system gives them, from fstatat otherwise (Unknown when that fails too).
// Returns false when the folder could not be read at all.
template <typename Fn> bool forEachEntry(int dirFd, Fn &&fn)
{
    // The kernel's struct linux_dirent64: inode (8), offset (8), record length (2), type (1), name.
    alignas(8) char buf[kEntryBufferSize];
    bool readAny = false;
    for (;;) {
        const long n = readEntries(dirFd, buf, sizeof buf);
        if (n < 0) return readAny;
        if (n == 0) return true;
        readAny = true;
        for (long off = 0; off < n;) {
            unsigned short reclen = 0;
            std::memcpy(&reclen, buf + off + 16, sizeof reclen);
            const auto type = static_cast<unsigned char>(buf[off + 18]);
            const char *name = buf + off + 19;
            off += reclen;
            if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
            fn(name, entryType(dirFd, name, type));
        }
    }
}

// Size of a non-folder entry, without following a link. -1 when it cannot be read.
std::int64_t entrySize(int dirFd, const char *name);

// Recursive total of the files below a folder: every non-folder entry adds its own size and 1
// to the count; folders add nothing. ".DS_Store" and ".Salvora3_CacheInformation" are skipped at
// every depth. Unreadable folders count as empty.
struct Totals
{
    std::int64_t bytes = 0;
    std::int64_t files = 0;
};
Totals countTree(int dirFd);
Totals countTree(const QByteArray &path);

} // namespace FolderWalk
