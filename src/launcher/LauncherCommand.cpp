#include "LauncherCommand.h"

namespace launcher {

std::optional<std::vector<std::string>> splitAbsolutePath(std::string_view path, std::string *why)
{
    if (path.empty() || path.front() != '/') {
        *why = "the target must be an absolute path";
        return std::nullopt;
    }
    if (path.size() > kMaxPathLength) {
        *why = "the target path is too long";
        return std::nullopt;
    }
    std::vector<std::string> names;
    std::size_t start = 1;
    while (true) {
        const std::size_t slash = path.find('/', start);
        const std::string_view name = path.substr(
            start, slash == std::string_view::npos ? std::string_view::npos : slash - start);
        // Only one spelling of a path is accepted, so that it can be compared with the
        // launcher's own location as text.
        if (name.empty()) {
            *why = "the target path has an empty name";
            return std::nullopt;
        }
        if (name == "." || name == "..") {
            *why = "the target path has a \".\" or \"..\" name";
            return std::nullopt;
        }
        names.emplace_back(name);
        if (slash == std::string_view::npos) break;
        start = slash + 1;
    }
    return names;
}

std::optional<Command> parseCommand(int argc, const char *const *argv, std::string *why)
{
    if (argc < 3 || argv == nullptr || argv[1] == nullptr || argv[2] == nullptr) {
        *why = "usage: adminlauncher TARGET 9|2|LA [ARGUMENTS...]";
        return std::nullopt;
    }
    Command command;
    const std::string_view job = argv[2];
    if (job == "9")
        command.job = Job::OwnPrivileges;
    else if (job == "2")
        command.job = Job::DaemonPrivileges;
    else if (job == "LA")
        command.job = Job::Launch;
    else {
        *why = "unknown job";
        return std::nullopt;
    }
    if (command.job != Job::Launch && argc != 3) {
        *why = "this job takes no further arguments";
        return std::nullopt;
    }
    command.target = argv[1];
    auto names = splitAbsolutePath(command.target, why);
    if (!names) return std::nullopt;
    command.names = std::move(*names);
    for (int i = 3; i < argc; ++i) {
        if (argv[i] == nullptr) {
            *why = "missing argument";
            return std::nullopt;
        }
        command.arguments.emplace_back(argv[i]);
    }
    return command;
}

} // namespace launcher
