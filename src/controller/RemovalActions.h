#pragma once

#include "common/Alerts.h"

#include <QByteArrayList>

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
// default button (the one Return presses) is Cancel. Main thread; they block while deleting.
namespace RemovalActions {

enum class Command { Contents, Days, AllCaches };

// Critical style; buttons: "CancelButton" (default, index 0), "DeleteButton" (index 1).
Alerts::Alert confirmationAlert(Command command);
inline constexpr int kCancelIndex = 0;
inline constexpr int kDeleteIndex = 1;
// Shows the alert until one of its two buttons is chosen; true for Delete. Any other answer
// (the box closed some other way) shows it again.
bool confirm(Command command);

// removeContents: the selected items' paths in row order. Nothing selected: no alert, false.
// Confirmed: deleted (each time folder's record reset, emptied time folders removed), the days,
// the contents and the status refreshed, then the daemon asked to delete the same paths. The
// window stores its day selection (mSelectedDate) before calling.
bool removeContents(const QByteArrayList &itemPaths, RemovalTarget &target);
// removeSelectedDays: the selected day folders' paths in row order. The contents are not
// refreshed directly: the rebuilt day list drives them.
bool removeSelectedDays(const QByteArrayList &dayPaths, RemovalTarget &target);
// removeAllCaches: protection off (stored and announced), every protected volume's cache
// deleted, then status, days, contents. The daemon is not asked.
bool removeAllCaches(RemovalTarget &target);

} // namespace RemovalActions
