#pragma once

#include "Inotify.h"
#include "PendingArea.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>

class Agent;
class DirWatch;
struct Volume;

// One freedesktop trash of the user (files/ and info/), watched with inotify. An item that
// arrives gets a shadow at once; an item that leaves (deleted, or moved out and back to where it
// came from) is handed to the agent to be committed to the cache or dropped. Items are known by
// inode number within their trash: a volume's device number may change when it is plugged again.
class TrashWatch : public QObject
{
    Q_OBJECT
public:
    // `sharedTop`: the trash is <top>/.Trash/<uid>, valid only while .Trash is a sticky folder.
    TrashWatch(Agent *agent, Volume *volume, QByteArray trashDir, bool sharedTop,
               QObject *parent = nullptr);

    const QByteArray &trashDir() const { return mTrashDir; }
    int shadowCount() const { return int(mShadows.size()); }
    bool isWatching() const;

    // Takes over a shadow found in the pending area at start.
    void adopt(const ShadowRecord &record);
    // The worker walked (or could not start) the shadow of that record.
    void shadowWalked(const ShadowRecord &record);
    // Brings shadows and trash into line: items without a shadow get one, shadows whose item is
    // gone are settled. At start, after an inotify overflow and when protection comes on.
    void reconcile();

private:
    void onFilesEvent(const Inotify::Event &e);
    void onInfoEvent(const Inotify::Event &e);
    void onExpungedEvent(const Inotify::Event &e);
    // The name in expunged/ of the entry with that inode, or empty.
    QByteArray expungedName(quint64 ino) const;
    void arrived(const QByteArray &name, bool mayStillFill);
    void left(const QByteArray &name);
    void processLeaving();
    void settle(const QByteArray &name);
    bool shadowExists(const ShadowRecord &record) const;
    bool usable() const;
    int openSub(const char *sub) const;

    Agent *mAgent;
    Volume *mVolume;
    QByteArray mTrashDir;
    bool mSharedTop;
    DirWatch *mFiles;
    DirWatch *mInfo;
    DirWatch *mExpunged;
    QHash<QByteArray, ShadowRecord> mShadows; // by name in files/
    QSet<QByteArray> mResume;                 // names whose shadow an earlier run left unwalked
    QSet<QByteArray> mInFlight;               // names whose shadow the worker has not walked yet
    QList<std::pair<QByteArray, std::uint32_t>> mLeaving; // moved out, waiting for the batch's end
    // Items moved to expunged/ to be deleted there (as GNOME empties the trash): name there ->
    // name in files/ and shadow id. Settled once gone from there (or after a moment), so that a
    // program that deletes them with the preload library has kept them first.
    QHash<QByteArray, std::pair<QByteArray, QByteArray>> mWaiting;
};
