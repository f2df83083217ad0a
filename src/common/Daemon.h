#pragma once

#include <QString>

#include <optional>

// The daemon as its clients see it: running when its agent holds its name on the session bus.
namespace Daemon {

// Whether the daemon runs; nullopt when there is no session bus to ask.
std::optional<bool> isRunning();

// Starts the daemon at `path` unless it runs already (the window and the companion both call
// this; whichever comes first starts it). `who` names the caller in the log. True when started.
bool startIfNeeded(const QString &path, const QString &who);

} // namespace Daemon
