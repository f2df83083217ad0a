#pragma once

#include <QByteArray>

#include <cstdint>
#include <functional>

// Low-level directory reading relative to descriptors, never following symbolic links. The
// building block of every walk of a cache: one getdents64 pass per folder and, where the caller
// needs it, one size-only statx per entry.
namespace FolderWalk {

enum class Type : std::uint8_t { Unknown, Directory, Regular, Symlink, Other };

// Opens a folder for reading without following a link at its last component. -1 on failure.
int openFolder(int dirFd, const char *name);
int openFolder(const QByteArray &path);

// Calls fn(name, type) for each entry but "." and "..". Types come from the directory entry
// when the file system gives them, from fstatat otherwise (Unknown when that fails too).
// Returns false when the folder could not be read at all.
bool forEachEntry(int dirFd, const std::function<void(const char *name, Type type)> &fn);

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
