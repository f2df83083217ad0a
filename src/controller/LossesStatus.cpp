#include "controller/AppDelegate.h"

#include "common/LossWatch.h"
#include "logic/IncompleteLookup.h"
#include "ui/LossesDialog.h"
#include "ui/ZEL_Colors.h"

#include <QLabel>
#include <QMainWindow>
#include <QVBoxLayout>

void AppDelegate::watchLosses()
{
    // Under the status lines; shown only while there are losses the user has not seen.
    mLossesInfo = new QLabel(window);
    mLossesInfo->setTextFormat(Qt::RichText);
    mLossesInfo->setTextInteractionFlags(Qt::LinksAccessibleByMouse |
                                         Qt::LinksAccessibleByKeyboard);
    mLossesInfo->hide();
    if (auto *layout = qobject_cast<QVBoxLayout *>(mProtectionInfosMore->parentWidget()->layout()))
        layout->insertWidget(layout->indexOf(mProtectionInfosMore) + 1, mLossesInfo);
    connect(mLossesInfo, &QLabel::linkActivated, this, [this] { showLosses(); });

    mLossWatch = new LossWatch(this);
    connect(mLossWatch, &LossWatch::changed, this, &AppDelegate::updateLossesInfo);
    mLossWatch->start();

    mIncomplete = new IncompleteLookup(this);
    connect(mIncomplete, &IncompleteLookup::loaded, mContentsModel, &TableModel::reloadData);
}

void AppDelegate::updateLossesInfo()
{
    const QString text = Losses::summaryText(mLossWatch->summary());
    mLossesInfo->setVisible(!text.isEmpty());
    if (text.isEmpty()) return;
    //% "Show Which…"
    setText(mLossesInfo,
            QStringLiteral("%1 <a href=\"losses\">%2</a>")
                .arg(text.toHtmlEscaped(), qtTrId("LossesShow").toHtmlEscaped()),
            &ZEL_Colors::getRedColor_Adaptable);
}

void AppDelegate::showLosses()
{
    if (!mLossesDialog) mLossesDialog = new LossesDialog(mLossWatch, window);
    mLossesDialog->present();
}
