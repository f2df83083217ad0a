#include "cache/CacheLayout.h"

#include "PathJoin.h"

#include "cache/CacheFolder.h"
#include "common/Locations.h"
#include "volumes/Volumes.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTimeZone>

#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray volumeBasePath(qsizetype index)
{
    if (index == 0) return CommonUtils::homeFolder();
    const QStringList volumes = CommonUtils::getAllProtectedVolumes();
    if (index < 0 || index >= volumes.size()) return {};
    return volumes.at(index).toUtf8();
}

// Whole days since 2001-01-01 00:00 UTC, truncated toward zero.
qint64 referenceSeconds(const QDateTime &t)
{
    static const QDateTime reference(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return reference.secsTo(t);
}

} // namespace

namespace CommonUtils {

QByteArray pathForCacheFolderInVolume(qsizetype volumeIndex)
{
    const QByteArray base = volumeBasePath(volumeIndex);
    struct stat st
    {
    };
    if (base.isEmpty() || stat(base.constData(), &st) != 0) return {};
    // The user's own folder, created where the user may create it alone; a folder that is not
    // safe to use is never named (its volume's status says why).
    const CacheFolder::Status s =
        CacheFolder::check(volumeIndex == 0 ? QByteArray("/") : base, true);
    switch (s.state) {
    case CacheFolder::State::Ready:
    case CacheFolder::State::Missing:
    case CacheFolder::State::NeedsHelper:
        return s.path;
    default:
        return {};
    }
}

QByteArray pathForTrashFolderInVolume(qsizetype volumeIndex)
{
    if (volumeIndex == 0) {
        QByteArray data = qgetenv("XDG_DATA_HOME");
        if (!data.startsWith('/')) data = homeFolder() + "/.local/share";
        return data + "/Trash";
    }
    const QByteArray base = volumeBasePath(volumeIndex);
    if (base.isEmpty()) return {};
    return joinPath(base, ".Trash-") + QByteArray::number(getuid());
}

QString nameForCacheFolder(const QDateTime &when)
{
    return when.toLocalTime().toString(QStringLiteral("yyyy-MM-dd"));
}

QString nameForTimeFolder(const QDateTime &when)
{
    return when.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH_mm_ss"));
}

QString nameForCacheFolderForToday()
{
    return nameForCacheFolder(QDateTime::currentDateTime());
}

QString nameForCacheFolderForNow()
{
    return nameForTimeFolder(QDateTime::currentDateTime());
}

std::optional<QDateTime> dateForCacheFolder(QByteArrayView name)
{
    const QByteArrayView day = name.size() >= 11 ? name.first(10) : name;
    const QDate date = QDate::fromString(QString::fromLatin1(day), QStringLiteral("yyyy-MM-dd"));
    if (!date.isValid()) return std::nullopt;
    return date.startOfDay();
}

QString stringForDate(const std::optional<QDateTime> &date)
{
    if (!date) return {};
    // Qt has short and long styles only; the medium one is the long one with abbreviated month
    // and without the weekday.
    const QLocale locale;
    QString format = locale.dateFormat(QLocale::LongFormat);
    format.replace(QLatin1String("MMMM"), QLatin1String("MMM"));
    for (const char *weekday : {"dddd, ", "dddd ", ", dddd", " dddd", "dddd"})
        format.remove(QLatin1String(weekday));
    return locale.toString(date->date(), format.trimmed());
}

QString dateStringForCacheFolder(QByteArrayView name, const QDateTime &now)
{
    const std::optional<QDateTime> date = dateForCacheFolder(name);
    const qint64 today = referenceSeconds(now) / 86400;
    // Half a day is added to the folder's midnight only, never to now: this keeps a local
    // midnight on its own calendar day in any zone within twelve hours of UTC.
    const qint64 day = ((date ? referenceSeconds(*date) : 0) + 43200) / 86400;
    if (day == today) {
        //% "Today"
        return qtTrId("Today");
    }
    if (day == today - 1) {
        //% "Yesterday"
        return qtTrId("Yesterday");
    }
    return stringForDate(date);
}

QString dateStringForCacheFolder(QByteArrayView name)
{
    return dateStringForCacheFolder(name, QDateTime::currentDateTime());
}

} // namespace CommonUtils
