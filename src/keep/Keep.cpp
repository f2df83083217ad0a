// libsalvora3-keep: keeps what programs delete on a protected volume. Preloaded into the user's
// programs, it wraps unlink, unlinkat, remove and rmdir; a deletion that would destroy data is
// turned into a rename into the user's cache on the same file system. See DESIGN.md.
//
// Plain C++ that links the C library only: no exceptions, no RTTI, no function-local statics
// (their guards live in libstdc++), no heap (a deletion may come from a signal handler or a
// process that is inside malloc), no constructors. Whatever goes wrong, the real call is made.

#include "KeepTableFormat.h"
#include "OriginRecord.h"

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

template <typename Fn>
Fn resolve(std::atomic<Fn> &slot, const char *name)
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

char foldAscii(char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; }

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
    struct stat st{};
    const uid_t me = geteuid();
    bool ok = fstat(folder, &st) == 0 && st.st_uid == me && (st.st_mode & 022) == 0;
    const int fd =
        ok ? openat(folder, slash + 1, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC) : -1;
    close(folder);
    if (fd < 0) return nullptr;
    ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == me &&
         (st.st_mode & 022) == 0 && st.st_size >= off_t(sizeof(keeptable::Header)) &&
         st.st_size <= off_t(keeptable::kMaxBytes);
    void *data = ok ? mmap(nullptr, std::size_t(st.st_size), PROT_READ, MAP_SHARED, fd, 0)
                    : MAP_FAILED;
    close(fd);
    if (data == MAP_FAILED) return nullptr;
    const View v = keeptable::check(data, std::size_t(st.st_size));
    if (!v.valid() || v.retired()) {
        munmap(data, std::size_t(st.st_size));
        return nullptr;
    }
    if (!gMappingPage || gMappingsUsed == kMappingsPerPage) {
        void *page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
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

// Names that are never kept: temporary names and the user's excluded names and extensions.
bool nameExcluded(const View &v, const char *name, std::size_t n)
{
    for (const char *s = v.list(keeptable::NamePrefixes); *s; s = View::next(s))
        if (startsWith(name, n, s)) return true;
    for (const char *s = v.list(keeptable::NameSuffixes); *s; s = View::next(s))
        if (endsWith(name, n, s)) return true;
    if (inList(v, keeptable::ExcludedNames, name, n)) return true;
    const char *dot = static_cast<const char *>(memrchr(name, '.', n));
    // ".profile" has no extension; "archive." has an empty one, which matches nothing.
    if (!dot || dot == name || dot == name + n - 1) return false;
    return inList(v, keeptable::ExcludedExtensions, dot + 1, std::size_t(name + n - dot - 1));
}

bool hasCacheComponent(const char *path, std::size_t n)
{
    static constexpr char kCache[] = "/.Salvora3Cache";
    const std::size_t k = sizeof kCache - 1;
    for (const char *p = path; (p = static_cast<const char *>(memmem(p, std::size_t(path + n - p), kCache, k)));
         p += k)
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

bool processExcluded(const Mapping &m)
{
    if (gProcessGeneration != m.generation) {
        gProcessGeneration = m.generation;
        const char *me = program_invocation_short_name ? program_invocation_short_name : "";
        gProcessExcluded = inList(m.view, keeptable::Processes, me, std::strlen(me)) ||
                           (gParentName[0] && inList(m.view, keeptable::Processes, gParentName,
                                                     std::strlen(gParentName)));
    }
    return gProcessExcluded;
}

// ---- the batch: one time folder per process, trees rebuilt as their folders go ---------------

// Growable arrays in anonymous mappings (mremap moves them), addressed by index.
template <typename T>
struct Pool
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
    File,   // a file or link at the top of the time folder
    Folder, // a folder rebuilt at the top of the time folder
    Empty,  // a removed folder that held nothing kept: remembered, made only if its parent goes too
};

struct Node
{
    std::uint64_t ino;    // its inode where it was (for a folder: the original folder's)
    std::uint64_t parent; // the inode of the folder it was in
    std::uint32_t name;   // offset in the names pool: its original name
    std::uint32_t cur;    // offset in the names pool: its name at the top of the time folder
    std::uint32_t next;   // the next node of the same parent, +1 (0: none)
    Kind kind;
    bool gone;            // moved into its parent's folder
    mode_t mode;
    timespec atime, mtime;
};

struct Slot
{
    std::uint64_t parent; // 0: free
    std::uint32_t head;   // first node, +1
    // The folder's times when its first entry was kept, before deleting its entries changed them.
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

void resetSizeRecord(Batch &b)
{
    if (b.dayFd >= 0) realUnlinkat(b.dayFd, ".Salvora3_CacheInformation", 0);
    b.lastSizeReset = nowMs();
}

void endBatch(Batch &b)
{
    if (!b.active) return;
    if (b.timeFd >= 0) {
        resetSizeRecord(b);
        // A time folder that ended up empty is not left behind.
        realUnlinkat(b.dayFd, b.time, AT_REMOVEDIR);
    }
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

void afterFork()
{
    // The child starts afresh: its own pid, its own batch; the descriptors it inherited are its
    // copies and go.
    gLock.reset();
    gTableLock.reset();
    gPid = getpid();
    closeFd(gBatch.originsFd);
    closeFd(gBatch.timeFd);
    closeFd(gBatch.dayFd);
    closeFd(gBatch.cacheFd);
    gBatch.nodes.size = 0;
    gBatch.names.size = 0;
    if (gBatch.slots.data) std::memset(gBatch.slots.data, 0, gBatch.slots.capacity * sizeof(Slot));
    gBatch.slotsUsed = 0;
    if (gBatch.given.data)
        std::memset(gBatch.given.data, 0, gBatch.given.capacity * sizeof(Given));
    gBatch.givenUsed = 0;
    gBatch.active = false;
    readParentName();
    gProcessGeneration = ~0ull;
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

Slot *findSlot(Batch &b, std::uint64_t parent, bool create)
{
    if (create && (b.slotsUsed + 1) * 2 > b.slots.capacity) {
        // Rehash into a table twice the size.
        Pool<Slot> old = b.slots;
        Pool<Slot> grown;
        if (!grown.reserve(old.capacity ? old.capacity * 2 : 1024)) return nullptr;
        std::memset(grown.data, 0, grown.capacity * sizeof(Slot));
        for (std::size_t i = 0; i < old.capacity; ++i) {
            if (old.data[i].parent == 0) continue;
            std::size_t h = hashIno(old.data[i].parent, grown.capacity);
            while (grown.data[h].parent != 0)
                h = (h + 1) & (grown.capacity - 1);
            grown.data[h] = old.data[i];
        }
        old.release();
        b.slots = grown;
    }
    if (b.slots.capacity == 0) return nullptr;
    std::size_t h = hashIno(parent, b.slots.capacity);
    while (b.slots.data[h].parent != 0) {
        if (b.slots.data[h].parent == parent) return &b.slots.data[h];
        h = (h + 1) & (b.slots.capacity - 1);
    }
    if (!create) return nullptr;
    b.slots.data[h].parent = parent;
    b.slots.data[h].head = 0;
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
    if (add && (b.givenUsed + 1) * 2 > b.given.capacity) {
        Pool<Given> old = b.given;
        Pool<Given> grown;
        if (!grown.reserve(old.capacity ? old.capacity * 2 : 1024)) return nullptr;
        std::memset(grown.data, 0, grown.capacity * sizeof(Given));
        for (std::size_t i = 0; i < old.capacity; ++i) {
            if (old.data[i].key == 0) continue;
            std::size_t h = hashIno(old.data[i].key, grown.capacity);
            while (grown.data[h].key != 0)
                h = (h + 1) & (grown.capacity - 1);
            grown.data[h] = old.data[i];
        }
        old.release();
        b.given = grown;
    }
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
    if (Given *g = given(b, leaf, true); g && std::uint32_t(n) > g->last) g->last = std::uint32_t(n);
    given(b, name, true);
}

Node *addNode(Batch &b, const Node &node, const struct stat &parent)
{
    if (!b.nodes.reserve(b.nodes.size + 1)) return nullptr;
    Slot *slot = findSlot(b, node.parent, true);
    if (!slot) return nullptr;
    if (slot->head == 0) {
        slot->atime = parent.st_atim;
        slot->mtime = parent.st_mtim;
    }
    Node *n = &b.nodes.data[b.nodes.size];
    *n = node;
    n->next = slot->head;
    slot->head = std::uint32_t(++b.nodes.size);
    return n;
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
    if (b.cacheFd < 0)
        b.cacheFd = open(cachePath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat st{};
    if (b.cacheFd < 0 || fstat(b.cacheFd, &st) != 0 || st.st_uid != geteuid() ||
        (st.st_mode & 077) != 0 || st.st_dev != b.dev) {
        closeFd(b.cacheFd);
        return false;
    }
    const time_t now = ::time(nullptr);
    struct tm local{};
    if (!localtime_r(&now, &local)) return false;
    std::strftime(b.day, sizeof b.day, "%Y-%m-%d", &local);
    std::strftime(b.time, sizeof b.time, "%Y-%m-%d %H_%M_%S", &local);
    b.dayFd = openPrivateFolder(b.cacheFd, b.day);
    b.timeFd = b.dayFd >= 0 ? openPrivateFolder(b.dayFd, b.time) : -1;
    const int origins = openPrivateFolder(b.cacheFd, ".origins");
    if (origins >= 0) {
        char file[32];
        std::snprintf(file, sizeof file, "%s.jsonl", b.day);
        b.originsFd = openat(origins, file,
                             O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                             0600);
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
                 std::uint64_t ino)
{
    const std::size_t n =
        origin::format(gRecord, sizeof gRecord, b.time, name, folder, leaf, gUid, ino);
    if (n == 0) return false;
    const ssize_t w = write(b.originsFd, gRecord, n);
    if (w == ssize_t(n)) return true;
    // A partial record would corrupt the next one.
    struct stat st{};
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
        struct stat st{};
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

// Moves a file or link into the time folder. True when it is kept.
bool keepFile(Batch &b, const View &v, int dirFd, const char *path, const char *leaf,
              std::size_t leafLen, PathEntry &folder, const struct stat &item,
              const struct stat &parent)
{
    if (!openTimeFolder(b, v)) return false;
    char numbered[NAME_MAX + 1];
    const char *name = leaf;
    bool moved = false;
    int n = firstNumber(b, leaf);
    for (; n < 10000; ++n) {
        if (n > 1) {
            // After a clash, the first free name (a record for a name that is taken would be
            // one too many).
            name = clashName(leaf, n, numbered);
            struct stat taken{};
            if (fstatat(b.timeFd, name, &taken, AT_SYMLINK_NOFOLLOW) == 0) continue;
        }
        if (given(b, name, false)) continue;
        if (!writeOrigin(b, name, folder.path, leaf, item.st_ino)) return false;
        if (renameat2(dirFd, path, b.timeFd, name, RENAME_NOREPLACE) == 0) {
            moved = true;
            break;
        }
        if (errno != EEXIST) {
            // Its record stays behind: the name is not given again in this batch.
            if (errno == EACCES || errno == EPERM || errno == EROFS) folder.refused = true;
            markGiven(b, leaf, name, n);
            return false;
        }
    }
    if (!moved) return false;
    markGiven(b, leaf, name, n);
    // The entry must be the one that was looked at: had another taken its place meanwhile (a
    // folder, which unlink would have refused), it goes back and the real call decides.
    struct stat there{};
    if (fstatat(b.timeFd, name, &there, AT_SYMLINK_NOFOLLOW) != 0 || there.st_ino != item.st_ino ||
        (there.st_mode & S_IFMT) != (item.st_mode & S_IFMT)) {
        renameat2(b.timeFd, name, dirFd, path, RENAME_NOREPLACE);
        return false;
    }
    Node node{};
    node.ino = item.st_ino;
    node.parent = parent.st_ino;
    node.name = addName(b, leaf, leafLen);
    node.cur = addName(b, name, std::strlen(name));
    node.kind = Kind::File;
    if (node.name != UINT32_MAX && node.cur != UINT32_MAX) addNode(b, node, parent);
    if (nowMs() - b.lastSizeReset > 1000) resetSizeRecord(b);
    return true;
}

bool hasContent(Batch &b, std::uint64_t folder)
{
    Slot *s = findSlot(b, folder, false);
    for (std::uint32_t i = s ? s->head : 0; i; i = b.nodes.data[i - 1].next) {
        const Node &n = b.nodes.data[i - 1];
        if (n.gone) continue;
        if (n.kind != Kind::Empty || hasContent(b, n.ino)) return true;
    }
    return false;
}

void setAttributes(int fd, const Node &n)
{
    // The owner keeps the right to change it, so that it can move into its parent's folder later.
    fchmod(fd, (n.mode & 07777) | S_IRWXU);
    const timespec times[2] = {n.atime, n.mtime};
    futimens(fd, times);
}

// Moves the kept entries of `folder` into `fd`, their original folder rebuilt, and rebuilds its
// empty folders in it.
void fillFolder(Batch &b, std::uint64_t folder, int fd)
{
    Slot *s = findSlot(b, folder, false);
    char numbered[NAME_MAX + 1];
    for (std::uint32_t i = s ? s->head : 0; i; i = b.nodes.data[i - 1].next) {
        Node n = b.nodes.data[i - 1];
        if (n.gone) continue;
        const char *name = b.names.data + n.name;
        if (n.kind == Kind::Empty) {
            if (mkdirat(fd, name, 0700) != 0) continue;
            const int sub = openat(fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (sub < 0) continue;
            fillFolder(b, n.ino, sub);
            setAttributes(sub, n);
            close(sub);
            b.nodes.data[i - 1].gone = true;
            continue;
        }
        const char *target = name;
        for (int k = 2; k < 10000; ++k) {
            if (renameat2(b.timeFd, b.names.data + n.cur, fd, target, RENAME_NOREPLACE) == 0) {
                b.nodes.data[i - 1].gone = true;
                break;
            }
            if (errno != EEXIST) break;
            target = clashName(name, k, numbered);
        }
    }
}

// After a folder of the batch was removed: rebuilds it at the top of the time folder with what
// was kept of it, or remembers it when it held nothing kept.
void folderRemoved(Batch &b, const View &v, const PathEntry &parentPath, const char *leaf,
                   std::size_t leafLen, const struct stat &item, const struct stat &parent)
{
    Node node{};
    node.ino = item.st_ino;
    node.parent = parent.st_ino;
    node.mode = item.st_mode;
    node.atime = item.st_atim;
    node.mtime = item.st_mtim;
    if (const Slot *own = findSlot(b, item.st_ino, false); own && own->head) {
        node.atime = own->atime;
        node.mtime = own->mtime;
    }
    node.name = addName(b, leaf, leafLen);
    if (node.name == UINT32_MAX) return;
    if (!hasContent(b, item.st_ino)) {
        node.kind = Kind::Empty;
        node.cur = node.name;
        addNode(b, node, parent);
        return;
    }
    if (!openTimeFolder(b, v)) return;
    char numbered[NAME_MAX + 1];
    const char *name = leaf;
    int fd = -1;
    int n = firstNumber(b, leaf);
    for (; n < 10000 && fd < 0; ++n) {
        if (n > 1) name = clashName(leaf, n, numbered);
        if (given(b, name, false)) continue;
        if (mkdirat(b.timeFd, name, 0700) != 0) {
            if (errno == EEXIST) continue;
            return;
        }
        fd = openat(b.timeFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        struct stat made{};
        // The record names the folder that is kept, not the one that was removed.
        if (fd < 0 || fstat(fd, &made) != 0 ||
            !writeOrigin(b, name, parentPath.path, leaf, made.st_ino)) {
            if (fd >= 0) close(fd);
            realUnlinkat(b.timeFd, name, AT_REMOVEDIR);
            return;
        }
        break;
    }
    if (fd < 0) return;
    markGiven(b, leaf, name, n);
    fillFolder(b, item.st_ino, fd);
    setAttributes(fd, node);
    close(fd);
    node.kind = Kind::Folder;
    node.cur = addName(b, name, std::strlen(name));
    if (node.cur != UINT32_MAX) addNode(b, node, parent);
    resetSizeRecord(b);
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

int deletion(Via via, int dirFd, const char *path, int flags)
{
    const bool folder = flags == AT_REMOVEDIR;
    if (!path || (flags & ~AT_REMOVEDIR) != 0) return realCall(via, dirFd, path, flags);
    const int savedErrno = errno;
    const Mapping *m = currentTable();
    if (!m || !m->view.on()) return realCall(via, dirFd, path, flags);
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
    if (nameExcluded(v, leaf, leafLen)) return realCall(via, dirFd, path, flags);
    // By its text alone where that is sure: scratch places, caches, other file systems.
    if (isPlainAbsolute(path) &&
        (placeExcluded(v, path, std::size_t(leaf - path)) || onOtherMount(v, path, len)))
        return realCall(via, dirFd, path, flags);

    // The folder that holds the entry, and the entry itself.
    struct stat parent{}, item{};
    int rc = 0;
    if (!slash) {
        rc = dirFd == AT_FDCWD ? fstatat(AT_FDCWD, ".", &parent, 0) : fstat(dirFd, &parent);
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
    // Only what holds data: the last link of a file or a link; a folder, after the real call.
    const bool data = (S_ISREG(item.st_mode) && item.st_nlink == 1) || S_ISLNK(item.st_mode);
    if (folder ? !S_ISDIR(item.st_mode) : !data) {
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
    PathEntry *place =
        (!gBypassed && !processExcluded(*m))
            ? folderPath(*m, dirFd, path, slash ? slash + 1 : path, parent)
            : nullptr;
    if (!place || place->excluded || (!folder && place->refused)) {
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
