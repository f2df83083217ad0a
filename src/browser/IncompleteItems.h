#pragma once

#include "browser/CacheItems.h"
#include "cache/CacheCommit.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>

// Items kept only in part: their name carries the marker that CacheCommit::incompleteName gives,
// and their day's origin record says what is missing. The marker alone is not proof (a user may
// name a file so), but it is cheap to test on every row, so only the days that hold such names
// have their records read.
namespace IncompleteItems {

bool hasMarker(QByteArrayView name);

// The items of a day folder ("<cache>/<day>") that were kept in part, by "<time folder>/<name>".
using DayMap = QHash<QByteArray, CacheCommit::Completeness>;
DayMap ofDay(const QByteArray &dayFolder);
// The key of an item in ofDay's map, from its time folder's path and its name.
QByteArray keyOf(const QByteArray &timeFolderPath, QByteArrayView name);
// Its day folder.
QByteArray dayFolderOf(const QByteArray &timeFolderPath);

// The rows of a list that were kept in part, by row index.
QHash<qsizetype, CacheCommit::Completeness> inList(const CacheItems &items);

// What is missing, for the window: "Kept in part: 2 files and 1.5 KB missing".
QString describe(const CacheCommit::Completeness &completeness);

} // namespace IncompleteItems
