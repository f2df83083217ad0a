#pragma once

#include "volumes/DiskDescription.h"

#include <QMap>
#include <QMutex>
#include <QStringList>

#include <optional>

// The process-wide volume tables, shared by discovery and the protected-volume registry.
// The mutex only keeps the tables whole when a worker thread asks; rebuilds happen on events.
namespace VolumesState {
QMutex &mutex();
std::optional<QMap<QString, DiskDescription>> &mountedVolumes(); // sAllMountedVolumes
std::optional<QStringList> &protectedVolumes();                  // sAllProtectedVolumes
} // namespace VolumesState
