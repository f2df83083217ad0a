#pragma once

#include <QList>
#include <QString>

// The volume pop-up's items, index for index with the window's mProtectedVolumes: "/" first,
// then each other mounted protected volume, then each protected volume that is not mounted but
// for which the daemon keeps a snapshot in ProtectedVolumesData.
struct VolumeMenuEntry
{
    QString title;
    QString path; // a mounted volume (or "/")
    QString uuid; // an unmounted volume: its snapshot's key
    bool isMounted() const { return uuid.isEmpty(); }
    bool operator==(const VolumeMenuEntry &) const = default;
};

namespace VolumeMenu {

// Rebuilds the protected-volume list first, as the pop-up does.
QList<VolumeMenuEntry> build();
// The name a volume shows: its file-system label, else the last path component; for "/" the
// machine's pretty name (os-release PRETTY_NAME) or its host name.
QString displayName(const QString &mountPath);
// Index of the entry within the protected-volume list (the cache index), or -1 for unmounted.
qsizetype cacheIndexOf(const QList<VolumeMenuEntry> &menu, qsizetype menuIndex);

} // namespace VolumeMenu
