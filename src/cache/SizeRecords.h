#pragma once

#include "cache/DayEntry.h"
#include "cache/TypedStream.h"

#include <QByteArray>
#include <QList>

#include <optional>

// Each day folder keeps its last known total in ".Salvora3_CacheInformation", so that listing the
// days of a large cache reads one small file per day instead of walking every item.
namespace CommonUtils {

// Bytes of every file below the folder; adds the number of files to *nbFiles (no reset).
qint64 getSizeOfFolder(const QByteArray &path, qint64 *nbFiles);
// Recounts a day folder, writes its record, sets *nbFiles to the count, returns the bytes.
qint64 saveSizeOfCache(const QByteArray &dayPath, qint64 *nbFiles);
// A day's bytes and count, from its record when the record can be trusted:
//  - no record: recount and record;
//  - a record that cannot be read, is empty or is malformed: 0 bytes, *nbFiles untouched, and
//    the record stays as it is until something resets it;
//  - a record without "count": recount and record;
//  - otherwise the record's numbers, and nothing else is read.
qint64 getSizeOfCache(const QByteArray &dayPath, qint64 *nbFiles);
// Deletes the folder's record, or its parent's when the folder has none.
void resetSizeOfCacheIn(const QByteArray &folder);

qint64 getSizeOfCacheInDays(const QList<DayEntry> &days);
qint64 getSizeOfCacheInDays(const QList<DayEntry> &days, qint64 *nbFiles);
qint64 getSizeOfCacheInVolume(qsizetype volumeIndex);
qint64 getSizeOfCaches();

// Archives a dictionary to a file (0600), replacing whatever stands there.
bool saveDictionary(const typedstream::Dictionary &dict, const QByteArray &path);
// nullopt when the file is missing, unreadable, not a regular file, empty, too large or not a
// valid archive.
std::optional<typedstream::Dictionary> readDictionaryInPath(const QByteArray &path);

} // namespace CommonUtils
