#pragma once

#include <QByteArray>

// Whether the user's session preloads the library that keeps what programs delete without the
// trash (src/keep). On writes the session's environment (~/.config/environment.d, read by the
// systemd user manager at login, whose generator from the package turns it into LD_PRELOAD) and a
// marked block in ~/.profile for login shells; off removes both. Either takes effect at the next
// login. Shared by `salvora keep` and the Preferences.
namespace KeepSession {

inline constexpr char kLibraryName[] = "libsalvora3-keep.so";
// Set in the session's environment.d file; the package's generator preloads what it names.
inline constexpr char kLibraryVariable[] = "SALVORA3_KEEP_LIBRARY";

// The library beside a build tree's programs, else where the package installs it.
QByteArray libraryPath();
// ~/.config/environment.d/60-salvora3-keep.conf (XDG_CONFIG_HOME honoured).
QByteArray environmentFile();
QByteArray profileFile();

// Either of the two is in place: the next login has the library.
bool configured();
// This very process has it: the session's environment reaches every program started in it.
bool sessionHasIt();

struct Result
{
    enum class Failed { Nothing, Library, EnvironmentFile, Profile };
    Failed failed = Failed::Nothing;
    int error = 0; // errno
    bool ok() const { return failed == Failed::Nothing; }
};
// Writes both (again: one block, whatever was there). Programs that already preload something
// keep it, after ours. `library` must be readable.
Result enable(const QByteArray &library = libraryPath());
// Removes every trace; the user's own lines of ~/.profile stay as they were.
Result disable();

} // namespace KeepSession
