#include "cli/Args.h"
#include "cli/CliIo.h"
#include "cli/Commands.h"
#include "cli/Volumes.h"

#include "browser/Removal.h"
#include "browser/Restore.h"
#include "cache/CacheCommit.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"

#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Only entries of a cache (cache/day/time/item) may be removed: the tool is no general rm.
bool isCacheItem(const QByteArray &path)
{
    const QByteArrayList parts = path.split('/');
    if (parts.size() < 4 || !path.startsWith('/'))
        return false;
    const qsizetype n = parts.size();
    // The home cache, or a user's folder in a volume's shared cache folder.
    bool isUid = false;
    const bool inCache = parts[n - 4] == CacheFolder::kName ||
                         (n >= 5 && parts[n - 5] == CacheFolder::kName &&
                          parts[n - 4].toULongLong(&isUid) == getuid() && isUid);
    return inCache && parts[n - 3].startsWith("20") &&
           parts[n - 2].startsWith("20") && !parts[n - 1].isEmpty() && parts[n - 1] != "." && parts[n - 1] != ".." &&
           !path.contains("/../") && !path.contains("/./");
}

bool confirm(const QString &question)
{
    std::fprintf(stderr, "%s [y/N] ", question.toLocal8Bit().constData());
    std::fflush(stderr);
    char answer[16] = {};
    if (!std::fgets(answer, sizeof answer, stdin)) {
        std::fprintf(stderr, "\n");
        return false;
    }
    const QByteArray a = QByteArray(answer).trimmed().toLower();
    return a == "y" || a == "yes";
}

// Makes the missing folders above a path as the user would (0755, narrowed by the umask).
void makeParents(const QByteArray &path)
{
    for (qsizetype i = 1; i < path.size(); ++i)
        if (path[i] == '/')
            mkdir(path.left(i).constData(), 0755);
}

// The original path the daemon recorded for CACHE/DAY/TIME/NAME, or empty.
QByteArray originalPathOf(const QByteArray &item)
{
    if (!isCacheItem(item))
        return {};
    const QByteArrayList parts = item.split('/');
    const qsizetype n = parts.size();
    const QByteArray cache = parts.mid(0, n - 3).join('/');
    for (const CacheCommit::Origin &o : CacheCommit::readOrigins(cache, parts[n - 3]))
        if (o.time == parts[n - 2] && o.name == parts[n - 1])
            return o.path;
    return {};
}

void announceChange(const QByteArrayList &deleted)
{
    // The daemon removes what our rights could not; a running window refreshes.
    if (!deleted.isEmpty())
        Removal::postDeleteRequest(deleted);
    NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                          QLatin1String(Notifications::Salvora3CacheModified));
    NotificationBus::flush();
}

} // namespace

namespace Commands {

int restore(int argc, char **argv)
{
    const Args a(argc, argv, 2, {"--to"}, {"--json", "--to-original"});
    if (!a.ok())
        return CliIo::fail(a.error(), 2);
    const bool toOriginal = a.flag("--to-original");
    if (a.positional().isEmpty() || toOriginal == bool(a.value("--to")))
        return CliIo::fail(QStringLiteral("restore takes ITEM... --to DIR, or ITEM... --to-original"), 2);
    int failures = 0;
    const QByteArray to = a.value("--to").value_or(QByteArray());
    QList<QPair<QByteArray, QByteArray>> jobs; // source, target
    for (const QByteArray &item : a.positional()) {
        if (!toOriginal) {
            jobs.append({item, (to.endsWith('/') ? to : to + '/') + Restore::lastComponent(item)});
            continue;
        }
        const QByteArray original = originalPathOf(item);
        if (original.isEmpty()) {
            CliIo::fail(QStringLiteral("%1: no original location was recorded")
                            .arg(QString::fromUtf8(CliIo::terminalText(item))));
            ++failures;
            continue;
        }
        jobs.append({item, original});
    }
    if (!toOriginal) {
        struct stat st{};
        if (stat(to.constData(), &st) != 0 || !S_ISDIR(st.st_mode))
            return CliIo::fail(QStringLiteral("%1 is not a folder").arg(QString::fromLocal8Bit(to)));
    }
    CliIo::Out out;
    const bool json = a.flag("--json");
    if (json)
        out << "[";
    bool first = true;
    auto report = [&](const Restore::ItemResult &r) {
        const char *what = r.outcome == Restore::Outcome::Copied            ? "copied"
                           : r.outcome == Restore::Outcome::SkippedExisting ? "skipped"
                                                                            : "failed";
        if (r.outcome == Restore::Outcome::Failed || r.outcome == Restore::Outcome::Stopped)
            ++failures;
        if (json) {
            out << (first ? "\n " : ",\n ") << "{\"source\": " << CliIo::jsonString(r.source)
                << ", \"target\": " << CliIo::jsonString(r.target) << ", \"result\": \"" << what << "\""
                << ", \"error\": " << CliIo::jsonText(r.error) << "}";
        } else if (r.outcome == Restore::Outcome::SkippedExisting) {
            out << "skipped, name exists: " << CliIo::terminalText(r.target) << '\n';
        } else if (r.outcome == Restore::Outcome::Copied) {
            out << "copied: " << CliIo::terminalText(r.target) << '\n';
        } else {
            out.flush();
            CliIo::fail(QStringLiteral("%1: %2").arg(QString::fromUtf8(CliIo::terminalText(r.source)), r.error));
        }
        first = false;
    };
    for (const auto &[source, target] : jobs) {
        // The original folder may be gone too: it is made again, as the user would.
        if (toOriginal)
            makeParents(target);
        report(Restore::copyItem(source, target));
    }
    if (json)
        out << "\n]\n";
    return failures ? 1 : 0;
}

int rm(int argc, char **argv)
{
    const Args a(argc, argv, 2, {}, {"--json"});
    if (!a.ok())
        return CliIo::fail(a.error(), 2);
    if (a.positional().isEmpty())
        return CliIo::fail(QStringLiteral("rm takes PATH..."), 2);
    const QList<CacheCommit::Result> results = CacheCommit::deleteIntoCache(a.positional());
    NotificationBus::flush();
    int failures = 0;
    CliIo::Out out;
    const bool json = a.flag("--json");
    if (json)
        out << "[";
    for (qsizetype i = 0; i < results.size(); ++i) {
        const CacheCommit::Result &r = results[i];
        if (!r.ok()) {
            ++failures;
            CliIo::fail(QStringLiteral("%1: %2").arg(QString::fromUtf8(CliIo::terminalText(r.path)), r.message()));
        }
        if (json) {
            out << (i ? ",\n " : "\n ") << "{\"path\": " << CliIo::jsonString(r.path)
                << ", \"cachedPath\": " << (r.ok() ? CliIo::jsonString(r.cachedPath) : QByteArray("null"))
                << ", \"error\": " << (r.ok() ? QByteArray("null") : CliIo::jsonText(r.message())) << "}";
        } else if (r.ok()) {
            out << "kept in the cache: " << CliIo::terminalText(r.cachedPath) << '\n';
        }
    }
    if (json)
        out << "\n]\n";
    return failures ? 1 : 0;
}

int remove(int argc, char **argv)
{
    const Args a(argc, argv, 2, {"-v", "--day"}, {"--all", "--yes"});
    if (!a.ok())
        return CliIo::fail(a.error(), 2);
    const QByteArrayList days = a.values("--day");
    const int modes = (a.positional().isEmpty() ? 0 : 1) + (days.isEmpty() ? 0 : 1) + (a.flag("--all") ? 1 : 0);
    if (modes != 1)
        return CliIo::fail(QStringLiteral("remove takes ITEM..., --day DAY... or --all"), 2);

    if (a.flag("--all")) {
        if (!a.flag("--yes") && !confirm(QStringLiteral("Delete every cache of every protected volume for good? "
                                                        "Protection will be turned off.")))
            return CliIo::fail(QStringLiteral("nothing deleted: not confirmed (use --yes)"));
        Removal::removeAllCaches();
        announceChange({});
        return 0;
    }

    QByteArrayList paths;
    if (!days.isEmpty()) {
        QString error;
        const auto v = CliVolumes::choose(a.integer("-v", 0).value_or(-1), &error);
        if (!v)
            return CliIo::fail(error);
        if (!v->entry.isMounted())
            return CliIo::fail(QStringLiteral("volume %1 is not mounted").arg(v->index));
        for (const QByteArray &name : days) {
            const auto it = std::find_if(v->days.cbegin(), v->days.cend(), [&](const DayEntry &d) { return d.name == name; });
            if (it == v->days.cend())
                return CliIo::fail(QStringLiteral("no day %1 in volume %2").arg(QString::fromUtf8(name)).arg(v->index));
            paths.append(it->path);
        }
    } else {
        for (const QByteArray &p : a.positional()) {
            if (!isCacheItem(p))
                return CliIo::fail(QStringLiteral("%1 is not an item of a cache (CACHE/DAY/TIME/NAME)")
                                       .arg(QString::fromUtf8(CliIo::terminalText(p))));
            paths.append(p);
        }
    }
    const QString what = days.isEmpty() ? QStringLiteral("%1 item(s)").arg(paths.size())
                                        : QStringLiteral("%1 day(s)").arg(paths.size());
    if (!a.flag("--yes") && !confirm(QStringLiteral("Delete %1 from the cache for good?").arg(what)))
        return CliIo::fail(QStringLiteral("nothing deleted: not confirmed (use --yes)"));
    if (days.isEmpty())
        Removal::removeItems(paths);
    else
        Removal::removeTrees(paths);
    announceChange(paths);
    return 0;
}

} // namespace Commands
