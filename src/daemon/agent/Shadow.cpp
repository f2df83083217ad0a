#include "Shadow.h"

#include "UniqueFd.h"
#include "cache/FolderWalk.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Shadow {

namespace {

constexpr std::size_t kMaxDepth = 512;
constexpr off_t kCopyChunk = 8 << 20;
constexpr int kCopyAttempts = 3;

using Fd = UniqueFd;

struct Entry
{
    QByteArray src;
    QByteArray dst;
    bool folder = false;
};

struct Frame
{
    Fd src;
    Fd dst;
    std::vector<Entry> entries;
    std::size_t next = 0;
    bool foldersPass = false; // files first, then the folders
    bool top = false;         // the pseudo-folder holding the item itself
};

// A copy on its way: a temporary file in the mirror that takes its name once whole.
struct Copy
{
    Fd src;
    Fd dst;
    Fd dir;
    QByteArray tmp;
    QByteArray name;
    struct stat start{};
    off_t done = 0;
    int attempts = 1;
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

} // namespace

struct Mirror::State
{
    Fd topSrc;
    Fd topDst;
    QByteArray srcName;
    QByteArray dstName;
    std::vector<Frame> stack;
    std::optional<Copy> copy;
    std::vector<Partial> partials;
    Stats stats;
    bool started = false;
    bool walked = false;
    bool abandoned = false;
    qint64 made = 0;
    qint64 failedThisWalk = 0;

    void fail(int err)
    {
        ++stats.failed;
        ++failedThisWalk;
        if (stats.firstError == 0) stats.firstError = err;
    }

    void begin()
    {
        started = true;
        Frame top;
        top.top = true;
        top.src.fd = dup(topSrc.fd);
        top.dst.fd = dup(topDst.fd);
        struct stat st{};
        if (fstatat(topSrc.fd, srcName.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            fail(errno);
            return;
        }
        top.entries.push_back({srcName, dstName, S_ISDIR(st.st_mode)});
        stack.push_back(std::move(top));
    }

    void enterFolder(int srcParent, const Entry &e, int dstParent)
    {
        if (stack.size() > kMaxDepth) return fail(ELOOP);
        Frame f;
        f.src.fd = openat(srcParent, e.src.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (f.src.fd < 0) return fail(errno);
        // Private while it is being filled; the item's own mode once walked.
        if (mkdirat(dstParent, e.dst.constData(), 0700) == 0) {
            ++stats.folders;
            ++made;
        } else if (errno != EEXIST) {
            return fail(errno);
        }
        f.dst.fd = openat(dstParent, e.dst.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (f.dst.fd < 0) return fail(errno);
        FolderWalk::forEachEntry(f.src.fd, [&](const char *name, FolderWalk::Type type) {
            f.entries.push_back({name, name, type == FolderWalk::Type::Directory});
        });
        stack.push_back(std::move(f));
    }

    void leaveFolder(Frame &f)
    {
        struct stat st{};
        if (f.top || fstat(f.src.fd, &st) != 0) return;
        // The owner keeps write access, or the item could not be moved or removed later.
        fchmod(f.dst.fd, (st.st_mode & 07777) | 0700);
        const timespec times[2] = {st.st_atim, st.st_mtim};
        futimens(f.dst.fd, times);
    }

    void mirrorFile(int srcDir, const Entry &e, int dstDir)
    {
        if (linkat(srcDir, e.src.constData(), dstDir, e.dst.constData(), 0) == 0) {
            ++stats.linked;
            ++made;
            return;
        }
        const int err = errno;
        if (err == EEXIST) return;
        if (err == EXDEV || err == EPERM || err == EMLINK) return startCopy(srcDir, e, dstDir);
        fail(err);
    }

    void startCopy(int srcDir, const Entry &e, int dstDir)
    {
        Copy c;
        c.src.fd = openat(srcDir, e.src.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (c.src.fd < 0) return fail(errno);
        if (fstat(c.src.fd, &c.start) != 0) return fail(errno);
        if (!S_ISREG(c.start.st_mode)) return fail(EPERM); // a link or device it may not link
        struct stat there{};
        if (fstatat(dstDir, e.dst.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0) return;
        c.dir.fd = dup(dstDir);
        c.name = e.dst;
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
            if (n < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
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
        struct stat now{}, copied{};
        const bool whole = fstat(c.src.fd, &now) == 0 && sameFile(now, c.start) &&
                           fstat(c.dst.fd, &copied) == 0 && copied.st_size == size &&
                           c.done == size;
        if (!whole) {
            if (c.attempts++ >= kCopyAttempts) return giveUpCopy(EAGAIN);
            // Changed while it was copied: start again from a fresh look at it.
            if (ftruncate(c.dst.fd, 0) != 0 || fstat(c.src.fd, &c.start) != 0) return giveUpCopy(errno);
            c.done = 0;
            return;
        }
        fchmod(c.dst.fd, c.start.st_mode & 0777);
        const timespec times[2] = {c.start.st_atim, c.start.st_mtim};
        futimens(c.dst.fd, times);
        if (close(std::exchange(c.dst.fd, -1)) != 0) return giveUpCopy(errno);
        if (renameat2(c.dir.fd, c.tmp.constData(), c.dir.fd, c.name.constData(), RENAME_NOREPLACE) != 0) {
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
};

Mirror::Mirror(int srcDirFd, const QByteArray &srcName, int dstDirFd, const QByteArray &dstName)
    : d(std::make_unique<State>())
{
    d->topSrc.fd = dup(srcDirFd);
    d->topDst.fd = dup(dstDirFd);
    d->srcName = srcName;
    d->dstName = dstName;
}

Mirror::~Mirror()
{
    if (d->copy) unlinkat(d->copy->dir.fd, d->copy->tmp.constData(), 0);
    if (!d->abandoned) d->dropPartials();
}

bool Mirror::step(int budget)
{
    if (d->walked) return true;
    if (!d->started) d->begin();
    while (budget > 0) {
        if (d->copy) {
            --budget;
            d->copyChunk();
            continue;
        }
        if (d->stack.empty()) {
            d->walked = true;
            return true;
        }
        Frame &f = d->stack.back();
        if (f.next >= f.entries.size()) {
            if (!f.foldersPass) {
                f.foldersPass = true;
                f.next = 0;
                continue;
            }
            d->leaveFolder(f);
            d->stack.pop_back();
            continue;
        }
        const Entry e = f.entries[f.next++];
        if (e.folder != f.foldersPass) continue;
        --budget;
        if (e.folder)
            d->enterFolder(f.src.fd, e, f.dst.fd);
        else
            d->mirrorFile(f.src.fd, e, f.dst.fd);
    }
    return d->walked;
}

bool Mirror::walked() const
{
    return d->walked;
}

void Mirror::walkAgain()
{
    if (d->abandoned) return;
    // Copies that failed are tried afresh.
    d->dropPartials();
    d->stack.clear();
    d->started = false;
    d->walked = false;
    d->made = 0;
    d->failedThisWalk = 0;
    d->stats.missingBytes = 0;
}

qint64 Mirror::madeThisWalk() const
{
    return d->made;
}

bool Mirror::complete() const
{
    return d->walked && !d->abandoned && d->failedThisWalk == 0 && d->partials.empty();
}

void Mirror::abandon()
{
    // A walk that finished whole stays whole: the source leaving changes nothing about it.
    if (d->abandoned || complete()) return;
    if (d->copy) d->giveUpCopy(ENOENT);
    for (Partial &p : d->partials)
        renameat2(p.dir.fd, p.tmp.constData(), p.dir.fd, p.name.constData(), RENAME_NOREPLACE);
    d->partials.clear();
    d->stack.clear();
    d->abandoned = true;
    d->walked = true;
}

const Stats &Mirror::stats() const
{
    return d->stats;
}

} // namespace Shadow
