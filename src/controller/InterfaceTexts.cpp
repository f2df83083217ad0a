#include "controller/AppDelegate.h"

#include <QMainWindow>

// The interface files carry English placeholders only; every text the user reads is looked up
// by its key here, like all other texts of the program.
void AppDelegate::translateInterface()
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
    //% "Start Protection"
    mProtectionONButton->setText(qtTrId("StartProtection"));
    //% "Stop Protection"
    mProtectionOFFButton->setText(qtTrId("StopProtection"));
    //% "Restore To…"
    mCopySelectedItemsButton->setText(qtTrId("RestoreToItem"));
    //% "Delete"
    mRemoveSelectedItemsButton->setText(qtTrId("RemoveItem"));
    //% "Settings"
    mEditPrefsButton->setText(qtTrId("Settings"));
    //% "Help"
    mShowHelpButton->setText(qtTrId("ShowHelp"));
    //% "&File"
    mainUi.menuFile->setTitle(qtTrId("MenuFile"));
    //% "&Help"
    mainUi.menuHelp->setTitle(qtTrId("MenuHelp"));
    //% "&Quit"
    mainUi.actionQuit->setText(qtTrId("MenuQuitWindow"));
    //% "Salvora 3 &Help"
    mainUi.actionShowHelp->setText(qtTrId("MenuShowHelp"));
    //% "&About Salvora 3"
    mainUi.actionAbout->setText(qtTrId("MenuAbout"));

    //% "About Salvora 3"
    mAboutWindow->setWindowTitle(qtTrId("AboutTitle"));
    aboutUi.mAboutName->setText(qtTrId("AppName"));
    //% "Keeps what you delete, so that you can get it back."
    aboutUi.mAboutText->setText(qtTrId("AboutText"));
}
