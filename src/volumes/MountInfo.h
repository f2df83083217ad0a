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

// The mount table as Qt types; the parsing itself is shared with the privileged helper
// (mounttable in the base library).
namespace MountInfo {

// Lines that cannot be parsed are skipped; the order of the kernel's table is kept.
QList<MountEntry> parse(QByteArrayView text);
// Reads the whole file (procfs files must be read in one go to be consistent).
QByteArray readAll(int fd);
QByteArray readFile(const char *path = "/proc/self/mountinfo");

} // namespace MountInfo
