#include "controller/RemovalActions.h"

#include "browser/Removal.h"

namespace RemovalActions {

Alerts::Alert confirmationAlert(Command command)
{
    Alerts::Alert a;
    switch (command) {
    case Command::Contents:
        //% "Delete the selected items from the cache?"
        a.message = qtTrId("DeleteContentsTitle");
        //% "The items will be deleted for good. This cannot be undone."
        a.informativeText = qtTrId("DeleteContentsText");
        break;
    case Command::Days:
        //% "Delete the selected days from the cache?"
        a.message = qtTrId("DeleteDaysTitle");
        //% "Every item cached on these days will be deleted for good. This cannot be undone."
        a.informativeText = qtTrId("DeleteDaysText");
        break;
    case Command::AllCaches:
        //% "Delete every cache?"
        a.message = qtTrId("DeleteAllCachesTitle");
        //% "Every item kept on every protected volume will be deleted for good, and the "
        //% "protection will be switched off. This cannot be undone."
        a.informativeText = qtTrId("DeleteAllCachesText");
        break;
    }
    //% "Cancel"
    a.buttons.append(qtTrId("CancelButton"));
    //% "Delete"
    a.buttons.append(qtTrId("DeleteButton"));
    a.style = Alerts::Alert::Style::Critical;
    return a;
}

bool confirm(Command command)
{
    const Alerts::Alert alert = confirmationAlert(command);
    for (;;) {
        const int chosen = Alerts::run(alert);
        if (chosen == kCancelIndex) return false;
        if (chosen == kDeleteIndex) return true;
        // Closed some other way: ask again until one of the two buttons is chosen.
    }
}

bool removeContents(const QByteArrayList &itemPaths, RemovalTarget &target)
{
    if (itemPaths.isEmpty() || !confirm(Command::Contents)) return false;
    Removal::removeItems(itemPaths);
    target.updateListOfDaysInCache();
    target.updateListOfContentsInCache();
    target.updateStatusInfos();
    // Whatever the user's rights could not remove, the daemon removes.
    Removal::postDeleteRequest(itemPaths);
    return true;
}

bool removeSelectedDays(const QByteArrayList &dayPaths, RemovalTarget &target)
{
    if (dayPaths.isEmpty() || !confirm(Command::Days)) return false;
    Removal::removeDays(dayPaths);
    target.updateListOfDaysInCache();
    target.updateStatusInfos();
    Removal::postDeleteRequest(dayPaths);
    return true;
}

bool removeAllCaches(RemovalTarget &target)
{
    if (!confirm(Command::AllCaches)) return false;
    Removal::removeAllCaches();
    target.updateStatusInfos();
    target.updateListOfDaysInCache();
    target.updateListOfContentsInCache();
    return true;
}

} // namespace RemovalActions
