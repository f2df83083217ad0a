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

// Acts on the message box that the next alert opens.
void inNextAlert(const std::function<void(QMessageBox *)> &act)
{
    QTimer::singleShot(0, [act] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        box ? act(box) : inNextAlert(act);
    });
}

} // namespace

class TstActions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }

    // The toolbar in its default order, what it sends, and enabling by identifier.
    void toolbar()
    {
        Commands c;
        WindowActions actions(c);
        QToolBar bar;
        actions.populateToolbar(&bar);
        QStringList ids;
        for (const QAction *a : bar.actions())
            ids.append(a->objectName());
        QCOMPARE(ids, WindowActions::toolbarAllowedItemIdentifiers());
        QVERIFY(!actions.toolbarItem(QStringLiteral("space")));
        actions.toolbarItem(QStringLiteral("copyButton"))->trigger();
        actions.toolbarItem(QStringLiteral("protectionOFF"))->trigger();
        QCOMPARE(c.calls, QStringList({"copySelectedItems", "protectionOFF"}));

        // Only the item named changes; no bar is no harm.
        WindowActions::enableToolBarItem(nullptr, QStringLiteral("copyButton"), false);
        WindowActions::enableToolBarItem(&bar, QStringLiteral("copyButton"), false);
        for (QAction *a : bar.actions())
            QCOMPARE(a->isEnabled(), a->objectName() != QLatin1String("copyButton"));
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
        // Every toolbar command is in a menu too.
        for (C command : {C::About, C::Preferences, C::RemoveSelectedDays, C::RemoveAllCaches,
                          C::GetStatus, C::OpenLogs, C::ToggleProtection, C::TogglePreview,
                          C::ShowHelp, C::Quit, C::PutBack, C::CopyItems, C::RemoveItems,
                          C::ProtectionON, C::ProtectionOFF, C::Refresh, C::FocusSearch}) {
            QVERIFY(all.contains(actions.action(command)));
            actions.action(command)->trigger();
        }
        QCOMPARE(c.calls, QStringList({"aboutWindow", "editPreferences", "removeSelectedDays",
                                       "removeAllCaches", "getStatus", "openLogs",
                                       "toggleProtection", "toggleQL", "showHelp", "quit",
                                       "putBack", "copySelectedItems", "removeContents",
                                       "protectionON", "protectionOFF", "refresh", "focusSearch"}));
        // Destructive commands get no shortcut (the others: tst_window's keys).
        QCOMPARE(actions.action(C::FocusSearch)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_F));
        for (C command : {C::RemoveAllCaches, C::RemoveSelectedDays})
            QVERIFY(actions.action(command)->shortcut().isEmpty());
    }

    // A day's menu lists its moments (time folders only); an item's names it.
    void contextualMenus()
    {
        TestEnv env;
        const QByteArray day = env.homeBytes() + "/.Salvora3Cache/2024-05-03";
        QVERIFY(TestEnv::makeFolders(day + "/2024-05-03 14_07_33"));
        QVERIFY(TestEnv::makeFolders(day + "/2024-05-03 09_15_00"));
        QVERIFY(TestEnv::writeFile(day + "/2024-05-03 20_00_00", "a stray file"));
        QVERIFY(TestEnv::makeFolders(day + "/other"));

        Commands c;
        WindowActions actions(c);
        QByteArrayList times{"stale"};
        std::unique_ptr<QMenu> menu(actions.dayMenu(day, times));
        QCOMPARE(menuTexts(menu.get()), QStringList({qtTrId("MovedIntoCacheAt").arg("09:15:00"),
                                                     qtTrId("MovedIntoCacheAt").arg("14:07:33")}));
        QCOMPARE(times,
                 QByteArrayList({day + "/2024-05-03 09_15_00", day + "/2024-05-03 14_07_33"}));
        menu->actions()[1]->trigger();
        QCOMPARE(c.calls, QStringList{"time:1"});

        std::unique_ptr<QMenu> none(actions.dayMenu(day + "/missing", times));
        QVERIFY(none && none->actions().isEmpty() && times.isEmpty());

        const QByteArray item = day + "/2024-05-03 09_15_00/report.txt";
        QVERIFY(TestEnv::writeFile(item, "x"));
        c.calls.clear();
        menu.reset(actions.contentsMenu(item));
        QCOMPARE(menuTexts(menu.get()).first(),
                 qtTrId("ContextualMenuRevealInFinder").arg("report.txt"));
        // Put Back and Restore To are the window's own actions, with their state and shortcut.
        QCOMPARE(menu->actions()[2], actions.action(C::PutBack));
        for (QAction *a : menu->actions())
            a->trigger();
        QCOMPARE(c.calls,
                 QStringList({"showInFinder", "putBack", "copySelectedItems", "removeContents"}));
        QVERIFY(!actions.contentsMenu(item + ".gone"));
    }

    void removalAlertAnswersWithCancelByDefault()
    {
        QWidget window;
        window.show();
        MessageBoxPresenter presenter(&window);
        Alerts::setPresenter(&presenter);

        for (Qt::Key key : {Qt::Key_Return, Qt::Key_Escape}) {
            inNextAlert([key](QMessageBox *box) { QTest::keyClick(box, key); });
            QVERIFY(!RemovalActions::confirm(RemovalActions::Command::Contents));
        }
        inNextAlert([&](QMessageBox *box) {
            for (QAbstractButton *b : box->buttons())
                if (b->text() == qtTrId("DeleteButton")) b->click();
        });
        QVERIFY(RemovalActions::confirm(RemovalActions::Command::Days));
        Alerts::setPresenter(nullptr);
    }
};

QTEST_MAIN(TstActions)
#include "tst_actions.moc"
