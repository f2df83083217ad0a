#include "TrashInfo.h"

#include "TrashInfoText.h"

#include <climits>
#include <fcntl.h>
#include <unistd.h>

namespace TrashInfo {

namespace {
constexpr qsizetype kMaxInfoSize = 64 * 1024;
}

QByteArray parseOriginalPath(QByteArrayView content, const QByteArray &topdir)
{
    // The same decoder as the preload library's, so that both name an item alike.
    char path[PATH_MAX];
    const std::size_t n = trashinfo::originalPath(content.data(), std::size_t(content.size()),
                                                  topdir.constData(), path, sizeof path);
    return QByteArray(path, qsizetype(n));
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
