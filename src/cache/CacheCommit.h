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
    System,        // anything else; see sysErrno
};

QString describe(Error error, int sysErrno = 0);

struct Result
{
    Error error = Error::None;
    int sysErrno = 0;
    QByteArray path;       // the item as asked for
    QByteArray cachedPath; // where it lies now
    bool ok() const { return error == Error::None; }
    QString message() const { return describe(error, sysErrno); }
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
// getAllProtectedVolumes) whose base folder (the home folder for "/") is on device `dev`.
struct Destination
{
    qsizetype volumeIndex = -1;
    QByteArray volumePath;
    QByteArray cacheFolder;
};
// volumeIndex -1 and *error set when there is none.
Destination destinationFor(dev_t dev, Error *error);

// Renames srcDirFd/srcName to <cacheFolder>/<day>/<time>/<name or numbered variant>, the day and
// time folders named after `when` (so deletions within one second share a time folder). Resets
// the day's record and records `originalPath`. Folders made here get 0777.
Result moveIntoCache(int srcDirFd, const QByteArray &srcName, const QByteArray &cacheFolder,
                     const QByteArray &name, const QByteArray &originalPath,
                     const QDateTime &when = QDateTime::currentDateTime());

// `salvora rm`: checks protection, exclusions, the volume and the device of each path, then moves
// it into its cache. All items of one call share one time folder. Posts one
// "Salvora3Notification" / "Salvora3DataMovedToCache" when anything moved and `notify` is set.
QList<Result> deleteIntoCache(const QByteArrayList &paths, bool notify = true);

// The name a clash gives the n-th copy: "report 2.txt", "photos 3".
QByteArray numberedName(const QByteArray &name, int n);

// One line of .origins/<day>.jsonl: where an item of that day came from.
struct Origin
{
    QByteArray time; // the time folder's name
    QByteArray name; // the item's name in it
    QByteArray path; // its original absolute path (empty when unknown)
    qint64 uid = -1; // who deleted it
    bool operator==(const Origin &) const = default;
};
inline constexpr char kOriginsFolderName[] = ".origins";
QByteArray originsFileFor(const QByteArray &cacheFolder, const QByteArray &day);
// Lines that cannot be read are skipped.
QList<Origin> readOrigins(const QByteArray &cacheFolder, const QByteArray &day);

} // namespace CacheCommit
