#include "cli/Args.h"

#include "cli/CliIo.h"
#include "cli/Commands.h"
#include "cli/Volumes.h"

#include "browser/ContentsScan.h"
#include "browser/Deletion.h"
#include "browser/Removal.h"
#include "browser/Restore.h"
#include "cache/CacheCommit.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"

#include "SafeRemove.h"
#include "UniqueFd.h"

#include "PathJoin.h"
#include <cerrno>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// What restore exits with when it restored all it could but skipped something (a name taken, a
// piece of a folder that cannot be copied); 1 is for failures, 2 for a wrong command line.
constexpr int kRestoreSkipped = 3;

// Only entries of a cache (cache/day/time/item) may be removed: the tool is no general rm.
bool isCacheItem(const QByteArray &path)
{
    const QByteArrayList parts = path.split('/');
    if (parts.size() < 4 || !path.startsWith('/')) return false;
    const qsizetype n = parts.size();
    // The home cache, or a user's folder in a volume's shared cache folder.
    bool isUid = false;
    const bool inCache =
        parts[n - 4] == kCacheFolderName || (n >= 5 && parts[n - 5] == kCacheFolderName &&
                                             parts[n - 4].toULongLong(&isUid) == getuid() && isUid);
    return inCache && parts[n - 3].startsWith("20") && parts[n - 2].startsWith("20") &&
           !parts[n - 1].isEmpty() && parts[n - 1] != "." && parts[n - 1] != ".." &&
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

// The cache items an argument names: a path, DAY/TIME/NAME below the volume's cache, or a bare
// NAME looked up in the given days (all when none), as `ls` prints them.
QByteArrayList itemsNamed(const QByteArray &given, const CliVolume &v, const QByteArrayList &days)
{
    if (given.startsWith('/')) return {given};
    if (given.contains('/')) {
        // Relative to the current folder as any path is, else DAY/TIME/NAME in the cache.
        struct stat st
        {
        };
        if (lstat(given.constData(), &st) == 0) {
            char here[4096];
            return {getcwd(here, sizeof here) ? QByteArray(here) + '/' + given : given};
        }
        const QByteArray path = v.cache + '/' + given;
        return lstat(path.constData(), &st) == 0 ? QByteArrayList{path} : QByteArrayList{};
    }
    QList<ContentsScan::Root> roots;
    for (const DayEntry &d : v.days)
        if (days.isEmpty() || days.contains(d.name)) roots.append({d.path, false});
    const std::atomic<bool> stop{false};
    QByteArrayList found;
    for (const QByteArray &folder : ContentsScan::timeFoldersOf(roots, stop)) {
        struct stat st
        {
        };
        const QByteArray path = folder + '/' + given;
        if (given != "." && given != ".." && lstat(path.constData(), &st) == 0) found.append(path);
    }
    return found;
}

void announceChange(const QByteArrayList &deleted)
{
    // The daemon removes what our rights could not; a running window refreshes.
    if (!deleted.isEmpty()) Removal::postDeleteRequest(deleted);
    NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                          QLatin1String(Notifications::Salvora3CacheModified));
    NotificationBus::flush();
}

// `rm --permanently`: what rm -r does, and nothing kept. This program is among those whose
// deletions the keeping library leaves alone, so the preload needs no bypass here.
int deletePermanently(const QByteArrayList &paths)
{
    int failures = 0;
    for (const QByteArray &path : paths) {
        const qsizetype slash = path.lastIndexOf('/', path.endsWith('/') ? path.size() - 2 : -1);
        QByteArray name = path.mid(slash + 1);
        while (name.endsWith('/'))
            name.chop(1);
        const QByteArray parent = slash < 0    ? QByteArray(".")
                                  : slash == 0 ? QByteArray("/")
                                               : path.left(slash);
        int err = 0;
        if (name.isEmpty() || name == "." || name == "..") {
            err = EINVAL;
        } else {
            const UniqueFd dir(::open(parent.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            err = dir.fd < 0 ? errno : 0;
            struct stat st
            {
            };
            if (!err && ::fstatat(dir.fd, name.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
                err = errno;
            if (!err) err = saferemove::removeBeneath(dir.fd, name.toStdString());
        }
        if (err) {
            ++failures;
            CliIo::fail(QStringLiteral("%1: %2").arg(QString::fromUtf8(CliIo::terminalText(path)),
                                                     QString::fromLocal8Bit(std::strerror(err))));
        }
    }
    return failures ? 1 : 0;
}

} // namespace

namespace Commands {

int restore(int argc, char **argv)
{
    const Args a(argc, argv, 2, {"--to", "-v", "-d"},
                 {"--json", "--to-original", "--keep-both", "--skip"});
    if (!a.ok()) return CliIo::fail(a.error(), 2);
    const bool toOriginal = a.flag("--to-original");
    if (a.positional().isEmpty() || toOriginal == bool(a.value("--to")))
        return CliIo::fail(
            QStringLiteral("restore takes ITEM... --to DIR, or ITEM... --to-original"), 2);
    if (a.flag("--keep-both") && a.flag("--skip"))
        return CliIo::fail(QStringLiteral("--keep-both and --skip exclude each other"), 2);
    if (!toOriginal && a.flag("--keep-both"))
        return CliIo::fail(QStringLiteral("--keep-both goes with --to-original"), 2);
    const Restore::Clash clash =
        a.flag("--keep-both") ? Restore::Clash::KeepBoth : Restore::Clash::Skip;
    int failures = 0;
    int skips = 0;
    const QByteArray to = a.value("--to").value_or(QByteArray());
    if (!toOriginal) {
        struct stat st
        {
        };
        if (stat(to.constData(), &st) != 0 || !S_ISDIR(st.st_mode))
            return CliIo::fail(
                QStringLiteral("%1 is not a folder").arg(QString::fromLocal8Bit(to)));
    }
    // Names as `ls` prints them are looked up in the volume's cache.
    std::optional<CliVolume> volume;
    QByteArrayList days;
    for (const QByteArray &d : a.values("-d"))
        days.append(CliVolumes::dayName(d));
    QList<QPair<QByteArray, QByteArray>> jobs; // source, target
    for (const QByteArray &given : a.positional()) {
        QByteArray item = given;
        if (!given.startsWith('/')) {
            if (!volume) {
                QString error;
                volume = CliVolumes::choose(a.integer("-v", 0).value_or(-1), &error);
                if (!volume) return CliIo::fail(error);
            }
            const QByteArrayList found = itemsNamed(given, *volume, days);
            if (found.size() != 1) {
                ++failures;
                if (found.isEmpty()) {
                    CliIo::fail(QStringLiteral("%1: no such item in the cache")
                                    .arg(QString::fromUtf8(CliIo::shellText(given))));
                    continue;
                }
                CliIo::fail(QStringLiteral("%1: %2 items have that name; name one of them:")
                                .arg(QString::fromUtf8(CliIo::shellText(given)))
                                .arg(found.size()));
                for (const QByteArray &f : found)
                    std::fprintf(stderr, "  %s\n", CliIo::shellText(f).constData());
                continue;
            }
            item = found.first();
        }
        if (!toOriginal) {
            jobs.append({item, joinPath(to, Restore::lastComponent(item))});
            continue;
        }
        const QByteArray original =
            isCacheItem(item) ? Restore::originalPathOf(item) : QByteArray();
        if (original.isEmpty()) {
            CliIo::fail(QStringLiteral("%1: no original location was recorded")
                            .arg(QString::fromUtf8(CliIo::shellText(item))));
            ++failures;
            continue;
        }
        jobs.append({item, original});
    }
    CliIo::Out out;
    const bool json = a.flag("--json");
    if (json) out << "[";
    bool first = true;
    bool moved = false;
    auto report = [&](const Restore::ItemResult &r) {
        const char *what = r.outcome == Restore::Outcome::Copied ? (r.moved ? "moved" : "copied")
                           : r.outcome == Restore::Outcome::SkippedExisting ? "skipped"
                                                                            : "failed";
        moved = moved || r.moved;
        if (r.outcome == Restore::Outcome::Failed || r.outcome == Restore::Outcome::Stopped)
            ++failures;
        // A folder copied in part is not all that was asked for.
        if (r.outcome == Restore::Outcome::SkippedExisting || !r.leftOut.isEmpty()) ++skips;
        if (json) {
            out << (first ? "\n " : ",\n ") << "{\"source\": " << CliIo::jsonString(r.source)
                << ", \"target\": " << CliIo::jsonString(r.target) << ", \"result\": \"" << what
                << "\""
                << ", \"error\": " << CliIo::jsonText(r.error) << ", \"leftOut\": [";
            for (qsizetype i = 0; i < r.leftOut.size(); ++i)
                out << (i ? ", " : "") << "{\"path\": " << CliIo::jsonString(r.leftOut[i].path)
                    << ", \"reason\": " << CliIo::jsonText(r.leftOut[i].reason) << "}";
            out << "]}";
        } else if (r.outcome == Restore::Outcome::SkippedExisting) {
            out << "skipped, name exists: " << CliIo::shellText(r.target) << '\n';
        } else if (r.outcome == Restore::Outcome::Copied) {
            out << (r.moved ? "put back: " : "copied: ") << CliIo::shellText(r.target) << '\n';
            for (const Restore::LeftOut &l : r.leftOut)
                out << "  left out: " << CliIo::shellText(l.path) << " (" << l.reason << ")\n";
        } else {
            out.flush();
            CliIo::fail(QStringLiteral("%1: %2").arg(QString::fromUtf8(CliIo::shellText(r.source)),
                                                     r.error));
        }
        first = false;
    };
    for (const auto &[source, target] : jobs)
        report(toOriginal ? Restore::putBack(source, target, clash)
                          : Restore::copyItem(source, target));
    if (json) out << "\n]\n";
    out.flush();
    if (moved) announceChange({});
    return failures ? 1 : (skips ? kRestoreSkipped : 0);
}

int rm(int argc, char **argv)
{
    const Args a(argc, argv, 2, {}, {"--json", "--permanently"});
    if (!a.ok()) return CliIo::fail(a.error(), 2);
    if (a.positional().isEmpty()) return CliIo::fail(QStringLiteral("rm takes PATH..."), 2);
    if (a.flag("--permanently")) {
        if (a.flag("--json"))
            return CliIo::fail(QStringLiteral("--permanently does not go with --json"), 2);
        return deletePermanently(a.positional());
    }
    const QList<CacheCommit::Result> results = Deletion::deleteIntoCache(a.positional());
    NotificationBus::flush();
    int failures = 0;
    CliIo::Out out;
    const bool json = a.flag("--json");
    if (json) out << "[";
    for (qsizetype i = 0; i < results.size(); ++i) {
        const CacheCommit::Result &r = results[i];
        if (!r.ok()) {
            ++failures;
            CliIo::fail(QStringLiteral("%1: %2").arg(QString::fromUtf8(CliIo::terminalText(r.path)),
                                                     r.message()));
        }
        if (json) {
            out << (i ? ",\n " : "\n ") << "{\"path\": " << CliIo::jsonString(r.path)
                << ", \"cachedPath\": "
                << (r.ok() ? CliIo::jsonString(r.cachedPath) : QByteArray("null"))
                << ", \"error\": " << (r.ok() ? QByteArray("null") : CliIo::jsonText(r.message()))
                << "}";
        } else if (r.ok()) {
            out << "kept in the cache: " << CliIo::terminalText(r.cachedPath) << '\n';
        }
    }
    if (json) out << "\n]\n";
    return failures ? 1 : 0;
}

int remove(int argc, char **argv)
{
    const Args a(argc, argv, 2, {"-v", "--day"}, {"--all", "--yes"});
    if (!a.ok()) return CliIo::fail(a.error(), 2);
    const QByteArrayList days = a.values("--day");
    const int modes =
        (a.positional().isEmpty() ? 0 : 1) + (days.isEmpty() ? 0 : 1) + (a.flag("--all") ? 1 : 0);
    if (modes != 1)
        return CliIo::fail(QStringLiteral("remove takes ITEM..., --day DAY... or --all"), 2);

    if (a.flag("--all")) {
        if (!a.flag("--yes") &&
            !confirm(QStringLiteral("Delete every cache of every protected volume for good? "
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
        if (!v) return CliIo::fail(error);
        if (!v->entry.isMounted())
            return CliIo::fail(QStringLiteral("volume %1 is not mounted").arg(v->index));
        for (const QByteArray &name : days) {
            const DayEntry *day = CliVolumes::day(*v, name, &error);
            if (!day) return CliIo::fail(error);
            paths.append(day->path);
        }
    } else {
        for (const QByteArray &p : a.positional()) {
            if (!isCacheItem(p))
                return CliIo::fail(
                    QStringLiteral("%1 is not an item of a cache (CACHE/DAY/TIME/NAME)")
                        .arg(QString::fromUtf8(CliIo::terminalText(p))));
            paths.append(p);
        }
    }
    const QString what = days.isEmpty() ? QStringLiteral("%1 item(s)").arg(paths.size())
                                        : QStringLiteral("%1 day(s)").arg(paths.size());
    if (!a.flag("--yes") &&
        !confirm(QStringLiteral("Delete %1 from the cache for good?").arg(what)))
        return CliIo::fail(QStringLiteral("nothing deleted: not confirmed (use --yes)"));
    if (days.isEmpty())
        Removal::removeItems(paths);
    else
        Removal::removeTrees(paths);
    announceChange(paths);
    return 0;
}

} // namespace Commands
