#include "controller/AppDelegate.h"

#include "common/Locations.h"
#include "common/Log.h"
#include "common/Notifications.h"
#include "logic/LoginItems.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>
#include <QProcess>

bool AppDelegate::runPrivilegeChecks()
{
    if (!mPrivilegeChecks.run()) return false;
    mAdminPrivilegesWereSet = mPrivilegeChecks.adminPrivilegesWereSet();
    return true;
}

void AppDelegate::installSalvoraMenu()
{
    LoginItems::installSalvoraMenu();
}

void AppDelegate::startDaemonIfNeeded()
{
    // The companion does the same; whichever of the two comes first starts it.
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) return;
    if (bus.interface()->isServiceRegistered(QLatin1String(Notifications::kDaemonService))) return;
    const QString daemon = CommonUtils::daemonAppPath();
    if (daemon.isEmpty() || !QFileInfo::exists(daemon)) return;
    if (QProcess::startDetached(daemon, {}))
        CommonUtils::addToLogFile(QStringLiteral("Salvora 3 started sv3daemon."));
}
