#pragma once

#include "LauncherCommand.h"

#include <string>
#include <vector>

#include <sys/types.h>

namespace launcher {

inline constexpr char kDaemonName[] = "sv3daemon";

// The launcher's own executable as the kernel knows it, not as the caller names it.
struct Self
{
    dev_t device = 0;
    ino_t inode = 0;
    std::string path;   // /proc/self/exe
    std::string folder; // its folder, "/" for a file at the root
    std::string name;   // its last name
};

bool identifySelf(Self *self, std::string *why);

enum class Outcome { Done, Refused, Failed };

// Runs one job on its only allowed target. "LA" replaces the process and returns only when it
// is refused or the start fails. `environment` is what the launched daemon gets ("NAME=value").
Outcome runJob(const Command &command, const Self &self,
               const std::vector<std::string> &environment, std::string *why);

} // namespace launcher
