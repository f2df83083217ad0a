#include "ui/TableView.h"

#include <QDrag>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>

#include <algorithm>

TableView::TableView(QWidget *parent) : QTableView(parent)
{
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setTextElideMode(Qt::ElideMiddle);
    setShowGrid(false);
    setWordWrap(false);
    setCornerButtonEnabled(false);
    setIconSize(QSize(16, 16));
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    verticalHeader()->hide();
    // One row height for all: a million rows then cost nothing to lay out.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(std::max(20, fontMetrics().height() + 4));
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    // The menu comes from mousePressEvent; a context-menu event must not reach the window too.
    setContextMenuPolicy(Qt::PreventContextMenu);
    setAcceptDrops(false);
    setDropIndicatorShown(false);
    // Tab moves on to the next control; the arrows move within the list.
    setTabKeyNavigation(false);
}

bool TableView::handsOverKey(const QString &text, Qt::KeyboardModifiers modifiers)
{
    constexpr Qt::KeyboardModifiers kBlocking = Qt::ControlModifier | Qt::AltModifier |
                                                Qt::MetaModifier | Qt::KeypadModifier |
                                                Qt::GroupSwitchModifier;
    return !text.isEmpty() && !(modifiers & kBlocking) && text.at(0).toLower() == QLatin1Char(' ');
}

void TableView::keyPressEvent(QKeyEvent *event)
{
    if (mDelegate && handsOverKey(event->text(), event->modifiers())) {
        mDelegate->doKeyDown(event->text());
        event->accept();
        return;
    }
    // The menu key and Shift+F10 open the contextual menu under the current row.
    const bool menuKey = event->key() == Qt::Key_Menu ||
                         (event->key() == Qt::Key_F10 && event->modifiers() == Qt::ShiftModifier);
    if (menuKey) {
        event->accept();
        const int row = selectedRow();
        const QRect cell = row >= 0 ? visualRect(model()->index(row, 0)) : QRect();
        const QPoint at = cell.isValid() ? cell.center() : QPoint(0, 0);
        doContextualMenu(viewport()->mapToGlobal(at));
        return;
    }
    QTableView::keyPressEvent(event);
}

void TableView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::RightButton) {
        // A click on an unselected row makes it the selection; a click inside the selection
        // keeps all of it. Where there is no row (-1) the selection stays.
        const int row = rowAt(event->position().toPoint().y());
        if (model() && row < model()->rowCount() && !isRowSelected(row)) selectRowAlone(row);
        event->accept();
        doContextualMenu(event->globalPosition().toPoint());
        return;
    }
    QTableView::mousePressEvent(event);
    // Qt's Meta is the key that the other platform calls Control, whose click is a right click
    // there; Ctrl-click stays Linux's multiple selection.
    if (event->button() == Qt::LeftButton && (event->modifiers() & Qt::MetaModifier))
        doContextualMenu(event->globalPosition().toPoint());
}

void TableView::doContextualMenu(const QPoint &globalPos)
{
    if (!mDelegate) return;
    QMenu *menu = mDelegate->getFloatingPopupMenu(this, this);
    if (!menu) return;
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(globalPos);
    emit contextualMenuShown(menu);
}

void TableView::startDrag(Qt::DropActions supportedActions)
{
    Q_UNUSED(supportedActions);
    const QList<int> rows = selectedRowNumbers();
    if (!mDelegate || rows.isEmpty()) return;
    QMimeData *data = mDelegate->writeRowsWithIndexes(this, rows);
    if (!data) return;
    auto *drag = new QDrag(this);
    drag->setMimeData(data);
    // The picture under the pointer: the dragged rows as they are drawn now (the delegate may
    // have switched the list to its drag style).
    QRect area;
    for (int r : rows)
        area |= visualRect(model()->index(r, 0))
                    .united(visualRect(model()->index(r, model()->columnCount() - 1)));
    area &= viewport()->rect();
    if (!area.isEmpty()) drag->setPixmap(viewport()->grab(area));
    // Items leave the cache only as copies.
    drag->exec(Qt::CopyAction, Qt::CopyAction);
}

QList<int> TableView::selectedRowNumbers() const
{
    QList<int> rows;
    if (!selectionModel()) return rows;
    for (const QModelIndex &i : selectionModel()->selectedRows())
        rows.append(i.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

int TableView::selectedRow() const
{
    if (selectionModel()) {
        const QModelIndex current = selectionModel()->currentIndex();
        if (current.isValid() && selectionModel()->isRowSelected(current.row(), QModelIndex()))
            return current.row();
    }
    const QList<int> rows = selectedRowNumbers();
    return rows.isEmpty() ? -1 : rows.first();
}

bool TableView::isRowSelected(int row) const
{
    return selectionModel() && model() && row >= 0 && row < model()->rowCount() &&
           selectionModel()->isRowSelected(row, QModelIndex());
}

void TableView::selectRowAlone(int row)
{
    if (!model() || !selectionModel() || row < 0 || row >= model()->rowCount()) return;
    const QModelIndex index = model()->index(row, 0);
    selectionModel()->select(index,
                             QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
    scrollTo(index);
}
