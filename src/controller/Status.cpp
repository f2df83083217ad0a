#include "controller/AppDelegate.h"

#include "browser/VolumeMenu.h"
#include "cache/CacheFolder.h"
#include "cache/SizeRecords.h"
#include "cache/SpaceGuard.h"
#include "common/Locations.h"
#include "common/LossWatch.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/SizeText.h"
#include "ui/ZEL_Colors.h"
#include "volumes/Volumes.h"

#include <QAction>
#include <QDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMainWindow>
#include <QToolBar>

void AppDelegate::updateStatusInfos()
{
    // Whatever made the status change may have cost an item too; the watch reads only on change.
    if (mLossWatch) mLossWatch->refresh();
    const bool enabled = Settings::integer(SettingsKeys::PrefsProtectionEnabled).value_or(0) != 0;
    if (!enabled) {
        //% "Protection is off."
        setText(mProtectionInfos, qtTrId("ProtectionDisabled"), &ZEL_Colors::getRedColor_Adaptable);
        //% "Deleted items are not kept. Start the protection to keep them."
        setText(mProtectionInfosMore, qtTrId("ProtectionDisabledMore"),
                &ZEL_Colors::getBlackColor_Adaptable);
        enableToolBarItem(QStringLiteral("protectionON"), true);
        enableToolBarItem(QStringLiteral("protectionOFF"), false);
        return;
    }
    const int p = int(CommonUtils::getAllProtectedVolumes().size());
    const int m = int(CommonUtils::getAllMountedVolumes().size());
    const qint64 s = CommonUtils::getSizeOfCaches();

    // The plain or plural state looks at both counts; the cache text and the second line look
    // at the protected count alone.
    QString state;
    if (p < 2 && m < 2) {
        //% "Protection is on for %1 volume"
        state = qtTrId("ProtectionEnabled").arg(p);
    } else {
        //% "Protection is on for %1 of %2 volumes"
        state = qtTrId("ProtectionEnabledX").arg(p).arg(m);
    }
    QString cache;
    if (s <= 0) {
        //% "the cache is empty"
        cache = qtTrId("EmptyCache");
    } else if (p < 2) {
        //% "the cache holds %1"
        cache = qtTrId("SizeOfCache").arg(CommonUtils::getSizeStr(s));
    } else {
        //% "the caches hold %1"
        cache = qtTrId("SizeOfCaches").arg(CommonUtils::getSizeStr(s));
    }
    setText(mProtectionInfos, QStringLiteral("%1 - %2").arg(state, cache),
            &ZEL_Colors::getGreenColor_Adaptable);
    const QList<CacheFolder::Problem> problems = CacheFolder::problems();
    if (!problems.isEmpty()) {
        // A protected volume that keeps nothing says so, and why, in place of the usual line.
        const CacheFolder::Problem &first = problems.first();
        //% "%1: %2"
        setText(mProtectionInfosMore,
                qtTrId("VolumeKeepsNothing")
                    .arg(VolumeMenu::displayName(QFile::decodeName(first.volumePath)),
                         first.status.reason()),
                &ZEL_Colors::getRedColor_Adaptable);
    } else if (const auto guard = SpaceGuard::lastAction();
               guard && guard->when.secsTo(QDateTime::currentDateTime()) < 24 * 3600) {
        // For a day after the agent made room, the window says why older days are gone.
        const QString volume = VolumeMenu::displayName(QFile::decodeName(guard->volume));
        //% "Oldest days were removed to keep %1 free on %2."
        setText(
            mProtectionInfosMore,
            qtTrId("SpaceGuardRemovedDays").arg(CommonUtils::getSizeStr(guard->wantedFree), volume),
            &ZEL_Colors::getBlackColor_Adaptable);
    } else if (p > 1) {
        //% "Items deleted on the %1 protected volumes are kept in their caches."
        setText(mProtectionInfosMore, qtTrId("ProtectionEnabledMoreX").arg(p),
                &ZEL_Colors::getBlackColor_Adaptable);
    } else {
        //% "Items deleted on the protected volume are kept in its cache."
        setText(mProtectionInfosMore, qtTrId("ProtectionEnabledMore"),
                &ZEL_Colors::getBlackColor_Adaptable);
    }
    enableToolBarItem(QStringLiteral("protectionON"), false);
    enableToolBarItem(QStringLiteral("protectionOFF"), true);
}

void AppDelegate::setWinTitle()
{
    // The program's own file goes with the window; the title is the product's.
    window->setWindowFilePath(CommonUtils::mainAppPath());
    window->setWindowTitle(qtTrId("WindowTitle"));
}

void AppDelegate::aboutWindow()
{
    mAboutVersion->setText(QCoreApplication::applicationVersion());
    // Centred over the main window, its top 5 points below the main window's top.
    const QRect main = window ? window->frameGeometry() : QRect();
    mAboutWindow->adjustSize();
    const QSize box = mAboutWindow->frameGeometry().size();
    mAboutWindow->move(main.x() + int((main.width() - box.width()) * 0.5), main.y() + 5);
    mAboutWindow->show();
    mAboutWindow->raise();
    mAboutWindow->activateWindow();
}

QString AppDelegate::helpDocumentPath() const
{
    return CommonUtils::resourcesFolderFor(CommonUtils::ownExecutablePath()) +
           QLatin1String("/Salvora 3.rtf");
}

void AppDelegate::showHelp()
{
    const QString path = helpDocumentPath();
    if (QFileInfo(path).isFile()) openFile(path);
}

void AppDelegate::enableToolBarItem(const QString &identifier, bool enable)
{
    if (mToolbar) WindowActions::enableToolBarItem(mToolbar, identifier, enable);
}

void AppDelegate::setText(QLabel *label, const QString &text, QColor (*color)())
{
    label->setText(text);
    if (color) {
        mTextColors.insert(label, color);
        QPalette p = label->palette();
        p.setColor(QPalette::WindowText, color());
        label->setPalette(p);
    }
}

void AppDelegate::recolorTexts()
{
    for (auto it = mTextColors.cbegin(); it != mTextColors.cend(); ++it) {
        QPalette p = it.key()->palette();
        p.setColor(QPalette::WindowText, it.value()());
        it.key()->setPalette(p);
    }
    if (mTableViewDate) mDateModel->reloadData();
    if (mTableViewContents) mContentsModel->reloadData();
}
