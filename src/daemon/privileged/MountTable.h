#pragma once

#include <string>
#include <string_view>
#include <vector>

// /proc/self/mountinfo for the privileged helper, without Qt. Paths are bytes, unescaped.
namespace mounttable {

struct Entry
{
    unsigned long long mountId = 0;
    unsigned major = 0;
    unsigned minor = 0;
    std::string mountPoint;
    std::string fsType;
    std::string source;
};

// Lines that cannot be parsed are skipped; the kernel's order is kept.
std::vector<Entry> parse(std::string_view text);
std::vector<Entry> read(const char *path = "/proc/self/mountinfo");

// Where a cache may live, as the rest of the system decides it: "/" and mount points under
// /Volumes/ (without the system's own), /media/, /run/media/ and /mnt/. Mount points that are not
// UTF-8 are left out, as the volume list leaves them out.
bool isEligible(std::string_view mountPoint);

} // namespace mounttable
