#include "browser/DayTexts.h"

#include "cache/CacheLayout.h"
#include "cache/SizeRecords.h"
#include "common/SizeText.h"

#include <algorithm>

namespace DayTexts {

QString summary(const QList<DayEntry> &days, qint64 retentionDays)
{
    const int n = int(days.size());
    // The singular forms serve zero as well as one.
    QString format;
    if (n <= 1) {
        //% "%1 day of activity (kept %2 days)"
        format = qtTrId("DayOfActivity");
    } else {
        //% "%1 days of activity (kept %2 days)"
        format = qtTrId("DaysOfActivity");
    }
    const QString line1 = format.arg(n).arg(retentionDays);
    qint64 files = 0;
    const qint64 bytes = CommonUtils::getSizeOfCacheInDays(days, &files);
    QString word;
    if (files <= 1) {
        //% "file"
        word = qtTrId("file");
    } else {
        //% "files"
        word = qtTrId("files");
    }
    const QString totals =
        QStringLiteral("%1 - %2 %3")
            .arg(CommonUtils::getSizeStr(bytes), CommonUtils::getQtyStr(files), word);
    //% "Cache: %1"
    return line1 + QLatin1Char('\n') + qtTrId("ContentsOfCache").arg(totals);
}

QByteArrayView dayOf(QByteArrayView timeFolderName)
{
    return timeFolderName.first(std::min<qsizetype>(10, timeFolderName.size()));
}

QString dayLabel(QByteArrayView timeFolderName)
{
    return CommonUtils::dateStringForCacheFolder(dayOf(timeFolderName));
}

QString cachingTime(QByteArrayView timeFolderName, const QString &dayLabel)
{
    QString hm = QString::fromLatin1(
        timeFolderName.size() > 10
            ? timeFolderName.sliced(10, std::min<qsizetype>(6, timeFolderName.size() - 10))
            : QByteArrayView());
    hm.replace(QLatin1Char('_'), QLatin1Char(':'));
    return dayLabel + hm;
}

QString cachingTime(QByteArrayView timeFolderName)
{
    return cachingTime(timeFolderName, dayLabel(timeFolderName));
}

} // namespace DayTexts
