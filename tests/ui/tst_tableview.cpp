// The lists' own key and mouse handling: which space presses reach the controller, how a right
// click changes the selection before the contextual menu, and Meta-click.

#include "ui/TableView.h"

#include <QApplication>
#include <QMenu>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTest>

namespace {

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

class TstTableView : public QObject
{
    Q_OBJECT
    QStandardItemModel *model = nullptr;
    TableView *view = nullptr;
    Delegate *delegate = nullptr;

    QPoint rowCenter(int row) const { return view->visualRect(model->index(row, 0)).center(); }
    void closePopups()
    {
        while (QWidget *p = QApplication::activePopupWidget())
            p->close();
    }

private slots:
    void initTestCase() { qRegisterMetaType<QMenu *>(); }
    void init()
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
    void cleanup()
    {
        closePopups();
        delete view;
        delete model;
        delete delegate;
    }

    void spaceReachesTheDelegate_data()
    {
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<bool>("handed");
        QTest::newRow("plain") << int(Qt::NoModifier) << true;
        QTest::newRow("shift") << int(Qt::ShiftModifier) << true;
        QTest::newRow("control") << int(Qt::ControlModifier) << false;
        QTest::newRow("alt") << int(Qt::AltModifier) << false;
        QTest::newRow("meta") << int(Qt::MetaModifier) << false;
        QTest::newRow("keypad") << int(Qt::KeypadModifier) << false;
        QTest::newRow("shift+control") << int(Qt::ShiftModifier | Qt::ControlModifier) << false;
    }
    void spaceReachesTheDelegate()
    {
        QFETCH(int, modifiers);
        QFETCH(bool, handed);
        view->setFocus();
        QTest::keyClick(view, Qt::Key_Space, Qt::KeyboardModifiers(modifiers));
        QCOMPARE(delegate->keys.size(), handed ? 1 : 0);
        if (handed) QCOMPARE(delegate->keys.first(), QStringLiteral(" "));
    }

    void otherKeysKeepTheirBehaviour()
    {
        view->selectRowAlone(1);
        view->setFocus();
        QTest::keyClick(view, Qt::Key_Down);
        QCOMPARE(view->selectedRowNumbers(), QList<int>{2});
        QTest::keyClick(view, Qt::Key_A);
        QVERIFY(delegate->keys.isEmpty());
        // Without a delegate the space is the table's own.
        view->setDelegate(nullptr);
        QTest::keyClick(view, Qt::Key_Space);
        QVERIFY(delegate->keys.isEmpty());
        QVERIFY(TableView::handsOverKey(QStringLiteral(" "), Qt::ShiftModifier));
        QVERIFY(!TableView::handsOverKey(QString(), Qt::NoModifier));
    }

    void rightClickSelectsTheRowUnderThePointer()
    {
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
    }

    void noMenuNoPopup()
    {
        QSignalSpy shown(view, &TableView::contextualMenuShown);
        delegate->giveMenu = false;
        QTest::mouseClick(view->viewport(), Qt::RightButton, {}, rowCenter(0));
        QCOMPARE(delegate->menuRequests, 1);
        QCOMPARE(shown.size(), 0);
        QVERIFY(!QApplication::activePopupWidget());
        view->setDelegate(nullptr);
        QTest::mouseClick(view->viewport(), Qt::RightButton, {}, rowCenter(1));
        QCOMPARE(delegate->menuRequests, 1);
    }

    void metaClickSelectsThenShowsTheMenu()
    {
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, rowCenter(0));
        QCOMPARE(delegate->menuRequests, 0);
        // Control-click is the multiple selection here, not a menu.
        QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::ControlModifier, rowCenter(2));
        QCOMPARE(view->selectedRowNumbers(), QList<int>({0, 2}));
        QCOMPARE(delegate->menuRequests, 0);
        QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::MetaModifier, rowCenter(3));
        QCOMPARE(delegate->menuRequests, 1);
        QCOMPARE(delegate->selectionWhenAsked, QList<int>{3});
    }

    void nothingCanBeDropped()
    {
        QVERIFY(!view->acceptDrops());
        QVERIFY(!view->viewport()->acceptDrops());
    }
};

QTEST_MAIN(TstTableView)
#include "tst_tableview.moc"
