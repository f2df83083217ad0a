#include "volumes/Volumes.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/VolumesState.h"

namespace CommonUtils {

void updateAllProtectedVolumesList()
{
    const std::optional<QVariantMap> chosen =
        Settings::dictionary(SettingsKeys::PrefsProtectedDisks);
    QStringList list;
    for (const QString &path : getAllMountedVolumes()) {
        if (path == QLatin1String("/")) {
            list.append(path);
            continue;
        }
        const auto description = getVolumeInfosForPath(path);
        if (!description || description->uuid.isEmpty()) continue;
        if (chosen && chosen->contains(description->uuid)) list.append(path);
    }
    QMutexLocker lock(&VolumesState::mutex());
    VolumesState::protectedVolumes() = std::move(list);
}

QStringList getAllProtectedVolumes()
{
    {
        QMutexLocker lock(&VolumesState::mutex());
        if (VolumesState::protectedVolumes()) return *VolumesState::protectedVolumes();
    }
    updateAllProtectedVolumesList();
    QMutexLocker lock(&VolumesState::mutex());
    return VolumesState::protectedVolumes().value_or(QStringList());
}

bool isVolumeProtected(const QString &path)
{
    if (path == QLatin1String("/")) return true;
    const std::optional<QVariantMap> chosen =
        Settings::dictionary(SettingsKeys::PrefsProtectedDisks);
    if (!chosen || chosen->isEmpty()) return false;
    const auto description = getVolumeInfosForPath(path);
    if (!description || description->uuid.isEmpty()) return false;
    return chosen->contains(description->uuid);
}

} // namespace CommonUtils
