// libsalvora3-keep: keeps what programs delete on a protected volume. Preloaded into the user's
// programs, it wraps unlink, unlinkat, remove and rmdir; a deletion that would destroy data is
// turned into a rename into the user's cache on the same file system. See DESIGN.md.
//
// Plain C++ that links the C library only: no exceptions, no RTTI, no function-local statics
// (their guards live in libstdc++), no heap (a deletion may come from a signal handler or a
// process that is inside malloc), no constructors. Whatever goes wrong, the real call is made.

#include "KeepTableFormat.h"
#include "OriginRecord.h"
#include "TrashInfoText.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

extern char *program_invocation_short_name;

#define KEEP_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using keeptable::View;

// ---- the real calls -------------------------------------------------------------------------

using UnlinkatFn = int (*)(int, const char *, int);
using PathFn = int (*)(const char *);

std::atomic<UnlinkatFn> gRealUnlinkat{nullptr};
std::atomic<PathFn> gRealUnlink{nullptr}, gRealRmdir{nullptr}, gRealRemove{nullptr};

template <typename Fn> Fn resolve(std::atomic<Fn> &slot, const char *name)
{
    Fn fn = slot.load(std::memory_order_acquire);
    if (!fn) {
        fn = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
        slot.store(fn, std::memory_order_release);
    }
    return fn;
}

int realUnlinkat(int dirFd, const char *path, int flags)
{
    if (UnlinkatFn fn = resolve(gRealUnlinkat, "unlinkat")) return fn(dirFd, path, flags);
    return int(syscall(SYS_unlinkat, dirFd, path, flags));
}

int realUnlink(const char *path)
{
    if (PathFn fn = resolve(gRealUnlink, "unlink")) return fn(path);
    return int(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

int realRmdir(const char *path)
{
    if (PathFn fn = resolve(gRealRmdir, "rmdir")) return fn(path);
    return int(syscall(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR));
}

// Which public function the caller used, so that the real call is that same function.
enum class Via { Unlinkat, Unlink, Rmdir };

int realCall(Via via, int dirFd, const char *path, int flags)
{
    switch (via) {
    case Via::Unlink:
        return realUnlink(path);
    case Via::Rmdir:
        return realRmdir(path);
    case Via::Unlinkat:
        break;
    }
    return realUnlinkat(dirFd, path, flags);
}

// ---- small tools ----------------------------------------------------------------------------

// Set while a thread is inside the library: a deletion made from within (a signal handler that
// deletes, a wrapped call made by a call we make) goes straight to the real call.
__thread int tInside __attribute__((tls_model("initial-exec")));

class SpinLock
{
public:
    void lock()
    {
        while (mFlag.exchange(1, std::memory_order_acquire))
            sched_yield();
    }
    bool tryLock() { return mFlag.exchange(1, std::memory_order_acquire) == 0; }
    void unlock() { mFlag.store(0, std::memory_order_release); }
    void reset() { mFlag.store(0, std::memory_order_relaxed); }

private:
    std::atomic<int> mFlag{0};
};

struct Locked
{
    SpinLock &l;
    explicit Locked(SpinLock &lock) : l(lock) { l.lock(); }
    ~Locked() { l.unlock(); }
};

long nowMs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
    return long(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

char foldAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

bool equalsFolded(const char *a, std::size_t n, const char *b)
{
    for (std::size_t i = 0; i < n; ++i)
        if (b[i] == '\0' || foldAscii(a[i]) != foldAscii(b[i])) return false;
    return b[n] == '\0';
}

bool startsWith(const char *s, std::size_t n, const char *prefix)
{
    const std::size_t p = std::strlen(prefix);
    return p <= n && std::memcmp(s, prefix, p) == 0;
}

bool endsWith(const char *s, std::size_t n, const char *suffix)
{
    const std::size_t p = std::strlen(suffix);
    return p <= n && std::memcmp(s + n - p, suffix, p) == 0;
}

// `path` (n bytes) is `folder` or lies below it.
bool isWithin(const char *path, std::size_t n, const char *folder)
{
    std::size_t f = std::strlen(folder);
    while (f > 1 && folder[f - 1] == '/')
        --f;
    if (f == 1 && folder[0] == '/') return n >= 1 && path[0] == '/';
    return f <= n && std::memcmp(path, folder, f) == 0 && (n == f || path[f] == '/');
}

// ---- the table ------------------------------------------------------------------------------

struct Mapping
{
    View view;
    std::uint64_t generation;
};

// Mappings are never unmapped: another thread may still read an older one. A table changes when
// the settings do, so the few pages this leaves are of no account.
std::atomic<const Mapping *> gTable{nullptr};
std::atomic<long> gNextLook{0};
SpinLock gTableLock;

// One page holds the Mapping records; a new page when it is full.
Mapping *gMappingPage = nullptr;
std::size_t gMappingsUsed = 0;
constexpr std::size_t kMappingsPerPage = 4096 / sizeof(Mapping);

bool tablePath(char *out, std::size_t size)
{
    const char *runtime = secure_getenv("XDG_RUNTIME_DIR");
    int n = 0;
    if (runtime && runtime[0] == '/')
        n = std::snprintf(out, size, "%s/salvora3/keep-table", runtime);
    else
        n = std::snprintf(out, size, "/run/user/%u/salvora3/keep-table", unsigned(getuid()));
    return n > 0 && std::size_t(n) < size;
}

// Opens and checks the table: in a folder of the user's own that nobody else may write, itself
// the user's, regular, and well formed.
const Mapping *mapTable()
{
    char path[PATH_MAX];
    if (!tablePath(path, sizeof path)) return nullptr;
    char *slash = std::strrchr(path, '/');
    *slash = '\0';
    const int folder = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) return nullptr;
    struct stat st
    {
    };
    const uid_t me = geteuid();
    bool ok = fstat(folder, &st) == 0 && st.st_uid == me && (st.st_mode & 022) == 0;
    const int fd =
        ok ? openat(folder, slash + 1, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC) : -1;
    close(folder);
    if (fd < 0) return nullptr;
    ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == me && (st.st_mode & 022) == 0 &&
         st.st_size >= off_t(sizeof(keeptable::Header)) &&
         st.st_size <= off_t(keeptable::kMaxBytes);
    void *data =
        ok ? mmap(nullptr, std::size_t(st.st_size), PROT_READ, MAP_SHARED, fd, 0) : MAP_FAILED;
    close(fd);
    if (data == MAP_FAILED) return nullptr;
    const View v = keeptable::check(data, std::size_t(st.st_size));
    if (!v.valid() || v.retired()) {
        munmap(data, std::size_t(st.st_size));
        return nullptr;
    }
    if (!gMappingPage || gMappingsUsed == kMappingsPerPage) {
        void *page =
            mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) {
            munmap(data, std::size_t(st.st_size));
            return nullptr;
        }
        gMappingPage = static_cast<Mapping *>(page);
        gMappingsUsed = 0;
    }
    Mapping *m = &gMappingPage[gMappingsUsed++];
    m->view = v;
    m->generation = v.header->generation;
    return m;
}

// The current table, or none. A retired table is replaced at once; when there is none the name
// is looked at again twice a second at most, so that a process without a table pays nothing.
const Mapping *currentTable()
{
    const Mapping *m = gTable.load(std::memory_order_acquire);
    if (m && !m->view.retired()) return m;
    if (!m && nowMs() < gNextLook.load(std::memory_order_relaxed)) return nullptr;
    Locked lock(gTableLock);
    m = gTable.load(std::memory_order_acquire);
    if (m && !m->view.retired()) return m;
    m = mapTable();
    gTable.store(m, std::memory_order_release);
    if (!m) gNextLook.store(nowMs() + 500, std::memory_order_relaxed);
    return m;
}

const keeptable::Volume *volumeFor(const View &v, dev_t dev)
{
    for (std::uint32_t i = 0; i < v.header->volumeCount; ++i)
        if (v.volumes[i].dev == std::uint64_t(dev)) return &v.volumes[i];
    return nullptr;
}

bool inList(const View &v, keeptable::List list, const char *name, std::size_t n)
{
    for (const char *s = v.list(list); *s; s = View::next(s))
        if (equalsFolded(name, n, s)) return true;
    return false;
}

// The names and extensions the user excluded.
bool userExcluded(const View &v, const char *name, std::size_t n)
{
    if (inList(v, keeptable::ExcludedNames, name, n)) return true;
    const char *dot = static_cast<const char *>(memrchr(name, '.', n));
    // ".profile" has no extension; "archive." has an empty one, which matches nothing.
    if (!dot || dot == name || dot == name + n - 1) return false;
    return inList(v, keeptable::ExcludedExtensions, dot + 1, std::size_t(name + n - dot - 1));
}

// Names that are never kept: temporary names and the user's excluded names and extensions.
bool nameExcluded(const View &v, const char *name, std::size_t n)
{
    for (const char *s = v.list(keeptable::NamePrefixes); *s; s = View::next(s))
        if (startsWith(name, n, s)) return true;
    for (const char *s = v.list(keeptable::NameSuffixes); *s; s = View::next(s))
        if (endsWith(name, n, s)) return true;
    return userExcluded(v, name, n);
}

bool hasCacheComponent(const char *path, std::size_t n)
{
    static constexpr char kCache[] = "/.Salvora3Cache";
    const std::size_t k = sizeof kCache - 1;
    for (const char *p = path;
         (p = static_cast<const char *>(memmem(p, std::size_t(path + n - p), kCache, k))); p += k)
        if (p + k == path + n || p[k] == '/') return true;
    return false;
}

// Places whose entries are never kept, by the folder's absolute path: the table's places and
// anything inside a cache.
bool placeExcluded(const View &v, const char *path, std::size_t n)
{
    if (hasCacheComponent(path, n)) return true;
    for (const char *s = v.list(keeptable::ExcludedPlaces); *s; s = View::next(s))
        if (isWithin(path, n, s)) return true;
    return false;
}

// An absolute path without "." or ".." components or doubled slashes, which can be judged by its
// text.
bool isPlainAbsolute(const char *path)
{
    if (path[0] != '/') return false;
    for (const char *p = path; *p; ++p) {
        if (*p != '/') continue;
        if (p[1] == '/') return false;
        if (p[1] == '.' && (p[2] == '/' || p[2] == '\0')) return false;
        if (p[1] == '.' && p[2] == '.' && (p[3] == '/' || p[3] == '\0')) return false;
    }
    return true;
}

// Whether the longest mount point that holds `path` is one of an unprotected file system.
bool onOtherMount(const View &v, const char *path, std::size_t n)
{
    std::size_t best = 0;
    bool other = false;
    for (int l = 0; l < 2; ++l) {
        const auto list = l == 0 ? keeptable::ProtectedMounts : keeptable::OtherMounts;
        for (const char *s = v.list(list); *s; s = View::next(s)) {
            const std::size_t len = std::strlen(s);
            if (len > best && isWithin(path, n, s)) {
                best = len;
                other = l == 1;
            }
        }
    }
    return other;
}

// ---- process state --------------------------------------------------------------------------

SpinLock gLock; // guards everything below
pid_t gPid = 0; // the process the state belongs to (a vfork child sees another pid)
uid_t gUid = 0;
bool gInitialised = false;
bool gBypassed = false; // SALVORA3_KEEP=0 in the environment
std::uint64_t gProcessGeneration = ~0ull;
bool gProcessExcluded = false;
char gParentName[64];

void afterFork();

bool isShell(const char *name)
{
    for (const char *shell : {"sh", "bash", "dash", "zsh", "ksh", "mksh", "fish", "busybox"})
        if (std::strcmp(name, shell) == 0) return true;
    return false;
}

// The name of the process that had this one started, read once: the parent, or past the shells
// in between, whoever started them. A build recipe's `rm -f *.o` runs in a shell of make's, and
// deletes what the build made.
void readParentName()
{
    gParentName[0] = '\0';
    pid_t pid = getppid();
    for (int depth = 0; depth < 4 && pid > 1; ++depth) {
        char path[64], stat[512];
        std::snprintf(path, sizeof path, "/proc/%d/stat", int(pid));
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) return;
        const ssize_t n = read(fd, stat, sizeof stat - 1);
        close(fd);
        if (n <= 0) return;
        stat[n] = '\0';
        // "pid (name) state ppid ...", where the name may itself hold parentheses.
        char *lp = std::strchr(stat, '(');
        char *rp = std::strrchr(stat, ')');
        if (!lp || !rp || rp < lp || rp - lp - 1 >= int(sizeof gParentName)) return;
        std::memcpy(gParentName, lp + 1, std::size_t(rp - lp - 1));
        gParentName[rp - lp - 1] = '\0';
        if (!isShell(gParentName)) return;
        int parent = 0;
        char state = 0;
        if (std::sscanf(rp + 1, " %c %d", &state, &parent) != 2) return;
        pid = parent;
    }
}

void initialise()
{
    if (gInitialised) return;
    gInitialised = true;
    gPid = getpid();
    gUid = getuid();
    const char *bypass = getenv("SALVORA3_KEEP");
    gBypassed = bypass && bypass[0] == '0';
    readParentName();
    pthread_atfork(nullptr, nullptr, afterFork);
}

// The answer for the table of that generation, published for the check before any system call
// (the process's name and parent do not change; a fork child forgets it).
std::atomic<std::uint64_t> gSkipGeneration{~0ull};
std::atomic<bool> gSkip{false};

bool processExcluded(const Mapping &m)
{
    if (gProcessGeneration != m.generation) {
        gProcessGeneration = m.generation;
        const char *me = program_invocation_short_name ? program_invocation_short_name : "";
        gProcessExcluded = inList(m.view, keeptable::Processes, me, std::strlen(me)) ||
                           (gParentName[0] && inList(m.view, keeptable::Processes, gParentName,
                                                     std::strlen(gParentName)));
        gSkip.store(gProcessExcluded || gBypassed, std::memory_order_relaxed);
        gSkipGeneration.store(m.generation, std::memory_order_release);
    }
    return gProcessExcluded;
}

// Whether this process is known to keep nothing under this table.
bool knownToSkip(const Mapping &m)
{
    return gSkipGeneration.load(std::memory_order_acquire) == m.generation &&
           gSkip.load(std::memory_order_relaxed);
}

// ---- the batch: one time folder per process, trees rebuilt as their folders go ---------------

// Growable arrays in anonymous mappings (mremap moves them), addressed by index.
template <typename T> struct Pool
{
    T *data = nullptr;
    std::size_t size = 0, capacity = 0;

    bool reserve(std::size_t n)
    {
        if (n <= capacity) return true;
        // Powers of two: the hash tables mask their indexes with capacity - 1.
        std::size_t cap = capacity ? capacity * 2 : 64;
        while (cap < n)
            cap *= 2;
        void *p = data ? mremap(data, capacity * sizeof(T), cap * sizeof(T), MREMAP_MAYMOVE)
                       : mmap(nullptr, cap * sizeof(T), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) return false;
        data = static_cast<T *>(p);
        capacity = cap;
        return true;
    }
    void release()
    {
        if (data) munmap(data, capacity * sizeof(T));
        data = nullptr;
        size = capacity = 0;
    }
};

enum class Kind : std::uint8_t {
    File,   // a file or link
    Folder, // a folder made in the time folder for one that is being emptied or was removed
    Empty,  // a removed folder that held nothing kept: remembered, made only in its parent's folder
};

constexpr std::uint32_t kNone = UINT32_MAX;

// Nodes are addressed by index + 1 (0: none). A node's place in the cache is its container's
// place and its `cur` name; container 0 is the top of the time folder.
struct Node
{
    std::uint64_t ino;     // its inode where it was (for a folder: the original folder's)
    std::uint64_t parent;  // the inode of the folder it was in
    std::uint32_t name;    // offset in the names pool: its original name
    std::uint32_t cur;     // offset in the names pool: its name in its container
    std::uint32_t topName; // the name it had at the top of the time folder, if it had one
    std::uint32_t path;    // Folder: its original path
    std::uint32_t next;    // the next node of the same parent
    std::uint32_t container;
    Kind kind;
    bool gone;    // no longer in the cache as this node
    bool removed; // Folder: its original was removed (else it is still there)
    bool trash;   // Folder: made for a folder of an item emptied from the trash, which
                  // stays one item even when the emptying stops half-way
    mode_t mode;
    timespec atime, mtime;
};

// What the batch knows of one folder, by inode: the nodes of its entries, and the folder made
// for it.
struct Slot
{
    std::uint64_t folder; // 0: free
    std::uint32_t head;   // its first entry's node
    std::uint32_t mirror; // the Folder node made for it
    std::uint32_t tops;   // its files kept at the top of the time folder
    bool timed;
    // Its times when it was first seen, before deleting its entries changed them.
    timespec atime, mtime;
};

struct Given
{
    std::uint64_t key; // 0: free
    std::uint32_t last;
};

struct Batch
{
    bool active = false;
    dev_t dev = 0;
    const keeptable::Volume *volume = nullptr;
    long lastUse = 0;
    long lastSizeReset = 0;
    int cacheFd = -1, dayFd = -1, timeFd = -1, originsFd = -1;
    // The folder of the batch that the last entry went into, open: a folder being emptied takes
    // its entries one after another, each renamed relative to this descriptor (which follows the
    // folder when it moves into its parent's).
    std::uint32_t mirrorNode = 0;
    int mirrorFd = -1;
    char day[16] = {};
    char time[32] = {};
    Pool<Node> nodes;
    Pool<char> names;
    Pool<Slot> slots; // open addressing, by parent inode
    std::size_t slotsUsed = 0;
    // Hashes of the names this batch gave at the top of the time folder. A name is given once
    // only: an entry that moved on into its folder left an origin record under its old name,
    // and a second item of that name would be taken for it.
    // Each also holds the last number given to a clash of that name, where the next clash starts.
    Pool<Given> given;
    std::size_t givenUsed = 0;
};

Batch gBatch;
constexpr long kBatchIdleMs = 2000;

void closeFd(int &fd)
{
    if (fd >= 0) close(fd);
    fd = -1;
}

// The day's size record is out of date; and the agent, which watches the origin records, learns
// that the cache changed (only the items at the top of the time folder add a record).
void resetSizeRecord(Batch &b)
{
    if (b.dayFd >= 0) realUnlinkat(b.dayFd, ".Salvora3_CacheInformation", 0);
    if (b.originsFd >= 0) futimens(b.originsFd, nullptr);
    b.lastSizeReset = nowMs();
}

void dissolveAll(Batch &b);

// Closes a batch's descriptors and forgets its entries, keeping its memory for the next one.
void clearBatch(Batch &b)
{
    closeFd(b.mirrorFd);
    b.mirrorNode = 0;
    closeFd(b.originsFd);
    closeFd(b.timeFd);
    closeFd(b.dayFd);
    closeFd(b.cacheFd);
    b.nodes.size = 0;
    b.names.size = 0;
    if (b.slots.data) std::memset(b.slots.data, 0, b.slots.capacity * sizeof(Slot));
    b.slotsUsed = 0;
    if (b.given.data) std::memset(b.given.data, 0, b.given.capacity * sizeof(Given));
    b.givenUsed = 0;
    b.active = false;
}

void endBatch(Batch &b)
{
    if (!b.active) return;
    if (b.timeFd >= 0) {
        dissolveAll(b);
        resetSizeRecord(b);
        // A time folder that ended up empty is not left behind.
        realUnlinkat(b.dayFd, b.time, AT_REMOVEDIR);
    }
    clearBatch(b);
}

void afterFork()
{
    // The child starts afresh: its own pid, its own batch; the descriptors it inherited are its
    // copies and go.
    gLock.reset();
    gTableLock.reset();
    gPid = getpid();
    clearBatch(gBatch);
    readParentName();
    gProcessGeneration = ~0ull;
    gSkipGeneration.store(~0ull, std::memory_order_relaxed);
}

__attribute__((destructor)) void atExit()
{
    // Nothing to do unless this process kept something; never wait for another thread.
    if (!gBatch.active || gPid != getpid() || !gLock.tryLock()) return;
    endBatch(gBatch);
    gLock.unlock();
}

std::uint32_t addName(Batch &b, const char *name, std::size_t n)
{
    if (!b.names.reserve(b.names.size + n + 1)) return UINT32_MAX;
    const auto at = std::uint32_t(b.names.size);
    std::memcpy(b.names.data + at, name, n);
    b.names.data[at + n] = '\0';
    b.names.size += n + 1;
    return at;
}

std::size_t hashIno(std::uint64_t ino, std::size_t capacity)
{
    return std::size_t((ino * 0x9E3779B97F4A7C15ull) >> 20) & (capacity - 1);
}

// Doubles an open-addressing table (keys 0 = free) before it gets more than half full.
template <typename T, typename KeyOf> bool grow(Pool<T> &table, std::size_t used, KeyOf keyOf)
{
    if ((used + 1) * 2 <= table.capacity) return true;
    Pool<T> old = table;
    Pool<T> grown;
    if (!grown.reserve(old.capacity ? old.capacity * 2 : 1024)) return false;
    std::memset(grown.data, 0, grown.capacity * sizeof(T));
    for (std::size_t i = 0; i < old.capacity; ++i) {
        if (keyOf(old.data[i]) == 0) continue;
        std::size_t h = hashIno(keyOf(old.data[i]), grown.capacity);
        while (keyOf(grown.data[h]) != 0)
            h = (h + 1) & (grown.capacity - 1);
        grown.data[h] = old.data[i];
    }
    old.release();
    table = grown;
    return true;
}

Slot *findSlot(Batch &b, std::uint64_t folder, bool create)
{
    if (create && !grow(b.slots, b.slotsUsed, [](const Slot &x) { return x.folder; }))
        return nullptr;
    if (b.slots.capacity == 0) return nullptr;
    std::size_t h = hashIno(folder, b.slots.capacity);
    while (b.slots.data[h].folder != 0) {
        if (b.slots.data[h].folder == folder) return &b.slots.data[h];
        h = (h + 1) & (b.slots.capacity - 1);
    }
    if (!create) return nullptr;
    b.slots.data[h] = Slot{};
    b.slots.data[h].folder = folder;
    ++b.slotsUsed;
    return &b.slots.data[h];
}

std::uint64_t nameHash(const char *name)
{
    std::uint64_t h = 1469598103934665603ull;
    for (const char *p = name; *p; ++p)
        h = (h ^ static_cast<unsigned char>(*p)) * 1099511628211ull;
    return h ? h : 1;
}

// The record of a name the batch gave, or none; with `add`, made when missing.
Given *given(Batch &b, const char *name, bool add)
{
    if (add && !grow(b.given, b.givenUsed, [](const Given &x) { return x.key; })) return nullptr;
    if (b.given.capacity == 0) return nullptr;
    const std::uint64_t key = nameHash(name);
    std::size_t h = hashIno(key, b.given.capacity);
    while (b.given.data[h].key != 0) {
        if (b.given.data[h].key == key) return &b.given.data[h];
        h = (h + 1) & (b.given.capacity - 1);
    }
    if (!add) return nullptr;
    b.given.data[h].key = key;
    b.given.data[h].last = 1;
    ++b.givenUsed;
    return &b.given.data[h];
}

// Where the numbering of `leaf` goes on: past the last number the batch gave it.
int firstNumber(Batch &b, const char *leaf)
{
    const Given *g = given(b, leaf, false);
    return g ? int(g->last) + 1 : 1;
}

// Marks `name`, the n-th name of `leaf`, as given.
void markGiven(Batch &b, const char *leaf, const char *name, int n)
{
    if (Given *g = given(b, leaf, true); g && std::uint32_t(n) > g->last)
        g->last = std::uint32_t(n);
    given(b, name, true);
}

Node &nodeAt(Batch &b, std::uint32_t i)
{
    return b.nodes.data[i - 1];
}

// Adds a node to its parent folder's entries; `parent`, when given, is the folder's state now.
// Its index, or 0.
std::uint32_t addNode(Batch &b, const Node &node, const struct stat *parent)
{
    if (!b.nodes.reserve(b.nodes.size + 1)) return 0;
    Slot *slot = findSlot(b, node.parent, true);
    if (!slot) return 0;
    if (!slot->timed && parent) {
        slot->atime = parent->st_atim;
        slot->mtime = parent->st_mtim;
        slot->timed = true;
    }
    b.nodes.data[b.nodes.size] = node;
    b.nodes.data[b.nodes.size].next = slot->head;
    slot->head = std::uint32_t(++b.nodes.size);
    return slot->head;
}

int openPrivateFolder(int parent, const char *name)
{
    if (mkdirat(parent, name, 0700) != 0 && errno != EEXIST) return -1;
    return openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// Opens the cache and today's time folder at the first item of a batch. The cache must be the
// user's own, private and on the volume's file system, as the agent found it.
bool openTimeFolder(Batch &b, const View &v)
{
    if (b.timeFd >= 0) return true;
    const char *cachePath = v.string(b.volume->cachePath);
    if (b.cacheFd < 0) b.cacheFd = open(cachePath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat st
    {
    };
    if (b.cacheFd < 0 || fstat(b.cacheFd, &st) != 0 || st.st_uid != geteuid() ||
        (st.st_mode & 077) != 0 || st.st_dev != b.dev) {
        closeFd(b.cacheFd);
        return false;
    }
    const time_t now = ::time(nullptr);
    struct tm local
    {
    };
    if (!localtime_r(&now, &local)) return false;
    std::strftime(b.day, sizeof b.day, "%Y-%m-%d", &local);
    std::strftime(b.time, sizeof b.time, "%Y-%m-%d %H_%M_%S", &local);
    b.dayFd = openPrivateFolder(b.cacheFd, b.day);
    b.timeFd = b.dayFd >= 0 ? openPrivateFolder(b.dayFd, b.time) : -1;
    const int origins = openPrivateFolder(b.cacheFd, ".origins");
    if (origins >= 0) {
        char file[32];
        std::snprintf(file, sizeof file, "%s.jsonl", b.day);
        b.originsFd =
            openat(origins, file,
                   O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
        close(origins);
        if (b.originsFd >= 0 && (fstat(b.originsFd, &st) != 0 || !S_ISREG(st.st_mode)))
            closeFd(b.originsFd);
    }
    if (b.timeFd < 0 || b.originsFd < 0) {
        closeFd(b.originsFd);
        closeFd(b.timeFd);
        closeFd(b.dayFd);
        return false;
    }
    resetSizeRecord(b);
    return true;
}

// The record is written before the item takes its name, so that no kept item lacks one.
char gRecord[origin::kMaxRecordBytes];

bool writeOrigin(Batch &b, const char *name, const char *folder, const char *leaf,
                 std::uint64_t ino, std::uint64_t trashIno)
{
    const std::size_t n =
        origin::format(gRecord, sizeof gRecord, b.time, name, folder, leaf, gUid, ino, trashIno);
    if (n == 0) return false;
    const ssize_t w = write(b.originsFd, gRecord, n);
    if (w == ssize_t(n)) return true;
    // A partial record would corrupt the next one.
    struct stat st
    {
    };
    if (w > 0 && fstat(b.originsFd, &st) == 0 && st.st_size >= w)
        ftruncate(b.originsFd, st.st_size - w);
    return false;
}

// Picks the n-th name for a clash at the top of the time folder into `out`.
const char *clashName(const char *name, int n, char *out)
{
    origin::numberedName(name, n, out);
    return out;
}

// ---- what a deletion does -------------------------------------------------------------------

// A folder's path, canonical, with what the table says of it, remembered for a second by inode.
struct PathEntry
{
    std::uint64_t dev = 0, ino = 0, generation = 0;
    long at = 0;
    bool excluded = false;
    // A rename out of it was refused (a folder the process may not write, a read-only file
    // system): its next entries go straight to the real call, which fails the same way, rather
    // than leave an origin record each.
    bool refused = false;
    std::size_t length = 0;
    char path[PATH_MAX];
};
constexpr std::size_t kPathEntries = 8;
PathEntry *gPaths = nullptr; // mapped at first use

PathEntry *folderPath(const Mapping &m, int dirFd, const char *path, const char *leaf,
                      const struct stat &parent)
{
    if (!gPaths) {
        void *p = mmap(nullptr, sizeof(PathEntry) * kPathEntries, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) return nullptr;
        gPaths = static_cast<PathEntry *>(p);
    }
    PathEntry &e = gPaths[hashIno(std::uint64_t(parent.st_ino), kPathEntries)];
    const long now = nowMs();
    if (e.ino == parent.st_ino && e.dev == parent.st_dev && e.generation == m.generation &&
        now - e.at < 1000)
        return &e;
    // Through a descriptor of the folder itself, so that the path is the real one.
    int fd = -1;
    if (leaf == path) {
        fd = dirFd;
    } else {
        char folder[PATH_MAX];
        const std::size_t n = std::size_t(leaf - path);
        if (n >= sizeof folder) return nullptr;
        std::memcpy(folder, path, n);
        folder[n] = '\0';
        fd = openat(dirFd, folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
        struct stat st
        {
        };
        if (fd < 0 || fstat(fd, &st) != 0 || st.st_ino != parent.st_ino ||
            st.st_dev != parent.st_dev) {
            if (fd >= 0) close(fd);
            return nullptr;
        }
    }
    ssize_t n = -1;
    if (fd == AT_FDCWD) {
        n = getcwd(e.path, sizeof e.path) ? ssize_t(std::strlen(e.path)) : -1;
    } else {
        char link[48];
        std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        n = readlink(link, e.path, sizeof e.path - 1);
        if (fd != dirFd) close(fd);
    }
    e.ino = 0;
    if (n <= 0 || e.path[0] != '/' || std::size_t(n) >= sizeof e.path - 1) return nullptr;
    e.path[n] = '\0';
    // A folder that is gone has no path to keep anything under.
    if (endsWith(e.path, std::size_t(n), " (deleted)")) return nullptr;
    e.length = std::size_t(n);
    e.dev = parent.st_dev;
    e.ino = parent.st_ino;
    e.generation = m.generation;
    e.at = now;
    e.excluded = placeExcluded(m.view, e.path, e.length);
    e.refused = false;
    return &e;
}

// The path of a node below the time folder.
bool relPath(Batch &b, std::uint32_t i, char *out, std::size_t size)
{
    std::uint32_t chain[PATH_MAX / 2];
    int n = 0;
    for (std::uint32_t k = i; k; k = nodeAt(b, k).container) {
        if (n == int(sizeof chain / sizeof chain[0])) return false;
        chain[n++] = k;
    }
    std::size_t at = 0;
    for (int k = n - 1; k >= 0; --k) {
        const char *c = b.names.data + nodeAt(b, chain[k]).cur;
        const std::size_t l = std::strlen(c);
        if (at + l + 2 > size) return false;
        if (at) out[at++] = '/';
        std::memcpy(out + at, c, l);
        at += l;
    }
    out[at] = '\0';
    return true;
}

// The path below the time folder of `name` in the container (0: the top).
bool pathIn(Batch &b, std::uint32_t container, const char *name, char *out, std::size_t size)
{
    std::size_t at = 0;
    if (container) {
        if (!relPath(b, container, out, size)) return false;
        at = std::strlen(out);
        out[at++] = '/';
    }
    const std::size_t l = std::strlen(name);
    if (at + l + 1 > size) return false;
    std::memcpy(out + at, name, l + 1);
    return true;
}

// Puts something at the top of the time folder under `leaf` or the first numbered name free,
// its origin record written first: `place(path)` does it, returning 0 or an errno value. The
// name chosen goes to `chosen`. 0 or an errno value.
template <typename Place>
int placeAtTop(Batch &b, const char *leaf, const char *folderPath, std::uint64_t ino,
               const Place &place, char *chosen, std::uint64_t trashIno = 0)
{
    char numbered[NAME_MAX + 1];
    const char *name = leaf;
    for (int n = firstNumber(b, leaf); n < 10000; ++n) {
        if (n > 1) {
            // After a clash, the first free name (a record for a name that is taken would be
            // one too many).
            name = clashName(leaf, n, numbered);
            struct stat taken
            {
            };
            if (fstatat(b.timeFd, name, &taken, AT_SYMLINK_NOFOLLOW) == 0) continue;
        }
        if (given(b, name, false)) continue;
        if (!writeOrigin(b, name, folderPath, leaf, ino, trashIno)) return ENOSPC;
        const int err = place(name);
        if (err == EEXIST) continue;
        // Also after a failure: its record stays behind, so the name is not given again.
        markGiven(b, leaf, name, n);
        if (err) return err;
        std::strcpy(chosen, name);
        return 0;
    }
    return EEXIST;
}

// The same inside a folder of the time folder, where no record is needed.
template <typename Place>
int placeIn(Batch &b, std::uint32_t container, const char *leaf, const Place &place, char *chosen)
{
    char numbered[NAME_MAX + 1], target[PATH_MAX];
    const char *name = leaf;
    for (int n = 1; n < 10000; ++n) {
        if (n > 1) name = clashName(leaf, n, numbered);
        if (!pathIn(b, container, name, target, sizeof target)) return ENAMETOOLONG;
        const int err = place(target);
        if (err == EEXIST) continue;
        if (err) return err;
        std::strcpy(chosen, name);
        return 0;
    }
    return EEXIST;
}

void setAttributes(Batch &b, std::uint32_t i, mode_t mode, const timespec &atime,
                   const timespec &mtime)
{
    char p[PATH_MAX];
    if (!relPath(b, i, p, sizeof p)) return;
    const int fd = openat(b.timeFd, p, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return;
    // The owner keeps the right to change it, so that it can move into its parent's folder later.
    fchmod(fd, (mode & 07777) | S_IRWXU);
    const timespec times[2] = {atime, mtime};
    futimens(fd, times);
    close(fd);
}

void copyName(char *out, const char *name)
{
    std::strncpy(out, name, NAME_MAX);
    out[NAME_MAX] = '\0';
}

// Moves a node into a folder of the time folder, under its original name.
bool moveInto(Batch &b, std::uint32_t i, std::uint32_t container)
{
    char from[PATH_MAX], name[NAME_MAX + 1], chosen[NAME_MAX + 1];
    if (!relPath(b, i, from, sizeof from)) return false;
    copyName(name, b.names.data + nodeAt(b, i).name);
    const int err = placeIn(
        b, container, name,
        [&](const char *to) {
            return renameat2(b.timeFd, from, b.timeFd, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
        },
        chosen);
    if (err) return false;
    const std::uint32_t cur = addName(b, chosen, std::strlen(chosen));
    Node &n = nodeAt(b, i);
    if (cur != kNone) n.cur = cur;
    n.container = container;
    return true;
}

// Makes a remembered empty folder, and those remembered in it, inside a folder of the batch.
void materialise(Batch &b, std::uint32_t e, std::uint32_t container)
{
    char name[NAME_MAX + 1], chosen[NAME_MAX + 1];
    copyName(name, b.names.data + nodeAt(b, e).name);
    if (placeIn(
            b, container, name,
            [&](const char *to) { return mkdirat(b.timeFd, to, 0700) == 0 ? 0 : errno; },
            chosen) != 0)
        return;
    const std::uint32_t cur = addName(b, chosen, std::strlen(chosen));
    {
        Node &n = nodeAt(b, e);
        n.kind = Kind::Folder;
        n.removed = true;
        n.container = container;
        if (cur != kNone) n.cur = cur;
    }
    const Slot *s = findSlot(b, nodeAt(b, e).ino, false);
    for (std::uint32_t k = s ? s->head : 0; k; k = nodeAt(b, k).next)
        if (!nodeAt(b, k).gone && nodeAt(b, k).kind == Kind::Empty) materialise(b, k, e);
    const Node n = nodeAt(b, e);
    setAttributes(b, e, n.mode, n.atime, n.mtime);
}

// Makes the folder of the batch for the folder `ino` (named `name`, at `path`, in the folder
// `parentIno` at `parentPath`): inside its parent's when that has one, else at the top of the time
// folder. What the batch kept of the folder so far moves into it. Its node, or 0.
std::uint32_t makeMirror(Batch &b, std::uint64_t ino, std::uint64_t parentIno, const char *name,
                         const char *path, const char *parentPath, const struct stat *parent,
                         std::uint64_t trashIno = 0)
{
    const Slot *ps = findSlot(b, parentIno, false);
    const std::uint32_t container = ps ? ps->mirror : 0;
    char chosen[NAME_MAX + 1];
    const auto make = [&](const char *to) { return mkdirat(b.timeFd, to, 0700) == 0 ? 0 : errno; };
    const int err = container ? placeIn(b, container, name, make, chosen)
                              : placeAtTop(b, name, parentPath, 0, make, chosen, trashIno);
    if (err) return 0;
    Node node{};
    node.ino = ino;
    node.parent = parentIno;
    node.name = addName(b, name, std::strlen(name));
    node.cur = addName(b, chosen, std::strlen(chosen));
    node.path = addName(b, path, std::strlen(path));
    node.topName = container ? kNone : node.cur;
    node.container = container;
    node.kind = Kind::Folder;
    node.trash = trashIno != 0 || (container && nodeAt(b, container).trash);
    const std::uint32_t m = node.name != kNone && node.cur != kNone && node.path != kNone
                                ? addNode(b, node, parent)
                                : 0;
    Slot *own = m ? findSlot(b, ino, true) : nullptr;
    if (!own) {
        // Without its node it could not be found again: it stays, empty, as it is.
        return 0;
    }
    own->mirror = m;
    for (std::uint32_t k = own->head; k; k = nodeAt(b, k).next) {
        const Node n = nodeAt(b, k);
        if (n.gone || n.container != 0 || k == m) continue;
        if (n.kind == Kind::Empty)
            materialise(b, k, m);
        else
            moveInto(b, k, m);
    }
    return m;
}

bool hasContent(Batch &b, std::uint64_t folder)
{
    const Slot *s = findSlot(b, folder, false);
    for (std::uint32_t k = s ? s->head : 0; k; k = nodeAt(b, k).next)
        if (!nodeAt(b, k).gone && nodeAt(b, k).kind != Kind::Empty) return true;
    return false;
}

// Splits a canonical folder path into its parent's path and its name; false for "/".
bool splitFolder(const char *path, char *parent, const char **name)
{
    const char *slash = std::strrchr(path, '/');
    if (!slash || slash[1] == '\0') return false;
    const std::size_t n = slash == path ? 1 : std::size_t(slash - path);
    std::memcpy(parent, path, n);
    parent[n] = '\0';
    *name = slash + 1;
    return true;
}

// Moves a file or link into the time folder. True when it is kept.
bool keepFile(Batch &b, const View &v, int dirFd, const char *path, const char *leaf,
              std::size_t leafLen, PathEntry &folder, const struct stat &item,
              const struct stat &parent)
{
    if (!openTimeFolder(b, v)) return false;
    Slot *s = findSlot(b, parent.st_ino, true);
    if (!s) return false;
    if (!s->timed) {
        s->atime = parent.st_atim;
        s->mtime = parent.st_mtim;
        s->timed = true;
    }
    std::uint32_t mirror = s->mirror;
    if (!mirror && s->tops > 0) {
        // A second entry of the folder: it is being emptied, most likely deleted with all it
        // holds. Its entries go straight into a folder of its name from now on; if it stays after
        // all, they move back to the top when the batch ends (DESIGN.md).
        char parentPath[PATH_MAX];
        const char *name = nullptr;
        struct stat grand
        {
        };
        if (splitFolder(folder.path, parentPath, &name) &&
            fstatat(AT_FDCWD, parentPath, &grand, 0) == 0 && grand.st_dev == parent.st_dev)
            mirror =
                makeMirror(b, parent.st_ino, grand.st_ino, name, folder.path, parentPath, &grand);
    }
    if (mirror && b.mirrorNode != mirror) {
        closeFd(b.mirrorFd);
        char p[PATH_MAX];
        if (relPath(b, mirror, p, sizeof p))
            b.mirrorFd = openat(b.timeFd, p, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        b.mirrorNode = b.mirrorFd >= 0 ? mirror : 0;
        if (b.mirrorFd < 0) return false;
    }
    char name[NAME_MAX + 1], chosen[NAME_MAX + 1], numbered[NAME_MAX + 1];
    std::memcpy(name, leaf, leafLen);
    name[leafLen] = '\0';
    int err = EEXIST;
    if (mirror) {
        for (int n = 1; n < 10000 && err == EEXIST; ++n) {
            const char *to = n == 1 ? name : clashName(name, n, numbered);
            err = renameat2(dirFd, path, b.mirrorFd, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
            if (!err) std::strcpy(chosen, to);
        }
    } else {
        err = placeAtTop(
            b, name, folder.path, item.st_ino,
            [&](const char *to) {
                return renameat2(dirFd, path, b.timeFd, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
            },
            chosen);
    }
    if (err) {
        if (err == EACCES || err == EPERM || err == EROFS) folder.refused = true;
        return false;
    }
    // The entry must be the one that was looked at: had another taken its place meanwhile (a
    // folder, which unlink would have refused), it goes back and the real call decides.
    const int where = mirror ? b.mirrorFd : b.timeFd;
    struct stat there
    {
    };
    if (fstatat(where, chosen, &there, AT_SYMLINK_NOFOLLOW) != 0 || there.st_ino != item.st_ino ||
        (there.st_mode & S_IFMT) != (item.st_mode & S_IFMT)) {
        renameat2(where, chosen, dirFd, path, RENAME_NOREPLACE);
        return false;
    }
    Node node{};
    node.ino = item.st_ino;
    node.parent = parent.st_ino;
    node.name = addName(b, name, leafLen);
    node.cur = addName(b, chosen, std::strlen(chosen));
    node.topName = mirror ? kNone : node.cur;
    node.path = kNone;
    node.container = mirror;
    node.kind = Kind::File;
    if (node.name != kNone && node.cur != kNone && addNode(b, node, &parent) && !mirror)
        if (Slot *own = findSlot(b, parent.st_ino, false)) ++own->tops;
    if (nowMs() - b.lastSizeReset > 1000) resetSizeRecord(b);
    return true;
}

// After a folder was removed (the real call succeeded): its folder in the batch, made now if
// something of it was kept, takes its mode and times; with nothing kept it is only remembered.
void folderRemoved(Batch &b, const View &v, const PathEntry &parentPath, const char *leaf,
                   std::size_t leafLen, const struct stat &item, const struct stat &parent)
{
    char name[NAME_MAX + 1];
    std::memcpy(name, leaf, leafLen);
    name[leafLen] = '\0';
    timespec atime = item.st_atim, mtime = item.st_mtim;
    const Slot *s = findSlot(b, item.st_ino, false);
    if (s && s->timed) {
        atime = s->atime;
        mtime = s->mtime;
    }
    std::uint32_t m = s ? s->mirror : 0;
    if (!m && hasContent(b, item.st_ino) && openTimeFolder(b, v)) {
        char path[PATH_MAX];
        const bool root = parentPath.length == 1;
        const std::size_t base = root ? 0 : parentPath.length;
        if (base + leafLen + 2 > sizeof path) return;
        std::memcpy(path, parentPath.path, base);
        path[base] = '/';
        std::memcpy(path + base + 1, name, leafLen + 1);
        m = makeMirror(b, item.st_ino, parent.st_ino, name, path, parentPath.path, &parent);
        if (!m) return;
    }
    if (m) {
        nodeAt(b, m).removed = true;
        setAttributes(b, m, item.st_mode, atime, mtime);
        resetSizeRecord(b);
        return;
    }
    Node node{};
    node.ino = item.st_ino;
    node.parent = parent.st_ino;
    node.name = addName(b, name, leafLen);
    node.cur = node.name;
    node.topName = kNone;
    node.path = kNone;
    node.kind = Kind::Empty;
    node.mode = item.st_mode;
    node.atime = atime;
    node.mtime = mtime;
    const std::uint32_t e = node.name != kNone ? addNode(b, node, &parent) : 0;
    // Its parent's folder is made already: made there at once.
    if (const Slot *ps = findSlot(b, parent.st_ino, false); e && ps && ps->mirror && b.timeFd >= 0)
        materialise(b, e, ps->mirror);
}

// A node back at the top of the time folder: under the name it had there, whose record is its
// own, or under a new one with a new record.
void moveToTop(Batch &b, std::uint32_t k, const char *folderPath)
{
    char from[PATH_MAX], name[NAME_MAX + 1], chosen[NAME_MAX + 1];
    if (!relPath(b, k, from, sizeof from)) return;
    const Node n = nodeAt(b, k);
    if (n.topName != kNone &&
        renameat2(b.timeFd, from, b.timeFd, b.names.data + n.topName, RENAME_NOREPLACE) == 0) {
        nodeAt(b, k).container = 0;
        nodeAt(b, k).cur = n.topName;
        return;
    }
    copyName(name, b.names.data + n.name);
    const int err = placeAtTop(
        b, name, folderPath, n.kind == Kind::File ? n.ino : 0,
        [&](const char *to) {
            return renameat2(b.timeFd, from, b.timeFd, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
        },
        chosen);
    if (err) return;
    const std::uint32_t cur = addName(b, chosen, std::strlen(chosen));
    Node &moved = nodeAt(b, k);
    moved.container = 0;
    if (cur != kNone) moved.cur = moved.topName = cur;
}

// A folder of the batch whose original is still there held entries deleted from it, not the
// folder: they go back to the top of the time folder as items of their own.
void dissolve(Batch &b, std::uint32_t m)
{
    char folderPath[PATH_MAX];
    std::strncpy(folderPath, b.names.data + nodeAt(b, m).path, sizeof folderPath - 1);
    folderPath[sizeof folderPath - 1] = '\0';
    const Slot *s = findSlot(b, nodeAt(b, m).ino, false);
    for (std::uint32_t k = s ? s->head : 0; k; k = nodeAt(b, k).next) {
        const Node n = nodeAt(b, k);
        if (n.gone || n.container != m || n.kind == Kind::Empty) continue;
        if (n.kind == Kind::Folder && !n.removed)
            dissolve(b, k);
        else
            moveToTop(b, k, folderPath);
    }
    char p[PATH_MAX];
    if (relPath(b, m, p, sizeof p)) realUnlinkat(b.timeFd, p, AT_REMOVEDIR);
    nodeAt(b, m).gone = true;
}

void dissolveAll(Batch &b)
{
    for (std::uint32_t k = 1; k <= b.nodes.size; ++k) {
        const Node n = nodeAt(b, k);
        if (!n.gone && n.kind == Kind::Folder && !n.removed && !n.trash && n.container == 0)
            dissolve(b, k);
    }
}

// ---- items emptied from the trash -----------------------------------------------------------
//
// A program that empties the trash deletes <trash>/files/<name> (a folder entry by entry), or, as
// GNOME does, first moves it to <trash>/expunged/ and deletes it there. What it deletes is kept as
// the trashed item: named as it was before it was trashed, its origin record carrying its original
// path from <name>.trashinfo, and the inode it had in the trash, by which the agent knows that its
// shadow of the item is not needed.

enum class TrashPart { None, Files, Expunged, Info };

// Where a canonical folder lies in one of the user's trashes.
struct TrashSpot
{
    TrashPart part = TrashPart::None;
    const char *trash = nullptr; // the trash folder, a string of the table
    std::size_t trashLength = 0;
    // Below files/ or expunged/: "" for that folder itself, else "/<item>[/...]".
    const char *rest = nullptr;
    std::size_t restLength = 0;
};

TrashSpot trashSpot(const View &v, const char *folder, std::size_t n)
{
    TrashSpot t;
    for (const char *s = v.list(keeptable::Trashes); *s; s = View::next(s)) {
        std::size_t l = std::strlen(s);
        while (l > 1 && s[l - 1] == '/')
            --l;
        if (n <= l || std::memcmp(folder, s, l) != 0 || folder[l] != '/') continue;
        const char *sub = folder + l + 1;
        const std::size_t subLength = n - l - 1;
        const auto under = [&](const char *name, TrashPart part) {
            const std::size_t k = std::strlen(name);
            if (subLength < k || std::memcmp(sub, name, k) != 0 || (subLength > k && sub[k] != '/'))
                return false;
            if (part == TrashPart::Info && subLength != k) return false;
            t = {part, s, l, sub + k, subLength - k};
            return true;
        };
        if (under("files", TrashPart::Files) || under("expunged", TrashPart::Expunged) ||
            under("info", TrashPart::Info))
            return t;
    }
    return t;
}

// The original path of a trashed item, with the item it belongs to.
struct TrashOrigin
{
    const char *trash = nullptr; // the table's string; null: a free slot
    long at = 0;
    std::uint64_t ino = 0; // the item's inode in files/ or expunged/ (0: not known)
    bool expunged = false;
    char name[NAME_MAX + 1]; // its name there (in files/ only)
    char path[PATH_MAX];
};
// Origins read from a .trashinfo deleted before its item, and, last, the item being emptied.
constexpr std::size_t kOrigins = 16;
constexpr long kOriginMs = 60000;
TrashOrigin *gOrigins = nullptr; // mapped at first use
char gInfoText[4 * PATH_MAX];
char gChain[PATH_MAX];

bool mapOrigins()
{
    if (gOrigins) return true;
    void *p = mmap(nullptr, sizeof(TrashOrigin) * (kOrigins + 1), PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) return false;
    gOrigins = static_cast<TrashOrigin *>(p);
    return true;
}

// What a relative "Path=" of the trash's .trashinfo files starts from: the volume's top folder
// (none for the home trash).
const char *topdirOf(const View &v, const keeptable::Volume *volume)
{
    const char *top = v.string(volume->volumePath);
    return std::strcmp(top, "/") == 0 ? nullptr : top;
}

// Reads the original path from the .trashinfo at (dirFd, path): the user's own regular file,
// read whole within bounds.
bool readOrigin(int dirFd, const char *path, const char *topdir, char *out)
{
    const int fd = openat(dirFd, path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st
    {
    };
    bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() &&
              st.st_size < off_t(sizeof gInfoText);
    std::size_t n = 0;
    while (ok && n < sizeof gInfoText) {
        const ssize_t r = read(fd, gInfoText + n, sizeof gInfoText - n);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) ok = false;
        if (r <= 0) break;
        n += std::size_t(r);
    }
    close(fd);
    return ok && n < sizeof gInfoText &&
           trashinfo::originalPath(gInfoText, n, topdir, out, PATH_MAX) > 0;
}

struct Dirent64
{
    std::uint64_t ino;
    std::int64_t off;
    unsigned short reclen;
    unsigned char type;
    char name[1];
};

// The entry of <trash>/expunged that an emptier has just moved there: the one entry changed in
// the last few seconds that no remembered origin claims. None when that is not one entry.
bool claimExpunged(const char *trash, std::size_t trashLength, std::uint64_t *ino)
{
    char path[PATH_MAX];
    if (std::snprintf(path, sizeof path, "%.*s/expunged", int(trashLength), trash) >=
        int(sizeof path))
        return false;
    const int fd = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    int found = 0;
    alignas(8) char buffer[4096];
    for (long n; found < 2 && (n = syscall(SYS_getdents64, fd, buffer, sizeof buffer)) > 0;) {
        for (long at = 0; at < n;) {
            const auto *e = reinterpret_cast<const Dirent64 *>(buffer + at);
            at += e->reclen;
            if (e->name[0] == '.' &&
                (e->name[1] == '\0' || (e->name[1] == '.' && e->name[2] == '\0')))
                continue;
            struct stat st
            {
            };
            if (fstatat(fd, e->name, &st, AT_SYMLINK_NOFOLLOW) != 0 ||
                now.tv_sec - st.st_ctim.tv_sec > 5)
                continue;
            bool claimed = false;
            for (std::size_t i = 0; i < kOrigins; ++i)
                claimed = claimed || (gOrigins[i].trash == trash && gOrigins[i].expunged &&
                                      gOrigins[i].ino == st.st_ino);
            if (claimed) continue;
            *ino = st.st_ino;
            ++found;
        }
    }
    close(fd);
    return found == 1;
}

// A .trashinfo is being deleted: where its item came from is remembered, for the item may be
// deleted after it (or, moved to expunged/, is about to be).
void rememberInfo(const View &v, const keeptable::Volume *volume, const TrashSpot &t, int dirFd,
                  const char *path, const char *leaf, std::size_t leafLen)
{
    static constexpr char kSuffix[] = ".trashinfo";
    if (leafLen <= sizeof kSuffix - 1 || !endsWith(leaf, leafLen, kSuffix) || !mapOrigins()) return;
    const std::size_t nameLen = leafLen - (sizeof kSuffix - 1);
    TrashOrigin *o = &gOrigins[0];
    for (std::size_t i = 1; i < kOrigins; ++i)
        if (gOrigins[i].at < o->at) o = &gOrigins[i];
    o->trash = nullptr;
    if (!readOrigin(dirFd, path, topdirOf(v, volume), o->path)) return;
    std::memcpy(o->name, leaf, nameLen);
    o->name[nameLen] = '\0';
    char item[PATH_MAX];
    struct stat st
    {
    };
    if (std::snprintf(item, sizeof item, "%.*s/files/%s", int(t.trashLength), t.trash, o->name) <
            int(sizeof item) &&
        fstatat(AT_FDCWD, item, &st, AT_SYMLINK_NOFOLLOW) == 0) {
        o->ino = st.st_ino;
        o->expunged = false;
    } else if (claimExpunged(t.trash, t.trashLength, &o->ino)) {
        o->expunged = true;
    } else {
        return;
    }
    o->at = nowMs();
    o->trash = t.trash;
}

// The origin of the trashed item `name` of that trash (in files/, or in expunged/), whose inode
// is `ino` when known: the item being emptied, a remembered one, or its .trashinfo. Null when
// none is known.
const TrashOrigin *trashOrigin(const View &v, const keeptable::Volume *volume, const TrashSpot &t,
                               const char *name, std::size_t nameLen, std::uint64_t ino)
{
    if (!mapOrigins()) return nullptr;
    TrashOrigin &cur = gOrigins[kOrigins];
    const bool expunged = t.part == TrashPart::Expunged;
    const long now = nowMs();
    const auto sameName = [&](const TrashOrigin &o) {
        return std::strlen(o.name) == nameLen && std::memcmp(o.name, name, nameLen) == 0;
    };
    if (cur.trash == t.trash && cur.expunged == expunged && sameName(cur) &&
        (ino == 0 || cur.ino == 0 || cur.ino == ino) && now - cur.at < kOriginMs)
        return &cur;
    char path[PATH_MAX];
    if (expunged && ino == 0) {
        struct stat st
        {
        };
        if (std::snprintf(path, sizeof path, "%.*s/expunged/%.*s", int(t.trashLength), t.trash,
                          int(nameLen), name) >= int(sizeof path) ||
            fstatat(AT_FDCWD, path, &st, AT_SYMLINK_NOFOLLOW) != 0)
            return nullptr;
        ino = st.st_ino;
    }
    bool found = false;
    for (std::size_t i = 0; i < kOrigins && !found; ++i) {
        TrashOrigin &o = gOrigins[i];
        if (o.trash != t.trash || now - o.at >= kOriginMs || o.expunged != expunged) continue;
        if (expunged ? o.ino != ino : (!sameName(o) || (ino != 0 && o.ino != ino))) continue;
        cur = o;
        o.trash = nullptr;
        found = true;
    }
    if (!found) {
        // Its .trashinfo is still there: the emptiers that delete the item first.
        if (expunged ||
            std::snprintf(path, sizeof path, "%.*s/info/%.*s.trashinfo", int(t.trashLength),
                          t.trash, int(nameLen), name) >= int(sizeof path) ||
            !readOrigin(AT_FDCWD, path, topdirOf(v, volume), cur.path)) {
            cur.trash = nullptr;
            return nullptr;
        }
        cur.trash = t.trash;
        cur.expunged = false;
        cur.ino = ino;
    }
    std::memcpy(cur.name, name, nameLen);
    cur.name[nameLen] = '\0';
    cur.at = now;
    return &cur;
}

// The folder of the batch for a trashed folder item, made at the top of the time folder under
// the item's original name, with the record that names where it came from.
std::uint32_t trashTop(Batch &b, const View &v, const TrashOrigin &o, const struct stat &item,
                       const struct stat &files)
{
    if (const Slot *s = findSlot(b, item.st_ino, false); s && s->mirror) return s->mirror;
    char folder[PATH_MAX];
    const char *leaf = nullptr;
    if (!openTimeFolder(b, v) || !splitFolder(o.path, folder, &leaf) ||
        std::strlen(leaf) > NAME_MAX)
        return 0;
    return makeMirror(b, item.st_ino, files.st_ino, leaf, o.path, folder, &files, item.st_ino);
}

// The folder of the batch for the folder `folder` (in `t`, whose state is `st`) of a trashed
// folder item, made with those of its parents up to the item. Its node, or 0.
std::uint32_t trashMirror(Batch &b, const View &v, const TrashSpot &t, const TrashOrigin &o,
                          const PathEntry &folder, const struct stat &st)
{
    if (const Slot *s = findSlot(b, st.st_ino, false); s && s->mirror) return s->mirror;
    if (!openTimeFolder(b, v)) return 0;
    // Down from files/ (or expunged/), one folder at a time: each is looked at and made.
    std::memcpy(gChain, folder.path, folder.length + 1);
    std::size_t end = folder.length - t.restLength;
    struct stat parent
    {
    }, cur{};
    gChain[end] = '\0';
    if (fstatat(AT_FDCWD, gChain, &parent, 0) != 0) return 0;
    gChain[end] = '/';
    std::uint32_t m = 0;
    for (bool top = true; end < folder.length; top = false) {
        const std::size_t start = end + 1;
        end = start;
        while (end < folder.length && gChain[end] != '/')
            ++end;
        const char saved = gChain[end];
        gChain[end] = '\0';
        const bool ok = fstatat(AT_FDCWD, gChain, &cur, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISDIR(cur.st_mode) && cur.st_dev == st.st_dev;
        if (ok) {
            const Slot *s = findSlot(b, cur.st_ino, false);
            m = s && s->mirror ? s->mirror
                : top          ? trashTop(b, v, o, cur, parent)
                      : makeMirror(b, cur.st_ino, parent.st_ino, gChain + start, gChain, gChain,
                                   &parent);
        }
        gChain[end] = saved;
        if (!ok || !m) return 0;
        parent = cur;
    }
    return cur.st_ino == st.st_ino ? m : 0;
}

// Moves a trashed file or link, emptied from the trash, to the top of the time folder under its
// original name. True when it is kept.
bool keepTrashFile(Batch &b, const View &v, int dirFd, const char *path, const TrashOrigin &o,
                   PathEntry &folder, const struct stat &item)
{
    char originFolder[PATH_MAX], chosen[NAME_MAX + 1];
    const char *leaf = nullptr;
    if (!openTimeFolder(b, v) || !splitFolder(o.path, originFolder, &leaf) ||
        std::strlen(leaf) > NAME_MAX)
        return false;
    const int err = placeAtTop(
        b, leaf, originFolder, item.st_ino,
        [&](const char *to) {
            return renameat2(dirFd, path, b.timeFd, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
        },
        chosen, item.st_ino);
    if (err) {
        if (err == EACCES || err == EPERM || err == EROFS) folder.refused = true;
        return false;
    }
    struct stat there
    {
    };
    if (fstatat(b.timeFd, chosen, &there, AT_SYMLINK_NOFOLLOW) != 0 ||
        there.st_ino != item.st_ino || (there.st_mode & S_IFMT) != (item.st_mode & S_IFMT)) {
        renameat2(b.timeFd, chosen, dirFd, path, RENAME_NOREPLACE);
        return false;
    }
    if (nowMs() - b.lastSizeReset > 1000) resetSizeRecord(b);
    return true;
}

// The batch of this process for the device, begun anew after a pause or on another volume.
Batch *batchFor(const keeptable::Volume *volume, dev_t dev)
{
    Batch &b = gBatch;
    const long now = nowMs();
    if (b.active && (b.dev != dev || now - b.lastUse > kBatchIdleMs)) endBatch(b);
    if (!b.active) {
        b.active = true;
        b.dev = dev;
        b.volume = volume;
    }
    b.volume = volume;
    b.lastUse = now;
    return &b;
}

// A deletion in files/ or expunged/ of a trash: the trashed item is kept as a whole, under its
// original name. The real call when its origin is not known.
int trashDeletion(Via via, int dirFd, const char *path, int flags, const View &v,
                  const keeptable::Volume *volume, const TrashSpot &t, PathEntry &place,
                  const char *leaf, std::size_t leafLen, const struct stat &item,
                  const struct stat &parent, int savedErrno)
{
    const bool folder = flags == AT_REMOVEDIR;
    // The item's name there, and whether the entry is the item itself.
    const bool top = t.restLength == 0;
    const char *name = top ? leaf : t.rest + 1;
    const char *slash =
        top ? nullptr : static_cast<const char *>(std::memchr(name, '/', t.restLength - 1));
    const std::size_t nameLen = top     ? leafLen
                                : slash ? std::size_t(slash - name)
                                        : t.restLength - 1;
    // Its inode when at hand: the entry's own, or its folder's when that is the item.
    const std::uint64_t ino = top ? item.st_ino : slash ? 0 : parent.st_ino;
    const TrashOrigin *o = nameLen <= NAME_MAX && !(!folder && place.refused)
                               ? trashOrigin(v, volume, t, name, nameLen, ino)
                               : nullptr;
    const char *originLeaf = o ? std::strrchr(o->path, '/') + 1 : nullptr;
    if (!o || userExcluded(v, originLeaf, std::strlen(originLeaf))) {
        errno = savedErrno;
        return realCall(via, dirFd, path, flags);
    }
    Batch *b = batchFor(volume, parent.st_dev);
    // The folder's times before anything of it goes, whether kept or not (a FIFO, say, is not).
    if (Slot *s = findSlot(*b, parent.st_ino, true); s && !s->timed) {
        s->atime = parent.st_atim;
        s->mtime = parent.st_mtim;
        s->timed = true;
    }
    // Once the item itself goes, its origin is forgotten: another item may take its name.
    const auto done = [&](int r) {
        if (top) gOrigins[kOrigins].trash = nullptr;
        return r;
    };
    if (!folder && !S_ISREG(item.st_mode) && !S_ISLNK(item.st_mode)) {
        errno = savedErrno;
        return done(realCall(via, dirFd, path, flags));
    }
    if (folder) {
        errno = savedErrno;
        const int r = realCall(via, dirFd, path, flags);
        if (r != 0) return r;
        // Its folder in the batch is where it goes, or, for the item, the item: made now when
        // nothing of it was kept before (a folder of empty folders is kept like any item).
        if (top)
            trashTop(*b, v, *o, item, parent);
        else
            trashMirror(*b, v, t, *o, place, parent);
        folderRemoved(*b, v, place, leaf, leafLen, item, parent);
        errno = savedErrno;
        return done(0);
    }
    const bool kept = top ? keepTrashFile(*b, v, dirFd, path, *o, place, item)
                          : trashMirror(*b, v, t, *o, place, parent) &&
                                keepFile(*b, v, dirFd, path, leaf, leafLen, place, item, parent);
    errno = savedErrno;
    return done(kept ? 0 : realCall(via, dirFd, path, flags));
}

// A bare name deleted in the working folder of an unprotected file system (make's `rm -f *.o`, a
// script's os.remove) need not stat "." every time: once is enough until the process changes
// folders. The fact is one word, valid for one table generation and one count of chdir/fchdir
// calls, so that a change of either drops it. A chdir made with a raw system call leaves it
// stale, which can only make a deletion the real call (not kept), never keep one wrongly: a folder
// on a protected volume is always looked at.
std::atomic<std::uint32_t> gCwdChanges{0};
std::atomic<std::uint64_t> gCwdUnprotected{0};

std::uint64_t cwdKey(const Mapping &m, std::uint32_t changes)
{
    return ((std::uint64_t(changes) << 32) | (m.generation & 0xffffffffu)) + 1;
}

int deletion(Via via, int dirFd, const char *path, int flags)
{
    const bool folder = flags == AT_REMOVEDIR;
    if (!path || (flags & ~AT_REMOVEDIR) != 0) return realCall(via, dirFd, path, flags);
    const int savedErrno = errno;
    const Mapping *m = currentTable();
    if (!m || !m->view.on() || knownToSkip(*m)) return realCall(via, dirFd, path, flags);
    const View &v = m->view;

    // The entry's name: a trailing slash is allowed on a folder only.
    std::size_t len = std::strlen(path);
    std::size_t end = len;
    while (folder && end > 1 && path[end - 1] == '/')
        --end;
    const char *slash = static_cast<const char *>(memrchr(path, '/', end));
    const char *leaf = slash ? slash + 1 : path;
    const std::size_t leafLen = std::size_t(path + end - leaf);
    if (leafLen == 0 || leafLen > NAME_MAX ||
        (leaf[0] == '.' && (leafLen == 1 || (leafLen == 2 && leaf[1] == '.'))))
        return realCall(via, dirFd, path, flags);
    // By its text alone where that is sure: other file systems, scratch places, caches. A trash
    // lies in an excluded place, but what is emptied from it is kept (and its .trashinfo read).
    const bool plain = isPlainAbsolute(path);
    bool inTrash = false;
    if (plain) {
        if (onOtherMount(v, path, len)) return realCall(via, dirFd, path, flags);
        if (placeExcluded(v, path, std::size_t(leaf - path))) {
            const std::size_t folderLen = slash == path ? 1 : std::size_t(slash - path);
            if (trashSpot(v, path, folderLen).part == TrashPart::None)
                return realCall(via, dirFd, path, flags);
            inTrash = true;
        }
    }
    // A name never kept, unless it may lie in a trashed folder (which is kept whole): by its
    // text, or, relative to a folder's descriptor as programs that empty folders delete, once the
    // folder is known.
    const bool nameOut = nameExcluded(v, leaf, leafLen);
    if (nameOut && !inTrash && (plain || dirFd == AT_FDCWD))
        return realCall(via, dirFd, path, flags);
    const bool inCwd = !slash && dirFd == AT_FDCWD;
    const std::uint32_t cwdChanges = gCwdChanges.load(std::memory_order_acquire);
    if (inCwd && gCwdUnprotected.load(std::memory_order_relaxed) == cwdKey(*m, cwdChanges))
        return realCall(via, dirFd, path, flags);

    // The folder that holds the entry, and the entry itself.
    struct stat parent
    {
    }, item{};
    int rc = 0;
    if (!slash) {
        rc = dirFd == AT_FDCWD ? fstatat(AT_FDCWD, ".", &parent, 0) : fstat(dirFd, &parent);
        if (inCwd && rc == 0 && !volumeFor(v, parent.st_dev) &&
            gCwdChanges.load(std::memory_order_acquire) == cwdChanges)
            gCwdUnprotected.store(cwdKey(*m, cwdChanges), std::memory_order_relaxed);
    } else {
        char folderName[PATH_MAX];
        const std::size_t n = slash == path ? 1 : std::size_t(slash - path);
        if (n >= sizeof folderName) return realCall(via, dirFd, path, flags);
        std::memcpy(folderName, path, n);
        folderName[n] = '\0';
        rc = fstatat(dirFd, folderName, &parent, 0);
    }
    const keeptable::Volume *volume = rc == 0 ? volumeFor(v, parent.st_dev) : nullptr;
    if (!volume || fstatat(dirFd, path, &item, AT_SYMLINK_NOFOLLOW) != 0 ||
        item.st_dev != parent.st_dev) {
        errno = savedErrno;
        return realCall(via, dirFd, path, flags);
    }
    // Only what holds data: the last link of a file (any file of a trashed item, whose other link
    // may be the agent's shadow) or a link; a folder, after the real call.
    const bool trashPossible = inTrash || !plain;
    const bool data =
        (S_ISREG(item.st_mode) && (item.st_nlink == 1 || trashPossible)) || S_ISLNK(item.st_mode);
    // What else a trashed folder holds (a FIFO, a socket) is deleted for real, but its folder's
    // times are taken first.
    const bool other = !data && trashPossible && !S_ISDIR(item.st_mode) && !S_ISREG(item.st_mode);
    if (folder ? !S_ISDIR(item.st_mode) : !(data || other)) {
        errno = savedErrno;
        return realCall(via, dirFd, path, flags);
    }

    // A vfork child shares the parent's memory: it may not touch the batch.
    if (gInitialised && gPid != getpid()) {
        errno = savedErrno;
        return realCall(via, dirFd, path, flags);
    }
    Locked lock(gLock);
    initialise();
    PathEntry *place = (!processExcluded(*m) && !gBypassed)
                           ? folderPath(*m, dirFd, path, slash ? slash + 1 : path, parent)
                           : nullptr;
    const TrashSpot spot = place ? trashSpot(v, place->path, place->length) : TrashSpot{};
    if (spot.part == TrashPart::Files || spot.part == TrashPart::Expunged)
        return trashDeletion(via, dirFd, path, flags, v, volume, spot, *place, leaf, leafLen, item,
                             parent, savedErrno);
    if (spot.part == TrashPart::Info && !folder)
        rememberInfo(v, volume, spot, dirFd, path, leaf, leafLen);
    if (!place || place->excluded || (!folder && place->refused) || nameOut || other ||
        (S_ISREG(item.st_mode) && item.st_nlink != 1)) {
        errno = savedErrno;
        return realCall(via, dirFd, path, flags);
    }
    Batch *b = batchFor(volume, parent.st_dev);
    if (folder) {
        errno = savedErrno;
        const int r = realCall(via, dirFd, path, flags);
        if (r != 0) return r;
        folderRemoved(*b, v, *place, leaf, leafLen, item, parent);
        errno = savedErrno;
        return 0;
    }
    if (keepFile(*b, v, dirFd, path, leaf, leafLen, *place, item, parent)) {
        errno = savedErrno;
        return 0;
    }
    errno = savedErrno;
    return realCall(via, dirFd, path, flags);
}

struct Inside
{
    Inside() { tInside = 1; }
    ~Inside() { tInside = 0; }
};

} // namespace

KEEP_EXPORT int unlinkat(int dirFd, const char *path, int flags)
{
    if (tInside) return realUnlinkat(dirFd, path, flags);
    Inside inside;
    return deletion(Via::Unlinkat, dirFd, path, flags);
}

KEEP_EXPORT int unlink(const char *path)
{
    if (tInside) return realUnlink(path);
    Inside inside;
    return deletion(Via::Unlink, AT_FDCWD, path, 0);
}

KEEP_EXPORT int rmdir(const char *path)
{
    if (tInside) return realRmdir(path);
    Inside inside;
    return deletion(Via::Rmdir, AT_FDCWD, path, AT_REMOVEDIR);
}

// Only to forget what the working folder's file system was (see gCwdUnprotected).
KEEP_EXPORT int chdir(const char *path)
{
    const int r = int(syscall(SYS_chdir, path));
    gCwdChanges.fetch_add(1, std::memory_order_release);
    return r;
}

KEEP_EXPORT int fchdir(int fd)
{
    const int r = int(syscall(SYS_fchdir, fd));
    gCwdChanges.fetch_add(1, std::memory_order_release);
    return r;
}

// As the C library does it: unlink, and rmdir when that says it is a folder.
KEEP_EXPORT int remove(const char *path)
{
    if (tInside) {
        if (PathFn fn = resolve(gRealRemove, "remove")) return fn(path);
        return int(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
    }
    Inside inside;
    if (deletion(Via::Unlinkat, AT_FDCWD, path, 0) == 0) return 0;
    if (errno != EISDIR) return -1;
    return deletion(Via::Unlinkat, AT_FDCWD, path, AT_REMOVEDIR);
}
