#include "ui/TableModel.h"

#include <QApplication>
#include <QFont>

TableModel::TableModel(TableDataSource *source, const QStringList &columnIdentifiers,
                       QObject *parent)
    : QAbstractTableModel(parent), mSource(source), mColumns(columnIdentifiers)
{
}

void TableModel::setHeaderTitles(const QStringList &titles)
{
    mTitles = titles;
    if (!mColumns.isEmpty()) emit headerDataChanged(Qt::Horizontal, 0, int(mColumns.size()) - 1);
}

void TableModel::reloadData()
{
    const int n = std::max(0, mSource->numberOfRowsInTableView(this));
    if (n > mRowCount) {
        beginInsertRows(QModelIndex(), mRowCount, n - 1);
        mRowCount = n;
        endInsertRows();
    } else if (n < mRowCount) {
        beginRemoveRows(QModelIndex(), n, mRowCount - 1);
        mRowCount = n;
        endRemoveRows();
    }
    if (n > 0 && !mColumns.isEmpty())
        emit dataChanged(index(0, 0), index(n - 1, int(mColumns.size()) - 1));
}

int TableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : mRowCount;
}

int TableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(mColumns.size());
}

QVariant TableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= mRowCount || index.column() >= mColumns.size())
        return {};
    return mSource->cellValue(this, index.row(), mColumns[index.column()], role);
}

QVariant TableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole) return mTitles.value(section);
    return QAbstractTableModel::headerData(section, orientation, role);
}

Qt::ItemFlags TableModel::flags(const QModelIndex &index) const
{
    if (!index.isValid()) return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

QFont TableModel::fontOfSize(int pointSize)
{
    QFont font = QApplication::font();
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * pointSize / 13.0);
    else if (font.pixelSize() > 0)
        font.setPixelSize(std::max(1, font.pixelSize() * pointSize / 13));
    return font;
}
