#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

// The table that tells the preload library what to keep: which devices are protected and where
// their caches are, what is never kept, and whether keeping is on at all. The agent writes it
// (KeepTable.h); every process that has the library maps it read-only and reads it on each
// deletion, so it is plain data that needs neither parsing into the heap nor locks.
//
// Layout (host byte order, the file never leaves the machine):
//   Header, then `volumeCount` Volume records, then a blob of NUL-terminated strings. Each list
//   is a run of strings in the blob, ended by an empty string.
// A table is never changed in place but for one word: when a newer table replaces it (a new file
// renamed over the name), the writer sets `retired` in the old one, so that mappers know to map
// the name again without a system call per deletion.
namespace keeptable {

inline constexpr char kMagic[8] = {'S', 'V', '3', 'K', 'E', 'E', 'P', '1'};
inline constexpr std::uint32_t kVersion = 2;
inline constexpr std::uint32_t kMaxBytes = 1u << 20;
inline constexpr std::uint32_t kFlagOn = 1;

// The lists, in the order of Header::lists.
enum List : std::uint32_t {
    ExcludedPlaces,     // absolute folders whose entries are never kept (prefix match on path)
    ExcludedNames,      // whole names, ASCII case-insensitive
    ExcludedExtensions, // last extensions without the dot, ASCII case-insensitive
    NamePrefixes,       // temporary names by their start (".#", ".goutputstream-")
    NameSuffixes,       // temporary names by their end (".tmp", "~", ".swp", ".part")
    Processes,          // programs whose deletions are never kept (program_invocation_short_name)
    ProtectedMounts,    // mount points of the protected file systems
    OtherMounts,        // mount points of every other file system: a path whose longest matching
                        // mount point is one of these is passed on without a system call
    Trashes,            // the user's trash folders on the protected volumes, canonical: what is
                        // emptied from their files/ or expunged/ is kept as the trashed item
    ListCount
};

struct Volume
{
    std::uint64_t dev;        // st_dev of the protected file system
    std::uint32_t cachePath;  // offset in the blob: the user's cache folder on it
    std::uint32_t volumePath; // offset in the blob: "/" or the mount point
};

struct Header
{
    char magic[8];
    std::uint32_t version;
    std::uint32_t size;    // of the whole file
    std::uint32_t retired; // 0, or 1 once a newer table replaced this one (read atomically)
    std::uint32_t flags;
    std::uint64_t generation;
    std::uint32_t volumeCount;
    std::uint32_t blobOffset;
    std::uint32_t lists[ListCount]; // offsets in the blob
};

inline constexpr std::size_t kRetiredOffset = offsetof(Header, retired);

// A checked view of a mapped table; every offset is within bounds and every string ended.
struct View
{
    const Header *header = nullptr;
    const Volume *volumes = nullptr;
    const char *blob = nullptr;
    std::uint32_t blobSize = 0;

    bool valid() const { return header != nullptr; }
    bool on() const { return header && (header->flags & kFlagOn); }
    bool retired() const { return __atomic_load_n(&header->retired, __ATOMIC_ACQUIRE) != 0; }
    const char *string(std::uint32_t offset) const { return blob + offset; }
    // The first string of a list; walk with next() until an empty one.
    const char *list(List l) const { return blob + header->lists[l]; }
    static const char *next(const char *s) { return s + std::strlen(s) + 1; }
};

// Checks a table of `size` bytes at `data`; an invalid table gives a View without header.
inline View check(const void *data, std::size_t size)
{
    View v;
    if (size < sizeof(Header) || size > kMaxBytes) return v;
    const auto *h = static_cast<const Header *>(data);
    if (std::memcmp(h->magic, kMagic, sizeof kMagic) != 0 || h->version != kVersion ||
        h->size != size || h->volumeCount > 64)
        return v;
    const std::size_t volumesEnd = sizeof(Header) + h->volumeCount * sizeof(Volume);
    if (h->blobOffset < volumesEnd || h->blobOffset >= size) return v;
    const char *blob = static_cast<const char *>(data) + h->blobOffset;
    const std::uint32_t blobSize = std::uint32_t(size - h->blobOffset);
    // The blob must end with a NUL so that no string runs past the end; every offset within it.
    if (blob[blobSize - 1] != '\0') return v;
    const auto *vols =
        reinterpret_cast<const Volume *>(static_cast<const char *>(data) + sizeof(Header));
    for (std::uint32_t i = 0; i < h->volumeCount; ++i)
        if (vols[i].cachePath >= blobSize || vols[i].volumePath >= blobSize) return v;
    for (std::uint32_t l = 0; l < ListCount; ++l) {
        if (h->lists[l] >= blobSize) return v;
        // Every list ends with an empty string within the blob.
        const char *s = blob + h->lists[l];
        while (*s) {
            s = View::next(s);
            if (s >= blob + blobSize) return v;
        }
    }
    v.header = h;
    v.volumes = vols;
    v.blob = blob;
    v.blobSize = blobSize;
    return v;
}

} // namespace keeptable
