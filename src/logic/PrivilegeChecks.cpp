#include "logic/PrivilegeChecks.h"

#include "common/AdminLauncher.h"
#include "common/Alerts.h"
#include "common/Locations.h"
#include "common/Log.h"

#include <QFile>
#include <QFileInfo>
#include <QThread>

namespace {

QString title()
{
    //% "Administrator rights needed"
    return qtTrId("PrivilegesNeededTitle");
}

QString quitButton()
{
    //% "Quit"
    return qtTrId("QuitButton");
}

} // namespace

PrivilegeChecks::PrivilegeChecks(QString ownExecutable) : mOwnExecutable(std::move(ownExecutable))
{
}

bool PrivilegeChecks::run()
{
    return checkAdminlauncherPrivileges() && checkDaemonPrivileges();
}

void PrivilegeChecks::alertUserForAdminPassword()
{
    //% "Salvora 3 must install its privileged helper before it can protect your files. You will "
    //% "now be asked for an administrator password."
    const QString text = qtTrId("PrivilegesNeededText");
    //% "OK"
    Alerts::runUntil({title(), text, {qtTrId("OKButton")}});
}

bool PrivilegeChecks::checkAdminlauncherPrivileges()
{
    if (ZEL_AdminLauncher::checkAdminlauncherPrivileges()) return true;
    alertUserForAdminPassword();
    QThread::msleep(100);
    if (ZEL_AdminLauncher::setPrivilegesToExecutable_adminlauncher()) {
        mAdminPrivilegesWereSet = true;
        CommonUtils::addToLogFile(QStringLiteral("Set Privileges to adminlauncher succeeded."));
        return true;
    }
    CommonUtils::addToLogFile(QStringLiteral("Unable to set Privileges to adminlauncher."));
    QString text;
    switch (ZEL_AdminLauncher::getPrivilegesToExecutableResult()) {
    case ZEL_AdminLauncher::RightNotGranted:
        //% "Without an administrator password Salvora 3 cannot install its privileged helper, "
        //% "and it will quit now."
        text = qtTrId("BadPrivilegesText");
        break;
    case ZEL_AdminLauncher::LauncherNotFound:
        //% "The privileged helper \"adminlauncher\" of Salvora 3 was not found. Please install "
        //% "Salvora 3 again."
        text = qtTrId("ExecutableNotFoundText");
        break;
    default:
        //% "Salvora 3 could not give its privileged helper the rights it needs. Please install "
        //% "Salvora 3 again."
        text = qtTrId("BadPermissionsText");
        break;
    }
    Alerts::runUntil({title(), text, {quitButton()}});
    return false;
}

bool PrivilegeChecks::checkDaemonPrivileges()
{
    const QString own =
        mOwnExecutable.isEmpty() ? CommonUtils::ownExecutablePath() : mOwnExecutable;
    const QString daemon = CommonUtils::daemonAppPathFor(own);
    if (!daemon.isEmpty() && QFileInfo::exists(daemon)) {
        // A started job counts: the launcher's work is not waited for here.
        if (ZEL_AdminLauncher::isRootAndSetUIDBit(QFile::encodeName(daemon)) ||
            ZEL_AdminLauncher::setPrivilegesToExecutable(daemon))
            return true;
    }
    //% "Salvora 3 could not give its daemon \"sv3daemon\" the rights it needs, or the daemon is "
    //% "missing. Please install Salvora 3 again."
    Alerts::runUntil({title(), qtTrId("BadPermissionsText2"), {quitButton()}});
    return false;
}
