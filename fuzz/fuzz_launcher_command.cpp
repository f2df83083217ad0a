// Feeds arbitrary bytes to the launcher's command-line parser as an argv (split at NUL bytes,
// the first piece standing for argv[0]). Whatever it accepts must be a known job on an absolute
// path without empty, "." or ".." names, and the names must join back into the target exactly.

#include "LauncherCommand.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::vector<std::string> pieces(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0)
            pieces.emplace_back();
        else
            pieces.back() += char(data[i]);
    }
    // An empty input stands for argc 0.
    if (size == 0) pieces.clear();
    std::vector<const char *> argv;
    for (const std::string &p : pieces)
        argv.push_back(p.c_str());
    argv.push_back(nullptr);

    std::string why;
    const auto command = launcher::parseCommand(int(pieces.size()), argv.data(), &why);
    if (!command) {
        if (why.empty()) std::abort();
        return 0;
    }
    if (!why.empty() || pieces.size() < 3 || command->target != pieces[1]) std::abort();
    if (command->job != launcher::Job::Launch && pieces.size() != 3) std::abort();
    if (command->arguments.size() != pieces.size() - 3) std::abort();
    std::string joined;
    for (const std::string &name : command->names) {
        if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
            std::abort();
        joined += '/' + name;
    }
    if (joined != command->target || joined.size() > launcher::kMaxPathLength) std::abort();
    return 0;
}
