// What the agent tells others: its status line in the log, and the ProtectedVolumesData
// snapshot that lets the window list the days of a protected volume once it is unplugged.

#include "Agent.h"

#include "PrivilegedClient.h"
#include "TrashWatch.h"
#include "cache/DayList.h"
#include "cache/SpaceGuard.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/SizeText.h"

#include <QFile>
#include <QTimer>

#include <sys/stat.h>

namespace {

QString timeText(const QDateTime &t)
{
    return t.isValid() ? t.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                       : QStringLiteral("never");
}

} // namespace

QString Agent::statusText() const
{
    QStringList volumes;
    int pending = 0;
    for (const auto &v : mVolumes) {
        QStringList trashes;
        for (const TrashWatch *t : v->trashes) {
            pending += t->shadowCount();
            if (t->isWatching()) trashes << logText(t->trashDir());
        }
        volumes << QStringLiteral("%1 (trash: %2)")
                       .arg(logText(v->mountPath), trashes.isEmpty()
                                                       ? QStringLiteral("none yet")
                                                       : trashes.join(QStringLiteral(", ")));
    }
    return QStringLiteral(
               "sv3daemon status: protection %1; items kept %2; excluded names and extensions: %3; "
               "volumes watched: %4; pending shadows: %5; items kept since start: %6; last "
               "capture: %7; "
               "last purge: %8; privileged helper: %9; running since %10; items not kept since "
               "start: %11; items waiting to be kept: %12; longest pause of its event loop "
               "while working: %13 ms.")
               .arg(mPrefs.protection ? QStringLiteral("on") : QStringLiteral("off"),
                    mPrefs.retention.value_or(0) > 0
                        ? QStringLiteral("%1 day(s)").arg(*mPrefs.retention)
                        : QStringLiteral("for ever"),
                    mPrefs.exclusions.isEmpty() ? QStringLiteral("none") : QStringLiteral("some"),
                    volumes.isEmpty() ? QStringLiteral("none") : volumes.join(QStringLiteral(", ")))
               .arg(pending)
               .arg(mCaptured)
               .arg(timeText(mLastCapture), timeText(mLastPurge),
                    mPrivileged->isAvailable() ? QStringLiteral("available")
                                               : QStringLiteral("not available"),
                    timeText(mStarted))
               .arg(mLost)
               .arg(mRetries.size())
               .arg(mLongestStallMs) +
           guardStatusText();
}

QString Agent::guardStatusText() const
{
    const SpaceGuard::Threshold t = SpaceGuard::readThreshold();
    const auto last = SpaceGuard::lastAction();
    return QStringLiteral(" Space kept free: %1 %, at most %2; last days removed for space: %3.")
        .arg(t.percent)
        .arg(CommonUtils::getSizeStr(t.floorBytes),
             last ? QStringLiteral("%1 day(s) on %2 at %3")
                        .arg(last->days)
                        .arg(logText(last->volume), timeText(last->when.toLocalTime()))
                  : QStringLiteral("never"));
}

void Agent::markDirty()
{
    if (mVolumesDataTimer) mVolumesDataTimer->start();
}

void Agent::updateProtectedVolumesData()
{
    struct Mounted
    {
        QString uuid;
        QByteArray mount;
        QByteArray cache;
    };
    QList<Mounted> mounted;
    for (const auto &v : mVolumes)
        if (!v->uuid.isEmpty() && isMounted(*v))
            mounted.append({v->uuid, v->mountPath, v->cacheFolder});
    const QVariantMap protectedDisks = mPrefs.protectedDisks;
    // Listing the days may recount one: on the background worker.
    mBackground->post([mounted, protectedDisks](const std::atomic<bool> &stop) {
        const std::optional<QVariantMap> stored =
            Settings::dictionary(SettingsKeys::ProtectedVolumesData);
        QVariantMap data = stored.value_or(QVariantMap());
        // Volumes the user no longer protects are not offered any more.
        for (const QString &uuid : data.keys())
            if (!protectedDisks.contains(uuid)) data.remove(uuid);
        for (const Mounted &m : mounted) {
            if (stop) return;
            QVariantList days;
            struct stat st
            {
            };
            if (::lstat(m.cache.constData(), &st) == 0 && S_ISDIR(st.st_mode))
                for (const DayEntry &d : CommonUtils::getListOfDaysInCache(m.cache))
                    days.append(d.toVariantMap());
            data.insert(m.uuid, QVariantMap{{QStringLiteral("path"), QFile::decodeName(m.mount)},
                                            {QStringLiteral("days"), days}});
        }
        // A stopping agent leaves the settings as they are: the user may be removing the program.
        if (stop) return;
        if (!stored || data != *stored)
            Settings::setDictionary(SettingsKeys::ProtectedVolumesData, data);
    });
    watchTheLoop();
}

void Agent::watchTheLoop()
{
    // While work is under way (on either worker, however long it takes) the loop's beat is
    // measured, and for two seconds after; an idle agent wakes for nothing.
    mLastActivity.start();
    if (mLoopTimer && !mLoopTimer->isActive()) {
        mLoopClock.start();
        mLoopTimer->start();
    }
}

void Agent::loopBeat()
{
    const qint64 late = mLoopClock.restart() - mLoopTimer->interval();
    mLongestStallMs = std::max(mLongestStallMs, late);
    if ((mShadows && mShadows->busy()) || (mBackground && mBackground->busy()))
        mLastActivity.start();
    else if (mLastActivity.elapsed() > 2000)
        mLoopTimer->stop();
}
