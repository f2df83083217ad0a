#pragma once

// The launcher's command line: `adminlauncher TARGET JOB [ARGUMENTS...]`. Parsing is kept apart
// from everything that touches the system, so that it can be fuzzed on its own.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher {

enum class Job {
    OwnPrivileges,    // "9": make the launcher's own file root-owned with the set-user-id bit
    DaemonPrivileges, // "2": the same for the daemon beside it
    Launch,           // "LA": start the daemon beside it with the remaining arguments
};

struct Command
{
    Job job;
    std::string target;
    std::vector<std::string> names; // the target's path, one name per folder level
    std::vector<std::string> arguments;
};

// Longest target path accepted (PATH_MAX, terminator included).
inline constexpr std::size_t kMaxPathLength = 4095;

// The names of an absolute path. Refused (nullopt, with a reason): a relative path, an empty
// name (doubled or trailing slash), ".", "..", or a path longer than kMaxPathLength. Any other
// byte is part of a name: file names need not be text.
std::optional<std::vector<std::string>> splitAbsolutePath(std::string_view path, std::string *why);

// argv may be empty (argc 0) and argv[0] is never looked at: a caller chooses it freely.
std::optional<Command> parseCommand(int argc, const char *const *argv, std::string *why);

} // namespace launcher
