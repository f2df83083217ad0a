#include "ui/PartsDelegate.h"

#include "ui/TableModel.h"
#include "ui/ZEL_Colors.h"

#include <QApplication>
#include <QPainter>

void PartsDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const
{
    const QVariant parts = index.data(TableModel::PartsRole);
    if (!parts.canConvert<QList<TextPart>>()) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    // The background, selection and icon as usual, without text.
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    opt.text.clear();
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    QRect rect = style->subElementRect(QStyle::SE_ItemViewItemText, &opt, widget);
    const bool selected = opt.state & QStyle::State_Selected;
    painter->save();
    painter->setClipRect(rect);
    int x = rect.left();
    for (const TextPart &part : parts.value<QList<TextPart>>()) {
        const QFont font = TableModel::fontOfSize(part.pointSize);
        const QFontMetrics fm(font);
        const int width = rect.right() - x;
        if (width <= 0) break;
        const QString text = fm.elidedText(part.text, Qt::ElideMiddle, width);
        painter->setFont(font);
        painter->setPen(selected ? ZEL_Colors::getControlBackground_Adaptable() : part.color);
        painter->drawText(QRect(x, rect.top(), width, rect.height()),
                          Qt::AlignLeft | Qt::AlignVCenter, text);
        x += fm.horizontalAdvance(text);
    }
    painter->restore();
}

QSize PartsDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    const QVariant parts = index.data(TableModel::PartsRole);
    if (parts.canConvert<QList<TextPart>>()) {
        int width = 24;
        for (const TextPart &part : parts.value<QList<TextPart>>())
            width +=
                QFontMetrics(TableModel::fontOfSize(part.pointSize)).horizontalAdvance(part.text);
        size.setWidth(std::max(size.width(), width));
    }
    return size;
}
