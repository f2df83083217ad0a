#include "controller/AppDelegate.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "ui/TableView.h"
#include "volumes/Volumes.h"

#include <QDialog>
#include <QPushButton>

void AppDelegate::editPreferences()
{
    loadPreferenceControls();

    // The volume rows: every mounted volume, marked when protected ("/" always is), then every
    // protected volume that is not mounted, under the path stored for it.
    mProtectedVolumesTableView->clearSelection();
    mVolumes.clear();
    QVariantMap scratch =
        Settings::dictionary(SettingsKeys::PrefsProtectedDisks).value_or(QVariantMap());
    for (const QString &path : CommonUtils::getAllMountedVolumes()) {
        VolumeRecord row;
        row.path = path;
        row.description = CommonUtils::getVolumeInfosForPath(path);
        if (row.description) row.uuid = row.description->uuid;
        if (path == QLatin1String("/") || (!row.uuid.isEmpty() && scratch.contains(row.uuid))) {
            row.isProtected = true;
            scratch.remove(row.uuid);
        }
        mVolumes.append(row);
    }
    for (auto it = scratch.cbegin(); it != scratch.cend(); ++it) {
        VolumeRecord row;
        row.path = it.value().toString();
        row.uuid = it.key();
        row.isProtected = true;
        row.unmounted = true;
        mVolumes.append(row);
    }
    mVolumesModel->reloadData();
    mProtectedVolumesProtectButton->setEnabled(false);
    mProtectedVolumesUnprotectButton->setEnabled(false);

    // Modal for the main window only; the result arrives through finished().
    mPreferencesWindow->open();
}
