#include "browser/ContentsScan.h"

#include "base/PathJoin.h"
#include "base/SafeFile.h"
#include "cache/CacheCommit.h"
#include "cache/FolderWalk.h"
#include "common/Jobs.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <unistd.h>
#include <unordered_map>
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
        if (c == '"') return true;
        if (c != '\\') {
            out.append(c);
            continue;
        }
        if (p >= end) return false;
        const char e = *p++;
        switch (e) {
        case '"':
        case '\\':
        case '/':
            out.append(e);
            break;
        case 'b':
            out.append('\b');
            break;
        case 'f':
            out.append('\f');
            break;
        case 'n':
            out.append('\n');
            break;
        case 'r':
            out.append('\r');
            break;
        case 't':
            out.append('\t');
            break;
        case 'u': {
            if (end - p < 4) return false;
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
    if (p >= end || *p++ != '{') return false;
    QByteArray key, value;
    for (;;) {
        skipBlanks();
        if (p < end && *p == '}') break;
        if (p >= end || *p++ != '"' || !readString(p, end, key)) return false;
        skipBlanks();
        if (p >= end || *p++ != ':') return false;
        skipBlanks();
        if (p < end && *p == '"') {
            ++p;
            if (!readString(p, end, value)) return false;
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
        if (p < end && *p == '}') break;
        return false;
    }
    return true;
}

// The same with the full parser, for lines the quick one leaves.
bool readRecordFully(QByteArrayView line, QByteArray &time, QByteArray &name, QByteArray &path)
{
    const QJsonDocument doc = QJsonDocument::fromJson(line.toByteArray());
    if (!doc.isObject()) return false;
    const QJsonObject o = doc.object();
    auto bytes = [&o](const char *key) {
        const QString k = QLatin1String(key);
        if (o.contains(k)) return o.value(k).toString().toUtf8();
        return QByteArray::fromBase64(o.value(k + QLatin1String("64")).toString().toLatin1());
    };
    time = o.value(QLatin1String("time")).toString().toLatin1();
    name = bytes("name");
    path = bytes("path");
    return true;
}

void readTimeFolder(const QByteArray &path, const ContentsScan::Options &o,
                    const std::atomic<bool> &stop, CacheItems &out)
{
    const std::uint32_t folder = out.addFolder(path);
    const int fd = FolderWalk::openFolder(path);
    if (fd < 0) return;
    // Room for as many rows as this thread's last folder held: time folders of one cache are
    // alike, and a list grown row by row would copy itself several times.
    thread_local std::size_t lastRows = 16;
    out.reserve(lastRows, lastRows * 24);
    FolderWalk::forEachEntry(fd, [&](const char *name, FolderWalk::Type type) {
        if (stop.load(std::memory_order_relaxed)) return;
        const std::size_t length = std::strlen(name);
        if (!o.pattern.matches(QByteArrayView(name, qsizetype(length)))) return;
        const CacheItems::Kind kind = kindOf(type);
        std::int64_t size = -1;
        if (o.readSizes && kind != CacheItems::Kind::Folder) size = FolderWalk::entrySize(fd, name);
        out.addItem(folder, name, length, kind, size);
    });
    close(fd);
    lastRows = std::max<std::size_t>(16, std::size_t(out.size()));
    if (o.originFill) o.originFill->keep(path, out);
}

} // namespace

namespace ContentsScan {

QList<QByteArray> timeFoldersOf(const QList<Root> &roots, const std::atomic<bool> &stop)
{
    QList<QByteArray> folders;
    for (const Root &root : roots) {
        if (stop.load(std::memory_order_relaxed)) break;
        if (root.isTimeFolder) {
            folders.append(root.path);
            continue;
        }
        const int fd = FolderWalk::openFolder(root.path);
        if (fd < 0) continue;
        const QByteArray prefix = folderPrefix(root.path);
        FolderWalk::forEachEntry(fd, [&](const char *name, FolderWalk::Type type) {
            if (!stop.load(std::memory_order_relaxed) && type == FolderWalk::Type::Directory &&
                name[0] == '2' && name[1] == '0')
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
    std::mutex deliverMutex;
    std::size_t delivered = 0;

    Jobs::parallelFor(
        n,
        [&](std::size_t k) {
            if (stop.load(std::memory_order_relaxed)) return;
            CacheItems items;
            readTimeFolder(folders[qsizetype(k)], options, stop, items);
            if (options.prepare) options.prepare(items);
            std::lock_guard lock(deliverMutex);
            if (!options.inOrder) {
                // Whoever finishes hands over at once: a slow folder holds nobody up.
                sink(std::move(items));
                return;
            }
            done[k] = std::move(items);
            // Hand over every finished folder that is next in order, each as it is: gathering
            // them first would copy every row once more.
            if (k != delivered) return;
            while (delivered < n && done[delivered]) {
                sink(std::move(*done[delivered]));
                done[delivered].reset();
                ++delivered;
            }
        },
        unsigned(std::max(0, options.threads)));
    return !stop.load();
}

void OriginFill::keep(const QByteArray &timeFolder, CacheItems &folderItems)
{
    Folder f;
    f.path = timeFolder;
    while (f.path.size() > 1 && f.path.endsWith('/'))
        f.path.chop(1);
    auto &rows = folderItems.rows();
    f.lengths.reserve(rows.size());
    for (const CacheItems::Row &r : rows) {
        const QByteArrayView name = folderItems.name(r);
        f.names.append(name.data(), std::size_t(name.size()));
        f.lengths.push_back(r.length);
    }
    std::uint32_t first = 0;
    {
        std::lock_guard lock(mMutex);
        first = mNext;
        mNext += std::uint32_t(rows.size());
        f.first = first;
        mFolders.push_back(std::move(f));
    }
    for (std::size_t i = 0; i < rows.size(); ++i)
        rows[i].origin = CacheItems::kOriginWaiting | (first + std::uint32_t(i));
}

void OriginFill::fillDay(std::vector<Folder *> &folders, Batch &out)
{
    // Every kept row of the day gets an answer, 0 where no record names it.
    for (const Folder *f : folders)
        std::fill_n(out.ids.begin() + std::ptrdiff_t(f->first - out.first), f->lengths.size(), 0u);

    const QByteArray day = parentOf(folders.front()->path);
    const QByteArray file =
        CacheCommit::originsFileFor(parentOf(day), day.mid(day.lastIndexOf('/') + 1));
    const safefile::ReadResult read = safefile::readRegular(AT_FDCWD, file.constData(), 64u << 20);
    if (read.error != 0) return;
    const std::string_view data(read.data);

    // Each time folder's names, looked up as records come; built when its first record comes.
    struct Index
    {
        Folder *folder = nullptr;
        std::unordered_map<std::string_view, std::uint32_t> rows;
        bool built = false;
    };
    std::vector<Index> indexes(folders.size());
    QHash<QByteArray, Index *> byTime;
    for (std::size_t i = 0; i < folders.size(); ++i) {
        indexes[i].folder = folders[i];
        byTime.insert(folders[i]->path.mid(folders[i]->path.lastIndexOf('/') + 1), &indexes[i]);
    }

    QByteArray time, name, path, lastTime, lastFolder;
    Index *index = nullptr;
    std::uint32_t lastId = 0;
    for (std::size_t start = 0; start < data.size();) {
        std::size_t stop = data.find('\n', start);
        if (stop == std::string_view::npos) stop = data.size();
        const QByteArrayView line(data.data() + start, qsizetype(stop - start));
        start = stop + 1;
        if (!readRecord(line, time, name, path) && !readRecordFully(line, time, name, path))
            continue;
        if (time.isEmpty() || name.isEmpty() || path.isEmpty()) continue;
        // Records come in runs of one time and of one folder: each is looked up once per run.
        if (time != lastTime || !index) {
            lastTime = time;
            index = byTime.value(time, nullptr);
            if (index && !index->built) {
                index->built = true;
                const Folder &f = *index->folder;
                index->rows.reserve(f.lengths.size());
                std::size_t offset = 0;
                for (std::uint32_t i = 0; i < f.lengths.size(); ++i) {
                    index->rows.emplace(std::string_view(f.names).substr(offset, f.lengths[i]), i);
                    offset += f.lengths[i];
                }
            }
        }
        if (!index) continue;
        const auto it =
            index->rows.find(std::string_view(name.constData(), std::size_t(name.size())));
        if (it == index->rows.end()) continue;
        const QByteArray folder = parentOf(path);
        if (folder != lastFolder || lastId == 0) {
            lastFolder = folder;
            lastId = mTable->intern(folder);
        }
        // The last record of a name wins: it is the latest deletion under that name.
        out.ids[index->folder->first - out.first + it->second] = lastId;
    }
}

bool OriginFill::run(const std::function<bool()> &stopped,
                     const std::function<void(Batch &&)> &sink)
{
    std::vector<Folder> folders;
    {
        std::lock_guard lock(mMutex);
        folders.swap(mFolders);
    }
    // Day after day, in the order the scan met them, each day's folders in ticket order.
    std::sort(folders.begin(), folders.end(),
              [](const Folder &a, const Folder &b) { return a.first < b.first; });
    QHash<QByteArray, std::size_t> dayOf;
    std::vector<std::vector<Folder *>> days;
    for (Folder &f : folders) {
        const QByteArray day = parentOf(f.path);
        auto it = dayOf.constFind(day);
        if (it == dayOf.cend()) {
            it = dayOf.insert(day, days.size());
            days.emplace_back();
        }
        days[*it].push_back(&f);
    }
    // A batch covers one or more days, up to about this many rows: each costs the window one
    // pass over its list.
    constexpr std::size_t kBatchRows = 65536;
    Batch batch;
    std::size_t batchRows = 0;
    auto flush = [&] {
        if (batchRows > 0) sink(std::move(batch));
        batch = Batch();
        batchRows = 0;
    };
    for (std::vector<Folder *> &day : days) {
        if (stopped()) return false;
        std::uint32_t lo = UINT32_MAX, hi = 0;
        std::size_t rows = 0;
        for (const Folder *f : day) {
            lo = std::min(lo, f->first);
            hi = std::max(hi, f->first + std::uint32_t(f->lengths.size()));
            rows += f->lengths.size();
        }
        if (rows == 0) continue;
        // Widen the batch to the day's tickets; tickets of other batches in between stay waiting.
        if (batchRows == 0) {
            batch.first = lo;
            batch.ids.assign(hi - lo, CacheItems::kOriginWaiting);
        } else {
            const std::uint32_t newFirst = std::min(batch.first, lo);
            const std::uint32_t newEnd =
                std::max(batch.first + std::uint32_t(batch.ids.size()), hi);
            std::vector<std::uint32_t> wider(newEnd - newFirst, CacheItems::kOriginWaiting);
            std::copy(batch.ids.begin(), batch.ids.end(),
                      wider.begin() + std::ptrdiff_t(batch.first - newFirst));
            batch.first = newFirst;
            batch.ids.swap(wider);
        }
        fillDay(day, batch);
        for (Folder *f : day) // the names are not needed any more
            *f = Folder();
        batchRows += rows;
        if (batchRows >= kBatchRows) flush();
    }
    if (stopped()) return false;
    flush();
    return true;
}

} // namespace ContentsScan
