#include "browser/ContentsScan.h"

#include "cache/FolderWalk.h"

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

void readTimeFolder(const QByteArray &path, const ContentsScan::Options &o, const std::atomic<bool> &stop,
                    CacheItems &out)
{
    const std::uint32_t folder = out.addFolder(path);
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

    auto worker = [&] {
        for (std::size_t k; (k = next.fetch_add(1)) < n;) {
            if (stop.load(std::memory_order_relaxed))
                return;
            CacheItems items;
            readTimeFolder(folders[qsizetype(k)], options, stop, items);
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
