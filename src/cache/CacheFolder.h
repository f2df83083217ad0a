#pragma once

#include "CacheName.h"

#include <QByteArray>
#include <QList>
#include <QString>

// Where a user's cache lies on a volume, and whether it is safe to use. Caches are private, like
// each user's trash:
//   volume "/":   <home>/.Salvora3Cache                     the user's, 0700
//   volume at M:  M/.Salvora3Cache/<uid>                    the user's, 0700, inside
//                 M/.Salvora3Cache                          root's and 0711 (shared by the
//                                                           volume's users, who may only pass
//                                                           through it), or the user's own
// Every use opens the folder step by step without following links and checks what it got, so a
// folder that another account planted or swapped in is never used.
namespace CacheFolder {

enum class State {
    Ready,
    NoVolume,    // the home folder or the mount path cannot be opened
    Missing,     // nothing there yet (only when not asked to create)
    NeedsHelper, // the user may not create it alone: the daemon's privileged helper may
    Unsafe,      // a link or something other than a folder stands at the name
    NotOwned,    // another account's folder stands at the name
    OtherDevice, // something is mounted over it
    Failed,      // the file system said no (see sysErrno)
};

struct Status
{
    State state = State::Failed;
    int sysErrno = 0;
    QByteArray path; // the cache folder's path (also when it is not usable)
    bool ok() const { return state == State::Ready; }
    // One sentence for the window, `salvora status` and the log: why nothing is kept there.
    QString reason() const;
};

// The path of the user's cache on the volume mounted at `volumePath` ("/" for the home folder's).
QByteArray pathFor(const QByteArray &volumePath);

// Opens the user's cache folder of that volume, checked (a folder, not a link, the user's, not
// writable by others, on the volume's device). With `create`, makes what the user may make alone
// (the home cache; the per-user folder inside a shared folder of the user's own) and tightens the
// modes of folders the user owns that earlier versions left open. Returns the descriptor, or -1
// with *status saying why.
int open(const QByteArray &volumePath, bool create, Status *status);

// open() without keeping the descriptor.
Status check(const QByteArray &volumePath, bool create = false);

// Whether a status means that nothing is kept on the volume (a cache not made yet, that the daemon
// makes unaided when it first keeps something there, is no problem).
bool keepsNothing(const Status &status);

// The mounted protected volumes whose cache keeps nothing now, and why. Creates nothing.
struct Problem
{
    QByteArray volumePath;
    Status status;
};
QList<Problem> problems();

} // namespace CacheFolder
