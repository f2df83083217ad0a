#pragma once

#include <QByteArray>
#include <QList>

// One line of /proc/self/mountinfo. Paths are bytes, unescaped.
struct MountEntry
{
    int mountId = -1;
    int parentId = -1;
    unsigned major = 0;
    unsigned minor = 0;
    QByteArray root;
    QByteArray mountPoint;
    QByteArray options;
    QByteArray fsType;
    QByteArray source;
};

namespace MountInfo {

// Lines that cannot be parsed are skipped; the order of the kernel's table is kept.
QList<MountEntry> parse(QByteArrayView text);
// Undoes the kernel's octal escapes (\040 space, \011 tab, \012 line feed, \134 backslash).
QByteArray unescape(QByteArrayView field);
// Reads the whole file (procfs files must be read in one go to be consistent).
QByteArray readAll(int fd);
QByteArray readFile(const char *path = "/proc/self/mountinfo");

} // namespace MountInfo
