#include "controller/AppDelegate.h"

#include "common/Daemon.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/Notifications.h"
#include "logic/LoginItems.h"

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
    Daemon::startIfNeeded(CommonUtils::daemonAppPath(), QStringLiteral("Salvora 3"));
}
