#pragma once

#include "controller/AppDelegate.h"

// What tests and benchmarks may see of the window: its widgets, the lists it shows and the
// workers' flags, read-only but for the two selections that a test sets before a refresh.
// The controller's members stay its own; nothing else reaches them.
class WindowProbe
{
public:
    explicit WindowProbe(AppDelegate &controller) : c(controller) {}

    const MainWindowOutlets &ui() const { return c; }
    const QList<DayEntry> &days() const { return c.mDates; }
    const CacheItems &contents() const { return c.mContents; }
    const QList<VolumeMenuEntry> &protectedVolumes() const { return c.mProtectedVolumes; }
    const QByteArrayList &cacheTimesInDay() const { return c.mCacheTimesInDay; }
    qint64 selectedDate() const { return c.mSelectedDate; }
    SortOrder sortOrder() const { return c.sortOrder(); }
    bool firstUse() const { return c.mFirstUse; }
    bool volumeNotMounted() const { return c.mVolumeNotMounted; }
    bool drawingDragImage() const { return c.mDrawingDragImage; }
    bool scanning() const { return c.mReadingCacheContents; }
    bool scanMustStop() const { return c.mReadingCacheContentsMustStop; }
    bool sizing() const { return c.mCalculatingSizeContents; }
    bool sizingMustStop() const { return c.mCalculatingSizeContentsMustStop; }
    QLabel *lossesInfo() const { return c.mLossesInfo; }
    LossesDialog *lossesDialog() const { return c.mLossesDialog; }
    LossWatch *lossWatch() const { return c.mLossWatch; }
    RemovalQueue *removals() const { return c.mRemovals; }
    QuickLook &quickLook() const { return c.mQuickLook; }

    void setSelectedDate(qint64 date) { c.mSelectedDate = date; }
    void setCacheTimesInDay(const QByteArrayList &timeFolders) { c.mCacheTimesInDay = timeFolders; }

private:
    AppDelegate &c;
};
