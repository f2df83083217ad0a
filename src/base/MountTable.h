#pragma once

#include <string>
#include <string_view>
#include <vector>

// /proc/self/mountinfo, read the same way by the privileged helper and by the core. Paths are
// bytes, unescaped.
namespace mounttable {

struct Entry
{
    unsigned long long mountId = 0;
    unsigned long long parentId = 0;
    unsigned major = 0;
    unsigned minor = 0;
    std::string root;
    std::string mountPoint;
    std::string options;
    std::string fsType;
    std::string source;
};

// Lines that cannot be parsed are skipped; the kernel's order is kept.
std::vector<Entry> parse(std::string_view text);
// Undoes the kernel's octal escapes (\040 space, \011 tab, \012 line feed, \134 backslash).
std::string unescape(std::string_view field);
// The whole table from the start of an open file: procfs gives a consistent table only to one
// read sequence from offset 0. Empty on failure.
std::string readAll(int fd);
std::string readText(const char *path = "/proc/self/mountinfo");
std::vector<Entry> read(const char *path = "/proc/self/mountinfo");

// Where a cache may live, as the rest of the system decides it: "/" and mount points under
// /Volumes/ (without the system's own), /media/, /run/media/ and /mnt/. Mount points that are not
// UTF-8 are left out, as the volume list leaves them out.
bool isEligible(std::string_view mountPoint);

} // namespace mounttable
