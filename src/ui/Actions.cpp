#include "ui/Actions.h"

#include "logic/ContextMenus.h"

#include <QAction>
#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QMenuBar>
#include <QStyle>
#include <QToolBar>

namespace {

// GNOME and its Adwaita icons draw toolbars with symbolic (monochrome) icons; others in colour.
bool prefersSymbolicIcons()
{
    return QIcon::themeName().contains(QLatin1String("Adwaita"), Qt::CaseInsensitive) ||
           qEnvironmentVariable("XDG_CURRENT_DESKTOP")
               .contains(QLatin1String("GNOME"), Qt::CaseInsensitive);
}

// The desktop theme's icon (its symbolic variant where the desktop uses those), else the style's
// own.
QIcon themeIcon(const char *name, QStyle::StandardPixmap fallback)
{
    QStyle *style = QApplication::style();
    const QIcon shipped = style ? style->standardIcon(fallback) : QIcon();
    const QString plain = QLatin1String(name);
    const QIcon colour = QIcon::fromTheme(plain, shipped);
    return prefersSymbolicIcons() ? QIcon::fromTheme(plain + QLatin1String("-symbolic"), colour)
                                  : colour;
}

QWidget *spacer(bool flexible)
{
    auto *w = new QWidget;
    if (flexible) {
        w->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    } else {
        w->setFixedWidth(WindowActions::kSpaceWidth);
    }
    return w;
}

// The usual Linux key first, then whatever the desktop's theme adds for the same command (some
// themes have none, some another key).
QList<QKeySequence> shortcuts(const QKeySequence &usual, QKeySequence::StandardKey standard)
{
    QList<QKeySequence> keys{usual};
    for (const QKeySequence &k : QKeySequence::keyBindings(standard))
        if (!keys.contains(k)) keys.append(k);
    return keys;
}

} // namespace

WindowActions::WindowActions(WindowCommands &receiver, QObject *parent)
    : QObject(parent), mReceiver(receiver)
{
    using W = WindowCommands;
    //% "Start Protection"
    make(Command::ProtectionON, qtTrId("StartProtection"), &W::protectionON)
        ->setIcon(themeIcon("security-high", QStyle::SP_DialogYesButton));
    //% "Stop Protection"
    make(Command::ProtectionOFF, qtTrId("StopProtection"), &W::protectionOFF)
        ->setIcon(themeIcon("security-low", QStyle::SP_DialogNoButton));
    //% "Restore To…"
    QAction *copy = make(Command::CopyItems, qtTrId("RestoreToItem"), &W::copySelectedItems);
    copy->setIcon(themeIcon("document-save-as", QStyle::SP_DialogSaveButton));
    copy->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));
    //% "Put Back"
    QAction *putBack = make(Command::PutBack, qtTrId("PutBackItem"), &W::putBack);
    putBack->setIcon(themeIcon("edit-undo", QStyle::SP_ArrowBack));
    putBack->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R));
    //% "Delete"
    QAction *remove = make(Command::RemoveItems, qtTrId("RemoveItem"), &W::removeContents);
    remove->setIcon(themeIcon("edit-delete", QStyle::SP_TrashIcon));
    // The search field keeps its own Delete while it has the focus.
    remove->setShortcut(QKeySequence(QKeySequence::Delete));
    //% "Settings"
    QAction *prefs = make(Command::Preferences, qtTrId("Settings"), &W::editPreferences);
    prefs->setIcon(themeIcon("preferences-system", QStyle::SP_FileDialogDetailedView));
    // Ctrl+, is the settings shortcut of GNOME and most Qt applications; KDE's is Ctrl+Shift+,.
    prefs->setShortcuts(
        shortcuts(QKeySequence(Qt::CTRL | Qt::Key_Comma), QKeySequence::Preferences));
    prefs->setMenuRole(QAction::PreferencesRole);
    //% "Help"
    QAction *help = make(Command::ShowHelp, qtTrId("ShowHelp"), &W::showHelp);
    help->setIcon(themeIcon("help-contents", QStyle::SP_DialogHelpButton));
    help->setShortcuts(shortcuts(QKeySequence(Qt::Key_F1), QKeySequence::HelpContents));

    //% "&About Salvora 3"
    make(Command::About, qtTrId("MenuAbout"), &W::aboutWindow)->setMenuRole(QAction::AboutRole);
    //% "Delete the Selected &Days…"
    make(Command::RemoveSelectedDays, qtTrId("CommandRemoveSelectedDays"), &W::removeSelectedDays);
    //% "Delete &All Caches…"
    make(Command::RemoveAllCaches, qtTrId("CommandRemoveAllCaches"), &W::removeAllCaches);
    //% "Get &Status"
    make(Command::GetStatus, qtTrId("CommandGetStatus"), &W::getStatus);
    //% "Open the &Log"
    make(Command::OpenLogs, qtTrId("CommandOpenLogs"), &W::openLogs);
    //% "Switch &Protection On or Off"
    make(Command::ToggleProtection, qtTrId("CommandToggleProtection"), &W::toggleProtection);
    // The space bar in the lists is the preview's key; a menu shortcut could not be Space
    // without stealing it from the search field.
    //% "&Preview"
    make(Command::TogglePreview, qtTrId("CommandTogglePreview"), &W::toggleQL);
    //% "&Refresh"
    make(Command::Refresh, qtTrId("CommandRefresh"), &W::refresh)
        ->setShortcuts(shortcuts(QKeySequence(Qt::Key_F5), QKeySequence::Refresh));
    //% "&Find"
    make(Command::FocusSearch, qtTrId("CommandFind"), &W::focusSearch)
        ->setShortcuts(shortcuts(QKeySequence(Qt::CTRL | Qt::Key_F), QKeySequence::Find));
    //% "&Quit"
    QAction *quit = make(Command::Quit, qtTrId("CommandQuit"), &W::quit);
    quit->setShortcuts(shortcuts(QKeySequence(Qt::CTRL | Qt::Key_Q), QKeySequence::Quit));
    quit->setMenuRole(QAction::QuitRole);
}

QAction *WindowActions::make(Command command, const QString &text, void (WindowCommands::*slot)())
{
    auto *a = new QAction(text, this);
    connect(a, &QAction::triggered, this, [this, slot] { (mReceiver.*slot)(); });
    mActions.insert(int(command), a);
    return a;
}

QAction *WindowActions::action(Command command) const
{
    return mActions.value(int(command));
}

QStringList WindowActions::toolbarDefaultItemIdentifiers()
{
    const auto s = QLatin1String(kSpace);
    return {QLatin1String(kPreferences),
            s,
            QLatin1String(kProtectionON),
            QLatin1String(kProtectionOFF),
            s,
            s,
            QLatin1String(kPutBackButton),
            QLatin1String(kCopyButton),
            s,
            QLatin1String(kRemoveButton),
            QLatin1String(kFlexibleSpace),
            QLatin1String(kShowHelp),
            s};
}

QAction *WindowActions::toolbarItem(const QString &identifier) const
{
    static const QHash<QString, Command> items{
        {QLatin1String(kProtectionON), Command::ProtectionON},
        {QLatin1String(kProtectionOFF), Command::ProtectionOFF},
        {QLatin1String(kCopyButton), Command::CopyItems},
        {QLatin1String(kPutBackButton), Command::PutBack},
        {QLatin1String(kRemoveButton), Command::RemoveItems},
        {QLatin1String(kPreferences), Command::Preferences},
        {QLatin1String(kShowHelp), Command::ShowHelp},
    };
    const auto it = items.constFind(identifier);
    return it == items.cend() ? nullptr : action(*it);
}

void WindowActions::populateToolbar(QToolBar *toolbar) const
{
    toolbar->setObjectName(QLatin1String(kToolbarIdentifier));
    toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    for (const QString &id : toolbarDefaultItemIdentifiers()) {
        if (QAction *a = toolbarItem(id)) {
            a->setObjectName(id);
            toolbar->addAction(a);
        } else {
            QAction *space = toolbar->addWidget(spacer(id == QLatin1String(kFlexibleSpace)));
            space->setObjectName(id);
        }
    }
}

void WindowActions::enableToolBarItem(QToolBar *toolbar, const QString &identifier, bool enable)
{
    if (!toolbar) return;
    for (QAction *a : toolbar->actions()) {
        if (a->objectName() == identifier) {
            a->setEnabled(enable);
            return;
        }
    }
}

void WindowActions::populateMenuBar(QMenuBar *menuBar) const
{
    //% "&File"
    QMenu *file = menuBar->addMenu(qtTrId("MenuFile"));
    file->addAction(action(Command::GetStatus));
    file->addAction(action(Command::OpenLogs));
    file->addSeparator();
    file->addAction(action(Command::Quit));

    //% "&Edit"
    QMenu *edit = menuBar->addMenu(qtTrId("MenuEdit"));
    edit->addAction(action(Command::PutBack));
    edit->addAction(action(Command::CopyItems));
    edit->addAction(action(Command::RemoveItems));
    edit->addSeparator();
    edit->addAction(action(Command::ProtectionON));
    edit->addAction(action(Command::ProtectionOFF));
    edit->addSeparator();
    edit->addAction(action(Command::FocusSearch));
    edit->addSeparator();
    edit->addAction(action(Command::RemoveSelectedDays));
    edit->addAction(action(Command::RemoveAllCaches));
    edit->addSeparator();
    edit->addAction(action(Command::ToggleProtection));
    edit->addSeparator();
    edit->addAction(action(Command::Preferences));

    //% "&View"
    QMenu *view = menuBar->addMenu(qtTrId("MenuView"));
    view->addAction(action(Command::TogglePreview));
    view->addAction(action(Command::Refresh));

    //% "&Help"
    QMenu *help = menuBar->addMenu(qtTrId("MenuHelp"));
    help->addAction(action(Command::ShowHelp));
    help->addSeparator();
    help->addAction(action(Command::About));
}

QMenu *WindowActions::contentsMenu(const QByteArray &selectedItemPath, QWidget *parent) const
{
    const std::optional<QString> name = ContextMenus::contentsMenuName(selectedItemPath);
    if (!name) return nullptr;
    auto *menu = new QMenu(parent);
    menu->setObjectName(QStringLiteral("menu"));
    WindowCommands *r = &mReceiver;
    menu->addAction(ContextMenus::revealTitle(*name), menu, [r] { r->showInFinder(); });
    menu->addSeparator();
    // The window's own actions: their state, tooltip and shortcut show as they are.
    menu->addAction(action(Command::PutBack));
    menu->addAction(action(Command::CopyItems));
    menu->addSeparator();
    menu->addAction(ContextMenus::deleteTitle(*name), menu, [r] { r->removeContents(); });
    return menu;
}

QMenu *WindowActions::dayMenu(const QByteArray &dayFolder, QByteArrayList &cacheTimesInDay,
                              QWidget *parent) const
{
    cacheTimesInDay.clear();
    auto *menu = new QMenu(parent);
    menu->setObjectName(QStringLiteral("menu"));
    WindowCommands *r = &mReceiver;
    for (const ContextMenus::CacheTime &t : ContextMenus::cacheTimesInDay(dayFolder)) {
        const qsizetype tag = cacheTimesInDay.size();
        QAction *a =
            menu->addAction(t.title, menu, [r, tag] { r->updateCacheContentsAtTime(tag); });
        a->setData(tag);
        cacheTimesInDay.append(t.path);
    }
    return menu;
}
