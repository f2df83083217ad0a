#pragma once

#include "volumes/DiskDescription.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

// A row of the preferences' volume table: a mounted volume with its description, or a protected
// volume that is not mounted (known only by its UUID and the path stored for it). Row 0 is the
// start-up volume "/".
struct VolumeRecord
{
    QString path;
    QString uuid;
    bool isProtected = false; // "protected": present when the volume is (to be) protected
    bool unmounted = false;   // "unmounted": a protected volume that is not mounted
    std::optional<DiskDescription> description;

    bool operator==(const VolumeRecord &) const = default;
};

// What confirming the Preferences sheet refreshes in the window.
class PreferencesTarget
{
public:
    virtual ~PreferencesTarget() = default;
    virtual void updateProtectedVolumesList() = 0;
    virtual void updateListOfDaysInCache() = 0;
    // Reloads the day table (mTableViewDate).
    virtual void reloadDayTable() = 0;
    virtual void updateStatusInfos() = 0;
};

// The Preferences sheet without its widgets: the retention slider's mapping, the filters'
// normal form, the volume rows and their buttons, loading and saving the settings.
namespace Preferences {

// How the sheet's modal run ends.
inline constexpr int kConfirm = -1000;
inline constexpr int kCancel = -1001;
// Retention shown when none is stored.
inline constexpr qint64 kDefaultRemoveFromCache = 14;
inline constexpr int kInstallMenuDelayMs = 100;

// The slider runs from 0 to 100: its left half covers 1 to 14 days, its right half 14 to 60,
// and the far right end (exactly 100) means never (0 days). Storing 60 puts the slider at 100,
// which reads back as never: deliberately not a round trip there.
double setRemoveFromCacheValue(qint64 days);
qint64 getRemoveFromCacheValue(double position);

// Lower-cased, split at ";", empty pieces dropped, each piece once, sorted ignoring case, joined
// with ";". Pieces are not trimmed: blanks around a piece belong to it.
QString cleanFilters(const QString &text);
// The extension field: every "." and " " removed, then cleanFilters.
QString cleanExtensions(const QString &text);

// Colours of the two retention labels, named as the adaptive colour getters.
enum class TextColor { Black, DarkGray, Red };
struct RetentionTexts
{
    QString value;
    TextColor valueColor = TextColor::Black;
    QString remark;
    TextColor remarkColor = TextColor::DarkGray;
};
// The labels for `days` as chosen on the slider; `stored` is PrefsRemoveFromCache (when absent,
// the choice counts as the stored value). Shortening the retention is shown in red: older days
// will go.
RetentionTexts retentionTexts(qint64 days, std::optional<qint64> stored);

// Every mounted volume, marked protected when it is "/" or its UUID is a key of
// PrefsProtectedDisks; then every key of PrefsProtectedDisks left over, as a protected volume that
// is not mounted.
QList<VolumeRecord> buildVolumeRows();
// The name a row shows: the volume's display name, else the last component of its path.
QString displayName(const VolumeRecord &row);

struct VolumeButtons
{
    bool protect = false;
    bool unprotect = false;
};
// The start-up volume (row 0) and no selection (row < 0) enable neither button.
VolumeButtons clickVolumesList(const QList<VolumeRecord> &rows, qsizetype row);
// Marks (clears) the row; false when there is no such row. Nothing is stored until the sheet is
// confirmed.
bool protectSelectedVolume(QList<VolumeRecord> &rows, qsizetype row);
bool unprotectSelectedVolume(QList<VolumeRecord> &rows, qsizetype row);
// Rows from 1 on that are marked protected but have no UUID to be stored under.
QList<qsizetype> unstorableRows(const QList<VolumeRecord> &rows);
// PrefsProtectedDisks as the rows say: UUID to path for every protected row from 1 on.
QVariantMap protectedDisksFrom(const QList<VolumeRecord> &rows);

// The controls as the settings say when the sheet opens. A check box or field whose key is
// absent keeps what it shows (nullopt).
struct SheetState
{
    double removeFromCachePosition = 0;
    std::optional<bool> protectionEnabled;
    std::optional<bool> launchMenu;
    std::optional<QString> excludeName;
    std::optional<QString> excludeExtension;
    QList<VolumeRecord> volumes;
    // Keeping permanent deletions (common/KeepSession.h): not a setting but the session's own
    // files, read as they are.
    // The free space the agent keeps on protected volumes (cache/SpaceGuard.h).
    qint64 keepFreePercent = 0;
    qint64 keepFreeBytes = 0;
    bool keepPermanentDeletions = false;
    bool sessionKeeps = false; // this session has the library already
    QByteArray keepLibrary;    // where it is; empty when it is not installed
};
SheetState load();

// The line under the keeping check box: whether the session has the library, and that the
// choice takes effect at the next login. Empty when there is nothing to say.
QString keepNote(bool checked, bool sessionKeeps, bool libraryInstalled);

// What the user chose, as the controls show it.
struct SheetChoice
{
    double removeFromCachePosition = 0;
    bool protectionEnabled = false;
    bool launchMenu = false;
    QString excludeName;
    QString excludeExtension;
    QList<VolumeRecord> volumes;
    qint64 keepFreePercent = 0;
    qint64 keepFreeBytes = 0;
    bool keepPermanentDeletions = false;
    QByteArray keepLibrary; // as loaded; empty: where it is installed
};
// Stores the choice in this order: retention, protection, launch menu (on whenever protection
// is: the companion always runs while protection is on), names, extensions, protected volumes;
// then the free space kept (stored only when it differs from what applies now, so that a sheet
// confirmed unchanged leaves the defaults free to change); then synchronises and tells the
// companion. Keeping permanent deletions is turned on or off
// (the session's files written or removed) only when the choice differs from what is in place.
void save(const SheetChoice &choice);

// The end of the sheet's run. Confirmed: save, install the companion a moment later (on
// `context`'s thread), rebuild the volume list and the days, reload the day table. In every
// case the status is refreshed. `installMenu` defaults to LoginItems::installSalvoraMenu().
void sheetEnded(int code, const SheetChoice &choice, PreferencesTarget &target, QObject *context,
                std::function<void()> installMenu = {});

} // namespace Preferences
