#pragma once

#include "common/Alerts.h"

#include <QByteArrayList>

#include <functional>

class RemovalQueue;

// What a removal refreshes in the window, in the order each command gives.
class RemovalTarget
{
public:
    virtual ~RemovalTarget() = default;
    virtual void updateListOfDaysInCache() = 0;
    virtual void updateListOfContentsInCache() = 0;
    virtual void updateStatusInfos() = 0;
};

// The three commands that delete from the caches for good, each after a confirmation whose
// default button (the one Return presses) is Cancel. The confirmation runs on the main thread;
// the deleting is handed to `queue` (a worker thread, one removal at a time), and the refresh and
// the daemon's request follow on the main thread once it ended.
namespace RemovalActions {

enum class Command { Contents, Days, AllCaches };

// Critical style; buttons: "CancelButton" (default, index 0), "DeleteButton" (index 1). Given the
// items, the question names the one item or counts them.
Alerts::Alert confirmationAlert(Command command, const QByteArrayList &items = {});
inline constexpr int kCancelIndex = 0;
inline constexpr int kDeleteIndex = 1;
// Shows the alert until one of its two buttons is chosen; true for Delete. Any other answer
// (the box closed some other way) shows it again.
bool confirm(Command command, const QByteArrayList &items = {});

// removeContents: the selected items' paths in row order. Nothing selected: no alert, false.
// Confirmed (true): deleted (each time folder's record reset, emptied time folders removed),
// then `beforeRefresh`, the days, the contents and the status refreshed, then the daemon asked
// to delete the paths handed to deletion (all of them unless the user cancelled).
bool removeContents(const QByteArrayList &itemPaths, RemovalTarget &target, RemovalQueue &queue,
                    std::function<void()> beforeRefresh = {});
// removeSelectedDays: the selected day folders' paths in row order. The contents are not
// refreshed directly: the rebuilt day list drives them.
bool removeSelectedDays(const QByteArrayList &dayPaths, RemovalTarget &target, RemovalQueue &queue);
// removeAllCaches: when its turn comes, protection off (stored and announced), then every
// protected volume's cache deleted, then status, days, contents. The daemon is not asked.
bool removeAllCaches(RemovalTarget &target, RemovalQueue &queue);

} // namespace RemovalActions
