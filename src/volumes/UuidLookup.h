#pragma once

#include "volumes/MountInfo.h"

#include <QString>

struct VolumeIdentity
{
    QString uuid;  // canonical, empty when unknown
    QString label; // empty when unknown
};

namespace UuidLookup {

// Identity of the file system behind a mount: /dev/disk/by-uuid links first, then the udev
// database, then (as root only) a libblkid probe of the device. Anonymous devices have none.
VolumeIdentity identify(const MountEntry &entry);

} // namespace UuidLookup
