#include "volumes/UuidLookup.h"

#include "volumes/DiskDescription.h"

#include <QDir>
#include <QFile>

#include <blkid.h>
#include <dirent.h>
#include <fcntl.h>
#include <libudev.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <memory>

namespace {

// udev escapes unsafe characters in link names as \xHH.
QByteArray unescapeUdev(const QByteArray &name)
{
    QByteArray out;
    for (qsizetype i = 0; i < name.size(); ++i) {
        if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x') {
            bool ok = false;
            const int v = name.mid(i + 2, 2).toInt(&ok, 16);
            if (ok) {
                out.append(char(v));
                i += 3;
                continue;
            }
        }
        out.append(name[i]);
    }
    return out;
}

QByteArray linkNameFor(const char *folder, dev_t dev)
{
    DIR *d = opendir(folder);
    if (!d) return {};
    QByteArray found;
    const int dfd = dirfd(d);
    while (dirent *e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        struct stat st
        {
        };
        if (fstatat(dfd, e->d_name, &st, 0) == 0 && S_ISBLK(st.st_mode) && st.st_rdev == dev) {
            found = unescapeUdev(QByteArray(e->d_name));
            break;
        }
    }
    closedir(d);
    return found;
}

void fromUdev(dev_t dev, VolumeIdentity &id)
{
    std::unique_ptr<udev, decltype(&udev_unref)> u(udev_new(), udev_unref);
    if (!u) return;
    std::unique_ptr<udev_device, decltype(&udev_device_unref)> d(
        udev_device_new_from_devnum(u.get(), 'b', dev), udev_device_unref);
    if (!d) return;
    if (id.uuid.isEmpty())
        id.uuid = CommonUtils::canonicalUuid(udev_device_get_property_value(d.get(), "ID_FS_UUID"));
    if (id.label.isEmpty())
        if (const char *l = udev_device_get_property_value(d.get(), "ID_FS_LABEL"))
            id.label = QString::fromUtf8(l);
}

void fromBlkid(dev_t dev, const QByteArray &source, VolumeIdentity &id)
{
    QByteArray devname = source;
    if (char *name = blkid_devno_to_devname(dev)) {
        devname = name;
        free(name);
    }
    if (!devname.startsWith("/dev/")) return;
    blkid_probe pr = blkid_new_probe_from_filename(devname.constData());
    if (!pr) return;
    blkid_probe_enable_superblocks(pr, 1);
    blkid_probe_set_superblocks_flags(pr, BLKID_SUBLKS_UUID | BLKID_SUBLKS_LABEL);
    if (blkid_do_safeprobe(pr) == 0) {
        const char *value = nullptr;
        if (id.uuid.isEmpty() && blkid_probe_lookup_value(pr, "UUID", &value, nullptr) == 0 &&
            value)
            id.uuid = CommonUtils::canonicalUuid(value);
        if (id.label.isEmpty() && blkid_probe_lookup_value(pr, "LABEL", &value, nullptr) == 0 &&
            value)
            id.label = QString::fromUtf8(value);
    }
    blkid_free_probe(pr);
}

} // namespace

namespace UuidLookup {

VolumeIdentity identify(const MountEntry &entry)
{
    VolumeIdentity id;
    dev_t dev = makedev(entry.major, entry.minor);
    if (entry.major == 0) {
        // Btrfs and similar report an anonymous device number; the source names the real one.
        struct stat st
        {
        };
        if (!entry.source.startsWith("/dev/") || stat(entry.source.constData(), &st) != 0 ||
            !S_ISBLK(st.st_mode))
            return id;
        dev = st.st_rdev;
    }
    id.uuid = CommonUtils::canonicalUuid(linkNameFor("/dev/disk/by-uuid", dev));
    id.label = QString::fromUtf8(linkNameFor("/dev/disk/by-label", dev));
    if (id.uuid.isEmpty() || id.label.isEmpty()) fromUdev(dev, id);
    if (id.uuid.isEmpty() && geteuid() == 0) fromBlkid(dev, entry.source, id);
    return id;
}

} // namespace UuidLookup
