#pragma once

#include <QObject>

// SIGTERM (a session ending) and SIGINT end the program through its event loop, as closing its
// last window does: aboutToQuit runs, so work in progress stops cleanly and the quit is logged.
// The handler only writes a byte to a pipe; the loop reads it and quits.
namespace QuitSignals {

// Once per process, after the application object exists; false when it could not be set up.
bool install();
// Whether such a signal came (for the loops that would otherwise ask again and again, and for
// a signal that came before the event loop ran).
bool requested();

} // namespace QuitSignals
