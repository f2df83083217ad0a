#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QDateTime>
#include <QList>
#include <QString>

#include <sys/types.h>

// Deleting into a cache. An item is renamed, never copied, into
//   <cache>/<day folder>/<time folder>/<its name>
// of the cache that lies on its own file system; a name already taken there gets a numbered
// suffix (nothing is ever replaced), the day's size record is reset, and the item's original path
// is appended to <cache>/.origins/<day>.jsonl. The daemon commits trashed items this way and the
// command-line tool's `salvora rm` deletes this way.
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

// The exclusion filters: whole names and last extensions, ";"-separated, compared without case
// (NameMatch). Empty pieces are ignored; blanks are part of a piece, as the preferences store it.
class Exclusions
{
public:
    Exclusions() = default;
    Exclusions(const QString &names, const QString &extensions);
    static Exclusions fromSettings();
    bool matches(QByteArrayView name) const;
    bool isEmpty() const { return mNames.isEmpty() && mExtensions.isEmpty(); }
    bool operator==(const Exclusions &) const = default;

private:
    QByteArrayList mNames;
    QByteArrayList mExtensions;
};

// The cache that keeps deleted items of a given file system: the protected volume (by index of
// getAllProtectedVolumes) whose base folder (the home folder for "/") is on device `dev`. The
// cache folder is named, not checked: open it with CacheFolder::open(volumePath, ...).
struct Destination
{
    qsizetype volumeIndex = -1;
    QByteArray volumePath; // "/" for the home folder's cache
    QByteArray cacheFolder;
};
// volumeIndex -1 and *error set when there is none.
Destination destinationFor(dev_t dev, Error *error);

// What is known to be missing from an item that could not be kept whole (its folder was emptied
// from the trash before all of it was saved, a copy did not fit on the disk). Such an item is kept
// all the same, since it may be all there is, under a name that says so ("report
// (incomplete).pdf") and with this in its origin record.
struct Completeness
{
    bool complete = true;
    qint64 missingFiles = 0; // files known to be missing (more may be, when the folder went first)
    qint64 missingBytes = 0; // bytes of files kept in part
    bool operator==(const Completeness &) const = default;
};
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

// `salvora rm`: checks protection, exclusions, the volume and the device of each path, then moves
// it into its cache. All items of one call share one time folder. Posts one
// "Salvora3Notification" / "Salvora3DataMovedToCache" when anything moved and `notify` is set.
QList<Result> deleteIntoCache(const QByteArrayList &paths, bool notify = true);

// The name a clash gives the n-th copy: "report 2.txt", "photos 3"; never longer than a file
// name may be (255 bytes): the stem is shortened, whole UTF-8 characters at a time.
inline constexpr qsizetype kMaxNameBytes = 255;
inline constexpr int kMaxNumberedNames = 10000;
QByteArray numberedName(const QByteArray &name, int n);

// One line of .origins/<day>.jsonl: where an item of that day came from.
struct Origin
{
    QByteArray time; // the time folder's name
    QByteArray name; // the item's name in it
    QByteArray path; // its original absolute path (empty when unknown)
    qint64 uid = -1; // who deleted it
    quint64 ino = 0; // the item's inode when it was kept (0: not recorded), to tell records of
                     // the same name apart
    // An item that a program emptied from the trash, kept by the preload library: the inode it
    // had in the trash's files/ (or expunged/), by which the daemon knows it kept it already.
    quint64 trashIno = 0;
    Completeness completeness;
    bool operator==(const Origin &) const = default;
};
inline constexpr char kOriginsFolderName[] = ".origins";
QByteArray originsFileFor(const QByteArray &cacheFolder, const QByteArray &day);
// Lines that cannot be read are skipped.
QList<Origin> readOrigins(const QByteArray &cacheFolder, const QByteArray &day);

} // namespace CacheCommit
