#include "common/Folders.h"

#include <cerrno>
#include <sys/stat.h>

namespace CommonUtils {

static bool makeOne(const QByteArray &path)
{
    return mkdir(path.constData(), 0700) == 0 || errno == EEXIST;
}

bool createFolder(const QByteArray &path)
{
    if (path.isEmpty()) return false;
    struct stat st
    {
    };
    if (lstat(path.constData(), &st) == 0) return true;
    for (qsizetype i = 1; i < path.size(); ++i) {
        if (path.at(i) != '/') continue;
        const QByteArray part = path.left(i);
        if (lstat(part.constData(), &st) == 0) continue;
        if (!makeOne(part)) return false;
    }
    return makeOne(path);
}

} // namespace CommonUtils
