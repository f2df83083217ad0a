#pragma once

#include "volumes/DiskDescription.h"
#include "volumes/MountInfo.h"
#include "volumes/UuidLookup.h"

#include <QStringList>

#include <functional>
#include <optional>

// The mounted volumes on which a cache may live, and which of them the user protects.
// Process-wide, built lazily, dropped by resetVolumesLists() on every mount change.
namespace CommonUtils {

// "/" and mount points under /Volumes/, /media/, /run/media/ or /mnt/ (minus the system's own
// "/Volumes/com.apple…" and "/Volumes/Preboot…").
bool isEligibleMountPoint(const QString &path);
// Whether a mount or unmount of this path is worth reacting to.
bool deviceIsValid(const QString &path);

std::optional<DiskDescription> getDADesciptionForVolumePath(const QString &path);
void resetVolumesLists();
void updateAllMountedVolumesList();
// Mount paths, case-insensitively sorted ("/" first).
QStringList getAllMountedVolumes();
std::optional<DiskDescription> getVolumeInfosForPath(const QString &path);

void updateAllProtectedVolumesList();
// "/" and every mounted volume whose UUID is a key of PrefsProtectedDisks, in mounted order.
QStringList getAllProtectedVolumes();
bool isVolumeProtected(const QString &path);

// Test seams: where the mount table and volume identities come from.
void setMountTableSourceForTesting(std::function<QByteArray()> source);
void setIdentityResolverForTesting(std::function<VolumeIdentity(const MountEntry &)> resolver);

} // namespace CommonUtils
