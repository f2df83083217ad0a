#include "controller/AppDelegate.h"

#include "common/Notifications.h"

void AppDelegate::receiveNotification(const QString &name, const QString &object,
                                      const QVariantMap &userInfo)
{
    Q_UNUSED(userInfo);
    if (name != QLatin1String(Notifications::Salvora3Notification)) return;
    // The daemon changed a cache: re-read the days, the items and the totals.
    if (object == QLatin1String(Notifications::Salvora3CacheModified) ||
        object == QLatin1String(Notifications::Salvora3DataMovedToCache)) {
        updateListOfDaysInCache();
        updateListOfContentsInCache();
        updateStatusInfos();
    }
}
