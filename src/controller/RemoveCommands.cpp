#include "controller/AppDelegate.h"

#include "logic/RemovalQueue.h"

QByteArrayList AppDelegate::selectedContentsPaths() const
{
    QByteArrayList paths;
    for (const int row : mTableViewContents->selectedRowNumbers())
        if (row >= 0 && row < mContents.size()) paths.append(mContents.fullPath(row));
    return paths;
}

void AppDelegate::removeContents()
{
    const QByteArrayList paths = selectedContentsPaths();
    if (paths.isEmpty()) return;
    // The rebuilt day list selects this row again rather than the newest day; the list may be
    // rebuilt meanwhile, so the row is asked for again right before the removal's own rebuild.
    const int row = mTableViewDate->selectedRow();
    mSelectedDate = row;
    RemovalActions::removeContents(paths, *this, *mRemovals, [this, row] { mSelectedDate = row; });
}

void AppDelegate::removeSelectedDays()
{
    QByteArrayList paths;
    for (const int row : mTableViewDate->selectedRowNumbers())
        if (row >= 0 && row < mDates.size()) paths.append(mDates[row].path);
    RemovalActions::removeSelectedDays(paths, *this, *mRemovals);
}

void AppDelegate::removeAllCaches()
{
    RemovalActions::removeAllCaches(*this, *mRemovals);
}
