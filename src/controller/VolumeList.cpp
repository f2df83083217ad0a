#include "controller/AppDelegate.h"

#include "common/Log.h"
#include "volumes/Volumes.h"

#include <QComboBox>
#include <QFile>

void AppDelegate::updateProtectedVolumesList()
{
    mSelectedVolumeMenu->clear();
    mProtectedVolumes = VolumeMenu::build();
    for (const VolumeMenuEntry &entry : std::as_const(mProtectedVolumes))
        mSelectedVolumeMenu->addItem(entry.title);
    // The selection is not carried over: the pop-up selects its first item.
    updateStatusInfos();
    updateListOfDaysInCache();
}

void AppDelegate::updateSelectedVolume()
{
    updateListOfDaysInCache();
    updateListOfContentsInCache();
}

void AppDelegate::deviceDidMount(const QString &path)
{
    if (!CommonUtils::deviceIsValid(path)) return;
    CommonUtils::resetVolumesLists();
    if (CommonUtils::isVolumeProtected(path)) {
        CommonUtils::addToLogFile(QStringLiteral("Salvora 3 notified that device did Mount: %1")
                                      .arg(CommonUtils::logText(QFile::encodeName(path))));
        updateProtectedVolumesList();
    }
}

void AppDelegate::deviceDidUnmount(const QString &path)
{
    if (!CommonUtils::deviceIsValid(path)) return;
    CommonUtils::resetVolumesLists();
    // The table is read after the unmount, so a volume that has left it no longer counts as
    // protected: an unmount of an external volume changes nothing here, on purpose.
    if (CommonUtils::isVolumeProtected(path)) {
        CommonUtils::addToLogFile(QStringLiteral("Salvora 3 notified that device did Unmount: %1")
                                      .arg(CommonUtils::logText(QFile::encodeName(path))));
        updateProtectedVolumesList();
    }
}
