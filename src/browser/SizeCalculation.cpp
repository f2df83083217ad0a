#include "browser/SizeCalculation.h"

#include "browser/NameMatch.h"
#include "cache/FolderWalk.h"

#include <QDateTime>

#include <algorithm>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// 2001-01-01 00:00 UTC in Unix seconds.
constexpr double kReferenceDate = 978307200.0;

struct Walk
{
    const std::atomic<bool> &stop;
    std::atomic<double> &nextRefresh;
    const std::function<void(std::int64_t)> &progress;

    std::int64_t folder(int fd)
    {
        std::vector<std::string> names;
        if (fd >= 0)
            FolderWalk::forEachEntry(
                fd, [&](const char *name, FolderWalk::Type) { names.emplace_back(name); });
        std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
            return NameMatch::compare(QByteArrayView(a.data(), qsizetype(a.size())),
                                      QByteArrayView(b.data(), qsizetype(b.size()))) < 0;
        });
        std::int64_t subtotal = 0;
        for (const std::string &name : names) {
            struct stat st
            {
            };
            if (fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
                if (S_ISDIR(st.st_mode)) {
                    // A folder that cannot be opened (or one too many levels deep for the
                    // descriptors left) counts as empty.
                    const int child = FolderWalk::openFolder(fd, name.c_str());
                    subtotal += folder(child);
                    if (child >= 0) close(child);
                } else {
                    subtotal += std::int64_t(st.st_size);
                }
            }
            if (stop.load(std::memory_order_relaxed)) break;
        }
        const double t = SizeCalculation::now();
        if (t > nextRefresh.load()) {
            nextRefresh.store(t + SizeCalculation::kRefreshInterval);
            if (progress) progress(subtotal);
        }
        return subtotal;
    }
};

} // namespace

namespace SizeCalculation {

double now()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0 - kReferenceDate;
}

std::int64_t calcSizeContentsFor(const QByteArray &folder, const std::atomic<bool> &stop,
                                 std::atomic<double> &nextRefresh,
                                 const std::function<void(std::int64_t)> &progress)
{
    Walk walk{stop, nextRefresh, progress};
    const int fd = FolderWalk::openFolder(folder);
    const std::int64_t total = walk.folder(fd);
    if (fd >= 0) close(fd);
    return total;
}

} // namespace SizeCalculation
