#include "volumes/Volumes.h"

#include "volumes/VolumesState.h"

#include "MountTable.h"

#include <algorithm>

namespace VolumesState {
QMutex &mutex()
{
    static QMutex m;
    return m;
}
std::optional<QMap<QString, DiskDescription>> &mountedVolumes()
{
    static std::optional<QMap<QString, DiskDescription>> table;
    return table;
}
std::optional<QStringList> &protectedVolumes()
{
    static std::optional<QStringList> list;
    return list;
}
} // namespace VolumesState

namespace {

std::function<QByteArray()> sMountTableSource;
std::function<VolumeIdentity(const MountEntry &)> sIdentityResolver;

QByteArray currentMountTable()
{
    return sMountTableSource ? sMountTableSource() : MountInfo::readFile();
}

DiskDescription describe(const MountEntry &e, const QString &path)
{
    const VolumeIdentity id = sIdentityResolver ? sIdentityResolver(e) : UuidLookup::identify(e);
    DiskDescription d;
    d.path = path;
    d.device = QString::fromUtf8(e.source);
    d.fsType = QString::fromUtf8(e.fsType);
    d.label = id.label;
    d.uuid = id.uuid;
    d.major = e.major;
    d.minor = e.minor;
    return d;
}

// Decoded mount path, or nullopt when it is not UTF-8 (such mounts are left out).
std::optional<QString> decodedPath(const QByteArray &bytes)
{
    const QString s = QString::fromUtf8(bytes);
    if (s.toUtf8() != bytes) return std::nullopt;
    return s;
}

} // namespace

namespace CommonUtils {

bool isEligibleMountPoint(const QString &path)
{
    // The privileged helper decides with the same rule, so the two can never disagree.
    const QByteArray bytes = path.toUtf8();
    return mounttable::isEligible(std::string_view(bytes.constData(), std::size_t(bytes.size())));
}

bool deviceIsValid(const QString &path)
{
    if (path.isNull()) return false;
    static const char *const invalid[] = {"Network", "/Network", "/Volumes/Boot OS X",
                                          "/Volumes/Recovery", "/Volumes/Recovery HD"};
    for (const char *s : invalid)
        if (path == QLatin1String(s)) return false;
    return !path.startsWith(QLatin1String("/Volumes/com.apple.TimeMachine.localsnapshots"));
}

std::optional<DiskDescription> getDADesciptionForVolumePath(const QString &path)
{
    if (path.isNull()) return std::nullopt;
    const QByteArray wanted = path.toUtf8();
    const QList<MountEntry> table = MountInfo::parse(currentMountTable());
    // The last mount on a path is the one that is visible there.
    for (auto it = table.crbegin(); it != table.crend(); ++it)
        if (it->mountPoint == wanted) return describe(*it, path);
    return std::nullopt;
}

void updateAllMountedVolumesList()
{
    QMap<QString, DiskDescription> scratch;
    for (const MountEntry &e : MountInfo::parse(currentMountTable())) {
        const auto path = decodedPath(e.mountPoint);
        if (!path || !isEligibleMountPoint(*path)) continue;
        scratch.insert(*path, describe(e, *path));
    }
    QMutexLocker lock(&VolumesState::mutex());
    VolumesState::mountedVolumes() = std::move(scratch);
}

void resetVolumesLists()
{
    QMutexLocker lock(&VolumesState::mutex());
    VolumesState::mountedVolumes().reset();
    VolumesState::protectedVolumes().reset();
}

static QMap<QString, DiskDescription> mountedTable()
{
    {
        QMutexLocker lock(&VolumesState::mutex());
        if (VolumesState::mountedVolumes()) return *VolumesState::mountedVolumes();
    }
    updateAllMountedVolumesList();
    QMutexLocker lock(&VolumesState::mutex());
    return VolumesState::mountedVolumes().value_or(QMap<QString, DiskDescription>());
}

QStringList getAllMountedVolumes()
{
    QStringList paths = mountedTable().keys();
    std::stable_sort(paths.begin(), paths.end(), [](const QString &a, const QString &b) {
        return a.compare(b, Qt::CaseInsensitive) < 0;
    });
    return paths;
}

std::optional<DiskDescription> getVolumeInfosForPath(const QString &path)
{
    const auto table = mountedTable();
    const auto it = table.constFind(path);
    if (it == table.cend()) return std::nullopt;
    return *it;
}

void setMountTableSourceForTesting(std::function<QByteArray()> source)
{
    sMountTableSource = std::move(source);
    resetVolumesLists();
}

void setIdentityResolverForTesting(std::function<VolumeIdentity(const MountEntry &)> resolver)
{
    sIdentityResolver = std::move(resolver);
    resetVolumesLists();
}

} // namespace CommonUtils
