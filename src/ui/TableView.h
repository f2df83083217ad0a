#pragma once

#include <QTableView>

// The window's lists: whole-row selection, one uniform row height (so that a million rows cost
// nothing to lay out), long names shortened in the middle, no row numbers.
class TableView : public QTableView
{
    Q_OBJECT
public:
    explicit TableView(QWidget *parent = nullptr);

    // Selected row numbers, ascending.
    QList<int> selectedRowNumbers() const;
    // The row selected last (or the first selected one), -1 when none is selected.
    int selectedRow() const;
    bool isRowSelected(int row) const;
    // Makes `row` the only selected row and scrolls it into view; a row outside the table is
    // ignored. Raises the selection change only when the selection really changes.
    void selectRowAlone(int row);
};
