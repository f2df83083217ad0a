#pragma once

#include <QString>

namespace CommonUtils {

// Byte counts in decimal units: "99", "0.1 KB", "10.0 KB", "16 GB". Unit words are translated.
QString getSizeStr(qint64 size);
// Item counts: "9999", "10 K", "2500 M" (millions are divided by 1000 too, on purpose).
QString getQtyStr(qint64 count);

} // namespace CommonUtils
