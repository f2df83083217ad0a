#pragma once

#include <QByteArray>

// Taking a shadow of a trashed item: every non-folder entry is hard-linked (a link keeps the
// data alive when the trash unlinks it, at no cost), every folder re-created with its mode and
// times. Where a hard link is refused (another mount of the same file system, a file the user
// may not link), a regular file is copied instead. Links are linked as links, never followed.
namespace Shadow {

struct Stats
{
    qint64 linked = 0;
    qint64 copied = 0;
    qint64 folders = 0;
    qint64 failed = 0;
    int firstError = 0;
};

// Mirrors srcDirFd/srcName as dstDirFd/dstName. Entries that already exist in the mirror are
// left as they are, so calling it again completes a shadow (an item still being filled in).
Stats mirror(int srcDirFd, const char *srcName, int dstDirFd, const char *dstName);

} // namespace Shadow
