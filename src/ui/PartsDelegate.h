#pragma once

#include <QStyledItemDelegate>

// Draws a cell whose text is a list of TextPart (TableModel::PartsRole), each in its own colour
// and size, after the cell's icon. On a selected row every part takes the selection's text colour.
class PartsDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};
