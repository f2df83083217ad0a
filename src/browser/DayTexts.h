#pragma once

#include "cache/DayEntry.h"

#include <QByteArrayView>
#include <QList>
#include <QString>

// Texts of the day list and the contents list that the window and the command-line tool share.
namespace DayTexts {

// The two summary lines of a day list: days of activity with the retention, then the totals.
QString summary(const QList<DayEntry> &days, qint64 retentionDays);
// The caching time of an item, from its time folder's name: the day's label, then " HH:mm".
QString cachingTime(QByteArrayView timeFolderName);
// The same in two steps, for many time folders: the day's label (the same for every time folder
// of the day, named by dayOf) made once, then each folder's time added to it.
QByteArrayView dayOf(QByteArrayView timeFolderName);
QString dayLabel(QByteArrayView timeFolderName);
QString cachingTime(QByteArrayView timeFolderName, const QString &dayLabel);

} // namespace DayTexts
