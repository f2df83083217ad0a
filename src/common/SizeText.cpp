#include "common/SizeText.h"

#include <QCoreApplication>


namespace CommonUtils {

QString getSizeStr(qint64 size)
{
    if (size <= 99)
        return QString::number(size);
    double divisor = 1000.0;
    QString unit;
    if (size <= 999999) {
        //% "KB"
        unit = qtTrId("KB");
    } else if (size <= 999999999) {
        divisor = 1000000.0;
        //% "MB"
        unit = qtTrId("MB");
    } else {
        divisor = 1000000000.0;
        //% "GB"
        unit = qtTrId("GB");
    }
    const double q = double(size) / divisor;
    if (q < 10.0)
        return QString::asprintf("%1.1f ", q) + unit;
    // Round half up; 64-bit so that no size can overflow the conversion.
    return QString::number(qint64(q + 0.5)) + QLatin1Char(' ') + unit;
}

QString getQtyStr(qint64 count)
{
    if (count <= 9999)
        return QString::number(count);
    if (count <= 999999)
        return QString::number(count / 1000) + QLatin1String(" K");
    return QString::number(count / 1000) + QLatin1String(" M");
}

} // namespace CommonUtils
