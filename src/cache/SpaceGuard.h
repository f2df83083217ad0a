#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QDate>
#include <QDateTime>
#include <QStringList>

#include <atomic>
#include <functional>
#include <optional>

// Kept items no longer free space when they are deleted, so a volume could fill up with what we
// keep. The guard removes the oldest days of a volume's cache (never today's) while the volume's
// free space is below a threshold: a share of the volume or a fixed amount, whichever is smaller.
namespace SpaceGuard {

inline constexpr qint64 kDefaultPercent = 5;
inline constexpr qint64 kDefaultFloorBytes = 2'000'000'000;

struct Threshold
{
    qint64 percent = kDefaultPercent;       // of the volume's size; 0 turns the guard off
    qint64 floorBytes = kDefaultFloorBytes; // at most this much is wanted free; 0 turns it off
    // The free space wanted on a volume of `totalBytes`.
    qint64 bytesFor(qint64 totalBytes) const;
    bool operator==(const Threshold &) const = default;
};
// As the settings say (PrefsKeepFreePercent, PrefsKeepFreeBytes), defaults for what is absent.
Threshold readThreshold();

struct Space
{
    qint64 totalBytes = 0;
    qint64 availableBytes = 0; // what an unprivileged user may still write (f_bavail)
};
// The file system's figures for the folder open at `fd`; nullopt when it cannot say.
std::optional<Space> spaceOf(int fd);
using Probe = std::function<std::optional<Space>(int fd)>;

struct Outcome
{
    qint64 wantedFree = 0;
    std::optional<Space> before;
    std::optional<Space> after;
    QByteArrayList removed; // day folders, oldest first
    QStringList failures;   // "day (reason)", English, for the log
    bool cancelled = false;
};

// For the cache folder open at `cacheFd`: while the free space is below the threshold, removes
// its oldest day folder older than `today` (and that day's origin records), re-reading the free
// space after each. Gives up at once when `stop` is set. `probe` reads the free space (tests
// give their own).
Outcome run(int cacheFd, const Threshold &threshold, const QDate &today,
            const std::atomic<bool> &stop, const Probe &probe = spaceOf);

// The last time the guard removed days, for the window's summary: one small record beside the
// log, replaced whole each time.
struct Action
{
    QDateTime when;
    QByteArray volume; // mount path, "/" for the home folder's volume
    qint64 wantedFree = 0;
    int days = 0;
};
void recordAction(const Action &action);
std::optional<Action> lastAction();

} // namespace SpaceGuard
