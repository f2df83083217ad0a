#pragma once

#include "controller/AppDelegate.h"

// What tests and benchmarks may see of the window: its widgets, the lists it shows and the
// workers' flags, read-only but for the two selections that a test sets before a refresh.
// The controller's members stay its own; nothing else reaches them.
class WindowProbe
{
public:
    explicit WindowProbe(AppDelegate &controller) : mController(controller) {}

    const MainWindowOutlets &ui() const { return mController; }
    const QList<DayEntry> &days() const { return mController.mDates; }
    const CacheItems &contents() const { return mController.mContents; }
    const QList<VolumeMenuEntry> &protectedVolumes() const { return mController.mProtectedVolumes; }
    const QByteArrayList &cacheTimesInDay() const { return mController.mCacheTimesInDay; }
    qint64 selectedDate() const { return mController.mSelectedDate; }
    SortOrder sortOrder() const { return mController.sortOrder(); }
    bool firstUse() const { return mController.mFirstUse; }
    bool volumeNotMounted() const { return mController.mVolumeNotMounted; }
    bool drawingDragImage() const { return mController.mDrawingDragImage; }
    bool scanning() const { return mController.mReadingCacheContents; }
    bool scanMustStop() const { return mController.mReadingCacheContentsMustStop; }
    bool sizing() const { return mController.mCalculatingSizeContents; }
    bool sizingMustStop() const { return mController.mCalculatingSizeContentsMustStop; }
    QLabel *lossesInfo() const { return mController.mLossesInfo; }
    LossesDialog *lossesDialog() const { return mController.mLossesDialog; }
    LossWatch *lossWatch() const { return mController.mLossWatch; }
    RemovalQueue *removals() const { return mController.mRemovals; }
    QuickLook &quickLook() const { return mController.mQuickLook; }

    void setSelectedDate(qint64 date) { mController.mSelectedDate = date; }
    void setCacheTimesInDay(const QByteArrayList &timeFolders)
    {
        mController.mCacheTimesInDay = timeFolders;
    }

private:
    AppDelegate &mController;
};
