#include "ui/LossesDialog.h"

#include "common/LossWatch.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

// Paths are bytes: shown with replacement characters where they are not UTF-8, and with no
// control character that could break the row.
QString displayPath(const QByteArray &path)
{
    QString text = QString::fromUtf8(path);
    for (QChar &c : text)
        if (c.category() == QChar::Other_Control) c = QChar::ReplacementCharacter;
    return text;
}

} // namespace

LossesDialog::LossesDialog(LossWatch *watch, QWidget *parent)
    : QDialog(parent), mWatch(watch), mSummary(new QLabel(this)), mList(new QTreeWidget(this))
{
    setModal(false);
    //% "Items Not Kept"
    setWindowTitle(qtTrId("LossesTitle"));
    mSummary->setTextFormat(Qt::PlainText);
    mSummary->setWordWrap(true);

    mList->setRootIsDecorated(false);
    mList->setUniformRowHeights(true);
    mList->setSelectionMode(QAbstractItemView::ExtendedSelection);
    //% "Time"
    const QString time = qtTrId("LossesColumnTime");
    //% "Item"
    const QString item = qtTrId("LossesColumnItem");
    //% "Kept"
    const QString kept = qtTrId("LossesColumnKept");
    //% "Reason"
    const QString reason = qtTrId("LossesColumnReason");
    mList->setHeaderLabels({time, item, kept, reason});
    mList->header()->setStretchLastSection(true);
    mList->header()->resizeSection(1, 320);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    //% "Mark as Seen"
    mMarkSeen = buttons->addButton(qtTrId("LossesMarkSeen"), QDialogButtonBox::ActionRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    connect(mMarkSeen, &QPushButton::clicked, this, [this] {
        mWatch->markSeen();
        close();
    });

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(mSummary);
    layout->addWidget(mList);
    layout->addWidget(buttons);
    resize(760, 320);

    connect(mWatch, &LossWatch::changed, this, &LossesDialog::fill);
    fill();
}

void LossesDialog::present()
{
    fill();
    show();
    raise();
    activateWindow();
}

void LossesDialog::fill()
{
    const QList<Losses::Loss> &losses = mWatch->losses();
    const QString summary = Losses::summaryText(mWatch->summary());
    //% "Every item was kept."
    mSummary->setText(summary.isEmpty() ? qtTrId("LossesNone") : summary);
    mMarkSeen->setEnabled(!losses.isEmpty());
    mList->clear();
    QList<QTreeWidgetItem *> rows;
    rows.reserve(losses.size());
    const QLocale locale;
    //% "In part"
    const QString inPart = qtTrId("LossesKeptInPart");
    //% "No"
    const QString no = qtTrId("LossesNotKept");
    for (const Losses::Loss &l : losses) {
        const QString path = displayPath(l.path);
        auto *row = new QTreeWidgetItem(QStringList{locale.toString(l.time, QLocale::ShortFormat),
                                                    path, l.partly ? inPart : no, l.reason});
        row->setToolTip(1, path);
        row->setToolTip(3, l.reason);
        rows.append(row);
    }
    mList->addTopLevelItems(rows);
    mList->resizeColumnToContents(0);
    mList->resizeColumnToContents(2);
}
