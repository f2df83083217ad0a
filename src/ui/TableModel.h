#pragma once

#include <QAbstractTableModel>
#include <QColor>
#include <QList>
#include <QStringList>

class TableModel;

// Supplies a table's rows, like a table view's data source: the table owns no data, it asks for
// the row count when reloaded and for each cell's values while the cell is drawn.
class TableDataSource
{
public:
    virtual ~TableDataSource() = default;
    virtual int numberOfRowsInTableView(const TableModel *table) = 0;
    // One role of one cell; `column` is the column's identifier ("1", "2", "3").
    virtual QVariant cellValue(const TableModel *table, int row, const QString &column,
                               int role) = 0;
};

class TableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    TableModel(TableDataSource *source, const QStringList &columnIdentifiers,
               QObject *parent = nullptr);

    void setHeaderTitles(const QStringList &titles);
    QString columnIdentifier(int column) const { return mColumns.value(column); }
    int columnForIdentifier(const QString &identifier) const
    {
        return int(mColumns.indexOf(identifier));
    }

    // Re-reads the row count and redraws every row. Rows come and go at the end only, so the
    // selected row numbers stay as they were, as long as they still exist.
    void reloadData();

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    // The font of a cell text given in the window's scale (13 regular, 12 and 11 smaller).
    static QFont fontOfSize(int pointSize);

private:
    TableDataSource *mSource;
    QStringList mColumns;
    QStringList mTitles;
    int mRowCount = 0;
};
