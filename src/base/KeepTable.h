#pragma once

#include "KeepTableFormat.h"

#include <cstdint>
#include <string>
#include <vector>

// The writer of the table that the preload library maps (KeepTableFormat.h). The agent publishes
// one whenever the settings or the protected volumes change; tests and benchmarks write their own.
namespace keeptable {

struct Table
{
    bool on = false;
    std::uint64_t generation = 0;
    struct Entry
    {
        std::uint64_t dev = 0;
        std::string cachePath;
        std::string volumePath;
    };
    std::vector<Entry> volumes;
    std::vector<std::string> lists[ListCount];

    // What is never kept whatever the settings: scratch places of the system, the home's caches,
    // the trash's own bookkeeping, temporary names and the programs that churn files for a living.
    static Table withDefaults(const std::string &home, const std::string &trashFolder);

    std::string encode() const;
};

// Where the library looks for the table: $XDG_RUNTIME_DIR/salvora3/keep-table, else
// /run/user/<uid>/salvora3/keep-table.
std::string defaultPath();

// Publishes the table at `path`, whose folder is made private when missing: the new table is
// renamed over the old one, which is then marked retired. 0 or an errno value.
int publish(const Table &table, const std::string &path);

// Marks the table at `path` retired and removes it: processes stop keeping at their next deletion.
int withdraw(const std::string &path);

} // namespace keeptable
