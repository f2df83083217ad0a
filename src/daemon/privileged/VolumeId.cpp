#include "VolumeId.h"

#include <blkid.h>
#include <cstdlib>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace volumeid {

std::string canonical(std::string_view raw)
{
    std::size_t b = 0, e = raw.size();
    while (b < e && (raw[b] == ' ' || raw[b] == '\t' || raw[b] == '\n'))
        ++b;
    while (e > b && (raw[e - 1] == ' ' || raw[e - 1] == '\t' || raw[e - 1] == '\n'))
        --e;
    std::string text(raw.substr(b, e - b));
    for (char &c : text)
        if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
    std::string hex;
    for (const char c : text) {
        if (c == '-') continue;
        if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) return text;
        hex.push_back(c);
    }
    if (hex.size() != 32) return text;
    return hex.substr(0, 8) + '-' + hex.substr(8, 4) + '-' + hex.substr(12, 4) + '-' +
           hex.substr(16, 4) + '-' + hex.substr(20);
}

std::string uuidOf(const mounttable::Entry &entry)
{
    dev_t dev = makedev(entry.major, entry.minor);
    if (entry.major == 0) {
        // Anonymous device numbers belong to tmpfs, overlays and FUSE, whose "source" is any text
        // the mounting user chose; only btrfs names its real device there.
        struct stat st
        {
        };
        if (entry.fsType != "btrfs" || entry.source.rfind("/dev/", 0) != 0 ||
            stat(entry.source.c_str(), &st) != 0 || !S_ISBLK(st.st_mode))
            return {};
        dev = st.st_rdev;
    }
    char *devname = blkid_devno_to_devname(dev);
    if (!devname) return {};
    std::string uuid;
    if (blkid_probe pr = blkid_new_probe_from_filename(devname)) {
        blkid_probe_enable_superblocks(pr, 1);
        blkid_probe_set_superblocks_flags(pr, BLKID_SUBLKS_UUID);
        const char *value = nullptr;
        if (blkid_do_safeprobe(pr) == 0 &&
            blkid_probe_lookup_value(pr, "UUID", &value, nullptr) == 0 && value)
            uuid = canonical(value);
        blkid_free_probe(pr);
    }
    free(devname);
    return uuid;
}

} // namespace volumeid
