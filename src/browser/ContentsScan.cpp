#include "browser/ContentsScan.h"

#include "base/SafeFile.h"
#include "cache/CacheCommit.h"
#include "cache/FolderWalk.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
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

// A JSON string at p (after its opening quote) as UTF-8 bytes; p ends after the closing quote.
// False for what the full parser had better judge (a lone surrogate, a bad escape).
bool readString(const char *&p, const char *end, QByteArray &out)
{
    out.clear();
    while (p < end) {
        const char c = *p++;
        if (c == '"')
            return true;
        if (c != '\\') {
            out.append(c);
            continue;
        }
        if (p >= end)
            return false;
        const char e = *p++;
        switch (e) {
        case '"': case '\\': case '/': out.append(e); break;
        case 'b': out.append('\b'); break;
        case 'f': out.append('\f'); break;
        case 'n': out.append('\n'); break;
        case 'r': out.append('\r'); break;
        case 't': out.append('\t'); break;
        case 'u': {
            if (end - p < 4)
                return false;
            bool ok = false;
            const uint unit = QByteArray(p, 4).toUInt(&ok, 16);
            p += 4;
            if (!ok || (unit >= 0xd800 && unit < 0xe000))
                return false; // surrogates: left to the full parser
            out.append(QString(QChar(char16_t(unit))).toUtf8());
            break;
        }
        default:
            return false;
        }
    }
    return false;
}

// The time, name and path of one origin record, read straight from its line: records are flat
// objects of strings and numbers, and parsing a whole document per line costs several times the
// scan itself. False when the line is not of that simple form.
bool readRecord(QByteArrayView line, QByteArray &time, QByteArray &name, QByteArray &path)
{
    const char *p = line.data();
    const char *end = p + line.size();
    auto skipBlanks = [&] {
        while (p < end && (*p == ' ' || *p == '\t' || *p == '\r'))
            ++p;
    };
    time.clear();
    name.clear();
    path.clear();
    skipBlanks();
    if (p >= end || *p++ != '{')
        return false;
    QByteArray key, value;
    for (;;) {
        skipBlanks();
        if (p < end && *p == '}')
            break;
        if (p >= end || *p++ != '"' || !readString(p, end, key))
            return false;
        skipBlanks();
        if (p >= end || *p++ != ':')
            return false;
        skipBlanks();
        if (p < end && *p == '"') {
            ++p;
            if (!readString(p, end, value))
                return false;
            if (key == "time")
                time = value;
            else if (key == "name")
                name = value;
            else if (key == "path")
                path = value;
            else if (key == "name64")
                name = QByteArray::fromBase64(value);
            else if (key == "path64")
                path = QByteArray::fromBase64(value);
        } else {
            // A number, true, false or null: nothing the list needs.
            while (p < end && *p != ',' && *p != '}')
                ++p;
        }
        skipBlanks();
        if (p < end && *p == ',') {
            ++p;
            continue;
        }
        if (p < end && *p == '}')
            break;
        return false;
    }
    return true;
}

// The same with the full parser, for lines the quick one leaves.
bool readRecordFully(QByteArrayView line, QByteArray &time, QByteArray &name, QByteArray &path)
{
    const QJsonDocument doc = QJsonDocument::fromJson(line.toByteArray());
    if (!doc.isObject())
        return false;
    const QJsonObject o = doc.object();
    auto bytes = [&o](const char *key) {
        const QString k = QLatin1String(key);
        if (o.contains(k))
            return o.value(k).toString().toUtf8();
        return QByteArray::fromBase64(o.value(k + QLatin1String("64")).toString().toLatin1());
    };
    time = o.value(QLatin1String("time")).toString().toLatin1();
    name = bytes("name");
    path = bytes("path");
    return true;
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
            const QByteArray file = CacheCommit::originsFileFor(parentOf(day), day.mid(slash + 1));
            const safefile::ReadResult read = safefile::readRegular(AT_FDCWD, file.constData(), 64u << 20);
            const std::string_view data = read.error == 0 ? std::string_view(read.data) : std::string_view();
            QByteArray time, name, path, lastFolder;
            std::uint32_t lastId = 0;
            for (std::size_t start = 0; start < data.size();) {
                std::size_t stop = data.find('\n', start);
                if (stop == std::string_view::npos)
                    stop = data.size();
                const QByteArrayView line(data.data() + start, qsizetype(stop - start));
                start = stop + 1;
                if (!readRecord(line, time, name, path) && !readRecordFully(line, time, name, path))
                    continue;
                if (time.isEmpty() || name.isEmpty() || path.isEmpty())
                    continue;
                // Records of one folder come in runs: its id is looked up once per run.
                const QByteArray folder = parentOf(path);
                if (folder != lastFolder || lastId == 0) {
                    lastFolder = folder;
                    lastId = mTable->intern(folder);
                }
                // The last record of a name wins: it is the latest deletion under that name.
                fresh->insert(time + '/' + name, lastId);
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
