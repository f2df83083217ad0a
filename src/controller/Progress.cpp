#include "controller/AppDelegate.h"

#include "logic/RemovalQueue.h"
#include "logic/WorkProgress.h"

#include <QMainWindow>
#include <QStatusBar>

void AppDelegate::setUpProgress()
{
    mProgress = new WorkProgress(this);
    mRemovals = new RemovalQueue(mProgress, this);
    mCopyJobs.setProgress(mProgress);
    mCopyJobs.setReporter(mWorkers,
                          [this](const RestoreReport &report) { restoreFinished(report); });
    buildProgressAreas(*mProgress);
    // Connected after the areas, so that they are up to date when the bar is shown.
    connect(mProgress, &WorkProgress::changed, this, &AppDelegate::progressChanged);
    progressChanged();
}

void AppDelegate::progressChanged()
{
    // The window had no status bar before; it appears only while there is work to show.
    const bool shown = mProgress->summary(WorkJob::Kind::Restore).visible ||
                       mProgress->summary(WorkJob::Kind::Removal).visible;
    window->statusBar()->setVisible(shown);
}
