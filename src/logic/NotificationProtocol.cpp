#include "logic/NotificationProtocol.h"

#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QThread>
#include <QTimer>

NotificationProtocol::NotificationProtocol(NotificationTarget &target, QObject *parent,
                                           QDBusConnection connection)
    : QObject(parent), mTarget(target), mConnection(std::move(connection)),
      mRunningVersion(runningVersion())
{
}

bool NotificationProtocol::isNewVersionHidden(const QString &running, const QString &latest)
{
    const bool runningIsOlder = QString::compare(running, latest, Qt::CaseSensitive) < 0;
    if (running.startsWith(latest, Qt::CaseSensitive)) {
        // A longer running version that starts with the latest one (3.0.1 against 3.0) shows
        // the notice.
        if (running.size() != latest.size()) return false;
        return !runningIsOlder;
    }
    return !runningIsOlder;
}

std::optional<QString> NotificationProtocol::latestVersion(const std::optional<QString> &setting)
{
    if (!setting) return std::nullopt;
    const QString first = setting->section(QLatin1Char('\n'), 0, 0);
    // An empty first line names no version; announcing "" would read as nonsense.
    if (first.isEmpty()) return std::nullopt;
    return first;
}

QString NotificationProtocol::newVersionText(const QString &latest, const QString &running)
{
    //% "Salvora 3 version %1 is available (you have version %2)."
    return qtTrId("NewVersion").arg(latest, running);
}

QUrl NotificationProtocol::downloadUrl()
{
    //% "https://salvora.org/download/"
    return QUrl(qtTrId("WebDownload"), QUrl::TolerantMode);
}

QString NotificationProtocol::runningVersion()
{
    return QStringLiteral(SALVORA_VERSION);
}

void NotificationProtocol::receiveNotification(const QString &name, const QString &object,
                                               const QVariantMap &userInfo)
{
    Q_UNUSED(userInfo);
    if (name != QLatin1String(Notifications::Salvora3Notification) || object.isEmpty()) return;

    if (object == QLatin1String(Notifications::Salvora3SettingsDidChange)) {
        if (const std::optional<qint64> on =
                Settings::integer(SettingsKeys::PrefsProtectionEnabled)) {
            mTarget.setProtectionEnabledBox(*on != 0);
            mTarget.updateStatusInfos();
        }
        CommonUtils::addToLogFile(
            QStringLiteral("Salvora 3 receive a notification: Settings did change."));
    } else if (object == QLatin1String(Notifications::Salvora3CacheModified) ||
               object == QLatin1String(Notifications::Salvora3DataMovedToCache)) {
        mTarget.updateListOfDaysInCache();
        mTarget.updateListOfContentsInCache();
        mTarget.updateStatusInfos();
    } else if (object == QLatin1String(Notifications::Salvora3NewVersion)) {
        QTimer::singleShot(kNewVersionDelayMs, Qt::PreciseTimer, this,
                           &NotificationProtocol::newVersion);
    }
}

void NotificationProtocol::newVersion()
{
    const std::optional<QString> latest = latestVersion(Settings::string(SettingsKeys::version));
    if (!latest) return;
    mTarget.setNewVersionNotice(newVersionText(*latest, mRunningVersion),
                                isNewVersionHidden(mRunningVersion, *latest));
}

void NotificationProtocol::getStatus()
{
    postToMenu(Notifications::Salvora3GetStatus);
    // Without the flush the request could still sit in our queue while we sleep, and both
    // processes would then answer at the same moment.
    NotificationBus::flush(mConnection);
    QThread::msleep(kStatusPauseMs);
    NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                          QLatin1String(Notifications::Salvora3GetStatus), {}, mConnection);
    QTimer::singleShot(kOpenLogsDelayMs, Qt::PreciseTimer, this, [this] { mTarget.openLogs(); });
}

void NotificationProtocol::protectionChange(qint64 value)
{
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, value);
    Settings::sync();
    postToMenu(Notifications::Salvora3SettingsDidChange);
    mTarget.updateStatusInfos();
}

void NotificationProtocol::toggleProtection()
{
    const std::optional<qint64> now = Settings::integer(SettingsKeys::PrefsProtectionEnabled);
    protectionChange(!now || *now == 0 ? 1 : 0);
}

void NotificationProtocol::postToMenu(const char *object)
{
    NotificationBus::post(QLatin1String(Notifications::Salvora3MenuNotification),
                          QLatin1String(object), {}, mConnection);
}
