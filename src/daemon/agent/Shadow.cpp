#include "Shadow.h"

#include "UniqueFd.h"
#include "cache/FolderWalk.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace Shadow {

namespace {

constexpr std::size_t kMaxDepth = 512;
constexpr off_t kCopyChunk = 8 << 20;
constexpr int kCopyAttempts = 3;

std::atomic<long> holdLimit{1000};
// Files held by every mirror of the process: the limit is the process's.
std::atomic<long> heldNow{0};

using Fd = UniqueFd;

struct Entry
{
    QByteArray src;
    QByteArray dst;
    bool folder = false;
};

// A folder being read to hold its files, one entry a step, in the order a program deleting the
// folder goes too; its entries are all read when the walk gets to it.
struct HoldFrame
{
    Fd dir;
    Fd mirror;       // its folder in the shadow, where files that cannot be held are linked at once
    std::string rel; // relative to the item, with a trailing slash ("" for the item itself)
    std::vector<char> buffer = std::vector<char>(FolderWalk::kEntryBufferSize);
    long have = 0;   // bytes of entries in the buffer
    long offset = 0; // the next entry's
    bool ended = false;

    // The next entry's name and type; false at the end.
    bool next(std::string &name, FolderWalk::Type &type)
    {
        for (;;) {
            if (offset >= have) {
                if (ended) return false;
                // The whole listing at once, before anything is opened: an entry that a deleting
                // program removed before a lazy read reached it would never be seen, and the item
                // taken for whole; read first, it is at worst found gone and counted missing.
                have = 0;
                for (;;) {
                    if (buffer.size() - std::size_t(have) < FolderWalk::kEntryBufferSize)
                        buffer.resize(buffer.size() * 2);
                    const long n = FolderWalk::readEntries(dir.fd, buffer.data() + have,
                                                           buffer.size() - std::size_t(have));
                    if (n <= 0) break;
                    have += n;
                }
                ended = true;
                offset = 0;
                if (have <= 0) return false;
            }
            unsigned short reclen = 0;
            std::memcpy(&reclen, buffer.data() + offset + 16, sizeof reclen);
            const auto dtype = static_cast<unsigned char>(buffer[std::size_t(offset) + 18]);
            const char *entry = buffer.data() + offset + 19;
            offset += reclen;
            if (entry[0] == '.' && (entry[1] == 0 || (entry[1] == '.' && entry[2] == 0))) continue;
            name = entry;
            type = FolderWalk::entryType(dir.fd, entry, dtype);
            return true;
        }
    }
};

// A folder being mirrored.
struct Frame
{
    Fd src;
    Fd dst;
    std::string rel;
    std::vector<Entry> entries;
    std::size_t next = 0;
    // Files nothing holds first (only a link saves them), then the held ones, then the folders.
    int pass = 0;
    bool top = false; // the pseudo-folder holding the item itself
};

struct Held
{
    Fd fd;
    struct stat st
    {
    };
    bool counted = false;

    Held() = default;
    Held(Held &&o) noexcept
        : fd(std::move(o.fd)), st(o.st), counted(std::exchange(o.counted, false))
    {
    }
    Held &operator=(Held &&o) noexcept
    {
        release();
        fd = std::move(o.fd);
        st = o.st;
        counted = std::exchange(o.counted, false);
        return *this;
    }
    ~Held() { release(); }
    void release()
    {
        if (counted) heldNow.fetch_sub(1, std::memory_order_relaxed);
        counted = false;
    }
};

// A folder the item had, as it was when read: made again from it if the trash takes it first.
struct SeenFolder
{
    std::string rel;
    struct stat st
    {
    };
};

// A copy on its way: a temporary file in the mirror that takes its name once whole.
struct Copy
{
    Fd src;
    Fd dst;
    Fd dir;
    QByteArray tmp;
    QByteArray name;
    struct stat start
    {
    };
    off_t done = 0;
    int attempts = 1;
    bool fromHeld = false; // the source's name is gone: its descriptor is all there is
};

// A copy that could not be finished: kept under its name if the source goes before a new walk
// can finish it.
struct Partial
{
    Fd dir;
    QByteArray tmp;
    QByteArray name;
};

QByteArray temporaryName()
{
    unsigned char b[6] = {};
    if (getrandom(b, sizeof b, GRND_NONBLOCK) != sizeof b)
        for (std::size_t i = 0; i < sizeof b; ++i)
            b[i] = static_cast<unsigned char>(getpid() >> (i % 4) * 8);
    char name[24];
    std::snprintf(name, sizeof name, ".sv3-%02x%02x%02x%02x%02x%02x", b[0], b[1], b[2], b[3], b[4],
                  b[5]);
    return name;
}

bool sameFile(const struct stat &a, const struct stat &b)
{
    return a.st_ino == b.st_ino && a.st_dev == b.st_dev && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

std::vector<std::pair<std::string, FolderWalk::Type>> listFolder(int fd)
{
    std::vector<std::pair<std::string, FolderWalk::Type>> entries;
    FolderWalk::forEachEntry(
        fd, [&](const char *name, FolderWalk::Type type) { entries.emplace_back(name, type); });
    return entries;
}

} // namespace

struct Mirror::State
{
    Fd topSrc;
    Fd topDst;
    // The item itself, opened at once: emptying the trash may first move it elsewhere (GNOME's
    // expunged/), which a descriptor does not mind.
    Fd topItem;
    struct stat topStat
    {
    };
    QByteArray srcName;
    QByteArray dstName;
    enum class Phase { Hold, Link, Rescue, Done } phase = Phase::Hold;
    bool started = false;
    bool gone = false;
    bool again = false;        // a new walk starts at the next step
    bool keptPartials = false; // copies that could not be finished were kept as they are
    bool holdCut = false;      // the item went before every folder of it could be read
    std::vector<HoldFrame> holding;
    std::unordered_map<std::string, Held> held;
    std::vector<SeenFolder> folders;
    std::vector<Frame> stack;
    std::optional<Copy> copy;
    std::vector<Partial> partials;
    Stats stats;
    qint64 made = 0;
    qint64 failedThisWalk = 0;

    void fail(int err)
    {
        ++stats.failed;
        ++failedThisWalk;
        if (stats.firstError == 0) stats.firstError = err;
    }

    // --- holding: open every file, in the order a program that deletes the item goes -------
    void openItem()
    {
        if (fstatat(topSrc.fd, srcName.constData(), &topStat, AT_SYMLINK_NOFOLLOW) != 0) return;
        if (S_ISDIR(topStat.st_mode) || S_ISREG(topStat.st_mode))
            topItem.fd = openat(topSrc.fd, srcName.constData(),
                                O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }

    void beginHold()
    {
        started = true;
        struct stat st
        {
        };
        if (topItem.fd < 0) {
            // A link or other special file is linked by name; anything else is gone already.
            if (fstatat(topSrc.fd, srcName.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
                fail(errno);
                phase = Phase::Done;
            }
            return;
        }
        if (fstat(topItem.fd, &st) != 0) return;
        if (S_ISDIR(st.st_mode)) {
            HoldFrame f;
            f.dir.fd = openat(topItem.fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (f.dir.fd < 0) return;
            f.mirror.fd = makeMirrorFolder(topDst.fd, dstName.constData());
            folders.push_back({"", st});
            holding.push_back(std::move(f));
        } else if (S_ISREG(st.st_mode) && held.empty()) {
            Held h;
            h.fd.fd = dup(topItem.fd);
            h.st = st;
            ++stats.held;
            h.counted = true;
            heldNow.fetch_add(1, std::memory_order_relaxed);
            held[""] = std::move(h);
        }
    }

    // Private while it is being filled; the item's own mode once walked.
    int makeMirrorFolder(int parent, const char *name)
    {
        if (parent < 0) return -1;
        if (mkdirat(parent, name, 0700) == 0) {
            ++stats.folders;
            ++made;
        }
        return openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }

    // False when the file is gone already.
    bool hold(int dirFd, const char *name, const std::string &rel, int mirrorFd = -1)
    {
        if (heldNow.load(std::memory_order_relaxed) >= holdLimit.load(std::memory_order_relaxed)) {
            // No descriptor left to hold it with: linked now, while the walk is still ahead of
            // whatever deletes the item (slower, but a link keeps it as well).
            if (mirrorFd >= 0 && linkat(dirFd, name, mirrorFd, name, 0) == 0) {
                ++stats.linked;
                ++made;
            } else if (mirrorFd >= 0 && errno == ENOENT) {
                fail(ENOENT);
                return false;
            }
            return true;
        }
        Held h;
        h.fd.fd = openat(dirFd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (h.fd.fd < 0) {
            // Gone already: nothing can bring it back. Anything else (a file the user may not
            // read) is left to the link.
            if (errno != ENOENT) return true;
            fail(ENOENT);
            return false;
        }
        ++stats.held;
        h.counted = true;
        heldNow.fetch_add(1, std::memory_order_relaxed);
        held[rel] = std::move(h);
        return true;
    }

    void holdStep()
    {
        if (holding.empty()) {
            phase = Phase::Link;
            return;
        }
        HoldFrame &f = holding.back();
        std::string name;
        FolderWalk::Type type{};
        if (!f.next(name, type)) {
            holding.pop_back();
            return;
        }
        const std::string rel = f.rel + name;
        // Only regular files hold data worth holding (and opening a device could do anything).
        if (type == FolderWalk::Type::Regular) {
            (void)hold(f.dir.fd, name.c_str(), rel, f.mirror.fd);
            return;
        }
        if (type != FolderWalk::Type::Directory) return;
        if (holding.size() > kMaxDepth) return;
        HoldFrame sub;
        sub.dir.fd =
            openat(f.dir.fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        struct stat st
        {
        };
        if (sub.dir.fd < 0 || fstat(sub.dir.fd, &st) != 0) {
            if (errno == ENOENT) holdCut = true;
            return;
        }
        sub.rel = rel + '/';
        sub.mirror.fd = makeMirrorFolder(f.mirror.fd, name.c_str());
        folders.push_back({rel, st});
        holding.push_back(std::move(sub));
    }

    // --- linking -------------------------------------------------------------------------
    void beginLink()
    {
        Frame top;
        top.top = true;
        top.src.fd = dup(topSrc.fd);
        top.dst.fd = dup(topDst.fd);
        struct stat st
        {
        };
        if (topItem.fd >= 0) {
            st = topStat;
        } else if (fstatat(topSrc.fd, srcName.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            // Gone since it was read: what is held is saved by the rescue.
            if (errno != ENOENT) fail(errno);
            return;
        }
        top.entries.push_back({srcName, dstName, S_ISDIR(st.st_mode)});
        stack.push_back(std::move(top));
    }

    static std::string relOf(const Frame &f, const Entry &e)
    {
        return f.top ? std::string() : f.rel + e.src.toStdString();
    }

    void enterFolder(const Frame &parent, const Entry &e)
    {
        if (stack.size() > kMaxDepth) return fail(ELOOP);
        Frame f;
        f.rel = parent.top ? std::string() : parent.rel + e.src.toStdString() + '/';
        // The item's own folder through its descriptor, wherever it was moved meanwhile.
        f.src.fd = parent.top && topItem.fd >= 0
                       ? openat(topItem.fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                       : openat(parent.src.fd, e.src.constData(),
                                O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (f.src.fd < 0) {
            if (errno != ENOENT) fail(errno);
            return; // gone: its held files are saved by the rescue
        }
        // Private while it is being filled; the item's own mode once walked.
        if (mkdirat(parent.dst.fd, e.dst.constData(), 0700) == 0) {
            ++stats.folders;
            ++made;
        } else if (errno != EEXIST) {
            return fail(errno);
        }
        f.dst.fd = openat(parent.dst.fd, e.dst.constData(),
                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (f.dst.fd < 0) return fail(errno);
        for (const auto &[name, type] : listFolder(f.src.fd))
            f.entries.push_back({QByteArray::fromStdString(name), QByteArray::fromStdString(name),
                                 type == FolderWalk::Type::Directory});
        stack.push_back(std::move(f));
    }

    void leaveFolder(Frame &f)
    {
        struct stat st
        {
        };
        if (f.top || fstat(f.src.fd, &st) != 0) return;
        // The owner keeps write access, or the item could not be moved or removed later.
        fchmod(f.dst.fd, (st.st_mode & 07777) | 0700);
        const timespec times[2] = {st.st_atim, st.st_mtim};
        futimens(f.dst.fd, times);
    }

    void mirrorFile(const Frame &f, const Entry &e)
    {
        const std::string rel = relOf(f, e);
        const auto h = held.find(rel);
        if (linkat(f.src.fd, e.src.constData(), f.dst.fd, e.dst.constData(), 0) == 0) {
            ++stats.linked;
            ++made;
            if (h != held.end()) held.erase(h);
            return;
        }
        const int err = errno;
        if (err == EEXIST) {
            if (h != held.end()) held.erase(h);
            return;
        }
        // Deleted since it was read: its held descriptor saves it, in the rescue.
        if (err == ENOENT) {
            if (h == held.end()) fail(ENOENT);
            return;
        }
        if (err == EXDEV || err == EPERM || err == EMLINK) {
            if (h != held.end()) {
                startCopy(std::move(h->second), f.dst.fd, e.dst, false);
                held.erase(h);
                return;
            }
            Held opened;
            opened.fd.fd = openat(f.src.fd, e.src.constData(),
                                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
            if (opened.fd.fd < 0 || fstat(opened.fd.fd, &opened.st) != 0) return fail(errno);
            if (!S_ISREG(opened.st.st_mode)) return fail(EPERM); // a link it may not link
            return startCopy(std::move(opened), f.dst.fd, e.dst, false);
        }
        fail(err);
    }

    // --- copying ---------------------------------------------------------------------------
    void startCopy(Held source, int dstDir, const QByteArray &name, bool fromHeld)
    {
        struct stat there
        {
        };
        if (fstatat(dstDir, name.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0) return;
        Copy c;
        c.src = std::move(source.fd);
        c.start = source.st;
        if (c.start.st_ino == 0 && fstat(c.src.fd, &c.start) != 0) return fail(errno);
        c.fromHeld = fromHeld;
        c.dir.fd = dup(dstDir);
        c.name = name;
        for (int i = 0; i < 8 && c.dst.fd < 0; ++i) {
            c.tmp = temporaryName();
            c.dst.fd = openat(dstDir, c.tmp.constData(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
            if (c.dst.fd < 0 && errno != EEXIST) break;
        }
        if (c.dst.fd < 0) return fail(errno);
        copy = std::move(c);
    }

    void copyChunk()
    {
        Copy &c = *copy;
        const off_t size = c.start.st_size;
        if (c.done < size) {
            off_t in = c.done, out = c.done;
            const std::size_t want = std::size_t(std::min(kCopyChunk, size - c.done));
            ssize_t n = copy_file_range(c.src.fd, &in, c.dst.fd, &out, want, 0);
            if (n < 0 &&
                (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
                static thread_local char buf[1 << 16];
                n = pread(c.src.fd, buf, std::min(want, sizeof buf), c.done);
                if (n > 0 && pwrite(c.dst.fd, buf, std::size_t(n), c.done) != n) n = -1;
            }
            if (n < 0 && errno == EINTR) return;
            if (n < 0) return giveUpCopy(errno);
            if (n > 0) {
                c.done += n;
                return;
            }
            // The source ended early: it changed under us; the check below decides.
        }
        struct stat now
        {
        }, copied{};
        // A held file whose name is gone can change no more; its inode is what it was.
        const bool unchanged = fstat(c.src.fd, &now) == 0 &&
                               (sameFile(now, c.start) || (c.fromHeld && now.st_size == size));
        const bool whole =
            unchanged && fstat(c.dst.fd, &copied) == 0 && copied.st_size == size && c.done == size;
        if (!whole) {
            if (c.attempts++ >= kCopyAttempts) return giveUpCopy(EAGAIN);
            // Changed while it was copied: start again from a fresh look at it.
            if (ftruncate(c.dst.fd, 0) != 0 || fstat(c.src.fd, &c.start) != 0)
                return giveUpCopy(errno);
            c.done = 0;
            return;
        }
        fchmod(c.dst.fd, c.start.st_mode & 0777);
        const timespec times[2] = {c.start.st_atim, c.start.st_mtim};
        futimens(c.dst.fd, times);
        if (close(std::exchange(c.dst.fd, -1)) != 0) return giveUpCopy(errno);
        if (renameat2(c.dir.fd, c.tmp.constData(), c.dir.fd, c.name.constData(),
                      RENAME_NOREPLACE) != 0) {
            const int err = errno;
            unlinkat(c.dir.fd, c.tmp.constData(), 0);
            copy.reset();
            if (err != EEXIST) fail(err);
            return;
        }
        ++stats.copied;
        ++made;
        copy.reset();
    }

    // A full disk, an error or a source that keeps changing: the bytes so far stay aside.
    void giveUpCopy(int err)
    {
        Copy &c = *copy;
        fail(err);
        stats.missingBytes += c.start.st_size - c.done;
        partials.push_back({std::move(c.dir), c.tmp, c.name});
        copy.reset();
    }

    void dropPartials()
    {
        for (Partial &p : partials)
            unlinkat(p.dir.fd, p.tmp.constData(), 0);
        partials.clear();
    }

    // --- rescue: held files whose names went before they could be linked ---------------------
    // Opens (making it when missing) the mirror's folder for `rel` ("" is the item itself).
    int mirrorFolderFor(const std::string &rel)
    {
        Fd dir(dup(topDst.fd));
        std::string path = dstName.toStdString();
        if (!rel.empty()) path += '/' + rel;
        std::size_t start = 0;
        while (dir.fd >= 0 && start <= path.size()) {
            const std::size_t slash = path.find('/', start);
            const std::string part =
                path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
            if (mkdirat(dir.fd, part.c_str(), 0700) == 0) {
                ++stats.folders;
                ++made;
            }
            dir.fd = [&] {
                const int next =
                    openat(dir.fd, part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                close(dir.fd);
                return next;
            }();
            if (slash == std::string::npos) break;
            start = slash + 1;
        }
        return std::exchange(dir.fd, -1);
    }

    void rescueStep()
    {
        if (held.empty()) {
            restoreFolderModes();
            phase = Phase::Done;
            return;
        }
        auto it = held.begin();
        const std::string rel = it->first;
        Held h = std::move(it->second);
        held.erase(it);
        const std::size_t slash = rel.rfind('/');
        const std::string parent =
            slash == std::string::npos ? std::string() : rel.substr(0, slash);
        // A file item is the mirror's top name itself.
        Fd dir(rel.empty() ? dup(topDst.fd) : mirrorFolderFor(parent));
        if (dir.fd < 0) return fail(errno);
        const QByteArray name =
            rel.empty()
                ? dstName
                : QByteArray::fromStdString(rel.substr(slash == std::string::npos ? 0 : slash + 1));
        startCopy(std::move(h), dir.fd, name, true);
    }

    // Folders made by the rescue get the modes and times the item's folders had.
    void restoreFolderModes()
    {
        for (auto it = folders.rbegin(); it != folders.rend(); ++it) {
            std::string path = dstName.toStdString();
            if (!it->rel.empty()) path += '/' + it->rel;
            Fd fd(openat(topDst.fd, path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (fd.fd < 0) continue;
            fchmod(fd.fd, (it->st.st_mode & 07777) | 0700);
            const timespec times[2] = {it->st.st_atim, it->st.st_mtim};
            futimens(fd.fd, times);
        }
    }

    void reset()
    {
        held.clear();
        holding.clear();
        folders.clear();
        stack.clear();
        dropPartials();
        phase = Phase::Hold;
        started = false;
        holdCut = false;
        made = 0;
        failedThisWalk = 0;
        stats.missingBytes = 0;
    }
};

void Mirror::setHoldLimit(long files)
{
    holdLimit = std::max(0L, files);
}

Mirror::Mirror(int srcDirFd, const QByteArray &srcName, int dstDirFd, const QByteArray &dstName,
               int item)
    : d(std::make_unique<State>())
{
    d->topSrc.fd = dup(srcDirFd);
    d->topDst.fd = dup(dstDirFd);
    d->srcName = srcName;
    d->dstName = dstName;
    if (item >= 0 && fstat(item, &d->topStat) == 0 &&
        (S_ISDIR(d->topStat.st_mode) || S_ISREG(d->topStat.st_mode)))
        d->topItem.fd = dup(item);
    else
        d->openItem();
}

Mirror::~Mirror()
{
    if (d->copy) unlinkat(d->copy->dir.fd, d->copy->tmp.constData(), 0);
    if (!d->gone) d->dropPartials();
}

bool Mirror::step(int budget)
{
    using Phase = State::Phase;
    if (d->again) {
        d->again = false;
        d->reset();
    }
    if (d->phase == Phase::Done) return true;
    if (!d->started) d->beginHold();
    while (budget-- > 0 && d->phase != Phase::Done) {
        if (d->copy) {
            d->copyChunk();
            continue;
        }
        if (d->phase == Phase::Hold) {
            d->holdStep();
            if (d->phase == Phase::Link) d->beginLink();
            continue;
        }
        if (d->phase == Phase::Rescue) {
            d->rescueStep();
            continue;
        }
        if (d->stack.empty()) {
            d->phase = Phase::Rescue;
            continue;
        }
        Frame &f = d->stack.back();
        if (f.next >= f.entries.size()) {
            if (f.pass < 2) {
                ++f.pass;
                f.next = 0;
                ++budget;
                continue;
            }
            d->leaveFolder(f);
            d->stack.pop_back();
            continue;
        }
        const Entry e = f.entries[f.next++];
        const int pass = e.folder ? 2 : d->held.count(State::relOf(f, e)) ? 1 : 0;
        if (pass != f.pass) {
            ++budget;
            continue;
        }
        if (e.folder)
            d->enterFolder(f, e);
        else
            d->mirrorFile(f, e);
    }
    // A copy still under way keeps the walk open.
    if (d->phase == Phase::Done && d->copy) d->phase = Phase::Rescue;
    if (d->phase == Phase::Done && d->gone) {
        // Only a walk that actually kept a partial copy is incomplete for it: an item saved
        // whole from what was held is whole.
        for (Partial &p : d->partials)
            renameat2(p.dir.fd, p.tmp.constData(), p.dir.fd, p.name.constData(), RENAME_NOREPLACE);
        if (!d->partials.empty()) d->keptPartials = true;
        d->partials.clear();
    }
    return d->phase == Phase::Done;
}

bool Mirror::holding() const
{
    return d->phase == State::Phase::Hold;
}

bool Mirror::walked() const
{
    return d->phase == State::Phase::Done;
}

void Mirror::walkAgain()
{
    // Copies that failed are tried afresh. Until the next step, the last walk stands.
    if (!d->gone) d->again = true;
}

qint64 Mirror::madeThisWalk() const
{
    return d->made;
}

bool Mirror::complete() const
{
    return walked() && d->failedThisWalk == 0 && d->partials.empty() && !d->keptPartials &&
           !d->holdCut;
}

void Mirror::sourceGone()
{
    // The walk goes on through the descriptors it holds (emptying the trash may move the item
    // first, and what is deleted meanwhile is saved from what is held); it is just never walked
    // again. A copy that cannot be finished is then all there is, and is kept as far as it got.
    d->gone = true;
    d->again = false;
}

const Stats &Mirror::stats() const
{
    return d->stats;
}

} // namespace Shadow
