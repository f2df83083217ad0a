#include "Agent.h"

#include "DirWatch.h"
#include "Inotify.h"
#include "KeepFeed.h"
#include "MidnightTimer.h"
#include "PrivilegedClient.h"
#include "TrashWatch.h"
#include "UniqueFd.h"
#include "cache/CacheLayout.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/Losses.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/MountWatcher.h"
#include "volumes/Volumes.h"

#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcAgent, "salvora.daemon")

namespace {

using Fd = UniqueFd;

QByteArray baseName(const QByteArray &path)
{
    return path.mid(path.lastIndexOf('/') + 1);
}

QString describeErrno(int err)
{
    return QString::fromLocal8Bit(std::strerror(err));
}

} // namespace

QString cacheStateText(CacheFolder::State state)
{
    switch (state) {
    case CacheFolder::State::Ready:
        return QStringLiteral("ready");
    case CacheFolder::State::NoVolume:
        return QStringLiteral("the volume cannot be opened");
    case CacheFolder::State::Missing:
    case CacheFolder::State::NeedsHelper:
        return QStringLiteral("its cache folder is not set up; only an administrator may allow it");
    case CacheFolder::State::Unsafe:
        return QStringLiteral(
            "a link, a file or a folder open to all stands where its cache should be");
    case CacheFolder::State::NotOwned:
        return QStringLiteral("another account's folder stands where its cache should be");
    case CacheFolder::State::OtherDevice:
        return QStringLiteral("another volume is mounted where its cache should be");
    case CacheFolder::State::Failed:
        break;
    }
    return QStringLiteral("its cache folder cannot be used");
}

Prefs Prefs::read()
{
    const Settings::Snapshot s;
    const KeepPolicy keep = KeepPolicy::read(s);
    Prefs p;
    p.protection = keep.protection;
    p.exclusions = keep.exclusions;
    p.retention = s.integer(SettingsKeys::PrefsRemoveFromCache);
    p.protectedDisks = s.dictionary(SettingsKeys::PrefsProtectedDisks).value_or(QVariantMap());
    return p;
}

Agent::Agent(PrivilegedClient *privileged, QObject *parent)
    : QObject(parent), mPrivileged(privileged)
{
}

Agent::~Agent()
{
    // The workers stop first (within a step), so that nothing they report comes in meanwhile.
    mShadows.reset();
    mBackground.reset();
    // Everything that holds inotify watches goes before the inotify instance, which as the first
    // child would otherwise be deleted first.
    for (auto &v : mVolumes)
        qDeleteAll(v->trashes);
    mVolumes.clear();
    delete mSettingsWatch;
    mSettingsWatch = nullptr;
    delete mInotify;
    mInotify = nullptr;
}

bool Agent::start()
{
    mStarted = QDateTime::currentDateTime();
    tightenLegacyFolders();
    mInotify = new Inotify(this);
    if (!mInotify->isValid()) {
        CommonUtils::addToLogFile(
            QStringLiteral("sv3daemon cannot watch the trash (inotify: %1) and stops.")
                .arg(describeErrno(errno)));
        return false;
    }
    mPrefs = Prefs::read();

    // The workers report on their own threads; what they say is handled here, in order.
    mShadows = std::make_unique<ShadowWorker>(
        [this](const ShadowTaken &t) { mMailbox.post([this, t] { onShadowTaken(t); }); },
        [this](const Settled &s) { mMailbox.post([this, s] { onSettled(s); }); });
    mBackground = std::make_unique<BackgroundWorker>();
    mLoopTimer = new QTimer(this);
    mLoopTimer->setInterval(20);
    connect(mLoopTimer, &QTimer::timeout, this, &Agent::loopBeat);
    mRetryTimer = new QTimer(this);
    mRetryTimer->setSingleShot(true);
    connect(mRetryTimer, &QTimer::timeout, this, &Agent::retryDue);

    mAnnounceTimer = new QTimer(this);
    mAnnounceTimer->setSingleShot(true);
    mAnnounceTimer->setInterval(0);
    connect(mAnnounceTimer, &QTimer::timeout, this, &Agent::flushAnnouncements);
    mVolumesDataTimer = new QTimer(this);
    mVolumesDataTimer->setSingleShot(true);
    mVolumesDataTimer->setInterval(300);
    connect(mVolumesDataTimer, &QTimer::timeout, this, &Agent::updateProtectedVolumesData);

    // The settings file is replaced whole on every save; watch its folder for it.
    const QByteArray settingsFile = QFile::encodeName(Settings::fileName());
    const QByteArray settingsName = baseName(settingsFile);
    mSettingsWatch = new DirWatch(mInotify, settingsFile.left(settingsFile.lastIndexOf('/')),
                                  IN_CLOSE_WRITE | IN_MOVED_TO, this);
    connect(mSettingsWatch, &DirWatch::event, this, [this, settingsName](const Inotify::Event &e) {
        if (e.name == settingsName) reloadPrefs(false);
    });
    connect(mSettingsWatch, &DirWatch::appeared, this, [this] { reloadPrefs(false); });
    connect(mInotify, &Inotify::overflowed, this, [this] {
        CommonUtils::addToLogFile(
            QStringLiteral("sv3daemon missed file system events and looks at the trash again."));
        mSettingsWatch->rearm();
        reloadPrefs(false);
        reconcileAll();
    });

    mBus = new NotificationBus(this);
    for (const char *name :
         {Notifications::Salvora3DaemonNotification, Notifications::Salvora3MenuNotification,
          Notifications::Salvora3Notification})
        mBus->observe(QLatin1String(name));
    connect(mBus, &NotificationBus::received, this, &Agent::onNotification);

    // Items that programs delete are kept by the preload library, which this feeds.
    auto *keepFeed = new KeepFeed(this);
    connect(keepFeed, &KeepFeed::kept, this, [this] {
        mMovedToCache = true;
        announce();
        markDirty();
        guardSpace();
    });

    mMountWatcher = new MountWatcher(this);
    const auto mountChanged = [this](const QString &path) {
        if (CommonUtils::deviceIsValid(path)) QTimer::singleShot(0, this, &Agent::rebuildVolumes);
    };
    connect(mMountWatcher, &MountWatcher::deviceDidMount, this, mountChanged);
    connect(mMountWatcher, &MountWatcher::deviceDidUnmount, this, mountChanged);

    mMidnight = new MidnightTimer(this);
    connect(mMidnight, &MidnightTimer::midnight, this, [this] {
        purge(QStringLiteral("midnight"));
        guardSpace(); // yesterday may go now
    });

    rebuildVolumes();
    purge(QStringLiteral("start"));
    guardSpace();
    updateProtectedVolumesData();
    CommonUtils::addToLogFile(
        QStringLiteral("sv3daemon started (protection %1, %2 volume(s) watched%3).")
            .arg(mPrefs.protection ? QStringLiteral("on") : QStringLiteral("off"))
            .arg(mVolumes.size())
            .arg(mPrivileged->isAvailable() ? QString()
                                            : QStringLiteral(", without privileged helper")));
    qCInfo(lcAgent) << "sv3daemon ready";
    return true;
}

void Agent::onNotification(const QString &name, const QString &object, const QVariantMap &userInfo)
{
    if (name == QLatin1String(Notifications::Salvora3DaemonNotification)) {
        if (object == QLatin1String(Notifications::Salvora3DaemonMustDelete))
            handleDeleteRequest(NotificationBus::deleteListFrom(userInfo));
        else if (object == QLatin1String(Notifications::Salvora3GetStatus))
            CommonUtils::addToLogFile(statusText());
    } else if (name == QLatin1String(Notifications::Salvora3MenuNotification)) {
        if (object == QLatin1String(Notifications::Salvora3SettingsDidChange)) reloadPrefs(true);
    } else if (name == QLatin1String(Notifications::Salvora3Notification)) {
        // Someone else (`salvora rm`, the window) changed a cache.
        if (object == QLatin1String(Notifications::Salvora3DataMovedToCache) ||
            object == QLatin1String(Notifications::Salvora3CacheModified)) {
            markDirty();
            if (object == QLatin1String(Notifications::Salvora3DataMovedToCache)) guardSpace();
        }
    }
}

void Agent::reloadPrefs(bool announced)
{
    const Prefs old = mPrefs;
    mPrefs = Prefs::read();
    const bool changed = !(old == mPrefs);
    if (!changed && !announced) return;
    if (old.protection != mPrefs.protection || old.retention != mPrefs.retention)
        CommonUtils::addToLogFile(
            QStringLiteral("sv3daemon read the settings: protection %1, items kept %2.")
                .arg(mPrefs.protection ? QStringLiteral("on") : QStringLiteral("off"))
                .arg(mPrefs.retention.value_or(0) > 0
                         ? QStringLiteral("%1 day(s)").arg(*mPrefs.retention)
                         : QStringLiteral("for ever")));
    if (old.protectedDisks != mPrefs.protectedDisks) {
        // Not from inside an inotify or D-Bus callback: rebuilding deletes watches.
        QTimer::singleShot(0, this, &Agent::rebuildVolumes);
    } else if (mPrefs.protection && (!old.protection || !(old.exclusions == mPrefs.exclusions))) {
        // Items trashed while nothing was kept get their shadow now.
        reconcileAll();
    }
    if (announced || old.retention != mPrefs.retention) purge(QStringLiteral("settings changed"));
    if (auto *feed = findChild<KeepFeed *>(); feed && changed) feed->publish(mPrefs.protection);
}

void Agent::rebuildVolumes()
{
    CommonUtils::resetVolumesLists();
    struct Wanted
    {
        QByteArray mount;
        QString uuid;
    };
    QList<Wanted> wanted;
    for (const QString &path : CommonUtils::getAllProtectedVolumes()) {
        if (path == QLatin1String("/")) {
            wanted.append({"/", QString()});
            continue;
        }
        const auto d = CommonUtils::getVolumeInfosForPath(path);
        if (d && !d->uuid.isEmpty()) wanted.append({QFile::encodeName(path), d->uuid});
    }
    const auto isWanted = [&](const Volume &v) {
        return std::any_of(wanted.begin(), wanted.end(), [&](const Wanted &w) {
            return w.mount == v.mountPath && w.uuid == v.uuid;
        });
    };
    for (auto it = mVolumes.begin(); it != mVolumes.end();) {
        if (isWanted(**it)) {
            ++it;
            continue;
        }
        Volume *gone = it->get();
        qCInfo(lcAgent).noquote() << "no longer watching" << logText(gone->mountPath);
        qDeleteAll(gone->trashes);
        it = mVolumes.erase(it);
    }
    for (const Wanted &w : wanted) {
        if (std::any_of(mVolumes.begin(), mVolumes.end(), [&](const auto &v) {
                return v->mountPath == w.mount && v->uuid == w.uuid;
            }))
            continue;
        const bool home = w.mount == "/";
        auto v = std::make_unique<Volume>(w.mount);
        v->uuid = w.uuid;
        struct stat base
        {
        };
        if (::stat(home ? CommonUtils::homeFolder().constData() : w.mount.constData(), &base) == 0)
            v->baseDev = base.st_dev;
        const QByteArray uid = QByteArray::number(getuid());
        if (home) {
            v->trashes.append(
                new TrashWatch(this, v.get(), CommonUtils::pathForTrashFolderInVolume(0), false));
        } else {
            v->topdir = w.mount;
            v->trashes.append(new TrashWatch(this, v.get(), w.mount + "/.Trash-" + uid, false));
            v->trashes.append(new TrashWatch(this, v.get(), w.mount + "/.Trash/" + uid, true));
        }
        Volume &volume = *v;
        mVolumes.push_back(std::move(v));
        qCInfo(lcAgent).noquote() << "watching" << logText(volume.mountPath);
        // Sets the cache up (or says why it cannot be) and brings an earlier version's items in.
        Fd cache(openCacheFolder(volume));
        if (cache.fd >= 0) migrateLegacy(volume, cache.fd);
        // Shadows left by an earlier run go back to their trash; those of a trash that is no
        // longer watched are settled now if their item is gone.
        for (const ShadowRecord &r : volume.pending.load()) {
            TrashWatch *owner = nullptr;
            for (TrashWatch *t : volume.trashes)
                if (t->trashDir() == r.trashDir) owner = t;
            if (owner) {
                owner->adopt(r);
                continue;
            }
            struct stat st
            {
            };
            const QByteArray item = r.trashDir + "/files/" + r.trashName;
            if (::lstat(item.constData(), &st) != 0 || quint64(st.st_ino) != r.ino)
                settle(volume, r);
            else if (!r.walked)
                takeShadow(volume, r, false);
        }
        for (TrashWatch *t : volume.trashes)
            t->reconcile();
    }
    markDirty();
    if (auto *feed = findChild<KeepFeed *>()) feed->publish(mPrefs.protection);
}

void Agent::reconcileAll()
{
    for (auto &v : mVolumes)
        for (TrashWatch *t : v->trashes)
            t->reconcile();
    retryDue();
}

bool Agent::isMounted(const Volume &v) const
{
    struct stat st
    {
    };
    const QByteArray base = v.mountPath == "/" ? CommonUtils::homeFolder() : v.mountPath;
    return ::stat(base.constData(), &st) == 0 && st.st_dev == v.baseDev;
}

int Agent::openCacheFolder(Volume &v)
{
    CacheFolder::Status status;
    int fd = CacheFolder::open(v.mountPath, true, &status);
    if (fd < 0 && status.state == CacheFolder::State::NeedsHelper) {
        // The volume's shared cache folder is root's: that is what the privileged helper is for.
        const PrivilegedClient::Outcome o = mPrivileged->createCacheFolder(v.mountPath);
        if (o.done)
            fd = CacheFolder::open(v.mountPath, true, &status);
        else if (o.needsConsent)
            askConsent(v);
        else if (mPrivileged->isAvailable())
            qCWarning(lcAgent).noquote() << "privileged helper:" << o.message;
    }
    noteCacheState(v, status);
    return fd;
}

void Agent::noteCacheState(Volume &v, const CacheFolder::Status &status)
{
    if (status.state == v.cacheState) return;
    v.cacheState = status.state;
    // Told once per change, in English like every line of the daemon's.
    if (!status.ok())
        CommonUtils::addToLogFile(
            QStringLiteral("sv3daemon keeps nothing on %1 for now: %2%3.")
                .arg(logText(v.mountPath), cacheStateText(status.state),
                     status.sysErrno ? QStringLiteral(" (%1)").arg(describeErrno(status.sysErrno))
                                     : QString()));
}

void Agent::askConsent(Volume &v)
{
    if (v.consentAsked) return;
    v.consentAsked = true;
    const QString daemon = CommonUtils::daemonAppPath();
    if (daemon.isEmpty()) return;
    CommonUtils::addToLogFile(
        QStringLiteral("sv3daemon asks an administrator to let %1 keep deleted items.")
            .arg(logText(v.mountPath)));
    // pkexec shows the desktop's password dialog; the answer comes back to the event loop.
    auto *p = new QProcess(this);
    const QByteArray mount = v.mountPath;
    connect(p, &QProcess::finished, this, [this, p, mount](int code, QProcess::ExitStatus) {
        p->deleteLater();
        CommonUtils::addToLogFile(
            code == 0
                ? QStringLiteral("An administrator let %1 keep deleted items.").arg(logText(mount))
                : QStringLiteral("sv3daemon was not allowed to keep deleted items on %1.")
                      .arg(logText(mount)));
        if (code != 0) return;
        for (auto &volume : mVolumes) {
            if (volume->mountPath != mount) continue;
            Fd cache(openCacheFolder(*volume));
            if (cache.fd >= 0) migrateLegacy(*volume, cache.fd);
            for (TrashWatch *t : volume->trashes)
                t->reconcile();
        }
    });
    p->start(QStringLiteral("pkexec"),
             {daemon, QStringLiteral("--allow-volume"), QFile::decodeName(v.mountPath)});
}

void Agent::takeShadow(Volume &v, const ShadowRecord &r, bool follow, int item)
{
    mShadows->shadow(v.mountPath, r, follow, item);
    watchTheLoop();
}

void Agent::settle(Volume &v, const ShadowRecord &r)
{
    mRetries.remove(r.id);
    mShadows->settle(v.mountPath, r, {mPrefs.protection, mPrefs.exclusions});
    watchTheLoop();
}

void Agent::setOrigin(Volume &v, const ShadowRecord &r)
{
    mShadows->setOrigin(v.mountPath, r.id, r.origin);
}

Volume *Agent::volumeAt(const QByteArray &mountPath) const
{
    for (const auto &v : mVolumes)
        if (v->mountPath == mountPath) return v.get();
    return nullptr;
}

void Agent::onShadowTaken(const ShadowTaken &t)
{
    watchTheLoop();
    if (Volume *v = volumeAt(t.volume))
        for (TrashWatch *trash : v->trashes)
            if (trash->trashDir() == t.record.trashDir) trash->shadowWalked(t.record);
    const QByteArray what = t.record.origin.isEmpty() ? t.record.trashName : t.record.origin;
    if (t.startError != 0) {
        mShadowFailures.insert(t.record.id, describeErrno(t.startError));
        mProblems << QStringLiteral("sv3daemon cannot keep %1 for now (%2): it is lost if the "
                                    "trash is emptied before that changes.")
                         .arg(logText(what), describeErrno(t.startError));
        announce();
        return;
    }
    qCInfo(lcAgent).noquote() << "shadow of" << logText(t.record.trashName) << ":" << t.stats.linked
                              << "linked," << t.stats.copied << "copied," << t.stats.failed
                              << "failed in" << t.ms << "ms";
    if (t.stats.failed > 0) {
        // Should the item leave before a new walk saves the rest, this is why it was not kept.
        mShadowFailures.insert(t.record.id, describeErrno(t.stats.firstError));
        mProblems << QStringLiteral("sv3daemon could keep only part of %1 so far: %2 entries "
                                    "failed (%3).")
                         .arg(logText(what))
                         .arg(t.stats.failed)
                         .arg(describeErrno(t.stats.firstError));
        announce();
    }
}

void Agent::onSettled(const Settled &s)
{
    watchTheLoop();
    const QByteArray what = s.record.origin.isEmpty() ? s.record.trashName : s.record.origin;
    const QString startFailure = mShadowFailures.take(s.record.id);
    switch (s.outcome) {
    case Settled::Outcome::Dropped:
        break;
    case Settled::Outcome::Lost:
        reportLost(what, startFailure.isEmpty()
                             ? s.reason
                             : QStringLiteral("it could not be saved (%1)").arg(startFailure));
        break;
    case Settled::Outcome::Failed:
        retryLater(s);
        break;
    case Settled::Outcome::Kept:
        mRetries.remove(s.record.id);
        mLastCapture = QDateTime::currentDateTime();
        ++mCaptured;
        mKeptOrigins << what;
        mMovedToCache = true;
        qCInfo(lcAgent).noquote() << "kept" << logText(s.result.cachedPath) << "in" << s.ms << "ms";
        guardSpace();
        if (!s.completeness.complete) {
            const CacheCommit::Completeness &c = s.completeness;
            QString how = c.missingBytes > 0 ? QStringLiteral("%1 file(s) and %2 byte(s) missing")
                                                   .arg(c.missingFiles)
                                                   .arg(c.missingBytes)
                          : c.missingFiles > 0
                              ? QStringLiteral("%1 file(s) missing").arg(c.missingFiles)
                              : QStringLiteral("files missing");
            how += QStringLiteral(" (it left the trash before it could all be saved)");
            mProblems << QStringLiteral("sv3daemon kept %1 incomplete, as %2: %3.")
                             .arg(logText(what), logText(s.result.cachedPath), how);
            Losses::record({QDateTime::currentDateTime(), what,
                            QStringLiteral("kept incomplete: %1").arg(how), true});
        }
        markDirty();
        announce();
        break;
    }
}

void Agent::reportLost(const QByteArray &what, const QString &reason)
{
    ++mLost;
    mProblems << QStringLiteral("sv3daemon could not keep %1: %2.").arg(logText(what), reason);
    if (!Losses::record({QDateTime::currentDateTime(), what, reason, false}))
        std::fprintf(stderr, "sv3daemon: could not record the loss of %s\n",
                     qPrintable(logText(what)));
    announce();
}

void Agent::retryLater(const Settled &s)
{
    // Tried again after 1 minute, 5, 30, 2 hours, then daily; told once, with the true reason.
    static const int delays[] = {60, 300, 1800, 7200, 86400};
    Retry &r = mRetries[s.record.id];
    const bool first = r.attempts == 0;
    r.volume = s.volume;
    r.record = s.record;
    r.due = QDateTime::currentDateTime().addSecs(delays[std::min(r.attempts, 4)]);
    ++r.attempts;
    if (first || r.reason != s.reason)
        mProblems << QStringLiteral("sv3daemon could not keep %1 yet: %2. It stays aside and is "
                                    "tried again.")
                         .arg(logText(s.record.origin.isEmpty() ? s.record.trashName
                                                                : s.record.origin),
                              s.reason);
    r.reason = s.reason;
    announce();
    retryDue();
}

void Agent::retryDue()
{
    if (!mShadows) return;
    const QDateTime now = QDateTime::currentDateTime();
    QDateTime next;
    for (auto it = mRetries.begin(); it != mRetries.end(); ++it) {
        if (it->due <= now) {
            it->due = now.addSecs(86400); // until the worker answers
            mShadows->settle(it->volume, it->record, {mPrefs.protection, mPrefs.exclusions});
        }
        if (!next.isValid() || it->due < next) next = it->due;
    }
    if (next.isValid()) mRetryTimer->start(int(std::clamp<qint64>(now.msecsTo(next), 0, 86400000)));
}

void Agent::announce()
{
    if (!mAnnounceTimer->isActive()) mAnnounceTimer->start();
}

void Agent::flushAnnouncements()
{
    if (mKeptOrigins.size() == 1)
        CommonUtils::addToLogFile(
            QStringLiteral("sv3daemon kept %1 in the cache.").arg(logText(mKeptOrigins.first())));
    else if (mKeptOrigins.size() > 1)
        CommonUtils::addToLogFile(
            QStringLiteral("sv3daemon kept %1 items in the cache, among them %2.")
                .arg(mKeptOrigins.size())
                .arg(logText(mKeptOrigins.first())));
    for (const QString &p : std::as_const(mProblems))
        CommonUtils::addToLogFile(p);
    if (mMovedToCache)
        NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                              QLatin1String(Notifications::Salvora3DataMovedToCache));
    mKeptOrigins.clear();
    mProblems.clear();
    mMovedToCache = false;
}
