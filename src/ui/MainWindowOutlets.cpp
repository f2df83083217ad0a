#include "ui/MainWindowOutlets.h"

#include "ui/Actions.h"
#include "ui/MessageBar.h"
#include "ui/PreferencesSheet.h"
#include "ui/ProgressArea.h"
#include "ui/TableModel.h"
#include "ui/TableView.h"
#include "ui/ZEL_Colors.h"
#include "ui_PreferencesSheet.h"

#include <QApplication>
#include <QDialog>
#include <QHeaderView>
#include <QMainWindow>
#include <QStatusBar>
#include <QToolBar>
#include <QToolButton>

void MainWindowOutlets::buildWindow(TableDataSource *source, QObject *owner)
{
    window = new QMainWindow;
    mainUi.setupUi(window);
    mAboutWindow = new QDialog(nullptr, Qt::Dialog | Qt::WindowCloseButtonHint);
    aboutUi.setupUi(mAboutWindow);
    mPreferencesWindow = new PreferencesSheet(window);
    // The sheet draws with the window's colours.
    PreferencesSheet::Colors colors;
    colors.black = &ZEL_Colors::getBlackColor_Adaptable;
    colors.darkGray = &ZEL_Colors::getDarkGrayColor_Adaptable;
    colors.gray = &ZEL_Colors::getGrayColor_Adaptable;
    colors.red = &ZEL_Colors::getRedColor_Adaptable;
    colors.green = &ZEL_Colors::getGreenColor_Adaptable;
    mPreferencesWindow->setColors(colors);

    mAboutVersion = aboutUi.mAboutVersion;
    aboutUi.mAboutIcon->setPixmap(QApplication::windowIcon().pixmap(64, 64));
    mNewVersion = mainUi.mNewVersion;
    mNewVersionButton = mainUi.mNewVersionButton;
    mProtectionInfos = mainUi.mProtectionInfos;
    mProtectionInfosMore = mainUi.mProtectionInfosMore;
    mSearchString = mainUi.mSearchString;
    mSelectedVolumeMenu = mainUi.mSelectedVolumeMenu;
    mCacheInfos = mainUi.mCacheInfos;
    mTableViewDate = mainUi.mTableViewDate;
    mTableViewContents = mainUi.mTableViewContents;
    mContentsInfos = mainUi.mContentsInfos;
    mProtectedVolumesTableView = mPreferencesWindow->ui().mProtectedVolumesTableView;
    mProtectedVolumesProtectButton = mPreferencesWindow->ui().mProtectedVolumesProtectButton;
    mProtectedVolumesUnprotectButton = mPreferencesWindow->ui().mProtectedVolumesUnprotectButton;

    translateInterface();
    QFont nameFont = aboutUi.mAboutName->font();
    nameFont.setBold(true);
    aboutUi.mAboutName->setFont(nameFont);

    // Names are shown as they are, never as markup.
    for (QLabel *label : {mCacheInfos, mContentsInfos, mProtectionInfos, mProtectionInfosMore,
                          mAboutVersion, aboutUi.mAboutName})
        label->setTextFormat(Qt::PlainText);

    //% "Date"
    const QString dateTitle = qtTrId("ColumnDate");
    //% "Size"
    const QString sizeTitle = qtTrId("ColumnSize");
    //% "Items"
    const QString countTitle = qtTrId("ColumnCount");
    //% "Name"
    const QString nameTitle = qtTrId("ColumnName");
    //% "Moved to the cache"
    const QString timeTitle = qtTrId("ColumnCachingTime");
    //% "Original Location"
    const QString originTitle = qtTrId("ColumnOriginalLocation");
    const QStringList ids{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")};
    mDateModel = new TableModel(source, ids, owner);
    mDateModel->setHeaderTitles({dateTitle, sizeTitle, countTitle});
    mContentsModel = new TableModel(source, ids + QStringList{QStringLiteral("4")}, owner);
    mContentsModel->setHeaderTitles({nameTitle, sizeTitle, timeTitle, originTitle});
    mTableViewDate->setModel(mDateModel);
    mTableViewContents->setModel(mContentsModel);

    mTableViewDate->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    mTableViewDate->horizontalHeader()->resizeSection(1, 80);
    mTableViewDate->horizontalHeader()->resizeSection(2, 60);
    mTableViewContents->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    mTableViewContents->horizontalHeader()->resizeSection(1, 90);
    mTableViewContents->horizontalHeader()->resizeSection(2, 150);
    mTableViewContents->horizontalHeader()->resizeSection(3, 200);

    // What a restore did shows above the list it is about.
    mMessageBar = new MessageBar(mainUi.contentsPane);
    mainUi.contentsPaneLayout->insertWidget(mainUi.contentsPaneLayout->indexOf(mTableViewContents),
                                            mMessageBar);
    mainUi.mSplitter->setStretchFactor(1, 3);
}

// The interface files carry English placeholders only; every text the user reads is looked up
// by its key here, like all other texts of the program.
void MainWindowOutlets::translateInterface()
{
    //% "Salvora 3"
    window->setWindowTitle(qtTrId("WindowTitle"));
    //% "Volume:"
    mainUi.mSelectedVolumeLabel->setText(qtTrId("VolumeLabel"));
    //% "A new version is available."
    mNewVersion->setText(qtTrId("NewVersionAvailable"));
    //% "Download…"
    mNewVersionButton->setText(qtTrId("NewVersionButton"));
    //% "Search the names of the items"
    mSearchString->setPlaceholderText(qtTrId("SearchPlaceholder"));

    //% "About Salvora 3"
    mAboutWindow->setWindowTitle(qtTrId("AboutTitle"));
    aboutUi.mAboutName->setText(qtTrId("AppName"));
    //% "Keeps what you delete, so that you can get it back."
    aboutUi.mAboutText->setText(qtTrId("AboutText"));
}

void MainWindowOutlets::buildToolbar(const WindowActions &actions)
{
    mToolbar = new QToolBar(window);
    mToolbar->setMovable(false);
    mToolbar->setFloatable(false);
    actions.populateToolbar(mToolbar);
    // The button outlets are the toolbar's own buttons for the commands' actions.
    auto button = [this, &actions](const char *identifier) {
        QAction *action = actions.toolbarItem(QLatin1String(identifier));
        return qobject_cast<QToolButton *>(mToolbar->widgetForAction(action));
    };
    mProtectionONButton = button(WindowActions::kProtectionON);
    mProtectionOFFButton = button(WindowActions::kProtectionOFF);
    mCopySelectedItemsButton = button(WindowActions::kCopyButton);
    mRemoveSelectedItemsButton = button(WindowActions::kRemoveButton);
    mEditPrefsButton = button(WindowActions::kPreferences);
    mShowHelpButton = button(WindowActions::kShowHelp);
    window->addToolBar(Qt::TopToolBarArea, mToolbar);
}

void MainWindowOutlets::buildProgressAreas(WorkProgress &progress)
{
    // Permanent widgets: a message shown in the status bar never hides them.
    QStatusBar *bar = window->statusBar();
    mRestoreProgressArea = new ProgressArea(progress, WorkJob::Kind::Restore, bar);
    mRemovalProgressArea = new ProgressArea(progress, WorkJob::Kind::Removal, bar);
    bar->addPermanentWidget(mRestoreProgressArea);
    bar->addPermanentWidget(mRemovalProgressArea);
    bar->setSizeGripEnabled(false);
}
