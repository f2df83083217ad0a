#pragma once

#include <QString>
#include <QVariantMap>

// What the system knows of one mounted volume. `uuid` is empty when the volume has none (tmpfs,
// overlay, FUSE, network shares): such a volume can never be protected, "/" excepted.
struct DiskDescription
{
    QString path;
    QString device;
    QString fsType;
    QString label;
    QString uuid;
    unsigned major = 0;
    unsigned minor = 0;

    // Key of the volume UUID in the dictionary form, as the preferences rows merge it.
    static constexpr char kUuidKey[] = "kDADiskDescriptionVolumeUUIDKey";
    QVariantMap toVariantMap() const;
    bool operator==(const DiskDescription &) const = default;
};

namespace CommonUtils {

// Canonical text of a volume identity: upper-case; 32 hex digits grouped 8-4-4-4-12; any other
// serial (FAT's "ABCD-1234") upper-cased as it is. Empty in, empty out.
QString canonicalUuid(QByteArrayView raw);

} // namespace CommonUtils
