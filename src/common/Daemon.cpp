#include "common/Daemon.h"

#include "common/Log.h"
#include "common/Notifications.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>
#include <QProcess>

namespace Daemon {

std::optional<bool> isRunning()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) return std::nullopt;
    return bus.interface()
        ->isServiceRegistered(QLatin1String(Notifications::kDaemonService))
        .value();
}

bool startIfNeeded(const QString &path, const QString &who)
{
    // Without a bus there is no telling whether it runs: better none than two.
    if (isRunning().value_or(true)) return false;
    if (path.isEmpty() || !QFileInfo::exists(path)) return false;
    if (!QProcess::startDetached(path, {})) return false;
    CommonUtils::addToLogFile(QStringLiteral("%1 started sv3daemon.").arg(who));
    return true;
}

} // namespace Daemon
