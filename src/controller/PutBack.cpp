#include "controller/AppDelegate.h"

#include "common/Alerts.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "ui/MessageBar.h"

#include <QAction>
#include <QLineEdit>

void AppDelegate::putBack()
{
    const QByteArrayList paths = selectedContentsPaths();
    if (paths.isEmpty()) return;
    // The records and the original places are read off the main thread; the question, if any,
    // is asked back on it.
    Jobs::start([paths, workers = mWorkers, this] {
        QList<QPair<QByteArray, QByteArray>> items;
        QByteArrayList unrecorded;
        QByteArrayList taken;
        for (const QByteArray &p : paths) {
            const QByteArray original = Restore::originalPathOf(p);
            if (original.isEmpty()) {
                unrecorded.append(p);
                continue;
            }
            items.append({p, original});
            if (Restore::pathTaken(original)) taken.append(original);
        }
        workers->post(
            [this, items, unrecorded, taken] { putBackPlanned(items, unrecorded, taken); });
    });
}

void AppDelegate::putBackPlanned(const QList<QPair<QByteArray, QByteArray>> &items,
                                 const QByteArrayList &unrecorded, const QByteArrayList &taken)
{
    Restore::Clash clash = Restore::Clash::Skip;
    if (!taken.isEmpty()) {
        // One question for the whole batch.
        Alerts::Alert a;
        if (taken.size() == 1)
            //% "An item named “%1” already exists in %2."
            a.message =
                qtTrId("PutBackNameTaken")
                    .arg(QString::fromUtf8(Restore::lastComponent(taken.first())),
                         RestoreActions::folderTitle(RestoreActions::parentFolder(taken.first())));
        else
            //% "%1 items already exist where the selected items were."
            a.message = qtTrId("PutBackNamesTaken").arg(taken.size());
        //% "Keep Both puts an item back under a numbered name; Skip leaves it in the cache."
        a.informativeText = qtTrId("PutBackNameTakenText");
        //% "Keep Both"
        a.buttons.append(qtTrId("KeepBothButton"));
        //% "Skip"
        a.buttons.append(qtTrId("SkipButton"));
        a.buttons.append(qtTrId("CancelButton"));
        const int chosen = Alerts::run(a);
        if (chosen == 0)
            clash = Restore::Clash::KeepBoth;
        else if (chosen != 1)
            return; // Cancel, or the box closed: nothing is put back
    }
    if (items.isEmpty()) {
        RestoreReport report;
        report.kind = RestoreReport::Kind::PutBack;
        report.unrecorded = unrecorded;
        restoreFinished(report);
        return;
    }
    mCopyJobs.startPutBack(items, clash, unrecorded);
}

void AppDelegate::restoreFinished(const RestoreReport &report)
{
    const RestoreActions::Message m = RestoreActions::describe(report);
    const MessageBar::Level level =
        m.level == RestoreActions::Message::Level::Success
            ? MessageBar::Level::Success
            : (m.level == RestoreActions::Message::Level::Warning ? MessageBar::Level::Warning
                                                                  : MessageBar::Level::Error);
    if (m.restored.isEmpty()) {
        mMessageBar->showMessage(level, m.text);
    } else {
        const QByteArrayList shown = m.restored;
        //% "Show"
        mMessageBar->showMessage(level, m.text, qtTrId("MessageBarShow"),
                                 [this, shown] { mReveal->reveal(shown); });
    }
    bool moved = false;
    for (const Restore::ItemResult &r : report.results)
        moved = moved || r.moved;
    if (!moved) return;
    // The other processes (the companion, another window) learn that the cache changed.
    NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                          QLatin1String(Notifications::Salvora3CacheModified));
    refresh();
}

void AppDelegate::refresh()
{
    updateListOfDaysInCache();
    updateListOfContentsInCache();
    updateStatusInfos();
}

void AppDelegate::focusSearch()
{
    mSearchString->setFocus(Qt::ShortcutFocusReason);
    mSearchString->selectAll();
}

void AppDelegate::updatePutBackAction()
{
    QAction *action = mActions->action(WindowActions::Command::PutBack);
    bool any = false;
    bool selected = false;
    for (const int row : mTableViewContents->selectedRowNumbers()) {
        if (row < 0 || row >= mContents.size()) continue;
        selected = true;
        if (mContents.row(row).origin != 0) {
            any = true;
            break;
        }
    }
    action->setEnabled(any);
    if (any || !selected)
        //% "Put the selected items back where they were deleted from"
        action->setToolTip(qtTrId("PutBackTip"));
    else
        //% "Where the selected items were deleted from is not known: use Restore To… instead"
        action->setToolTip(qtTrId("PutBackNoOriginTip"));
}
