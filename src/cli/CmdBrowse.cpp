#include "cli/Args.h"
#include "cli/CliIo.h"
#include "cli/Commands.h"
#include "cli/Volumes.h"

#include "browser/ContentsScan.h"
#include "browser/ContentsSort.h"
#include "browser/DayTexts.h"
#include "browser/IncompleteItems.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/SizeRecords.h"
#include "common/Daemon.h"
#include "common/Jobs.h"
#include "common/Losses.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/SizeText.h"
#include "volumes/Volumes.h"

#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using CliIo::jsonString;

namespace {

std::optional<CliVolume> volumeFromArgs(const Args &a)
{
    const auto index = a.integer("-v", 0);
    QString error;
    if (!index) {
        CliIo::fail(QStringLiteral("-v takes a volume index (see 'salvora volumes')"), 2);
        return std::nullopt;
    }
    auto v = CliVolumes::choose(*index, &error);
    if (!v) CliIo::fail(error);
    return v;
}

qint64 totalOf(const QList<DayEntry> &days, qint64 *files)
{
    return CommonUtils::getSizeOfCacheInDays(days, files);
}

} // namespace

namespace Commands {

int volumes(int argc, char **argv)
{
    const Args a(argc, argv, 2, {}, {"--json"});
    if (!a.ok() || !a.positional().isEmpty())
        return CliIo::fail(a.ok() ? QStringLiteral("volumes takes no arguments") : a.error(), 2);
    const QList<VolumeMenuEntry> menu = VolumeMenu::build();
    CliIo::Out out;
    if (a.flag("--json")) out << "[";
    for (qsizetype i = 0; i < menu.size(); ++i) {
        const VolumeMenuEntry &e = menu[i];
        QString uuid = e.uuid;
        QList<DayEntry> days;
        if (e.isMounted()) {
            if (const auto d = CommonUtils::getVolumeInfosForPath(e.path)) uuid = d->uuid;
            days = CommonUtils::getListOfDaysInCacheInVolume(i);
        } else {
            days = CliVolumes::rememberedDays(e.uuid);
        }
        qint64 files = 0;
        const qint64 bytes = totalOf(days, &files);
        if (a.flag("--json")) {
            out << (i ? ",\n " : "\n ") << "{\"index\": " << (long long)i
                << ", \"title\": " << CliIo::jsonText(e.title)
                << ", \"path\": " << (e.isMounted() ? CliIo::jsonText(e.path) : QByteArray("null"))
                << ", \"mounted\": " << (e.isMounted() ? "true" : "false")
                << ", \"uuid\": " << CliIo::jsonText(uuid) << ", \"size\": " << (long long)bytes
                << ", \"files\": " << (long long)files
                << ", \"sizeText\": " << CliIo::jsonText(CommonUtils::getSizeStr(bytes)) << "}";
        } else {
            out << (long long)i << '\t' << (e.isMounted() ? e.path : QStringLiteral("unmounted"))
                << '\t' << (uuid.isEmpty() ? QStringLiteral("-") : uuid) << '\t'
                << CommonUtils::getSizeStr(bytes) << '\t' << e.title << '\n';
        }
    }
    if (a.flag("--json")) out << "\n]\n";
    return 0;
}

int days(int argc, char **argv)
{
    const Args a(argc, argv, 2, {"-v"}, {"--json"});
    if (!a.ok() || !a.positional().isEmpty())
        return CliIo::fail(a.ok() ? QStringLiteral("days takes no arguments but -v N") : a.error(),
                           2);
    const auto v = volumeFromArgs(a);
    if (!v) return 1;
    const qint64 retention = Settings::integer(SettingsKeys::PrefsRemoveFromCache).value_or(0);
    const QString summary = DayTexts::summary(v->days, retention);
    CliIo::Out out;
    if (a.flag("--json")) {
        out << "{\"volume\": " << (long long)v->index
            << ", \"mounted\": " << (v->entry.isMounted() ? "true" : "false") << ", \"days\": [";
        for (qsizetype i = 0; i < v->days.size(); ++i) {
            const DayEntry &d = v->days[i];
            out << (i ? ",\n  " : "\n  ") << "{\"name\": " << jsonString(d.name)
                << ", \"label\": " << CliIo::jsonText(CommonUtils::dateStringForCacheFolder(d.name))
                << ", \"path\": " << jsonString(d.path) << ", \"size\": " << (long long)d.size
                << ", \"count\": " << (long long)d.count
                << ", \"sizeText\": " << CliIo::jsonText(CommonUtils::getSizeStr(d.size))
                << ", \"countText\": " << CliIo::jsonText(CommonUtils::getQtyStr(d.count)) << "}";
        }
        out << "\n ], \"summary\": " << CliIo::jsonText(summary) << "}\n";
        return 0;
    }
    for (const DayEntry &d : v->days)
        out << d.name << '\t' << CommonUtils::dateStringForCacheFolder(d.name) << '\t'
            << CommonUtils::getSizeStr(d.size) << '\t' << CommonUtils::getQtyStr(d.count) << '\n';
    out << summary << '\n';
    return 0;
}

int ls(int argc, char **argv)
{
    const Args a(argc, argv, 2, {"-v", "-d", "-t", "-s", "--sort"}, {"-r", "--json", "--no-sizes"});
    if (!a.ok() || !a.positional().isEmpty())
        return CliIo::fail(a.ok() ? QStringLiteral("ls takes no arguments but options (see --help)")
                                  : a.error(),
                           2);
    const QByteArray sortBy = a.value("--sort").value_or("name");
    if (sortBy != "name" && sortBy != "time" && sortBy != "size")
        return CliIo::fail(QStringLiteral("--sort takes name, time or size"), 2);
    if (sortBy == "size" && a.flag("--no-sizes"))
        return CliIo::fail(QStringLiteral("--sort size needs the sizes"), 2);
    const SortOrder order{sortBy == "time" ? SortOrder::Time : SortOrder::Name, a.flag("-r")};
    const auto v = volumeFromArgs(a);
    if (!v) return 1;
    if (!v->entry.isMounted())
        return CliIo::fail(
            QStringLiteral("volume %1 is not mounted: its items cannot be listed").arg(v->index));

    QList<ContentsScan::Root> roots;
    if (const auto t = a.value("-t")) {
        // A time folder by name ("2024-05-03 14_07_55") or by path.
        const QByteArray path = t->startsWith('/') ? *t : v->cache + '/' + t->left(10) + '/' + *t;
        roots.append({path, true});
    } else if (const QByteArrayList wanted = a.values("-d"); !wanted.isEmpty()) {
        QString error;
        for (const QByteArray &given : wanted) {
            const DayEntry *day = CliVolumes::day(*v, CliVolumes::dayName(given), &error);
            if (!day) return CliIo::fail(error);
            roots.append({day->path, false});
        }
    } else {
        for (const DayEntry &d : v->days)
            roots.append({d.path, false});
    }

    ContentsScan::Options options;
    options.pattern =
        NameMatch::Pattern(QString::fromLocal8Bit(a.value("-s").value_or(QByteArray())));
    // Sizes cost one statx per file, more than reading the folders; --no-sizes leaves them out.
    options.readSizes = !a.flag("--no-sizes");
    std::atomic<bool> stop{false};
    CacheItems items;
    // The days' file counts bound the number of items from above in practice (a folder item holds
    // files); reserving that much costs nothing until used, and spares the copies of a growing
    // list, which would double its peak.
    qint64 expected = 0;
    for (const DayEntry &d : v->days)
        expected += d.count + 64;
    if (roots.size() == 1 && roots.first().isTimeFolder) expected = 0;
    items.reserve(std::size_t(expected), std::size_t(expected) * 32);
    ContentsScan::scan(roots, options, stop,
                       [&](CacheItems &&batch) { items.append(std::move(batch)); });
    // Looked for before sorting, while the rows still follow their names in memory; a row keeps
    // its name's place through the sort, so that names it.
    QHash<std::uint32_t, CacheCommit::Completeness> incomplete;
    {
        const QHash<qsizetype, CacheCommit::Completeness> found = IncompleteItems::inList(items);
        for (auto it = found.cbegin(); it != found.cend(); ++it)
            incomplete.insert(items.row(it.key()).offset, it.value());
    }
    ContentsSort::sortParallel(items, order);
    if (sortBy == "size") {
        // Smallest first (folders, which have no size, before files), names ordering equals.
        const bool descending = a.flag("-r");
        std::stable_sort(items.rows().begin(), items.rows().end(),
                         [descending](const CacheItems::Row &x, const CacheItems::Row &y) {
                             return descending ? x.size > y.size : x.size < y.size;
                         });
    }

    const bool json = a.flag("--json");
    // Everything that depends only on the time folder is made once per folder: in JSON, the text
    // between a row's name and its name again in its path, and the text after its size.
    struct FolderText
    {
        std::string path; // JSON: "path" up to the name; text: the folder's path and "/"
        // JSON: "timeFolder" and "cachingTime" up to their closing quote; text: the caching time
        // as the window shows it
        std::string tail;
    };
    std::vector<FolderText> folders(items.folderCount());
    // Each day's label once (a day may hold many time folders); read concurrently afterwards.
    QHash<QByteArray, QString> dayLabels;
    for (std::uint32_t f = 0; f < items.folderCount(); ++f) {
        const QByteArrayView day = DayTexts::dayOf(items.timeFolderName(f));
        if (!dayLabels.contains(day.toByteArray()))
            dayLabels.insert(day.toByteArray(), DayTexts::dayLabel(day));
    }
    Jobs::parallelFor(items.folderCount(), [&](std::size_t f) {
        FolderText &t = folders[f];
        const QByteArrayView name = items.timeFolderName(std::uint32_t(f));
        const QByteArray caching =
            DayTexts::cachingTime(name, dayLabels.value(DayTexts::dayOf(name).toByteArray()))
                .toUtf8();
        if (json) {
            t.path = "\", \"path\": \"";
            CliIo::appendJsonChars(t.path, items.timeFolderPath(std::uint32_t(f)));
            t.path += '/';
            t.tail = "\", \"timeFolder\": \"";
            CliIo::appendJsonChars(t.tail, items.timeFolderName(std::uint32_t(f)));
            t.tail += "\", \"cachingTime\": \"";
            CliIo::appendJsonChars(t.tail, caching);
        } else {
            t.path = items.timeFolderPath(std::uint32_t(f)).toStdString() + '/';
            t.tail.assign(caching.constData(), std::size_t(caching.size()));
        }
    });
    // Laid end to end in one string: rows of many small folders reach their folders' texts in
    // no order, and one block costs fewer cache misses than a string of its own each.
    struct FolderSpan
    {
        std::uint32_t path = 0, pathLength = 0, tail = 0, tailLength = 0;
    };
    std::string folderTexts;
    std::vector<FolderSpan> spans(folders.size());
    for (std::size_t f = 0; f < folders.size(); ++f) {
        const FolderText &t = folders[f];
        spans[f] = {std::uint32_t(folderTexts.size()), std::uint32_t(t.path.size()),
                    std::uint32_t(folderTexts.size() + t.path.size()),
                    std::uint32_t(t.tail.size())};
        folderTexts += t.path;
        folderTexts += t.tail;
    }
    folders = {};
    const CommonUtils::SizeUnits units = CommonUtils::SizeUnits::current();
    auto format = [&](qsizetype from, qsizetype to, std::string &out) {
        std::string name, path;
        char number[24];
        for (qsizetype i = from; i < to; ++i) {
            const CacheItems::Row &r = items.row(i);
            const FolderSpan &f = spans[r.folder];
            const std::string_view folderPath(folderTexts.data() + f.path, f.pathLength);
            const std::string_view folderTail(folderTexts.data() + f.tail, f.tailLength);
            const bool folder = r.kind == CacheItems::Kind::Folder;
            const bool sized = !folder && r.size >= 0;
            name.clear();
            if (json) {
                CliIo::appendJsonChars(name, items.name(r));
                out += i ? ",\n {\"name\": \"" : "\n {\"name\": \"";
                out += name;
                out += folderPath;
                out += name;
                if (sized) {
                    out += "\", \"folder\": false, \"size\": ";
                    out.append(
                        number,
                        std::size_t(std::to_chars(number, number + sizeof number, r.size).ptr -
                                    number));
                    out += ", \"sizeText\": \"";
                    CommonUtils::appendSizeStr(out, r.size, units);
                } else {
                    out += folder ? "\", \"folder\": true, \"size\": null, \"sizeText\": \""
                                  : "\", \"folder\": false, \"size\": null, \"sizeText\": \"";
                }
                out += folderTail;
                if (const auto part =
                        incomplete.isEmpty() ? incomplete.cend() : incomplete.constFind(r.offset);
                    part != incomplete.cend()) {
                    out += "\", \"incomplete\": true, \"missingFiles\": ";
                    out += std::to_string(part->missingFiles);
                    out += ", \"missingBytes\": ";
                    out += std::to_string(part->missingBytes);
                    out += "}";
                } else {
                    out += "\", \"incomplete\": false}";
                }
            } else {
                // Names and paths as a shell reads them back, to paste into `salvora restore`.
                CliIo::appendShellText(out, items.name(r));
                out += '\t';
                if (sized) CommonUtils::appendSizeStr(out, r.size, units);
                out += '\t';
                out += folderTail;
                out += '\t';
                path.assign(folderPath);
                path.append(items.name(r).data(), std::size_t(items.name(r).size()));
                CliIo::appendShellText(out, QByteArrayView(path.data(), qsizetype(path.size())));
                if (!incomplete.isEmpty() && incomplete.contains(r.offset)) out += "\t(incomplete)";
                out += '\n';
            }
        }
    };
    // Formatted on every core, a few thousand rows at a time, and written in order by whichever
    // thread finished the next piece while the others go on formatting. A formatter keeps at most
    // a few pieces ahead of the writing, so a long listing never holds its whole text in memory.
    CliIo::Out out;
    if (json)
        out << "{\"volume\": " << (long long)v->index << ", \"items\": [";
    else if (isatty(STDOUT_FILENO))
        out << "NAME\tSIZE\tMOVED TO THE CACHE\tPATH\n";
    out.flush();
    const std::size_t n = std::size_t(items.size());
    constexpr std::size_t kChunk = 1024;
    const std::size_t pieces = (n + kChunk - 1) / kChunk;
    const std::size_t ahead = std::size_t(Jobs::cores());
    std::vector<std::string> ready(pieces);
    std::vector<std::string> spare; // written pieces, their memory reused for the next ones
    std::mutex mutex;
    std::condition_variable written;
    std::size_t next = 0; // the first piece not written yet
    bool writing = false;
    Jobs::parallelFor(pieces, [&](std::size_t p) {
        std::string text;
        {
            std::unique_lock lock(mutex);
            written.wait(lock, [&] { return p < next + ahead; });
            if (!spare.empty()) {
                text = std::move(spare.back());
                spare.pop_back();
            }
        }
        text.clear();
        format(qsizetype(p * kChunk), qsizetype(std::min(n, (p + 1) * kChunk)), text);
        std::unique_lock lock(mutex);
        ready[p] = std::move(text);
        if (writing) return; // the writer takes it in turn
        writing = true;
        while (next < pieces && !ready[next].empty()) {
            std::string piece = std::move(ready[next]);
            ready[next] = std::string();
            ++next;
            lock.unlock();
            written.notify_all();
            std::fwrite(piece.data(), 1, piece.size(), stdout);
            lock.lock();
            spare.push_back(std::move(piece));
        }
        writing = false;
    });
    if (json) out << "\n]}\n";
    return 0;
}

int size(int argc, char **argv)
{
    const Args a(argc, argv, 2, {}, {"--json"});
    if (!a.ok() || a.positional().size() != 1)
        return CliIo::fail(a.ok() ? QStringLiteral("size takes one path") : a.error(), 2);
    const QByteArray path = a.positional().first();
    struct stat st
    {
    };
    if (lstat(path.constData(), &st) != 0)
        return CliIo::fail(QStringLiteral("%1: %2").arg(QString::fromLocal8Bit(path),
                                                        QString::fromLocal8Bit(strerror(errno))));
    qint64 files = 0;
    const qint64 bytes =
        S_ISDIR(st.st_mode) ? CommonUtils::getSizeOfFolder(path, &files) : qint64(st.st_size);
    if (!S_ISDIR(st.st_mode)) files = 1;
    CliIo::Out out;
    if (a.flag("--json"))
        out << "{\"path\": " << jsonString(path) << ", \"size\": " << (long long)bytes
            << ", \"files\": " << (long long)files
            << ", \"sizeText\": " << CliIo::jsonText(CommonUtils::getSizeStr(bytes)) << "}\n";
    else
        out << CommonUtils::getSizeStr(bytes) << '\t' << (long long)bytes << " bytes\t"
            << (long long)files << " files\t" << CliIo::terminalText(path) << '\n';
    return 0;
}

int status(int argc, char **argv)
{
    const Args a(argc, argv, 2, {}, {"--json", "--seen"});
    if (!a.ok() || !a.positional().isEmpty())
        return CliIo::fail(a.ok() ? QStringLiteral("status takes no arguments") : a.error(), 2);
    const QList<Losses::Loss> losses = Losses::unseen();
    const auto protection = Settings::integer(SettingsKeys::PrefsProtectionEnabled);
    const QByteArray state = !protection ? "not set" : (*protection ? "on" : "off");
    const QStringList volumes = CommonUtils::getAllProtectedVolumes();
    const qint64 total = CommonUtils::getSizeOfCaches();
    const std::optional<bool> running = Daemon::isRunning();
    const QByteArray daemon =
        !running ? "unknown (no session bus)" : (*running ? "running" : "not running");
    const QList<CacheFolder::Problem> problems = CacheFolder::problems();
    CliIo::Out out;
    if (a.flag("--json")) {
        out << "{\"protection\": " << jsonString(state) << ", \"volumes\": [";
        for (qsizetype i = 0; i < volumes.size(); ++i)
            out << (i ? ", " : "") << CliIo::jsonText(volumes[i]);
        out << "], \"size\": " << (long long)total
            << ", \"sizeText\": " << CliIo::jsonText(CommonUtils::getSizeStr(total))
            << ", \"daemon\": " << jsonString(daemon) << ", \"keepingNothing\": [";
        for (qsizetype i = 0; i < problems.size(); ++i)
            out << (i ? ", " : "") << "{\"volume\": " << jsonString(problems[i].volumePath)
                << ", \"cache\": " << jsonString(problems[i].status.path)
                << ", \"reason\": " << CliIo::jsonText(problems[i].status.reason()) << "}";
        out << "], \"notKept\": [";
        for (qsizetype i = 0; i < losses.size(); ++i)
            out << (i ? ", " : "") << "{\"path\": " << jsonString(losses[i].path)
                << ", \"time\": " << CliIo::jsonText(losses[i].time.toString(Qt::ISODate))
                << ", \"reason\": " << CliIo::jsonText(losses[i].reason)
                << ", \"partly\": " << (losses[i].partly ? "true" : "false") << "}";
        out << "]}\n";
        if (a.flag("--seen")) Losses::markSeen(losses.size());
        return 0;
    }
    out << "protection: " << state << '\n'
        << "protected volumes: " << volumes.join(QStringLiteral(", ")) << '\n'
        << "cache size: " << CommonUtils::getSizeStr(total) << '\n'
        << "daemon: " << daemon << '\n';
    for (const CacheFolder::Problem &p : problems)
        out << "keeping nothing on " << CliIo::terminalText(p.volumePath) << ": "
            << p.status.reason() << '\n';
    // Never a silent loss: what could not be kept (or only in part), until the user has seen it.
    if (!losses.isEmpty()) {
        out << "not kept: " << (long long)losses.size() << " item(s) since "
            << losses.first().time.toString(QStringLiteral("yyyy-MM-dd HH:mm")) << '\n';
        for (const Losses::Loss &l : losses)
            out << "  " << l.time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) << ' '
                << CliIo::terminalText(l.path) << ": " << l.reason << '\n';
        if (!a.flag("--seen")) out << "(salvora status --seen stops listing them)\n";
    }
    if (a.flag("--seen")) Losses::markSeen(losses.size());
    return 0;
}

} // namespace Commands
