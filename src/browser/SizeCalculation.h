#pragma once

#include <QByteArray>

#include <atomic>
#include <cstdint>
#include <functional>

// The size of a folder tree, walked in the background for the window's information line (and
// for the command-line tool): every entry below the folder adds its own logical size, links are
// never followed, and a long walk reports progress now and then.
namespace SizeCalculation {

// Seconds since 2001-01-01 00:00 UTC, the clock of the progress throttle.
double now();
inline constexpr double kRefreshInterval = 0.3;

// Total bytes of every non-folder entry below `folder`, recursively; each folder's entries are
// taken in case-insensitive name order. Unreadable folders and vanished entries count as empty.
//
// When a folder is finished and the clock has passed `nextRefresh`, `nextRefresh` moves
// kRefreshInterval on and `progress` (if any) gets that folder's own subtotal: the figure jumps
// between sub-folder sizes during a long walk, on purpose. `stop` is polled after every entry;
// once set, the walk returns the partial sum gathered so far.
std::int64_t calcSizeContentsFor(const QByteArray &folder, const std::atomic<bool> &stop,
                                 std::atomic<double> &nextRefresh,
                                 const std::function<void(std::int64_t subtotal)> &progress = {});

} // namespace SizeCalculation
