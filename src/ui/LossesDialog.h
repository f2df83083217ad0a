#pragma once

#include <QDialog>

class LossWatch;
class QLabel;
class QPushButton;
class QTreeWidget;

// The items that could not be kept, or only in part, since the user last marked them seen: when,
// where they were, and why. Not modal; it follows its watch while it is open. The window and the
// companion each show one.
class LossesDialog : public QDialog
{
    Q_OBJECT
public:
    explicit LossesDialog(LossWatch *watch, QWidget *parent = nullptr);

    // Shows it, or brings it to the front.
    void present();

    QTreeWidget *list() const { return mList; }
    QPushButton *markSeenButton() const { return mMarkSeen; }

private:
    void fill();

    LossWatch *mWatch;
    QLabel *mSummary = nullptr;
    QTreeWidget *mList = nullptr;
    QPushButton *mMarkSeen = nullptr;
};
