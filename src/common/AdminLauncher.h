#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The application's side of `adminlauncher`, the set-user-id root helper: finding it, testing
// whether an executable is root-owned with the set-user-id bit, and starting the launcher for
// its three jobs. Once, an administrator's consent (pkexec) makes the launcher itself privileged
// (job "9"); afterwards it is started as a plain child for the daemon (job "2", "LA").
//
// Process-wide state: the launcher's path once found (never forgotten) and the outcome of the
// last attempt to raise it. Main thread only.
namespace ZEL_AdminLauncher {

// Outcome codes of the last raise (getPrivilegesToExecutableResult).
enum Result : qint64 {
    NoAttemptYet = 0,
    LauncherStartedAsRoot = 1,
    LauncherNotFound = 2,
    RightNotGranted = 3, // the password dialog was dismissed or refused, or there is no agent
    CouldNotStart = 4,   // pkexec (or the launcher, when we are root) could not be started
};

// The launcher's path. When it is missing, shows the fixed English alert (each time: a failed
// search is not remembered) and returns an empty string.
QString adminlauncherPath();
bool checkAdminlauncherPrivileges();
bool setPrivilegesToExecutable_adminlauncher();
// Starts job "2" for the path unless it is privileged already; true once started (not waited for).
bool setPrivilegesToExecutable(const QString &path);
// Starts job "LA" for the path with these arguments.
bool launchWithAdminlauncher(const QString &path, const QStringList &arguments);
// Runs `tool tool argument` as root: through pkexec, or directly when this process is root
// already, and waits for it. Returns 0, or the errno of a failed start; the outcome is in
// getPrivilegesToExecutableResult().
qint16 executeWithPrivileges(const QByteArray &tool, const QByteArray &argument);
// Owned by user id 0 with the set-user-id bit. A file that cannot be opened for reading, or that
// someone holds an exclusive lock on, does not pass.
bool isRootAndSetUIDBit(const QByteArray &path);
qint64 getPrivilegesToExecutableResult();

// Test seams. The launcher is searched beside `ownExecutable` (empty: this program), and the
// statics start over.
void resetForTesting(const QString &ownExecutable = QString());
// The program that asks for an administrator (default /usr/bin/pkexec).
void setElevationProgramForTesting(const QByteArray &program);
// Asks through that program even when this process is root.
void setAlwaysElevateForTesting(bool always);

} // namespace ZEL_AdminLauncher
