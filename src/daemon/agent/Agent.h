#pragma once

#include "PendingArea.h"
#include "cache/CacheCommit.h"
#include "cache/CacheFolder.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QObject>
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
    CacheCommit::Exclusions exclusions;
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
// ProtectedVolumesData current and answers the window's requests.
class Agent : public QObject
{
    Q_OBJECT
public:
    explicit Agent(PrivilegedClient *privileged, QObject *parent = nullptr);
    ~Agent() override;

    bool start();
    const Prefs &prefs() const { return mPrefs; }
    Inotify *inotify() const { return mInotify; }

    // Trash watches call these.
    bool takeShadow(Volume &volume, int filesFd, ShadowRecord &record);
    void settle(Volume &volume, const ShadowRecord &record);
    // False once the volume is unmounted: its trash vanishing then means nothing was deleted.
    bool isMounted(const Volume &volume) const;

    QString statusText() const;

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
    // Legacy.cpp
    void migrateLegacy(Volume &volume, int cacheFd);
    void tightenLegacyFolders();
    void commit(Volume &volume, const ShadowRecord &record);
    void retryFailedCommits();
    void announce();
    void flushAnnouncements();
    // Purge.cpp
    void purge(const QString &reason);
    void handleDeleteRequest(const QByteArrayList &paths);
    // AgentStatus.cpp
    void markDirty();
    void updateProtectedVolumesData();

    PrivilegedClient *mPrivileged;
    Inotify *mInotify = nullptr;
    DirWatch *mSettingsWatch = nullptr;
    MountWatcher *mMountWatcher = nullptr;
    MidnightTimer *mMidnight = nullptr;
    NotificationBus *mBus = nullptr;
    QTimer *mAnnounceTimer = nullptr;
    QTimer *mVolumesDataTimer = nullptr;
    Prefs mPrefs;
    std::vector<std::unique_ptr<Volume>> mVolumes;
    QList<std::pair<Volume *, ShadowRecord>> mFailedCommits;

    // Coalesced per batch of events: one log entry and one notification for many items.
    QByteArrayList mKeptOrigins;
    QStringList mProblems;
    bool mMovedToCache = false;

    QDateTime mStarted;
    QDateTime mLastCapture;
    QDateTime mLastPurge;
    qint64 mCaptured = 0;
};

// Log text for bytes: the log is ASCII, and a name must not be able to forge an entry.
QString logText(const QByteArray &bytes);
// Why nothing is kept on a volume, for the log (English, like every line of the daemon's).
QString cacheStateText(CacheFolder::State state);
