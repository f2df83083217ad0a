#include "controller/AppDelegate.h"

#include "browser/SizeCalculation.h"
#include "common/SizeText.h"
#include "ui/TableView.h"
#include "ui/ZEL_Colors.h"

#include <QDateTime>
#include <QLabel>
#include <QLocale>
#include <QTimer>

#include <sys/stat.h>

void AppDelegate::calcSizeContents(const QByteArray &path)
{
    if (!mCalculatingSizeContents) {
        mCalculatingSizeContents = true;
        mCalculatingSizeContentsMustStop = false;
        Jobs::start([workers = mWorkers, path, this] {
            workers->nextRefresh = SizeCalculation::now() + SizeCalculation::kRefreshInterval;
            workers->post([this] { updateSizeContents(0); });
            const std::int64_t total = SizeCalculation::calcSizeContentsFor(
                path, workers->calculatingSizeContentsMustStop, workers->nextRefresh,
                [&](std::int64_t subtotal) {
                    workers->post([this, subtotal] { updateSizeContents(subtotal); });
                });
            // The flags are cleared where the updates are shown, after the last of them: a new
            // calculation can only start once every update of this one has been handled.
            workers->post([this, total] {
                updateSizeContents(total);
                mCalculatingSizeContents = false;
                mCalculatingSizeContentsMustStop = false;
            });
        });
        return;
    }
    // One at a time: stop the running one and try again until it has ended. Every request keeps
    // its own retry, so requests run one after another.
    mCalculatingSizeContentsMustStop = true;
    QTimer::singleShot(kSizeRetryMs, Qt::PreciseTimer, this,
                       [this, path] { calcSizeContents(path); });
}

void AppDelegate::updateSizeContents(qint64 size)
{
    QString text;
    const int r = mTableViewContents->selectedRow();
    if (r >= 0 && r < mContents.size()) {
        const QByteArray path = mContents.fullPath(r);
        text = mContents.displayName(r);
        struct stat st
        {
        };
        if (lstat(path.constData(), &st) == 0) {
            text += QLatin1Char('\n');
            const QDateTime modified = QDateTime::fromSecsSinceEpoch(st.st_mtim.tv_sec);
            text += QLocale().toString(modified, QLocale::ShortFormat);
            text += QLatin1String(" - ") + CommonUtils::getSizeStr(size);
        }
    } else {
        // The user has left the list: the walk can end.
        mCalculatingSizeContentsMustStop = true;
    }
    setText(mContentsInfos, text, &ZEL_Colors::getDarkGrayColor_Adaptable);
    emit sizeContentsUpdated(size);
}
