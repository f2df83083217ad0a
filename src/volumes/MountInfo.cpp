#include "volumes/MountInfo.h"

#include "MountTable.h"

namespace MountInfo {

static QByteArray bytes(const std::string &s)
{
    return QByteArray(s.data(), qsizetype(s.size()));
}

QList<MountEntry> parse(QByteArrayView text)
{
    const std::vector<mounttable::Entry> table =
        mounttable::parse(std::string_view(text.data(), std::size_t(text.size())));
    QList<MountEntry> entries;
    entries.reserve(qsizetype(table.size()));
    for (const mounttable::Entry &t : table) {
        MountEntry e;
        e.mountId = int(t.mountId);
        e.parentId = int(t.parentId);
        e.major = t.major;
        e.minor = t.minor;
        e.root = bytes(t.root);
        e.mountPoint = bytes(t.mountPoint);
        e.options = bytes(t.options);
        e.fsType = bytes(t.fsType);
        e.source = bytes(t.source);
        entries.append(std::move(e));
    }
    return entries;
}

QByteArray readAll(int fd)
{
    return bytes(mounttable::readAll(fd));
}

QByteArray readFile(const char *path)
{
    return bytes(mounttable::readText(path));
}

} // namespace MountInfo
