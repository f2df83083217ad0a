#pragma once

#include "browser/VolumeMenu.h"
#include "cache/DayEntry.h"

#include <QList>
#include <QString>

#include <optional>

// A volume of the pop-up, as the command-line tool addresses it: by its index there.
struct CliVolume
{
    qsizetype index = 0;
    VolumeMenuEntry entry;
    QByteArray cache;     // empty when not mounted
    QList<DayEntry> days; // listed (mounted) or remembered (unmounted)
};

namespace CliVolumes {
// nullopt with a one-line error when there is no such volume.
std::optional<CliVolume> choose(qsizetype index, QString *error);
QList<DayEntry> rememberedDays(const QString &uuid);
// A day folder's name from what the user typed: "today", "yesterday" or the name itself.
QByteArray dayName(const QByteArray &given);
// The volume's day of that folder name; nullptr with a one-line error when it holds none.
const DayEntry *day(const CliVolume &volume, const QByteArray &name, QString *error);
} // namespace CliVolumes
