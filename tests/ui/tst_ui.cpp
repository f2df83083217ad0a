#include "TestEnv.h"

#include "ui/TableModel.h"
#include "ui/TableView.h"

#include <QApplication>
#include <QMenu>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTest>

namespace {

// A data source of n rows whose first column shows the row number.
class Rows : public TableDataSource
{
public:
    int n = 0;
    int numberOfRowsInTableView(const TableModel *) override { return n; }
    QVariant cellValue(const TableModel *, int row, const QString &column, int role) override
    {
        if (role == Qt::DisplayRole) return QStringLiteral("%1:%2").arg(column).arg(row);
        return {};
    }
};

// Hands the keys and menu requests of a list over, and remembers them.
class Delegate : public TableViewDelegate
{
public:
    QStringList keys;
    int menuRequests = 0;
    bool giveMenu = true;
    QList<int> selectionWhenAsked;
    TableView *view = nullptr;

    void doKeyDown(const QString &characters) override { keys.append(characters); }
    QMenu *getFloatingPopupMenu(TableView *table, TableView *forTable) override
    {
        ++menuRequests;
        if (table != view || forTable != view) return nullptr;
        selectionWhenAsked = table->selectedRowNumbers();
        if (!giveMenu) return nullptr;
        auto *m = new QMenu;
        m->addAction(QStringLiteral("item"));
        return m;
    }
};

} // namespace

// The lists of the window: their model, which keys reach the controller, how a right click changes
// the selection before the contextual menu, and Meta-click.
class TstUi : public QObject
{
    Q_OBJECT
    TestEnv env;
    QStandardItemModel *model = nullptr;
    TableView *view = nullptr;
    Delegate *delegate = nullptr;

    // A shown list of five rows, with a delegate.
    void makeView()
    {
        model = new QStandardItemModel(5, 2);
        for (int r = 0; r < 5; ++r)
            model->setItem(r, 0, new QStandardItem(QStringLiteral("row %1").arg(r)));
        view = new TableView;
        view->setModel(model);
        view->setSelectionMode(QAbstractItemView::ExtendedSelection);
        view->resize(300, 400);
        delegate = new Delegate;
        delegate->view = view;
        view->setDelegate(delegate);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view));
    }
    QPoint rowCenter(int row) const { return view->visualRect(model->index(row, 0)).center(); }
    static void closePopups()
    {
        while (QWidget *p = QApplication::activePopupWidget())
            p->close();
    }

private slots:
    void initTestCase() { qRegisterMetaType<QMenu *>(); }
    void cleanup()
    {
        closePopups();
        delete view;
        delete model;
        delete delegate;
        view = nullptr;
        model = nullptr;
        delegate = nullptr;
    }

    void reloadKeepsSelectedRowNumbers()
    {
        Rows rows;
        rows.n = 5;
        TableModel model(&rows, {QStringLiteral("1"), QStringLiteral("2")});
        TableView view;
        view.setModel(&model);
        model.reloadData();
        QCOMPARE(model.index(3, 1).data().toString(), QStringLiteral("2:3"));
        view.selectRowAlone(3);
        QSignalSpy changed(view.selectionModel(), &QItemSelectionModel::selectionChanged);
        // Growing or refreshing keeps row 3 selected, silently.
        rows.n = 8;
        model.reloadData();
        QVERIFY(view.selectedRowNumbers() == QList<int>{3} && changed.isEmpty());
        // Rows dropped at the end take their selection with them, and say so.
        rows.n = 2;
        model.reloadData();
        QVERIFY(view.selectedRowNumbers().isEmpty() && changed.size() == 1);
        // Selecting outside the table does nothing; so does selecting the selected row again.
        view.selectRowAlone(7);
        QCOMPARE(changed.size(), 1);
        view.selectRowAlone(1);
        view.selectRowAlone(1);
        QCOMPARE(changed.size(), 2);
        QCOMPARE(model.columnForIdentifier(QStringLiteral("3")), -1);
    }
    // A plain or shifted space goes to the delegate, with other modifiers it stays; other keys
    // keep their behaviour, and nothing can be dropped on a list.
    void keysAndDrops()
    {
        makeView();
        view->setFocus();
        for (Qt::KeyboardModifiers m :
             {Qt::KeyboardModifiers(Qt::AltModifier), Qt::ShiftModifier | Qt::ControlModifier})
            QTest::keyClick(view, Qt::Key_Space, m);
        QVERIFY(delegate->keys.isEmpty());
        QTest::keyClick(view, Qt::Key_Space);
        QTest::keyClick(view, Qt::Key_Space, Qt::ShiftModifier);
        QCOMPARE(delegate->keys, QStringList({" ", " "}));
        // The menu key and Shift+F10 ask for the menu of the current row.
        QTest::keyClick(view, Qt::Key_Menu);
        closePopups();
        QTest::keyClick(view, Qt::Key_F10, Qt::ShiftModifier);
        QCOMPARE(delegate->menuRequests, 2);
        view->selectRowAlone(1);
        QTest::keyClick(view, Qt::Key_Down);
        QCOMPARE(view->selectedRowNumbers(), QList<int>{2});
        // Without a delegate the space is the table's own.
        view->setDelegate(nullptr);
        QTest::keyClick(view, Qt::Key_Space);
        QCOMPARE(delegate->keys.size(), 2);
        QVERIFY(!view->acceptDrops() && !view->viewport()->acceptDrops());
    }

    void clicksSelectAndAskForTheMenu()
    {
        makeView();
        QSignalSpy shown(view, &TableView::contextualMenuShown);
        view->selectionModel()->select(model->index(1, 0),
                                       QItemSelectionModel::Select | QItemSelectionModel::Rows);
        view->selectionModel()->select(model->index(2, 0),
                                       QItemSelectionModel::Select | QItemSelectionModel::Rows);
        // Inside the selection: all of it stays.
        QTest::mouseClick(view->viewport(), Qt::RightButton, {}, rowCenter(2));
        QCOMPARE(delegate->selectionWhenAsked, QList<int>({1, 2}));
        QCOMPARE(shown.size(), 1);
        QVERIFY(QApplication::activePopupWidget());
        closePopups();
        // Outside it: that row alone.
        QTest::mouseClick(view->viewport(), Qt::RightButton, {}, rowCenter(4));
        QCOMPARE(delegate->selectionWhenAsked, QList<int>{4});
        QCOMPARE(view->selectedRow(), 4);
        closePopups();
        // Below the last row: nothing to select, the menu is still asked for.
        QTest::mouseClick(view->viewport(), Qt::RightButton, {}, QPoint(10, 390));
        QCOMPARE(delegate->selectionWhenAsked, QList<int>{4});
        QCOMPARE(delegate->menuRequests, 3);
        closePopups();
        // No menu given, no pop-up; no delegate, nobody asked.
        delegate->giveMenu = false;
        QTest::mouseClick(view->viewport(), Qt::RightButton, {}, rowCenter(0));
        QCOMPARE(delegate->menuRequests, 4);
        QVERIFY(shown.size() == 3 && !QApplication::activePopupWidget());
        delegate->giveMenu = true;
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, rowCenter(0));
        QCOMPARE(delegate->menuRequests, 4);
        // Control-click is the multiple selection here, not a menu.
        QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::ControlModifier, rowCenter(2));
        QCOMPARE(view->selectedRowNumbers(), QList<int>({0, 2}));
        QCOMPARE(delegate->menuRequests, 4);
        QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::MetaModifier, rowCenter(3));
        QCOMPARE(delegate->menuRequests, 5);
        QCOMPARE(delegate->selectionWhenAsked, QList<int>{3});
        closePopups();
        view->setDelegate(nullptr);
        QTest::mouseClick(view->viewport(), Qt::RightButton, {}, rowCenter(1));
        QCOMPARE(delegate->menuRequests, 5);
    }
};

QTEST_MAIN(TstUi)
#include "tst_ui.moc"
