#pragma once

#include <atomic>
#include <string_view>

// Removal inside a cache folder that never follows a symbolic link and never leaves the folder's
// mount. Folders of the user's own that are read-only are opened up on the way, as deleting a
// tree that came with them needs; nothing of another owner is ever changed.
namespace saferemove {

// A non-empty relative path whose components are neither empty, "." nor "..", without NUL bytes
// and at most PATH_MAX long. Anything else is refused before the file system is touched.
bool isCleanRelativePath(std::string_view path);

// openat2() with RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV: the result lies below
// dirFd, on its mount, reached without any link. -1 with errno set on failure.
int openBeneath(int dirFd, const char *path, int flags);

// Removes `path` (a file, a link itself, or a folder with everything in it) below dirFd.
// Returns 0, or the first errno met; the removal goes on past entries that fail, so a second
// attempt only has the rest to do. ENOENT for the item itself counts as done. With `stop`, it
// looks at the flag before each entry and gives up (ECANCELED) once it is set.
int removeBeneath(int dirFd, std::string_view path, const std::atomic<bool> *stop = nullptr);

} // namespace saferemove
