#pragma once

#include "logic/PreferencesLogic.h"

#include <QStringList>

// Records the refreshes the preferences ask of the window, in order.
class PreferencesRecorder : public PreferencesTarget
{
public:
    QStringList calls;
    void updateProtectedVolumesList() override { calls.append(QStringLiteral("volumes")); }
    void updateListOfDaysInCache() override { calls.append(QStringLiteral("days")); }
    void reloadDayTable() override { calls.append(QStringLiteral("dayTable")); }
    void updateStatusInfos() override { calls.append(QStringLiteral("status")); }
};

// A protected data volume's UUID, in the canonical form.
inline const QString kDataUuid = QStringLiteral("0A1B2C3D-0000-4000-8000-00000000D474");
