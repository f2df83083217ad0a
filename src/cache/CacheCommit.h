#pragma once

#include "cache/OriginJournal.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

// Deleting into a cache. An item is renamed, never copied, into
//   <cache>/<day folder>/<time folder>/<its name>
// of the cache that lies on its own file system; a name already taken there gets a numbered
// suffix (nothing is ever replaced), the day's size record is reset, and the item's original path
// is appended to <cache>/.origins/<day>.jsonl (OriginJournal.h). The daemon commits trashed items
// this way and the command-line tool's `salvora rm` deletes this way (browser/Deletion.h, which
// decides what is kept and where).
//
// Errors are values; errno becomes text in one place, describe().
namespace CacheCommit {

enum class Error {
    None,
    InvalidPath, // empty, ".", ".." or otherwise not an item
    NotFound,
    ProtectionOff, // PrefsProtectionEnabled is 0
    Excluded,      // PrefsExcludeName or PrefsExcludeExtension matches
    NotOnProtectedVolume,
    CrossDevice,   // on a protected volume whose cache lies on another file system
    InsideCache,   // already in a cache
    HoldsCache,    // a folder that holds the cache itself
    NoCacheFolder, // the cache folder is missing and could not be created
    UnsafeCache,   // a link or a non-folder stands where a cache folder must be
    NoOrigin,      // the origin record could not be written (a full disk): nothing was moved
    System,        // anything else; see sysErrno
};

QString describe(Error error, int sysErrno = 0);

struct Result
{
    Error error = Error::None;
    int sysErrno = 0;
    QByteArray path;       // the item as asked for
    QByteArray cachedPath; // where it lies now
    QString detail;        // more about the cache folder when there is none (CacheFolder.h)
    bool ok() const { return error == Error::None; }
    QString message() const { return detail.isEmpty() ? describe(error, sysErrno) : detail; }
};

// The name an item that is not kept whole takes: "report (incomplete).pdf".
QByteArray incompleteName(const QByteArray &name);

// Renames srcDirFd/srcName to <cache>/<day>/<time>/<name or numbered variant>, where cacheFd is
// the checked cache folder (CacheFolder::open) and cacheFolder its path for the result. The day
// and time folders are named after `when` (so deletions within one second share a time folder)
// and made private. The origin record is written first, then the item takes its name, then the
// day's size record is discarded.
Result moveIntoCache(int srcDirFd, const QByteArray &srcName, int cacheFd,
                     const QByteArray &cacheFolder, const QByteArray &name,
                     const QByteArray &originalPath,
                     const QDateTime &when = QDateTime::currentDateTime(),
                     const Completeness &completeness = {});

// The same into a given day and time folder (an item of an earlier version's cache, moved into
// the user's private one; a shadow that was not complete).
Result moveIntoFolder(int srcDirFd, const QByteArray &srcName, int cacheFd,
                      const QByteArray &cacheFolder, const QByteArray &day, const QByteArray &time,
                      const QByteArray &name, const QByteArray &originalPath,
                      const Completeness &completeness = {});

// The name a clash gives the n-th copy: "report 2.txt", "photos 3"; never longer than a file
// name may be (255 bytes): the stem is shortened, whole UTF-8 characters at a time.
inline constexpr qsizetype kMaxNameBytes = 255;
inline constexpr int kMaxNumberedNames = 10000;
QByteArray numberedName(const QByteArray &name, int n);

} // namespace CacheCommit
