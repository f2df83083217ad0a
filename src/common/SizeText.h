#pragma once

#include <QByteArray>
#include <QString>

#include <string>

namespace CommonUtils {

// Byte counts in decimal units: "99", "0.1 KB", "10.0 KB", "16 GB". Unit words are translated.
QString getSizeStr(qint64 size);
// Item counts: "9999", "10 K", "2500 M" (millions are divided by 1000 too, on purpose).
QString getQtyStr(qint64 count);

// The translated unit words, looked up once for a long listing.
struct SizeUnits
{
    QByteArray kb, mb, gb; // UTF-8
    static SizeUnits current();
};
// Appends getSizeStr's text as UTF-8, without a lookup or an allocation per call.
void appendSizeStr(std::string &out, qint64 size, const SizeUnits &units);

} // namespace CommonUtils
