#pragma once

#include <QString>

// Running programs of the current user, from /proc. Processes of other users are not counted
// (the session's "running applications"); entries that vanish or cannot be read are skipped.
namespace CommonUtils {

// How many processes run the file at this path (same device and inode as /proc/PID/exe).
qint64 isApplicationLaunchedWithPath(const QString &path);
// How many processes run an executable whose last path name is exactly `name`.
qint64 isApplicationLaunchedWithName(const QString &name);

} // namespace CommonUtils
