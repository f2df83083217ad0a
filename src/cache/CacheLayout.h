#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

// Where the caches are and how their day and time folders are named:
//   <cache folder>/yyyy-MM-dd/yyyy-MM-dd HH_mm_ss/<deleted item>
// Volume 0 is "/", whose cache lives in the home folder; volume n is the n-th protected volume,
// where each user's cache is a private folder of its own (CacheFolder.h).
namespace CommonUtils {

inline constexpr char kCacheInformationName[] = ".Salvora3_CacheInformation";

// The user's cache folder of a volume (CacheFolder.h), created when missing where the user may
// create it; empty when the volume's base path (home folder, mount path) does not exist, there is
// no such volume, or what stands there is not safe to use.
QByteArray pathForCacheFolderInVolume(qsizetype volumeIndex);
// The user's freedesktop trash on that volume; only composed, never checked.
QByteArray pathForTrashFolderInVolume(qsizetype volumeIndex);

QString nameForCacheFolderForToday();
QString nameForCacheFolderForNow();
QString nameForCacheFolder(const QDateTime &when);
QString nameForTimeFolder(const QDateTime &when);

// Local midnight of the day a day or time folder is named after; nullopt when unparseable.
std::optional<QDateTime> dateForCacheFolder(QByteArrayView name);
// Medium date style of the user's locale ("May 3, 2024").
QString stringForDate(const std::optional<QDateTime> &date);
// "Today", "Yesterday", or the medium date.
QString dateStringForCacheFolder(QByteArrayView name);
// The same, with the present moment given (tests).
QString dateStringForCacheFolder(QByteArrayView name, const QDateTime &now);

} // namespace CommonUtils
