#pragma once

#include <QByteArrayList>
#include <QHash>
#include <QObject>
#include <QStringList>

class QAction;
class QMenu;
class QMenuBar;
class QToolBar;
class QWidget;

// The window's commands, as the toolbar, the menu bar and the contextual menus send them. The
// window's controller implements it.
class WindowCommands
{
public:
    virtual ~WindowCommands() = default;
    // Toolbar.
    virtual void protectionON() = 0;
    virtual void protectionOFF() = 0;
    virtual void copySelectedItems() = 0;
    virtual void putBack() = 0;
    virtual void removeContents() = 0;
    virtual void editPreferences() = 0;
    virtual void showHelp() = 0;
    // Menu bar.
    virtual void aboutWindow() = 0;
    virtual void removeSelectedDays() = 0;
    virtual void removeAllCaches() = 0;
    virtual void getStatus() = 0;
    virtual void openLogs() = 0;
    virtual void toggleProtection() = 0;
    virtual void toggleQL() = 0;
    virtual void refresh() = 0;
    virtual void focusSearch() = 0;
    virtual void quit() = 0;
    // Contextual menus.
    virtual void showInFinder() = 0;
    // A day menu's item: the tag is the index of its time folder in the list the menu was
    // built with (mCacheTimesInDay).
    virtual void updateCacheContentsAtTime(qsizetype tag) = 0;
};

// Builds every action of the window once, wired to a WindowCommands, and lays them out in the
// toolbar, the menu bar and the contextual menus.
class WindowActions : public QObject
{
    Q_OBJECT
public:
    enum class Command {
        ProtectionON,
        ProtectionOFF,
        CopyItems,
        PutBack,
        RemoveItems,
        Preferences,
        ShowHelp,
        About,
        RemoveSelectedDays,
        RemoveAllCaches,
        GetStatus,
        OpenLogs,
        ToggleProtection,
        TogglePreview,
        Refresh,
        FocusSearch,
        Quit,
    };

    // Toolbar item identifiers.
    static constexpr char kProtectionON[] = "protectionON";
    static constexpr char kProtectionOFF[] = "protectionOFF";
    static constexpr char kCopyButton[] = "copyButton";
    static constexpr char kPutBackButton[] = "putBackButton";
    static constexpr char kRemoveButton[] = "removeButton";
    static constexpr char kPreferences[] = "preferences";
    static constexpr char kShowHelp[] = "showHelp";
    static constexpr char kSpace[] = "space";
    static constexpr char kFlexibleSpace[] = "flexibleSpace";
    static constexpr char kToolbarIdentifier[] = "mainToolbar";
    static constexpr int kSpaceWidth = 12;

    explicit WindowActions(WindowCommands &receiver, QObject *parent = nullptr);

    QAction *action(Command command) const;

    // Left to right, spaces included. The allowed identifiers are exactly these.
    static QStringList toolbarDefaultItemIdentifiers();
    static QStringList toolbarAllowedItemIdentifiers() { return toolbarDefaultItemIdentifiers(); }
    // The action of a toolbar item; nullptr for spaces and unknown identifiers.
    QAction *toolbarItem(const QString &identifier) const;
    // Fills the toolbar in the default order, icons over labels. Each item's action carries its
    // identifier as object name, so enableToolBarItem finds it.
    void populateToolbar(QToolBar *toolbar) const;
    // Enables the first item of the toolbar with that identifier; an unknown identifier or an
    // empty toolbar changes nothing.
    static void enableToolBarItem(QToolBar *toolbar, const QString &identifier, bool enable);

    // File, Edit, View, Help menus with the menu-bar commands.
    void populateMenuBar(QMenuBar *menuBar) const;

    // The contents list's menu for its selected item: reveal, put back, restore to and delete,
    // titled with its name; put back is offered as the command's action is enabled. nullptr
    // when nothing exists at the path. The caller owns the menu.
    QMenu *contentsMenu(const QByteArray &selectedItemPath, QWidget *parent = nullptr) const;
    // The day list's menu for a day folder: one item per time folder, tag = index in
    // `cacheTimesInDay`, which is rebuilt (mCacheTimesInDay). Never nullptr, maybe empty.
    QMenu *dayMenu(const QByteArray &dayFolder, QByteArrayList &cacheTimesInDay,
                   QWidget *parent = nullptr) const;

private:
    QAction *make(Command command, const QString &text, void (WindowCommands::*slot)());

    WindowCommands &mReceiver;
    QHash<int, QAction *> mActions;
};
