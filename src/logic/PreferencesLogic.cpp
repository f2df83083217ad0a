#include "logic/PreferencesLogic.h"

#include "browser/VolumeMenu.h"
#include "cache/SpaceGuard.h"
#include "common/KeepSession.h"
#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "logic/LoginItems.h"
#include "volumes/Volumes.h"

#include <QTimer>

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace Preferences {

double setRemoveFromCacheValue(qint64 days)
{
    if (days == 0) return 100.0;
    if (days <= 14) return double(days - 1) * 50.0 / 13.0;
    return double(days - 1 - 13) * 50.0 / 46.0 + 50.0;
}

qint64 getRemoveFromCacheValue(double position)
{
    if (position == 100.0) return 0;
    if (position <= 50.0) return qint64(position * 13.0 / 50.0 + 1.5);
    return qint64((position - 50.0) * 46.0 / 50.0 + 14.5);
}

QString cleanFilters(const QString &text)
{
    QStringList pieces = text.toLower().split(QLatin1Char(';'), Qt::SkipEmptyParts);
    pieces.removeDuplicates();
    std::stable_sort(pieces.begin(), pieces.end(), [](const QString &a, const QString &b) {
        return QString::compare(a, b, Qt::CaseInsensitive) < 0;
    });
    return pieces.join(QLatin1Char(';'));
}

QString cleanExtensions(const QString &text)
{
    QString bare = text;
    bare.remove(QLatin1Char('.'));
    bare.remove(QLatin1Char(' '));
    return cleanFilters(bare);
}

RetentionTexts retentionTexts(qint64 days, std::optional<qint64> stored)
{
    RetentionTexts t;
    if (days == 0) {
        //% "Never"
        t.value = qtTrId("Never");
        t.valueColor = TextColor::Red;
        //% "Deleted items stay in the cache until you delete them yourself."
        t.remark = qtTrId("DaysOfActivityUnlimited");
        t.remarkColor = TextColor::Red;
        return t;
    }
    const QString number = QString::number(days);
    if (days == 1) {
        //% "%1 day"
        t.value = qtTrId("OneDay").arg(number);
    } else {
        //% "%1 days"
        t.value = qtTrId("ManyDays").arg(number);
    }
    t.valueColor = TextColor::Black;
    if (days >= stored.value_or(days)) {
        //% "Deleted items leave the cache after this many days of activity."
        t.remark = qtTrId("DaysOfActivityNormal");
        t.remarkColor = TextColor::DarkGray;
    } else {
        //% "The days of activity beyond this limit will be removed from the cache."
        t.remark = qtTrId("DaysOfActivityLower");
        t.remarkColor = TextColor::Red;
    }
    return t;
}

QList<VolumeRecord> buildVolumeRows()
{
    QList<VolumeRecord> rows;
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
        rows.append(row);
    }
    for (auto it = scratch.cbegin(); it != scratch.cend(); ++it) {
        VolumeRecord row;
        row.path = it.value().toString();
        row.uuid = it.key();
        row.isProtected = true;
        row.unmounted = true;
        rows.append(row);
    }
    return rows;
}

QString displayName(const VolumeRecord &row)
{
    if (!row.unmounted)
        if (const QString name = VolumeMenu::displayName(row.path); !name.isEmpty()) return name;
    const QString last = row.path.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty);
    return last.isEmpty() ? row.path : last;
}

VolumeButtons clickVolumesList(const QList<VolumeRecord> &rows, qsizetype row)
{
    // The start-up volume is always protected and cannot be changed.
    if (row <= 0 || row >= rows.size()) return {};
    VolumeButtons b;
    (rows[row].isProtected ? b.unprotect : b.protect) = true;
    return b;
}

bool protectSelectedVolume(QList<VolumeRecord> &rows, qsizetype row)
{
    if (row < 0 || row >= rows.size()) return false;
    rows[row].isProtected = true;
    return true;
}

bool unprotectSelectedVolume(QList<VolumeRecord> &rows, qsizetype row)
{
    if (row < 0 || row >= rows.size()) return false;
    rows[row].isProtected = false;
    return true;
}

QList<qsizetype> unstorableRows(const QList<VolumeRecord> &rows)
{
    QList<qsizetype> out;
    for (qsizetype i = 1; i < rows.size(); ++i)
        if (rows[i].isProtected && rows[i].uuid.isEmpty()) out.append(i);
    return out;
}

QVariantMap protectedDisksFrom(const QList<VolumeRecord> &rows)
{
    QVariantMap disks;
    // Row 0, the start-up volume, is protected by definition and never stored.
    for (qsizetype i = 1; i < rows.size(); ++i)
        if (rows[i].isProtected && !rows[i].uuid.isEmpty())
            disks.insert(rows[i].uuid, rows[i].path);
    return disks;
}

SheetState load()
{
    SheetState s;
    s.removeFromCachePosition = setRemoveFromCacheValue(
        Settings::integer(SettingsKeys::PrefsRemoveFromCache).value_or(kDefaultRemoveFromCache));
    if (const auto on = Settings::integer(SettingsKeys::PrefsProtectionEnabled))
        s.protectionEnabled = *on != 0;
    if (const auto on = Settings::integer(SettingsKeys::PrefsLaunchMenu)) s.launchMenu = *on != 0;
    s.excludeName = Settings::string(SettingsKeys::PrefsExcludeName);
    s.excludeExtension = Settings::string(SettingsKeys::PrefsExcludeExtension);
    s.volumes = buildVolumeRows();
    const SpaceGuard::Threshold threshold = SpaceGuard::readThreshold();
    s.keepFreePercent = threshold.percent;
    s.keepFreeBytes = threshold.floorBytes;
    s.keepPermanentDeletions = KeepSession::configured();
    s.sessionKeeps = KeepSession::sessionHasIt();
    const QByteArray library = KeepSession::libraryPath();
    if (::access(library.constData(), R_OK) == 0) s.keepLibrary = library;
    return s;
}

QString keepNote(bool checked, bool sessionKeeps, bool libraryInstalled)
{
    if (!libraryInstalled && !sessionKeeps) {
        //% "The part of Salvora 3 that keeps them is not installed."
        return qtTrId("KeepLibraryMissing");
    }
    if (checked && sessionKeeps) {
        //% "This session keeps them."
        return qtTrId("KeepSessionHasIt");
    }
    if (checked) {
        //% "Takes effect at your next login: this session does not keep them yet."
        return qtTrId("KeepFromNextLogin");
    }
    if (sessionKeeps) {
        //% "Stops at your next login: this session still keeps them."
        return qtTrId("KeepStopsAtNextLogin");
    }
    return {};
}

void save(const SheetChoice &c)
{
    Settings::setInteger(SettingsKeys::PrefsRemoveFromCache,
                         getRemoveFromCacheValue(c.removeFromCachePosition));
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, c.protectionEnabled ? 1 : 0);
    Settings::setInteger(SettingsKeys::PrefsLaunchMenu,
                         c.launchMenu || c.protectionEnabled ? 1 : 0);
    Settings::setString(SettingsKeys::PrefsExcludeName, cleanFilters(c.excludeName));
    Settings::setString(SettingsKeys::PrefsExcludeExtension, cleanExtensions(c.excludeExtension));
    Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, protectedDisksFrom(c.volumes));
    const SpaceGuard::Threshold threshold = SpaceGuard::readThreshold();
    if (c.keepFreePercent != threshold.percent)
        Settings::setInteger(SettingsKeys::PrefsKeepFreePercent, c.keepFreePercent);
    if (c.keepFreeBytes != threshold.floorBytes)
        Settings::setInteger(SettingsKeys::PrefsKeepFreeBytes, c.keepFreeBytes);
    Settings::sync();
    if (c.keepPermanentDeletions != KeepSession::configured()) {
        const KeepSession::Result r =
            c.keepPermanentDeletions
                ? KeepSession::enable(c.keepLibrary.isEmpty() ? KeepSession::libraryPath()
                                                              : c.keepLibrary)
                : KeepSession::disable();
        if (!r.ok())
            CommonUtils::addToLogFile(
                QStringLiteral("Salvora 3 could not turn %1 keeping permanent deletions: %2.")
                    .arg(c.keepPermanentDeletions ? QStringLiteral("on") : QStringLiteral("off"),
                         QString::fromLocal8Bit(std::strerror(r.error))));
    }
    NotificationBus::post(QLatin1String(Notifications::Salvora3MenuNotification),
                          QLatin1String(Notifications::Salvora3SettingsDidChange));
}

void sheetEnded(int code, const SheetChoice &choice, PreferencesTarget &target, QObject *context,
                std::function<void()> installMenu)
{
    if (code == kConfirm) {
        save(choice);
        if (!installMenu) installMenu = [] { LoginItems::installSalvoraMenu(); };
        QTimer::singleShot(kInstallMenuDelayMs, Qt::PreciseTimer, context, std::move(installMenu));
        target.updateProtectedVolumesList();
        target.updateListOfDaysInCache();
        target.reloadDayTable();
    }
    target.updateStatusInfos();
}

} // namespace Preferences
