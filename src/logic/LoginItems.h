#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>

// The session's login items as XDG autostart entries ($XDG_CONFIG_HOME/autostart/*.desktop):
// listed in file-name order, each standing for the absolute program of its Exec= line.
class AutostartList
{
public:
    struct Item
    {
        QByteArray file;    // name of the entry in the folder
        QByteArray program; // absolute program path; empty when the entry does not resolve
    };

    explicit AutostartList(QByteArray folder = defaultFolder());
    // $XDG_CONFIG_HOME/autostart, or ~/.config/autostart.
    static QByteArray defaultFolder();

    // Whether the list can be used: the folder exists, or was created when `create` is set.
    bool open(bool create);
    QList<Item> snapshot() const;
    bool remove(const Item &item);
    // Writes a new entry starting `program`, under "salvora3-menu.desktop" unless that name is
    // taken by an entry that stays.
    bool append(const QByteArray &program);

    // The program an entry starts: the first word of Exec= in [Desktop Entry], unquoted; empty
    // for an entry with Hidden=true, without Exec=, or whose program is not an absolute path.
    static QByteArray programOf(const QByteArray &entry);
    // An Exec= value that starts `program` (quoted and escaped as desktop entries need).
    static QByteArray execValueFor(const QByteArray &program);

private:
    QByteArray mFolder;
};

namespace LoginItems {

// Everything installSalvoraMenu works with; tests replace parts of it.
struct Companion
{
    QString menuPath;                                  // menuAppPath
    QByteArray autostartFolder;                        // AutostartList::defaultFolder()
    std::function<qint64(const QString &)> isLaunched; // isApplicationLaunchedWithPath
    std::function<bool(const QString &)> launch;       // a detached start
    std::function<void()> tellToQuit; // posts "Salvora3MenuNotification" / "Salvora3MenuMustQuit"
};
Companion defaultCompanion();

// Brings the login item and the running companion in line with PrefsLaunchMenu (absent: off).
// On: exactly one entry for the companion (stale copies before it removed, it appended when
// missing) and the companion running. Off: its entry removed and the companion told to quit;
// entries of other copies are left alone.
void installSalvoraMenu(const Companion &companion = defaultCompanion());

} // namespace LoginItems
