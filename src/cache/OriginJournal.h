#pragma once

#include <QByteArray>
#include <QList>

// The origin journal of a cache: one line of <cache>/.origins/<day>.jsonl per item kept that day,
// telling where it came from. Written before the item takes its name in the cache (CacheCommit),
// read by the restore, the contents scan and the daemon.
namespace CacheCommit {

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
// Appends one record to the day's journal of the cache open at cacheFd (its .origins folder made
// private when missing). 0, or the errno of the failure.
int appendOrigin(int cacheFd, const QByteArray &day, const Origin &origin);

} // namespace CacheCommit
