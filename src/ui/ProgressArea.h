#pragma once

#include "logic/WorkProgress.h"

#include <QWidget>

class QLabel;
class QProgressBar;
class QToolButton;

// One row of the window's status bar that follows one kind of long work: "Restoring 12 of 340",
// a bar and a cancel button. Hidden while WorkProgress says the work is not worth showing.
class ProgressArea : public QWidget
{
    Q_OBJECT
public:
    ProgressArea(WorkProgress &progress, WorkJob::Kind kind, QWidget *parent = nullptr);

    static QString text(WorkJob::Kind kind, qint64 done, qint64 total);

    QLabel *label() const { return mLabel; }
    QProgressBar *bar() const { return mBar; }
    QToolButton *cancelButton() const { return mCancel; }

    // Reads the progress again (it calls this on every change).
    void refresh();

private:
    WorkProgress &mProgress;
    const WorkJob::Kind mKind;
    QLabel *mLabel;
    QProgressBar *mBar;
    QToolButton *mCancel;
};
