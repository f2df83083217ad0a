#pragma once

#include <QTableView>

class QMenu;
class QMimeData;
class TableView;

// What a list asks of its controller. The controller is the delegate of every list.
class TableViewDelegate
{
public:
    virtual ~TableViewDelegate() = default;
    // The preview key (space, with at most Shift held) typed in a list.
    virtual void doKeyDown(const QString &characters) = 0;
    // The contextual menu for a list, which is passed twice; nullptr for none. The list shows
    // the menu and deletes it once it closes.
    virtual QMenu *getFloatingPopupMenu(TableView *table, TableView *forTable)
    {
        Q_UNUSED(table);
        Q_UNUSED(forTable);
        return nullptr;
    }
    // The data of a drag out of a list for its dragged rows (ascending); nullptr starts no drag.
    virtual QMimeData *writeRowsWithIndexes(TableView *table, const QList<int> &rows)
    {
        Q_UNUSED(table);
        Q_UNUSED(rows);
        return nullptr;
    }
};

// The window's lists: whole-row selection, no row numbers, one row height for all (a million
// rows cost nothing to lay out), long names shortened in the middle. Turns the space bar, the right
// click and the Meta-click into requests to its delegate; every other key and click keeps the
// standard behaviour. Nothing can be dropped on a list.
class TableView : public QTableView
{
    Q_OBJECT
public:
    explicit TableView(QWidget *parent = nullptr);

    void setDelegate(TableViewDelegate *delegate) { mDelegate = delegate; }
    TableViewDelegate *delegate() const { return mDelegate; }

    // Whether a key with this text and these modifiers goes to the delegate's doKeyDown: a
    // space with no modifier but Shift. Caps Lock is no modifier in Qt and never counts.
    static bool handsOverKey(const QString &text, Qt::KeyboardModifiers modifiers);

    // Selected row numbers, ascending.
    QList<int> selectedRowNumbers() const;
    // The row selected last (or the first selected one), -1 when none is selected.
    int selectedRow() const;
    bool isRowSelected(int row) const;
    // Makes `row` the only selected row and scrolls it into view; a row outside the table
    // changes nothing. The selection change is raised only when the selection really changes.
    void selectRowAlone(int row);

    // Asks the delegate for a menu and pops it up at the global position.
    void doContextualMenu(const QPoint &globalPos);

signals:
    // A contextual menu was popped up (for tests and accessibility tools).
    void contextualMenuShown(QMenu *menu);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void startDrag(Qt::DropActions supportedActions) override;

private:
    TableViewDelegate *mDelegate = nullptr;
};
