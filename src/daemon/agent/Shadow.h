#pragma once

#include <QByteArray>

#include <memory>

// Taking a shadow of a trashed item: every non-folder entry is hard-linked (a link keeps the
// data alive when the trash unlinks it, at no cost), every folder re-created with its mode and
// times. Where a hard link is refused (another mount of the same file system, a file the user
// may not link), a regular file is copied instead: to a temporary name, every write checked,
// and only once its length and identity (inode, size and time of the source, unchanged from
// start to end) prove it whole does it take its name. Links are linked as links, never followed.
//
// The walk is done in small steps, so that the agent can serve newer items between them, and
// within each folder the files go first, the folders after: what can be saved quickly is.
namespace Shadow {

struct Stats
{
    qint64 linked = 0;
    qint64 copied = 0;
    qint64 folders = 0;
    qint64 failed = 0;       // entries that could not be mirrored (gone, refused, no space)
    qint64 missingBytes = 0; // of files whose copy could not be finished
    int firstError = 0;
};

class Mirror
{
public:
    // Mirrors srcDirFd/srcName as dstDirFd/dstName (the descriptors are duplicated). Entries
    // already in the mirror are left as they are, so a walk that was interrupted, or a folder
    // that is still being filled, is completed by walking again.
    Mirror(int srcDirFd, const QByteArray &srcName, int dstDirFd, const QByteArray &dstName);
    ~Mirror();
    Mirror(const Mirror &) = delete;
    Mirror &operator=(const Mirror &) = delete;

    // Does at most `budget` operations (a link, a folder, a chunk of a copy); true once the walk
    // has reached its end.
    bool step(int budget);
    bool walked() const;
    // Starts a new walk from the top (following a folder that is still being filled); what the
    // new walk makes shows in madeThisWalk().
    void walkAgain();
    qint64 madeThisWalk() const;
    // Whether the last walk reached its end with nothing missing.
    bool complete() const;
    // The source is gone: the walk stops where it is. A copy in progress is kept as far as it
    // got, under its name (it may be all there is), and counted as missing bytes.
    void abandon();
    const Stats &stats() const;

private:
    struct State;
    std::unique_ptr<State> d;
};

} // namespace Shadow
