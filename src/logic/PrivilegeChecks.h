#pragma once

#include <QString>

// The privilege step of start-up: before the window opens, the launcher and then the daemon
// must be root-owned with the set-user-id bit, or be made so. When that cannot be done the user
// is told why (the alert stays until its button is pressed) and the application must end.
//
// Start-up (applicationDidFinishLaunching, step 5) calls run() and stops there when it answers
// false; afterwards it reads installSalvoraMenuDelayMs() / editPreferencesDelayMs() for its
// first follow-ups. The platform's full-disk-access check has no Linux counterpart: there is no
// privacy protection to probe, so nothing is scheduled for it.
class PrivilegeChecks
{
public:
    // The daemon is searched beside `ownExecutable` (empty: this program).
    explicit PrivilegeChecks(QString ownExecutable = QString());

    // The launcher check, then, only if it passed, the daemon check. False: end the program now.
    bool run();

    // True when the launcher is privileged, already or after asking for an administrator.
    bool checkAdminlauncherPrivileges();
    // True when the daemon is privileged, or the launcher was started to make it so.
    bool checkDaemonPrivileges();
    // Tells the user why the administrator password will be asked for next.
    void alertUserForAdminPassword();

    // mAdminPrivilegesWereSet: this launch has just made the launcher privileged.
    bool adminPrivilegesWereSet() const { return mAdminPrivilegesWereSet; }
    // Freshly privileged pieces get time to settle before the companion or the first
    // preferences sheet start.
    int installSalvoraMenuDelayMs() const { return mAdminPrivilegesWereSet ? 5000 : 100; }
    int editPreferencesDelayMs() const { return mAdminPrivilegesWereSet ? 5500 : 500; }

private:
    QString mOwnExecutable;
    bool mAdminPrivilegesWereSet = false;
};
