#pragma once

#include <QByteArray>
#include <QString>

// Where the user's files and the product's sibling programs are.
namespace CommonUtils {

// $HOME as bytes (the password database when HOME is unset).
QByteArray homeFolder();
// $XDG_DATA_HOME/Salvora 3, or ~/.local/share/Salvora 3; created (0700, missing parents too) on
// every call. With a name, that name inside it.
QString pathForApplicationSupportFolder(const QString &name = QString());
QString getUIDStr();

// Sibling programs, searched in the install layout (bin/, libexec/salvora3/, share/salvora3/)
// and then in the build tree, where every program sits in one folder. Empty when not found.
QString daemonAppPath();
QString menuAppPath();
QString mainAppPath();
// The same lookups for a given executable path (tests, and programs that know their own path).
QString daemonAppPathFor(const QString &ownExecutable);
QString menuAppPathFor(const QString &ownExecutable);
QString mainAppPathFor(const QString &ownExecutable);
QString launcherAppPathFor(const QString &ownExecutable);
// The path of the running executable (/proc/self/exe).
QString ownExecutablePath();
// Installed resources: share/salvora3 under the prefix, or the build tree's resource folder.
QString resourcesFolderFor(const QString &ownExecutable);

} // namespace CommonUtils
