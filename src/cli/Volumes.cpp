#include "cli/Volumes.h"

#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QDate>

namespace CliVolumes {

QList<DayEntry> rememberedDays(const QString &uuid)
{
    QList<DayEntry> days;
    const QVariantMap snapshots =
        Settings::dictionary(SettingsKeys::ProtectedVolumesData).value_or(QVariantMap());
    for (const QVariant &v : snapshots.value(uuid).toMap().value(QStringLiteral("days")).toList())
        if (const auto d = DayEntry::fromVariantMap(v.toMap())) days.append(*d);
    return days;
}

std::optional<CliVolume> choose(qsizetype index, QString *error)
{
    const QList<VolumeMenuEntry> menu = VolumeMenu::build();
    if (index < 0 || index >= menu.size()) {
        *error = QStringLiteral("no volume %1 (see 'salvora volumes')").arg(index);
        return std::nullopt;
    }
    CliVolume v;
    v.index = index;
    v.entry = menu[index];
    if (v.entry.isMounted()) {
        v.cache = CommonUtils::pathForCacheFolderInVolume(VolumeMenu::cacheIndexOf(menu, index));
        v.days = CommonUtils::getListOfDaysInCache(v.cache);
    } else {
        v.days = rememberedDays(v.entry.uuid);
    }
    return v;
}

QByteArray dayName(const QByteArray &given)
{
    const QDate today = QDate::currentDate();
    if (given == "today") return today.toString(QStringLiteral("yyyy-MM-dd")).toLatin1();
    if (given == "yesterday")
        return today.addDays(-1).toString(QStringLiteral("yyyy-MM-dd")).toLatin1();
    return given;
}

const DayEntry *day(const CliVolume &volume, const QByteArray &name, QString *error)
{
    for (const DayEntry &d : volume.days)
        if (d.name == name) return &d;
    *error =
        QStringLiteral("no day %1 in volume %2").arg(QString::fromUtf8(name)).arg(volume.index);
    return nullptr;
}

} // namespace CliVolumes
