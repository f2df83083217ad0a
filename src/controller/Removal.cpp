#include "controller/AppDelegate.h"

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
    // The rebuilt day list selects this row again rather than the newest day.
    mSelectedDate = mTableViewDate->selectedRow();
    RemovalActions::removeContents(paths, *this);
}

void AppDelegate::removeSelectedDays()
{
    QByteArrayList paths;
    for (const int row : mTableViewDate->selectedRowNumbers())
        if (row >= 0 && row < mDates.size()) paths.append(mDates[row].path);
    RemovalActions::removeSelectedDays(paths, *this);
}

void AppDelegate::removeAllCaches()
{
    RemovalActions::removeAllCaches(*this);
}
