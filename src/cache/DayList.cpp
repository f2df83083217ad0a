#include "cache/DayList.h"

#include "PathJoin.h"

#include "cache/CacheLayout.h"
#include "cache/FolderWalk.h"
#include "cache/SizeRecords.h"
#include "common/Jobs.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

struct Candidate
{
    QByteArray name;
    FolderWalk::Type type;
};

unsigned char fold(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

// Fills in the totals of every day, recounting the ones without a usable record on all cores:
// recounts of different days touch different folders and files, so they are independent.
void fillTotals(QList<DayEntry> &days)
{
    std::vector<qsizetype> recount;
    for (qsizetype i = 0; i < days.size(); ++i) {
        struct stat st
        {
        };
        const QByteArray record = days[i].path + '/' + CommonUtils::kCacheInformationName;
        if (lstat(record.constData(), &st) != 0) {
            recount.push_back(i);
            continue;
        }
        qint64 count = 0;
        days[i].size = CommonUtils::getSizeOfCache(days[i].path, &count);
        days[i].count = count;
    }
    if (recount.empty()) return;
    Jobs::parallelFor(recount.size(), [&](std::size_t k) {
        DayEntry &d = days[recount[k]];
        qint64 count = 0;
        d.size = CommonUtils::getSizeOfCache(d.path, &count);
        d.count = count;
    });
}

} // namespace

namespace CommonUtils {

int compareCaseInsensitive(QByteArrayView a, QByteArrayView b)
{
    const qsizetype n = std::min(a.size(), b.size());
    for (qsizetype i = 0; i < n; ++i) {
        const unsigned char x = fold(static_cast<unsigned char>(a[i]));
        const unsigned char y = fold(static_cast<unsigned char>(b[i]));
        if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

QList<DayEntry> getListOfDaysInCache(const QByteArray &cachePath)
{
    QList<DayEntry> days;
    const int fd = FolderWalk::openFolder(cachePath);
    if (fd < 0) return days;
    std::vector<Candidate> names;
    FolderWalk::forEachEntry(fd, [&](const char *name, FolderWalk::Type type) {
        names.push_back({QByteArray(name), type});
    });
    std::sort(names.begin(), names.end(), [](const Candidate &a, const Candidate &b) {
        return compareCaseInsensitive(a.name, b.name) < 0;
    });
    const QByteArray prefix = folderPrefix(cachePath);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Candidate &c = names[i];
        if (c.name.startsWith('.')) continue;
        FolderWalk::Type type = c.type;
        if (c.name.isEmpty() || type == FolderWalk::Type::Unknown) continue;
        if (type == FolderWalk::Type::Directory) {
            if (c.name.startsWith("20")) days.append(DayEntry{c.name, prefix + c.name, 0, 0});
            continue;
        }
        // Anything else at this level is stray. After a deletion the same position is visited
        // again; the snapshot still names it, nothing is found there now, and the walk goes on.
        if (unlinkat(fd, c.name.constData(), 0) == 0) {
            struct stat st
            {
            };
            if (fstatat(fd, c.name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISDIR(st.st_mode) && c.name.startsWith("20"))
                days.append(DayEntry{c.name, prefix + c.name, 0, 0});
        }
    }
    close(fd);
    fillTotals(days);
    return days;
}

QList<DayEntry> getListOfDaysInCacheInVolume(qsizetype volumeIndex)
{
    return getListOfDaysInCache(pathForCacheFolderInVolume(volumeIndex));
}

void removeEmptyCache(const QByteArray &folder)
{
    const int fd = FolderWalk::openFolder(folder);
    bool empty = true;
    if (fd >= 0) {
        FolderWalk::forEachEntry(fd, [&](const char *, FolderWalk::Type) { empty = false; });
        close(fd);
    }
    if (empty) rmdir(folder.constData());
}

} // namespace CommonUtils
