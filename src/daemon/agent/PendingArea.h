#pragma once

#include <QByteArray>
#include <QList>

#include <optional>
#include <sys/types.h>

// A shadow: what the agent keeps of an item while it sits in the trash. It lives in
//   <cache>/.pending/<uid>/<id>/item     hard links of the item's files, its folders re-created
//   <cache>/.pending/<uid>/<id>/record   where it came from
// in the user's private cache folder (CacheFolder.h) on the same file system as the trash, so
// keeping it costs no space and committing it is a rename. ".pending" is hidden, so day listings
// and size records never see it.
struct ShadowRecord
{
    QByteArray id;        // the shadow's folder in the pending area
    QByteArray trashDir;  // the trash holding the item
    QByteArray trashName; // its name in <trash>/files
    QByteArray origin;    // its original absolute path; empty when the .trashinfo said nothing
    quint64 dev = 0;      // identity of <trash>/files/<name> when the shadow was taken
    quint64 ino = 0;
    // Written once the walk of the item has ended: whole, or what is missing. A shadow without
    // it was interrupted (the agent stopped) and is walked again while its item is in the trash.
    bool walked = false;
    bool complete = false;
    qint64 missingFiles = 0;
    qint64 missingBytes = 0;

    QByteArray serialize() const;
    static std::optional<ShadowRecord> parse(QByteArrayView text);
    bool operator==(const ShadowRecord &) const = default;
};

class PendingArea
{
public:
    static constexpr char kFolderName[] = ".pending";
    static constexpr char kItemName[] = "item";
    static constexpr char kRecordName[] = "record";

    // The pending area of the user's cache on the volume mounted at volumePath ("/": the home's).
    explicit PendingArea(QByteArray volumePath);

    QByteArray folder() const; // <cache>/.pending/<uid>

    // The user's pending folder in the checked cache folder, created (private) when `create` is
    // set. -1 with errno set on failure.
    int open(bool create) const;
    // Every readable record of the user's pending area.
    QList<ShadowRecord> load() const;
    // A new, empty shadow folder named record.id (chosen here when empty, see newId) with its
    // record written; its descriptor, or -1.
    int create(int pendingFd, ShadowRecord &record) const;
    static QByteArray newId(quint64 ino);
    // The record as it is on disk, or nullopt.
    std::optional<ShadowRecord> readRecord(const QByteArray &id) const;
    bool rewriteRecord(const ShadowRecord &record) const;
    // Removes a shadow folder and everything in it.
    int drop(const QByteArray &id) const;
    int count() const;

private:
    QByteArray mVolumePath;
};
