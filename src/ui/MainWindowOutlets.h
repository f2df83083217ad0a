#pragma once

#include "ui_AboutBox.h"
#include "ui_MainWindow.h"

class MessageBar;
class PreferencesSheet;
class ProgressArea;
class QComboBox;
class QDialog;
class QLabel;
class QLineEdit;
class QMainWindow;
class QObject;
class QPushButton;
class QToolBar;
class QToolButton;
class TableDataSource;
class TableModel;
class TableView;
class WindowActions;
class WorkProgress;

// The window's widgets, built from the interface files: the outlets that the controller drives,
// in the same way as a form class's generated members. Building lays them out and gives them
// their texts; what they do is the controller's.
struct MainWindowOutlets
{
    QMainWindow *window = nullptr;
    Ui::MainWindow mainUi;
    Ui::AboutBox aboutUi;
    QDialog *mAboutWindow = nullptr;
    QLabel *mAboutVersion = nullptr;
    QLabel *mNewVersion = nullptr;
    QPushButton *mNewVersionButton = nullptr;
    // The toolbar and its buttons for the commands (buildToolbar).
    QToolBar *mToolbar = nullptr;
    QToolButton *mProtectionONButton = nullptr;
    QToolButton *mProtectionOFFButton = nullptr;
    QToolButton *mCopySelectedItemsButton = nullptr;
    QToolButton *mRemoveSelectedItemsButton = nullptr;
    QToolButton *mEditPrefsButton = nullptr;
    QToolButton *mShowHelpButton = nullptr;
    QLabel *mProtectionInfos = nullptr;
    QLabel *mProtectionInfosMore = nullptr;
    QLineEdit *mSearchString = nullptr;
    QComboBox *mSelectedVolumeMenu = nullptr;
    QLabel *mCacheInfos = nullptr;
    TableView *mTableViewDate = nullptr;
    TableView *mTableViewContents = nullptr;
    QLabel *mContentsInfos = nullptr;
    PreferencesSheet *mPreferencesWindow = nullptr;
    TableView *mProtectedVolumesTableView = nullptr;
    QPushButton *mProtectedVolumesProtectButton = nullptr;
    QPushButton *mProtectedVolumesUnprotectButton = nullptr;
    TableModel *mDateModel = nullptr;
    TableModel *mContentsModel = nullptr;
    // What a restore did, above the contents list.
    MessageBar *mMessageBar = nullptr;
    // Rows of the status bar for long restores and removals (buildProgressAreas).
    ProgressArea *mRestoreProgressArea = nullptr;
    ProgressArea *mRemovalProgressArea = nullptr;

    // The window, the about box and the Preferences sheet; the tables ask `source` for their
    // cells, and their models belong to `owner`. The top-level windows are the caller's to delete.
    void buildWindow(TableDataSource *source, QObject *owner);
    // The toolbar with the commands' buttons.
    void buildToolbar(const WindowActions &actions);
    // The status bar's rows for the long work; the bar itself shows only while there is some.
    void buildProgressAreas(WorkProgress &progress);

private:
    void translateInterface();
};
