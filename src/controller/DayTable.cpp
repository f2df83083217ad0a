#include "controller/AppDelegate.h"

#include "browser/DayTexts.h"
#include "cache/DayList.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "ui/TableView.h"
#include "ui/ZEL_Colors.h"

#include <QComboBox>
#include <QLabel>

namespace {

// The days the daemon saved for a protected volume that is not mounted.
QList<DayEntry> savedDaysOf(const QString &uuid)
{
    const QVariantMap snapshots =
        Settings::dictionary(SettingsKeys::ProtectedVolumesData).value_or(QVariantMap());
    QList<DayEntry> days;
    for (const QVariant &v : snapshots.value(uuid).toMap().value(QStringLiteral("days")).toList()) {
        const QVariantMap m = v.toMap();
        DayEntry d;
        d.name = m.value(QStringLiteral("name")).toString().toUtf8();
        d.path = m.value(QStringLiteral("path")).toString().toUtf8();
        d.size = Settings::toInteger(m.value(QStringLiteral("size"))).value_or(0);
        d.count = Settings::toInteger(m.value(QStringLiteral("count"))).value_or(0);
        days.append(d);
    }
    return days;
}

} // namespace

void AppDelegate::updateListOfDaysInCache()
{
    const int i = mSelectedVolumeMenu->currentIndex();
    if (i < 0 || i >= mProtectedVolumes.size()) return;
    const VolumeMenuEntry &volume = mProtectedVolumes[i];
    QList<DayEntry> days;
    if (!volume.uuid.isEmpty()) {
        days = savedDaysOf(volume.uuid);
        mVolumeNotMounted = true;
    } else {
        days = CommonUtils::getListOfDaysInCacheInVolume(i);
        mVolumeNotMounted = false;
    }
    // Nothing changed: keep the table and the user's selection as they are.
    if (days == mDates) return;

    mDates = days;
    mDateModel->reloadData();
    const qint64 retention = Settings::integer(SettingsKeys::PrefsRemoveFromCache).value_or(0);
    setText(mCacheInfos, DayTexts::summary(mDates, retention));

    const int n = int(mDates.size());
    if (mSelectedDate == -2) {
        if (n > 0) mTableViewDate->selectRowAlone(n - 1);
    } else if (mSelectedDate == -1) {
        mSelectedDate = -2;
    } else {
        const qint64 row = mSelectedDate;
        mSelectedDate = -2;
        if (row < n) mTableViewDate->selectRowAlone(int(row));
    }
}

void AppDelegate::reloadDayTable()
{
    mDateModel->reloadData();
}

void AppDelegate::clickDateList()
{
    updateListOfContentsInCache();
}

void AppDelegate::updateCacheContents()
{
    clickDateList();
}

void AppDelegate::updateCacheContentsAtTime(qsizetype tag)
{
    if (tag < 0 || tag >= mCacheTimesInDay.size()) return;
    updateListOfContentsInCache(mCacheTimesInDay[tag]);
}
