#pragma once

#include <QByteArray>

// The freedesktop.org .trashinfo of a trashed item: "[Trash Info]" with "Path=" (percent-encoded
// bytes; relative to the volume's top folder in a volume's trash) and "DeletionDate=".
namespace TrashInfo {

// The item's original absolute path, or empty when the file is missing, unreadable, too large or
// says nothing usable. `topdir` is the mount path that relative paths are joined to.
QByteArray originalPath(int infoDirFd, const QByteArray &trashName, const QByteArray &topdir);
QByteArray parseOriginalPath(QByteArrayView content, const QByteArray &topdir);

} // namespace TrashInfo
