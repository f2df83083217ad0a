#pragma once

#include <QByteArray>

namespace CommonUtils {

// True at once when anything exists at the path; otherwise creates it and its missing parents
// with mode 0777 whatever the umask, and reports whether that worked.
bool createFolder(const QByteArray &path);

} // namespace CommonUtils
