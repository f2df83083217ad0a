#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// What the contextual menus of the day list and the contents list offer, without the menus.
namespace ContextMenus {

// One moment of a day at which items were moved into the cache.
struct CacheTime
{
    QString title;   // "MovedIntoCacheAt" with the time, "14:07:33"
    QByteArray path; // the time folder; a menu item's tag is its index in the list
};

// The time folders of a day folder, ordered by name ignoring case: entries whose name begins
// with "20" and that are folders (a link to a folder counts, as it would open). An unreadable
// day folder gives an empty list.
QList<CacheTime> cacheTimesInDay(const QByteArray &dayFolder);

// The contents list's item menu: the item's name when something exists at its path, nullopt
// (no menu) when it has vanished.
std::optional<QString> contentsMenuName(const QByteArray &itemPath);
QString revealTitle(const QString &name);
QString deleteTitle(const QString &name);

} // namespace ContextMenus
