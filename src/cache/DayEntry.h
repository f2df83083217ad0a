#pragma once

#include <QByteArray>
#include <QVariantMap>

// One day folder of a cache, with its recorded totals.
struct DayEntry
{
    QByteArray name; // "yyyy-MM-dd"
    QByteArray path; // the day folder's full path
    qint64 size = 0;
    qint64 count = 0;

    bool operator==(const DayEntry &) const = default;

    // The {"name", "path", "size", "count"} dictionary form, used where day lists cross a
    // process boundary (the daemon's snapshot of unmounted volumes).
    QVariantMap toVariantMap() const;
    // nullopt when "name" or "size" is missing (a one-key time-folder record is not a day).
    static std::optional<DayEntry> fromVariantMap(const QVariantMap &map);
};
