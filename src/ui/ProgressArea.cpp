#include "ui/ProgressArea.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QToolButton>

#include <limits>

ProgressArea::ProgressArea(WorkProgress &progress, WorkJob::Kind kind, QWidget *parent)
    : QWidget(parent), mProgress(progress), mKind(kind), mLabel(new QLabel(this)),
      mBar(new QProgressBar(this)), mCancel(new QToolButton(this))
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(mLabel);
    layout->addWidget(mBar);
    layout->addWidget(mCancel);
    mLabel->setTextFormat(Qt::PlainText);
    // The label says the counts already.
    mBar->setTextVisible(false);
    mBar->setMaximumWidth(200);
    mCancel->setIcon(QIcon::fromTheme(QStringLiteral("process-stop")));
    mCancel->setAutoRaise(true);
    //% "Cancel"
    const QString cancel = qtTrId("CancelButton");
    mCancel->setToolTip(cancel);
    mCancel->setAccessibleName(cancel);
    // Without a themed icon the button still says what it does.
    if (mCancel->icon().isNull()) mCancel->setText(cancel);
    connect(mCancel, &QToolButton::clicked, this, [this] {
        // Greyed at once: the work may end before the next update says it is stopping.
        mCancel->setEnabled(false);
        mProgress.cancel(mKind);
    });
    connect(&mProgress, &WorkProgress::changed, this, &ProgressArea::refresh);
    refresh();
}

QString ProgressArea::text(WorkJob::Kind kind, qint64 done, qint64 total)
{
    if (kind == WorkJob::Kind::Restore)
        //% "Restoring %1 of %2"
        return qtTrId("ProgressRestoring").arg(done).arg(total);
    //% "Deleting %1 of %2"
    return qtTrId("ProgressDeleting").arg(done).arg(total);
}

void ProgressArea::refresh()
{
    const WorkProgress::Summary s = mProgress.summary(mKind);
    if (s.visible) {
        mLabel->setText(text(mKind, s.done, s.total));
        // A bar moves in whole items; for one item (a big folder) it only says work goes on.
        constexpr qint64 kMax = std::numeric_limits<int>::max();
        const qint64 scale = s.total > kMax ? s.total / kMax + 1 : 1;
        if (s.total <= 1) {
            mBar->setRange(0, 0);
        } else {
            mBar->setRange(0, int(s.total / scale));
            mBar->setValue(int(qMin(s.done, s.total) / scale));
        }
        mCancel->setEnabled(!s.stopping);
    }
    setVisible(s.visible);
}
