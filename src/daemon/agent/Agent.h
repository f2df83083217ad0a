#pragma once

#include "PendingArea.h"
#include "Worker.h"
#include "cache/CacheCommit.h"
#include "cache/CacheFolder.h"
#include "common/Log.h"

#include <QByteArray>
#include <QDateTime>
#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QVariantMap>

#include <memory>
#include <optional>
#include <sys/types.h>
#include <vector>

class DirWatch;
class Inotify;
class MidnightTimer;
class MountWatcher;
class NotificationBus;
class PrivilegedClient;
class QTimer;
class TrashWatch;

// What the agent obeys, read from the shared settings whenever they change on disk or a change
// is announced.
struct Prefs
{
    bool protection = true;          // absent counts as on: nothing is lost before a first launch
    std::optional<qint64> retention; // days; absent or 0: never purged
    KeepPolicy::Exclusions exclusions;
    QVariantMap protectedDisks;

    static Prefs read();
    bool operator==(const Prefs &) const = default;
};

// A protected volume as the agent serves it: its cache, its pending area and its trashes.
struct Volume
{
    explicit Volume(const QByteArray &mount)
        : mountPath(mount), cacheFolder(CacheFolder::pathFor(mount)), pending(mount)
    {
    }
    QByteArray mountPath; // "/" for the start-up volume, whose cache is in the home folder
    QByteArray topdir;    // what relative .trashinfo paths start from; empty for the home trash
    QByteArray cacheFolder;
    QString uuid; // empty for "/"
    PendingArea pending;
    QList<TrashWatch *> trashes;
    dev_t baseDev = 0; // device of the mount path (home folder for "/") when it was set up
    CacheFolder::State cacheState = CacheFolder::State::Ready; // as last found, for the log
    bool consentAsked = false; // an administrator was asked (once per run) to allow the volume
};

// The unprivileged daemon: keeps what leaves the trash by deletion, purges old days, keeps
// ProtectedVolumesData current and answers the window's requests. Its thread only watches and
// decides; the file-system work runs on its workers (Worker.h), so that it never stops listening.
class Agent : public QObject
{
    Q_OBJECT
public:
    explicit Agent(PrivilegedClient *privileged, QObject *parent = nullptr);
    ~Agent() override;

    bool start();
    const Prefs &prefs() const { return mPrefs; }
    Inotify *inotify() const { return mInotify; }

    // Trash watches call these: an item arrived (its shadow is taken on the worker), an item
    // left (it is settled there), its .trashinfo came late.
    void takeShadow(Volume &volume, const ShadowRecord &record, bool follow, int item = -1);
    void settle(Volume &volume, const ShadowRecord &record);
    void setOrigin(Volume &volume, const ShadowRecord &record);
    // An item that left the trash with no shadow to keep: told, counted, shown.
    void reportLost(const QByteArray &what, const QString &reason);
    // False once the volume is unmounted: its trash vanishing then means nothing was deleted.
    bool isMounted(const Volume &volume) const;

    QString statusText() const;
    QString guardStatusText() const;

private:
    // Agent.cpp
    void onNotification(const QString &name, const QString &object, const QVariantMap &userInfo);
    void reloadPrefs(bool announced);
    void rebuildVolumes();
    void reconcileAll();
    // The volume's checked cache folder (made when missing, with the helper's or an
    // administrator's help where needed): its descriptor, or -1 when nothing can be kept there.
    int openCacheFolder(Volume &volume);
    void askConsent(Volume &volume);
    void noteCacheState(Volume &volume, const CacheFolder::Status &status);
    void onShadowTaken(const ShadowTaken &taken);
    void onSettled(const Settled &settled);
    void retryLater(const Settled &settled);
    void retryDue();
    Volume *volumeAt(const QByteArray &mountPath) const;
    void announce();
    void flushAnnouncements();
    // Legacy.cpp
    void migrateLegacy(Volume &volume, int cacheFd);
    void tightenLegacyFolders();
    // Purge.cpp
    void purge(const QString &reason);
    void handleDeleteRequest(const QByteArrayList &paths);
    // Removes the oldest days of a protected volume whose free space fell below the threshold
    // (cache/SpaceGuard.h); called whenever items may have entered a cache, at most every few
    // seconds.
    void guardSpace();
    // AgentStatus.cpp
    void markDirty();
    void updateProtectedVolumesData();
    void watchTheLoop();
    void loopBeat();

    PrivilegedClient *mPrivileged;
    Inotify *mInotify = nullptr;
    DirWatch *mSettingsWatch = nullptr;
    MountWatcher *mMountWatcher = nullptr;
    MidnightTimer *mMidnight = nullptr;
    NotificationBus *mBus = nullptr;
    QTimer *mAnnounceTimer = nullptr;
    QTimer *mVolumesDataTimer = nullptr;
    QTimer *mRetryTimer = nullptr;
    QTimer *mLoopTimer = nullptr;
    QTimer *mGuardTimer = nullptr;
    QElapsedTimer mGuardClock;    // since the last guard job was posted
    bool mGuardQueued = false;    // a guard job is on the background worker
    QSet<QByteArray> mGuardStuck; // volumes short of space with no older day left, as told
    Prefs mPrefs;
    std::vector<std::unique_ptr<Volume>> mVolumes;
    // What the workers report comes to this thread through it.
    Mailbox mMailbox{this};
    std::unique_ptr<ShadowWorker> mShadows;
    std::unique_ptr<BackgroundWorker> mBackground;

    // Commits that failed: tried again later, longer and longer apart, told once.
    struct Retry
    {
        QByteArray volume;
        ShadowRecord record;
        int attempts = 0;
        QDateTime due;
        QString reason;
    };
    QHash<QByteArray, Retry> mRetries;          // by shadow id
    QHash<QByteArray, QString> mShadowFailures; // shadows that could not be taken, and why

    // Coalesced per batch of events: one log entry and one notification for many items.
    QByteArrayList mKeptOrigins;
    QStringList mProblems;
    bool mMovedToCache = false;

    QDateTime mStarted;
    QDateTime mLastCapture;
    QDateTime mLastPurge;
    qint64 mCaptured = 0;
    qint64 mLost = 0;
    // How late the event loop ran its 20 ms beat at worst: the agent's own measure of how well
    // it keeps listening.
    QElapsedTimer mLoopClock;
    QElapsedTimer mLastActivity;
    qint64 mLongestStallMs = 0;
};

using CommonUtils::logText;
// Why nothing is kept on a volume, for the log (English, like every line of the daemon's).
QString cacheStateText(CacheFolder::State state);
