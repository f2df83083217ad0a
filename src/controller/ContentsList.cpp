#include "controller/AppDelegate.h"

#include "browser/ContentsSort.h"
#include "cache/CacheLayout.h"
#include "controller/ContentsScanJob.h"
#include "logic/IncompleteLookup.h"
#include "ui/TableView.h"
#include "ui/ZEL_Colors.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QTimer>

void AppDelegate::updateListOfContentsInCache(const QByteArray &timeFolder)
{
    // A scan is running: ask it to stop and try again shortly, until it has ended.
    if (mReadingCacheContents) {
        mReadingCacheContentsMustStop = true;
        QTimer::singleShot(kScanRetryMs, Qt::PreciseTimer, this,
                           [this, timeFolder] { updateListOfContentsInCache(timeFolder); });
        return;
    }

    // The origins of the list being replaced are not wanted any more.
    if (mOriginsJob) {
        mOriginsJob->originsMustStop = true;
        mOriginsJob.reset();
    }
    mContents = CacheItems();
    if (mIncomplete) mIncomplete->clear();
    mContentsModel->reloadData();
    clickContentsList();

    if (mVolumeNotMounted) {
        //% "This volume is not mounted: its items cannot be listed."
        setText(mContentsInfos, qtTrId("ContentsMessageNoVolume"),
                &ZEL_Colors::getRedColor_Adaptable);
        return;
    }

    mReadingCacheContents = true;

    // The days to scan: one time folder, or the selected days, or every day when none is.
    ContentsScanJob::Request request;
    if (!timeFolder.isEmpty()) {
        request.roots.append({timeFolder, true});
    } else {
        const QByteArray cache =
            CommonUtils::pathForCacheFolderInVolume(mSelectedVolumeMenu->currentIndex());
        const QList<int> selected = mTableViewDate->selectedRowNumbers();
        for (qsizetype row = 0; row < mDates.size(); ++row) {
            if (!selected.isEmpty() && !selected.contains(int(row))) continue;
            if (!cache.isEmpty()) request.roots.append({cache + '/' + mDates[row].name, false});
        }
    }
    request.search = mSearchString->text();
    request.sortOrder = sortOrder();

    auto job = std::make_shared<ContentsScanJob>(std::move(request), mReadingCacheContentsMustStop);
    mContentsJob = job;
    mHandOverScheduled = false;
    mSinceHandOver.invalidate();
    mHandOverPauseMs = kHandOverIntervalMs;
    Jobs::start([job, workers = mWorkers, this] {
        job->run([&] { workers->post([this, job] { contentsReady(job); }); },
                 [&] { workers->post([this, job] { endContentsScan(job); }); },
                 [&](ContentsScan::OriginFill::Batch &&batch) {
                     workers->post([this, job, first = batch.first, ids = std::move(batch.ids)] {
                         takeOrigins(job, first, ids);
                     });
                 },
                 [&] { workers->post([this, job] { endOrigins(job); }); });
    });
    emit contentsScanStarted();
}

void AppDelegate::contentsReady(const std::shared_ptr<ContentsScanJob> &job)
{
    if (job != mContentsJob || mHandOverScheduled) return;
    // At most one hand-over per pause: a fast scan piles up into fewer, larger merges.
    const qint64 elapsed = mSinceHandOver.isValid() ? mSinceHandOver.elapsed() : mHandOverPauseMs;
    if (elapsed >= mHandOverPauseMs) {
        takeContents(job);
        return;
    }
    mHandOverScheduled = true;
    QTimer::singleShot(int(mHandOverPauseMs - elapsed), Qt::PreciseTimer, this, [this, job] {
        mHandOverScheduled = false;
        if (job == mContentsJob) takeContents(job);
    });
}

void AppDelegate::takeContents(const std::shared_ptr<ContentsScanJob> &job)
{
    SortOrder sortedBy;
    CacheItems batch = job->take(&sortedBy);
    mSinceHandOver.start();
    if (batch.isEmpty()) return;
    const SortOrder current = sortOrder();
    if (sortedBy != current) ContentsSort::sort(batch, current); // sorted before the user re-sorted
    ContentsSort::mergeSortedInto(mContents, std::move(batch), current);
    mContentsModel->reloadData();
    // Each merge costs the whole list: as it grows, the pauses grow with it, so that the window
    // spends at most about a quarter of its time taking rows in.
    mHandOverPauseMs = std::max<qint64>(kHandOverIntervalMs, 3 * mSinceHandOver.elapsed());
    emit contentsListChanged();
}

void AppDelegate::endContentsScan(const std::shared_ptr<ContentsScanJob> &job)
{
    // The last rows first, then the message. The last hand-over does not wait for the pause:
    // the scan is over and nothing follows it.
    takeContents(job);
    mContentsJob.reset();
    mContents.shrinkToFit();
    // The rows are all in; their origins follow, unless this scan was stopped.
    if (mReadingCacheContentsMustStop)
        job->originsMustStop = true;
    else
        mOriginsJob = job;
    showEndOfScanMessage();
    mReadingCacheContents = false;
    mReadingCacheContentsMustStop = false;
    emit contentsScanEnded();
}

void AppDelegate::takeOrigins(const std::shared_ptr<ContentsScanJob> &job, std::uint32_t first,
                              const std::vector<std::uint32_t> &ids)
{
    if (job != mOriginsJob) return; // a late batch of a list that was replaced
    if (mContents.fillOrigins(job->table(), first, ids) == 0) return;
    mContentsModel->reloadData();
    updatePutBackAction();
}

void AppDelegate::endOrigins(const std::shared_ptr<ContentsScanJob> &job)
{
    if (job != mOriginsJob) return;
    mOriginsJob.reset();
    // Sorted by origin, the list was in name order among rows not filled yet.
    if (sortOrder().key == SortOrder::Origin) sortContents();
    emit contentsOriginsFilled();
}

void AppDelegate::showEndOfScanMessage()
{
    const qsizetype n = mContents.size();
    if (n == 1) {
        //% "1 item"
        setText(mContentsInfos, qtTrId("ContentsMessage"), &ZEL_Colors::getDarkGrayColor_Adaptable);
    } else if (n > 1) {
        //% "%1 items"
        setText(mContentsInfos, qtTrId("ContentsMessages").arg(QString::asprintf("%d", int(n))),
                &ZEL_Colors::getDarkGrayColor_Adaptable);
    } else if (!mSearchString->text().isEmpty()) {
        //% "No item matches the search."
        setText(mContentsInfos, qtTrId("ContentsMessageSearchEmpty"),
                &ZEL_Colors::getRedColor_Adaptable);
    } else {
        //% "No item in the cache for these days."
        setText(mContentsInfos, qtTrId("ContentsMessageEmpty"), &ZEL_Colors::getRedColor_Adaptable);
    }
}

void AppDelegate::sortContents()
{
    const SortOrder order = sortOrder();
    ContentsSort::sortCompact(mContents, order);
    // A running scan sorts what it finds from now on in the new order.
    if (mContentsJob) mContentsJob->sortOrder = order;
    mContentsModel->reloadData();
}
