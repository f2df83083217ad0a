#pragma once

#include <QByteArray>

#include <memory>

// Taking a shadow of a trashed item. First every file of the item is opened and held, as fast as
// the folders can be read: an open file keeps its data even once the trash deletes it, and
// opening is quicker than deleting, so a program that empties the trash at once cannot outrun it.
// Then every non-folder entry is hard-linked into the shadow (a link keeps the data alive at no
// cost) and every folder re-created with its mode and times. A file whose name is gone by then is
// saved from the descriptor that holds it; where a hard link is refused (another mount of the same
// file system, a file the user may not link), a regular file is copied. A copy goes to a
// temporary name, every write checked, and takes its name only once its length and identity
// (inode, size and time of the source, unchanged from start to end) prove it whole. Links are
// linked as links, never followed.
//
// The work is done in small steps, so that the agent can serve newer items between them, and
// within each folder the files go first (those that could not be held before the held ones), the
// folders after: what is most at risk is saved first.
namespace Shadow {

struct Stats
{
    qint64 linked = 0;
    qint64 copied = 0; // copies, and files saved from their held descriptor
    qint64 folders = 0;
    qint64 held = 0;   // files opened and held while the item was read
    qint64 failed = 0; // entries that could not be mirrored (gone before held, refused, no space)
    qint64 missingBytes = 0; // of files whose copy could not be finished
    int firstError = 0;
};

class Mirror
{
public:
    // Mirrors srcDirFd/srcName as dstDirFd/dstName (the descriptors are duplicated). Entries
    // already in the mirror are left as they are, so a walk that was interrupted, or a folder
    // that is still being filled, is completed by walking again. `item`, when given, is the item
    // itself already opened (the moment it arrived in the trash), which holds it from then on.
    Mirror(int srcDirFd, const QByteArray &srcName, int dstDirFd, const QByteArray &dstName,
           int item = -1);
    ~Mirror();
    Mirror(const Mirror &) = delete;
    Mirror &operator=(const Mirror &) = delete;

    // Does at most `budget` operations (an open, a link, a folder, a chunk of a copy); true once
    // the walk has reached its end.
    bool step(int budget);
    bool walked() const;
    // Still opening and holding the item's files (the part that races with its deletion).
    bool holding() const;
    // Starts a new walk from the top (following a folder that is still being filled); what the
    // new walk makes shows in madeThisWalk().
    void walkAgain();
    qint64 madeThisWalk() const;
    // Whether the last walk reached its end with nothing missing.
    bool complete() const;
    // The item left the trash (moved out to be deleted, or deleted): the walk goes on through
    // the descriptors it holds until walked(), but is never walked again; a copy that cannot be
    // finished is kept as far as it got, under its name (it may be all there is), and counted as
    // missing bytes.
    void sourceGone();
    const Stats &stats() const;

    // At most this many files are held at once (the process's descriptor limit allows).
    static void setHoldLimit(long files);

private:
    struct State;
    std::unique_ptr<State> d;
};

} // namespace Shadow
