#pragma once

#include <QByteArray>

namespace CommonUtils {

// True at once when anything exists at the path; otherwise creates it and its missing parents,
// private to the user (0700, as the XDG folders are made), and reports whether that worked.
// Existing folders are never changed.
bool createFolder(const QByteArray &path);

} // namespace CommonUtils
