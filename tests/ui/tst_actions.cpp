// The toolbar, the menu bar and the contextual menus as the builder lays them out, what each
// sends, and the removal alert as a real message box (Return and Escape cancel).

#include "TestEnv.h"

#include "common/Texts.h"
#include "logic/RemovalActions.h"
#include "ui/Actions.h"
#include "ui/MessageBoxPresenter.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QToolBar>

namespace {

class Commands : public WindowCommands
{
public:
    QStringList calls;
    void protectionON() override { calls.append(QStringLiteral("protectionON")); }
    void protectionOFF() override { calls.append(QStringLiteral("protectionOFF")); }
    void copySelectedItems() override { calls.append(QStringLiteral("copySelectedItems")); }
    void putBack() override { calls.append(QStringLiteral("putBack")); }
    void refresh() override { calls.append(QStringLiteral("refresh")); }
    void focusSearch() override { calls.append(QStringLiteral("focusSearch")); }
    void removeContents() override { calls.append(QStringLiteral("removeContents")); }
    void editPreferences() override { calls.append(QStringLiteral("editPreferences")); }
    void showHelp() override { calls.append(QStringLiteral("showHelp")); }
    void aboutWindow() override { calls.append(QStringLiteral("aboutWindow")); }
    void removeSelectedDays() override { calls.append(QStringLiteral("removeSelectedDays")); }
    void removeAllCaches() override { calls.append(QStringLiteral("removeAllCaches")); }
    void getStatus() override { calls.append(QStringLiteral("getStatus")); }
    void openLogs() override { calls.append(QStringLiteral("openLogs")); }
    void toggleProtection() override { calls.append(QStringLiteral("toggleProtection")); }
    void toggleQL() override { calls.append(QStringLiteral("toggleQL")); }
    void quit() override { calls.append(QStringLiteral("quit")); }
    void showInFinder() override { calls.append(QStringLiteral("showInFinder")); }
    void updateCacheContentsAtTime(qsizetype tag) override
    {
        calls.append(QStringLiteral("time:%1").arg(tag));
    }
};

using C = WindowActions::Command;

QStringList menuTexts(const QMenu *menu)
{
    QStringList t;
    for (const QAction *a : menu->actions())
        if (!a->isSeparator()) t.append(a->text());
    return t;
}

// Presses a key in the message box that the next alert opens.
void pressInNextAlert(Qt::Key key)
{
    QTimer::singleShot(0, [key] {
        QWidget *box = QApplication::activeModalWidget();
        if (!box) {
            pressInNextAlert(key);
            return;
        }
        QTest::keyClick(box, key);
    });
}

// Clicks the button with this text in the message box that the next alert opens.
void clickInNextAlert(const QString &text, QMessageBox::Icon *icon)
{
    QTimer::singleShot(0, [text, icon] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box) {
            clickInNextAlert(text, icon);
            return;
        }
        *icon = box->icon();
        for (QAbstractButton *b : box->buttons())
            if (b->text() == text) b->click();
    });
}

} // namespace

class TstActions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }

    void toolbarInItsDefaultOrder()
    {
        Commands c;
        WindowActions actions(c);
        QToolBar bar;
        actions.populateToolbar(&bar);
        QCOMPARE(bar.objectName(), QStringLiteral("mainToolbar"));
        QCOMPARE(bar.toolButtonStyle(), Qt::ToolButtonTextUnderIcon);
        QStringList ids;
        for (const QAction *a : bar.actions())
            ids.append(a->objectName());
        QCOMPARE(ids, QStringList({"preferences", "space", "protectionON", "protectionOFF", "space",
                                   "space", "putBackButton", "copyButton", "space", "removeButton",
                                   "flexibleSpace", "showHelp", "space"}));
        QCOMPARE(WindowActions::toolbarAllowedItemIdentifiers(), ids);

        const QList<std::pair<const char *, const char *>> labels{
            {"protectionON", "StartProtection"},
            {"protectionOFF", "StopProtection"},
            {"copyButton", "RestoreToItem"},
            {"removeButton", "RemoveItem"},
            {"putBackButton", "PutBackItem"},
            {"preferences", "Settings"},
            {"showHelp", "ShowHelp"}};
        for (const auto &[id, key] : labels) {
            QAction *a = actions.toolbarItem(QLatin1String(id));
            QVERIFY2(a, id);
            QCOMPARE(a->text(), qtTrId(key));
        }
        // The text, not its key.
        QCOMPARE(actions.toolbarItem(QStringLiteral("protectionON"))->text(),
                 QStringLiteral("Start Protection"));
        QVERIFY(!actions.toolbarItem(QStringLiteral("space")));
        QVERIFY(!actions.toolbarItem(QStringLiteral("other")));

        actions.toolbarItem(QStringLiteral("copyButton"))->trigger();
        actions.toolbarItem(QStringLiteral("protectionOFF"))->trigger();
        QCOMPARE(c.calls, QStringList({"copySelectedItems", "protectionOFF"}));
    }

    void enablingToolbarItems()
    {
        Commands c;
        WindowActions actions(c);
        QToolBar empty;
        WindowActions::enableToolBarItem(&empty, QStringLiteral("copyButton"), false);
        WindowActions::enableToolBarItem(nullptr, QStringLiteral("copyButton"), false);
        QToolBar bar;
        actions.populateToolbar(&bar);
        WindowActions::enableToolBarItem(&bar, QStringLiteral("copyButton"), false);
        QVERIFY(!actions.toolbarItem(QStringLiteral("copyButton"))->isEnabled());
        QVERIFY(actions.toolbarItem(QStringLiteral("removeButton"))->isEnabled());
        WindowActions::enableToolBarItem(&bar, QStringLiteral("nothing"), false);
        for (QAction *a : bar.actions())
            if (a->objectName() != QLatin1String("copyButton")) QVERIFY(a->isEnabled());
    }

    void menuBarCommandsAndShortcuts()
    {
        Commands c;
        WindowActions actions(c);
        QMenuBar bar;
        actions.populateMenuBar(&bar);
        QList<QAction *> all;
        for (QAction *m : bar.actions()) {
            QVERIFY(m->menu());
            all += m->menu()->actions();
        }
        const QList<std::pair<C, const char *>> commands{
            {C::About, "aboutWindow"},
            {C::Preferences, "editPreferences"},
            {C::RemoveSelectedDays, "removeSelectedDays"},
            {C::RemoveAllCaches, "removeAllCaches"},
            {C::GetStatus, "getStatus"},
            {C::OpenLogs, "openLogs"},
            {C::ToggleProtection, "toggleProtection"},
            {C::TogglePreview, "toggleQL"},
            {C::ShowHelp, "showHelp"},
            {C::Quit, "quit"},
            // Every toolbar command is in a menu too.
            {C::PutBack, "putBack"},
            {C::CopyItems, "copySelectedItems"},
            {C::RemoveItems, "removeContents"},
            {C::ProtectionON, "protectionON"},
            {C::ProtectionOFF, "protectionOFF"},
            {C::Refresh, "refresh"},
            {C::FocusSearch, "focusSearch"}};
        for (const auto &[command, call] : commands) {
            QAction *a = actions.action(command);
            QVERIFY2(all.contains(a), call);
            c.calls.clear();
            a->trigger();
            QCOMPARE(c.calls, QStringList{QLatin1String(call)});
        }
        QCOMPARE(actions.action(C::Quit)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
        QCOMPARE(actions.action(C::ShowHelp)->shortcut(), QKeySequence(Qt::Key_F1));
        QCOMPARE(actions.action(C::Preferences)->shortcut(),
                 QKeySequence(Qt::CTRL | Qt::Key_Comma));
        QCOMPARE(actions.action(C::Refresh)->shortcut(), QKeySequence(Qt::Key_F5));
        QCOMPARE(actions.action(C::FocusSearch)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_F));
        QCOMPARE(actions.action(C::PutBack)->shortcut(),
                 QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R));
        QCOMPARE(actions.action(C::RemoveItems)->shortcut(), QKeySequence(QKeySequence::Delete));
        // Destructive commands get no shortcut.
        QVERIFY(actions.action(C::RemoveAllCaches)->shortcut().isEmpty());
        QVERIFY(actions.action(C::RemoveSelectedDays)->shortcut().isEmpty());
    }

    void dayMenuListsTheMomentsOfTheDay()
    {
        TestEnv env;
        const QByteArray day = env.homeBytes() + "/.Salvora3Cache/2024-05-03";
        QVERIFY(TestEnv::makeFolders(day + "/2024-05-03 14_07_33"));
        QVERIFY(TestEnv::makeFolders(day + "/2024-05-03 09_15_00"));
        QVERIFY(TestEnv::writeFile(day + "/2024-05-03 20_00_00", "a stray file"));
        QVERIFY(TestEnv::makeFolders(day + "/other"));
        QVERIFY(TestEnv::writeFile(day + "/.Salvora3_CacheInformation", "r"));

        Commands c;
        WindowActions actions(c);
        QByteArrayList times{"stale"};
        std::unique_ptr<QMenu> menu(actions.dayMenu(day, times));
        QCOMPARE(menu->objectName(), QStringLiteral("menu"));
        QCOMPARE(menuTexts(menu.get()), QStringList({qtTrId("MovedIntoCacheAt").arg("09:15:00"),
                                                     qtTrId("MovedIntoCacheAt").arg("14:07:33")}));
        QCOMPARE(times,
                 QByteArrayList({day + "/2024-05-03 09_15_00", day + "/2024-05-03 14_07_33"}));
        QCOMPARE(menu->actions()[1]->data().toLongLong(), 1);
        menu->actions()[1]->trigger();
        QCOMPARE(c.calls, QStringList{"time:1"});

        std::unique_ptr<QMenu> none(actions.dayMenu(day + "/missing", times));
        QVERIFY(none);
        QVERIFY(none->actions().isEmpty());
        QVERIFY(times.isEmpty());
    }

    void contentsMenuNamesTheItem()
    {
        TestEnv env;
        const QByteArray item = env.homeBytes() + "/cache/2024-05-03 09_15_00/report.txt";
        QVERIFY(TestEnv::writeFile(item, "x"));
        Commands c;
        WindowActions actions(c);
        std::unique_ptr<QMenu> menu(actions.contentsMenu(item));
        QVERIFY(menu);
        QCOMPARE(menuTexts(menu.get()),
                 QStringList({qtTrId("ContextualMenuRevealInFinder").arg("report.txt"),
                              qtTrId("PutBackItem"), qtTrId("RestoreToItem"),
                              qtTrId("ContextualMenuDelete").arg("report.txt")}));
        // Put Back and Restore To are the window's own actions, with their state and shortcut.
        QCOMPARE(menu->actions()[2], actions.action(C::PutBack));
        for (QAction *a : menu->actions())
            a->trigger();
        QCOMPARE(c.calls,
                 QStringList({"showInFinder", "putBack", "copySelectedItems", "removeContents"}));
        QVERIFY(!actions.contentsMenu(item + ".gone"));
        QVERIFY(!actions.contentsMenu(QByteArray()));
    }

    void removalAlertAnswersWithCancelByDefault()
    {
        QWidget window;
        window.show();
        MessageBoxPresenter presenter(&window);
        Alerts::setPresenter(&presenter);

        pressInNextAlert(Qt::Key_Return);
        QVERIFY(!RemovalActions::confirm(RemovalActions::Command::Contents));
        pressInNextAlert(Qt::Key_Escape);
        QVERIFY(!RemovalActions::confirm(RemovalActions::Command::AllCaches));

        QMessageBox::Icon icon = QMessageBox::NoIcon;
        clickInNextAlert(qtTrId("DeleteButton"), &icon);
        QVERIFY(RemovalActions::confirm(RemovalActions::Command::Days));
        QCOMPARE(icon, QMessageBox::Critical);
        Alerts::setPresenter(nullptr);
    }
};

QTEST_MAIN(TstActions)
#include "tst_actions.moc"
