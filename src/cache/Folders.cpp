#include "cache/Folders.h"

#include <cerrno>
#include <sys/stat.h>

namespace CommonUtils {

static bool makeOne(const QByteArray &path)
{
    if (mkdir(path.constData(), 0777) != 0)
        return errno == EEXIST;
    // The cache is shared by every user of a volume, so the umask must not narrow it.
    chmod(path.constData(), 0777);
    return true;
}

bool createFolder(const QByteArray &path)
{
    if (path.isEmpty())
        return false;
    struct stat st{};
    if (lstat(path.constData(), &st) == 0)
        return true;
    for (qsizetype i = 1; i < path.size(); ++i) {
        if (path.at(i) != '/')
            continue;
        const QByteArray part = path.left(i);
        if (lstat(part.constData(), &st) == 0)
            continue;
        if (!makeOne(part))
            return false;
    }
    return makeOne(path);
}

} // namespace CommonUtils
