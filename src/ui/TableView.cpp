#include "ui/TableView.h"

#include <QHeaderView>

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
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(std::max(20, fontMetrics().height() + 4));
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
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
    // The row selected last, as the current index tells, else the first of the selection.
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
