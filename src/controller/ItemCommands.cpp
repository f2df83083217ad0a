#include "controller/AppDelegate.h"

#include "cache/CacheLayout.h"
#include "ui/RestoreUi.h"

#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QTimer>

void AppDelegate::showInFinder()
{
    const QByteArrayList paths = selectedContentsPaths();
    if (!paths.isEmpty()) mReveal->reveal(paths);
}

void AppDelegate::doubleClickContentsList()
{
    const int row = mTableViewContents->selectedRow();
    if (row >= 0 && row < mContents.size()) mReveal->reveal(mContents.fullPath(row));
}

void AppDelegate::copySelectedItems()
{
    const QByteArrayList paths = selectedContentsPaths();
    if (paths.isEmpty()) return;
    const std::optional<QByteArray> destination = chooseRestoreFolder();
    if (destination) mCopyJobs.start(RestoreActions::makeJob(*destination, paths));
}

std::optional<QByteArray> AppDelegate::chooseRestoreFolder()
{
    return RestoreUi::chooseDestinationFolder(window);
}

void AppDelegate::quit()
{
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

QMenu *AppDelegate::getFloatingPopupMenu(TableView *table, TableView *forTable)
{
    Q_UNUSED(forTable);
    if (table == mTableViewContents) {
        const int row = mTableViewContents->selectedRow();
        if (row < 0 || row >= mContents.size()) return nullptr;
        return mActions->contentsMenu(mContents.fullPath(row), window);
    }
    if (table == mTableViewDate) {
        const int row = mTableViewDate->selectedRow();
        if (row < 0 || row >= mDates.size()) return nullptr;
        return mActions->dayMenu(mDates[row].path, mCacheTimesInDay, window);
    }
    return nullptr;
}

QMimeData *AppDelegate::writeRowsWithIndexes(TableView *table, const QList<int> &rows)
{
    if (table != mTableViewContents) return nullptr;
    QByteArrayList paths;
    for (const int row : rows)
        if (row >= 0 && row < mContents.size()) paths.append(mContents.fullPath(row));
    if (paths.isEmpty()) return nullptr;
    mDrawingDragImage = true;
    QTimer::singleShot(kDragImageResetMs, this, [this] { mDrawingDragImage = false; });
    return RestoreActions::dragMimeData(paths);
}
