#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

// Files and folders that Salvora 3 reads and writes for its user, handled so that nothing another
// account planted is ever followed, waited on or made readable: every open is relative to a
// descriptor, never follows a link at the last component, never blocks on a FIFO or a device,
// and checks what it got. Plain C++ (no Qt): the set-user-id helper and the preload library use
// it too. Errors are errno values (0 for success); EINVAL stands for "not a regular file" and
// EPERM for "owned by someone else".
namespace safefile {

// openat2() with the RESOLVE_* restrictions in `resolve` and O_CLOEXEC added, tried again (64
// times at most) when a rename or a signal raced with the lookup (EAGAIN, EINTR). -1 with errno
// set otherwise: ENOSYS on a kernel older than 5.6.
int openResolved(int dirFd, const char *path, int flags, std::uint64_t resolve);

// openat() with O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY added, then a check that the
// result is a regular file (and, with `mustOwn`, that it belongs to the effective user).
// -1 with errno set otherwise.
int openRegular(int dirFd, const char *name, int flags, mode_t mode = 0, bool mustOwn = false);

// The whole content of a regular file, at most `maxBytes` (EFBIG beyond).
struct ReadResult
{
    int error = 0;
    std::string data;
};
ReadResult readRegular(int dirFd, const char *name, std::size_t maxBytes);

// Writes every byte, going on after short writes; the errno of the first failure, or 0.
int writeAll(int fd, std::string_view data);

// Replaces dirFd/name whole: the data goes to a new temporary file in the same folder, which is
// renamed over the name only once every byte is written (and synced when `sync` is set). A link,
// FIFO or anything else at the name is replaced, never followed. On failure nothing changes.
int replaceFile(int dirFd, const char *name, std::string_view data, mode_t mode, bool sync = false);

// Appends one record with a single write() (so appends of several processes never interleave
// within a record) to a regular file of the user, created with `mode` when missing.
int appendRecord(int dirFd, const char *name, std::string_view record, mode_t mode);

// Makes a folder of the effective user private (0700) on its descriptor, if it is not already;
// EPERM when it belongs to someone else, ENOTDIR when it is no folder.
int makePrivate(int fd);

// Opens dirFd/name as a folder without following a link; with `create`, makes it first (mode,
// narrowed by the umask) when missing. *made tells whether it was made here. A folder made here
// is set to exactly `mode` on its descriptor. A folder the user may only pass through comes back
// as an O_PATH descriptor: good for fstat and for opening what is inside, not for reading.
int openFolder(int dirFd, const char *name, bool create, mode_t mode, bool *made = nullptr);

// Opens an absolute path as a folder, creating each missing folder on the way with `mode`
// (existing ones are left as they are). Only the last component is opened without following a
// link; the folders above are the user's own (home, XDG folders).
int openPathCreating(const std::string &path, mode_t mode);

} // namespace safefile
