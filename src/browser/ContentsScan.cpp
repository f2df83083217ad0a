#include "browser/ContentsScan.h"

#include "cache/CacheCommit.h"
#include "cache/FolderWalk.h"

#include <QHash>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

CacheItems::Kind kindOf(FolderWalk::Type t)
{
    switch (t) {
    case FolderWalk::Type::Directory:
        return CacheItems::Kind::Folder;
    case FolderWalk::Type::Regular:
        return CacheItems::Kind::File;
    case FolderWalk::Type::Symlink:
        return CacheItems::Kind::Link;
    case FolderWalk::Type::Other:
        return CacheItems::Kind::Other;
    case FolderWalk::Type::Unknown:
        break;
    }
    return CacheItems::Kind::Unknown;
}

QByteArray parentOf(const QByteArray &path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArray("/") : path.left(slash);
}

// The origin records of the days a scan meets, each day's file read once by whichever thread
// first needs it: "time/name" to the origin table's id of the folder it came from.
class DayOrigins
{
public:
    using Map = QHash<QByteArray, std::uint32_t>;

    explicit DayOrigins(std::shared_ptr<OriginFolders> table) : mTable(std::move(table)) {}

    std::shared_ptr<const Map> forTimeFolder(const QByteArray &timeFolder)
    {
        const QByteArray day = parentOf(timeFolder);
        std::lock_guard lock(mMutex);
        auto &map = mDays[day];
        if (!map) {
            auto fresh = std::make_shared<Map>();
            const qsizetype slash = day.lastIndexOf('/');
            for (const CacheCommit::Origin &o : CacheCommit::readOrigins(parentOf(day), day.mid(slash + 1))) {
                if (o.path.isEmpty())
                    continue;
                // The last record of a name wins: it is the latest deletion under that name.
                fresh->insert(o.time + '/' + o.name, mTable->intern(parentOf(o.path)));
            }
            map = std::move(fresh);
        }
        return map;
    }

    const std::shared_ptr<OriginFolders> &table() const { return mTable; }

private:
    std::shared_ptr<OriginFolders> mTable;
    std::mutex mMutex;
    QHash<QByteArray, std::shared_ptr<const Map>> mDays;
};

void readTimeFolder(const QByteArray &path, const ContentsScan::Options &o, DayOrigins *origins,
                    const std::atomic<bool> &stop, CacheItems &out)
{
    const std::uint32_t folder = out.addFolder(path);
    std::shared_ptr<const DayOrigins::Map> recorded;
    QByteArray key;
    if (origins) {
        out.setOrigins(origins->table());
        recorded = origins->forTimeFolder(path);
        if (recorded->isEmpty())
            recorded.reset();
        else
            key = path.mid(path.lastIndexOf('/') + 1) + '/';
    }
    const qsizetype keyPrefix = key.size();
    const int fd = FolderWalk::openFolder(path);
    if (fd < 0)
        return;
    FolderWalk::forEachEntry(fd, [&](const char *name, FolderWalk::Type type) {
        if (stop.load(std::memory_order_relaxed))
            return;
        const std::size_t length = std::strlen(name);
        if (!o.pattern.matches(QByteArrayView(name, qsizetype(length))))
            return;
        const CacheItems::Kind kind = kindOf(type);
        std::int64_t size = -1;
        if (o.readSizes && kind != CacheItems::Kind::Folder)
            size = FolderWalk::entrySize(fd, name);
        out.addItem(folder, name, length, kind, size);
        if (recorded) {
            key.truncate(keyPrefix);
            key.append(name, qsizetype(length));
            out.rows().back().origin = recorded->value(key, 0);
        }
    });
    close(fd);
}

} // namespace

namespace ContentsScan {

QList<QByteArray> timeFoldersOf(const QList<Root> &roots, const std::atomic<bool> &stop)
{
    QList<QByteArray> folders;
    for (const Root &root : roots) {
        if (stop.load(std::memory_order_relaxed))
            break;
        if (root.isTimeFolder) {
            folders.append(root.path);
            continue;
        }
        const int fd = FolderWalk::openFolder(root.path);
        if (fd < 0)
            continue;
        const QByteArray prefix = root.path.endsWith('/') ? root.path : root.path + '/';
        FolderWalk::forEachEntry(fd, [&](const char *name, FolderWalk::Type type) {
            if (!stop.load(std::memory_order_relaxed) && type == FolderWalk::Type::Directory && name[0] == '2' &&
                name[1] == '0')
                folders.append(prefix + name);
        });
        close(fd);
    }
    return folders;
}

bool scan(const QList<Root> &roots, const Options &options, const std::atomic<bool> &stop,
          const std::function<void(CacheItems &&batch)> &sink)
{
    const QList<QByteArray> folders = timeFoldersOf(roots, stop);
    const std::size_t n = std::size_t(folders.size());
    std::vector<std::optional<CacheItems>> done(n);
    std::atomic<std::size_t> next{0};
    std::mutex deliverMutex;
    std::size_t delivered = 0;
    std::optional<DayOrigins> origins;
    if (options.origins)
        origins.emplace(options.origins);

    auto worker = [&] {
        for (std::size_t k; (k = next.fetch_add(1)) < n;) {
            if (stop.load(std::memory_order_relaxed))
                return;
            CacheItems items;
            readTimeFolder(folders[qsizetype(k)], options, origins ? &*origins : nullptr, stop, items);
            if (options.prepare)
                options.prepare(items);
            std::lock_guard lock(deliverMutex);
            if (!options.inOrder) {
                // Whoever finishes hands over at once: a slow folder holds nobody up.
                sink(std::move(items));
                continue;
            }
            done[k] = std::move(items);
            // Hand over every finished folder that is next in order, as one batch.
            if (k != delivered)
                continue;
            CacheItems batch;
            while (delivered < n && done[delivered]) {
                batch.append(std::move(*done[delivered]));
                done[delivered].reset();
                ++delivered;
            }
            sink(std::move(batch));
        }
    };
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t threads = std::min<std::size_t>(options.threads > 0 ? std::size_t(options.threads) : cores,
                                                      std::max<std::size_t>(n, 1));
    std::vector<std::thread> helpers;
    for (std::size_t i = 1; i < threads; ++i)
        helpers.emplace_back(worker);
    worker();
    for (std::thread &t : helpers)
        t.join();
    return !stop.load();
}

} // namespace ContentsScan
