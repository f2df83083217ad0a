#include "cache/SizeRecords.h"

#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/FolderWalk.h"
#include "volumes/Volumes.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray recordPath(const QByteArray &folder)
{
    return folder + '/' + CommonUtils::kCacheInformationName;
}

bool writeAll(int fd, const std::string &data)
{
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += std::size_t(n);
    }
    return true;
}

} // namespace

namespace CommonUtils {

qint64 getSizeOfFolder(const QByteArray &path, qint64 *nbFiles)
{
    const FolderWalk::Totals t = FolderWalk::countTree(path);
    if (nbFiles)
        *nbFiles += t.files;
    return t.bytes;
}

bool saveDictionary(const typedstream::Dictionary &dict, const QByteArray &path)
{
    const std::string bytes = typedstream::encodeDictionary(dict);
    // Replaced whole: whatever is there (a file, or a link someone planted) goes first, and the
    // new file is created exclusively so that no link is ever followed.
    unlink(path.constData());
    const int fd = open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    fchmod(fd, 0666); // records are shared by every user of the volume
    const bool ok = writeAll(fd, bytes);
    if (close(fd) != 0 || !ok) {
        unlink(path.constData());
        return false;
    }
    return true;
}

// Reads a record file: nullopt for missing; an empty optional dictionary for unreadable.
static std::optional<std::string> readRecordBytes(const QByteArray &path)
{
    const int fd = open(path.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    std::string data(typedstream::kMaxArchiveSize + 1, '\0');
    std::size_t have = 0;
    while (have < data.size()) {
        const ssize_t n = read(fd, data.data() + have, data.size() - have);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n < 0)
                have = 0;
            break;
        }
        have += std::size_t(n);
    }
    close(fd);
    data.resize(have);
    return data;
}

std::optional<typedstream::Dictionary> readDictionaryInPath(const QByteArray &path)
{
    const std::optional<std::string> bytes = readRecordBytes(path);
    if (!bytes || bytes->empty() || bytes->size() > typedstream::kMaxArchiveSize)
        return std::nullopt;
    return typedstream::decodeDictionary(*bytes);
}

qint64 saveSizeOfCache(const QByteArray &dayPath, qint64 *nbFiles)
{
    qint64 count = 0;
    const qint64 total = getSizeOfFolder(dayPath, &count);
    saveDictionary({{"size", total}, {"count", count}}, recordPath(dayPath));
    if (nbFiles)
        *nbFiles = count;
    return total;
}

qint64 getSizeOfCache(const QByteArray &dayPath, qint64 *nbFiles)
{
    const QByteArray path = recordPath(dayPath);
    struct stat st{};
    if (lstat(path.constData(), &st) != 0)
        return saveSizeOfCache(dayPath, nbFiles);
    // A damaged record stands as an empty day until something resets it.
    const std::optional<typedstream::Dictionary> record = readDictionaryInPath(path);
    if (!record)
        return 0;
    const std::optional<std::int64_t> count = typedstream::integerFor(*record, "count");
    if (!count)
        return saveSizeOfCache(dayPath, nbFiles); // written before counts were kept
    if (nbFiles)
        *nbFiles = *count;
    return typedstream::integerFor(*record, "size").value_or(0);
}

void resetSizeOfCacheIn(const QByteArray &folder)
{
    struct stat st{};
    const QByteArray own = recordPath(folder);
    if (lstat(own.constData(), &st) == 0) {
        unlink(own.constData());
        return;
    }
    const qsizetype slash = folder.lastIndexOf('/', folder.endsWith('/') ? folder.size() - 2 : -1);
    if (slash < 0)
        return;
    const QByteArray parent = recordPath(slash == 0 ? QByteArray("") : folder.left(slash));
    if (lstat(parent.constData(), &st) == 0)
        unlink(parent.constData());
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
    if (nbFiles)
        *nbFiles = files;
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
