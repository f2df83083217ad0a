#include "cache/SizeRecords.h"

#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/FolderWalk.h"
#include "volumes/Volumes.h"

#include "SafeFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray recordPath(const QByteArray &folder)
{
    return folder + '/' + CommonUtils::kCacheInformationName;
}

} // namespace

namespace CommonUtils {

qint64 getSizeOfFolder(const QByteArray &path, qint64 *nbFiles)
{
    const FolderWalk::Totals t = FolderWalk::countTree(path);
    if (nbFiles) *nbFiles += t.files;
    return t.bytes;
}

bool saveDictionary(const typedstream::Dictionary &dict, const QByteArray &path)
{
    const qsizetype slash = path.lastIndexOf('/');
    const QByteArray folder = slash > 0 ? path.left(slash) : QByteArray(slash == 0 ? "/" : ".");
    const QByteArray name = path.mid(slash + 1);
    const int dir = open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return false;
    // Replaced whole through a new file: whatever stands at the name (a link someone planted)
    // is replaced, never followed, and a failed write leaves no half record.
    const int err =
        safefile::replaceFile(dir, name.constData(), typedstream::encodeDictionary(dict), 0600);
    close(dir);
    return err == 0;
}

std::optional<typedstream::Dictionary> readDictionaryInPath(const QByteArray &path)
{
    const safefile::ReadResult bytes =
        safefile::readRegular(AT_FDCWD, path.constData(), typedstream::kMaxArchiveSize);
    if (bytes.error != 0 || bytes.data.empty()) return std::nullopt;
    return typedstream::decodeDictionary(bytes.data);
}

qint64 saveSizeOfCache(const QByteArray &dayPath, qint64 *nbFiles)
{
    qint64 count = 0;
    const qint64 total = getSizeOfFolder(dayPath, &count);
    saveDictionary({{"size", total}, {"count", count}}, recordPath(dayPath));
    if (nbFiles) *nbFiles = count;
    return total;
}

qint64 getSizeOfCache(const QByteArray &dayPath, qint64 *nbFiles)
{
    const QByteArray path = recordPath(dayPath);
    struct stat st
    {
    };
    if (lstat(path.constData(), &st) != 0) return saveSizeOfCache(dayPath, nbFiles);
    // A damaged record stands as an empty day until something resets it.
    const std::optional<typedstream::Dictionary> record = readDictionaryInPath(path);
    if (!record) return 0;
    const std::optional<std::int64_t> count = typedstream::integerFor(*record, "count");
    if (!count) return saveSizeOfCache(dayPath, nbFiles); // written before counts were kept
    if (nbFiles) *nbFiles = *count;
    return typedstream::integerFor(*record, "size").value_or(0);
}

void resetSizeOfCacheIn(const QByteArray &folder)
{
    struct stat st
    {
    };
    const QByteArray own = recordPath(folder);
    if (lstat(own.constData(), &st) == 0) {
        unlink(own.constData());
        return;
    }
    const qsizetype slash = folder.lastIndexOf('/', folder.endsWith('/') ? folder.size() - 2 : -1);
    if (slash < 0) return;
    const QByteArray parent = recordPath(slash == 0 ? QByteArray("") : folder.left(slash));
    if (lstat(parent.constData(), &st) == 0) unlink(parent.constData());
}

qint64 getSizeOfCacheInDays(const QList<DayEntry> &days)
{
    qint64 total = 0;
    for (const DayEntry &d : days)
        total += d.size;
    return total;
}

qint64 getSizeOfCacheInDays(const QList<DayEntry> &days, qint64 *nbFiles)
{
    qint64 files = 0;
    for (const DayEntry &d : days)
        files += d.count;
    if (nbFiles) *nbFiles = files;
    return getSizeOfCacheInDays(days);
}

qint64 getSizeOfCacheInVolume(qsizetype volumeIndex)
{
    return getSizeOfCacheInDays(getListOfDaysInCacheInVolume(volumeIndex));
}

qint64 getSizeOfCaches()
{
    const qsizetype n = getAllProtectedVolumes().size();
    qint64 total = 0;
    for (qsizetype i = 0; i < n; ++i)
        total += getSizeOfCacheInVolume(i);
    return total;
}

} // namespace CommonUtils
