#include "logic/RemovalActions.h"

#include "browser/Removal.h"
#include "logic/RemovalQueue.h"

namespace RemovalActions {

Alerts::Alert confirmationAlert(Command command, const QByteArrayList &items)
{
    Alerts::Alert a;
    switch (command) {
    case Command::Contents:
        //% "Delete the selected items from the cache?"
        a.message = qtTrId("DeleteContentsTitle");
        if (items.size() == 1) {
            const qsizetype slash = items.first().lastIndexOf('/');
            //% "Delete “%1” for good?"
            a.message =
                qtTrId("DeleteOneItemTitle").arg(QString::fromUtf8(items.first().mid(slash + 1)));
        } else if (items.size() > 1) {
            //% "Delete %1 items for good?"
            a.message = qtTrId("DeleteItemsTitle").arg(items.size());
        }
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

bool confirm(Command command, const QByteArrayList &items)
{
    const Alerts::Alert alert = confirmationAlert(command, items);
    for (;;) {
        const int chosen = Alerts::run(alert);
        if (chosen == kCancelIndex) return false;
        if (chosen == kDeleteIndex) return true;
        // Closed some other way: ask again until one of the two buttons is chosen.
    }
}

bool removeContents(const QByteArrayList &itemPaths, RemovalTarget &target, RemovalQueue &queue,
                    std::function<void()> beforeRefresh)
{
    if (itemPaths.isEmpty() || !confirm(Command::Contents, itemPaths)) return false;
    RemovalQueue::Request r;
    r.mode = RemovalQueue::Request::Mode::Items;
    r.paths = itemPaths;
    r.tellDaemon = true;
    r.refresh = [&target, beforeRefresh = std::move(beforeRefresh)] {
        if (beforeRefresh) beforeRefresh();
        target.updateListOfDaysInCache();
        target.updateListOfContentsInCache();
        target.updateStatusInfos();
    };
    return queue.enqueue(std::move(r));
}

bool removeSelectedDays(const QByteArrayList &dayPaths, RemovalTarget &target, RemovalQueue &queue)
{
    if (dayPaths.isEmpty() || !confirm(Command::Days)) return false;
    RemovalQueue::Request r;
    r.mode = RemovalQueue::Request::Mode::Trees;
    r.paths = dayPaths;
    r.tellDaemon = true;
    r.refresh = [&target] {
        target.updateListOfDaysInCache();
        target.updateStatusInfos();
    };
    return queue.enqueue(std::move(r));
}

bool removeAllCaches(RemovalTarget &target, RemovalQueue &queue)
{
    if (!confirm(Command::AllCaches)) return false;
    RemovalQueue::Request r;
    r.mode = RemovalQueue::Request::Mode::CacheFolders;
    // The volume list is the main thread's; the worker gets the folders.
    r.paths = Removal::protectedCacheFolders();
    r.start = [] { Removal::switchProtectionOff(); };
    r.refresh = [&target] {
        target.updateStatusInfos();
        target.updateListOfDaysInCache();
        target.updateListOfContentsInCache();
    };
    return queue.enqueue(std::move(r));
}

} // namespace RemovalActions
