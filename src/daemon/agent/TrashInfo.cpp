#include "TrashInfo.h"

#include "PathJoin.h"

#include <QList>

#include <fcntl.h>
#include <unistd.h>

namespace TrashInfo {

namespace {
constexpr qsizetype kMaxInfoSize = 64 * 1024;
}

QByteArray parseOriginalPath(QByteArrayView content, const QByteArray &topdir)
{
    bool inGroup = false;
    for (QByteArrayView line : content.toByteArray().split('\n')) {
        if (line.endsWith('\r')) line.chop(1);
        if (line.startsWith('[')) {
            inGroup = line == "[Trash Info]";
            continue;
        }
        if (!inGroup || !line.startsWith("Path=")) continue;
        const QByteArray path = QByteArray::fromPercentEncoding(line.sliced(5).toByteArray());
        if (path.isEmpty() || path.contains('\0')) return {};
        if (path.startsWith('/')) return path;
        if (topdir.isEmpty()) return {};
        return joinPath(topdir, path);
    }
    return {};
}

QByteArray originalPath(int infoDirFd, const QByteArray &trashName, const QByteArray &topdir)
{
    const QByteArray name = trashName + ".trashinfo";
    const int fd = openat(infoDirFd, name.constData(),
                          O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return {};
    QByteArray content;
    char buf[8192];
    for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) {
        content.append(buf, n);
        if (content.size() > kMaxInfoSize) break;
    }
    ::close(fd);
    if (content.size() > kMaxInfoSize) return {};
    return parseOriginalPath(content, topdir);
}

} // namespace TrashInfo
