#include "ui/PreferencesSheet.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "ui_PreferencesSheet.h"

#include <QAbstractTableModel>
#include <QApplication>
#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QHeaderView>
#include <QIcon>
#include <QPalette>
#include <QPushButton>
#include <QSpinBox>

#include <cmath>

// The volume table: one column, "name - state", coloured by state; row 0, the start-up volume,
// is always protected and drawn dimmed.
class PreferencesVolumesModel : public QAbstractTableModel
{
public:
    PreferencesVolumesModel(const QList<VolumeRecord> &rows, const PreferencesSheet::Colors &colors,
                            QObject *parent)
        : QAbstractTableModel(parent), mRows(rows), mColors(colors)
    {
    }

    int rowCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : int(mRows.size());
    }
    int columnCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : 1;
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (orientation == Qt::Horizontal && section == 0 && role == Qt::DisplayRole)
            //% "Volume"
            return qtTrId("VolumeColumn");
        return {};
    }

    QVariant data(const QModelIndex &index, int role) const override
    {
        if (!index.isValid() || index.row() >= mRows.size()) return {};
        const VolumeRecord &v = mRows[index.row()];
        const bool isProtected = index.row() == 0 || v.isProtected;
        switch (role) {
        case Qt::DisplayRole: {
            QString state;
            if (isProtected && v.unmounted) {
                //% "protected, not mounted"
                state = qtTrId("ProtectedUnmounted");
            } else if (isProtected) {
                //% "protected"
                state = qtTrId("Protected");
            } else {
                //% "not protected"
                state = qtTrId("NotProtected");
            }
            return QStringLiteral("%1 - %2").arg(Preferences::displayName(v), state);
        }
        case Qt::ForegroundRole:
            if (index.row() == 0) return mColors.gray();
            return isProtected ? mColors.green() : mColors.red();
        case Qt::DecorationRole:
            return QIcon::fromTheme(v.path == QLatin1String("/")
                                        ? QStringLiteral("drive-harddisk")
                                        : QStringLiteral("drive-removable-media"));
        case Qt::UserRole:
            return v.path;
        default:
            return {};
        }
    }

    void reload()
    {
        beginResetModel();
        endResetModel();
    }
    void rowChanged(int row) { emit dataChanged(index(row, 0), index(row, 0)); }

private:
    const QList<VolumeRecord> &mRows;
    const PreferencesSheet::Colors &mColors;
};

namespace {

// Sizes are shown as the rest of the program shows them: decimal.
constexpr double kBytesPerGB = 1e9;

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < 128;
}

QColor blend(const QColor &a, const QColor &b, double t)
{
    return QColor::fromRgbF(float(a.redF() * (1 - t) + b.redF() * t),
                            float(a.greenF() * (1 - t) + b.greenF() * t),
                            float(a.blueF() * (1 - t) + b.blueF() * t));
}

} // namespace

PreferencesSheet::Colors PreferencesSheet::paletteColors()
{
    // Read at every use, so that a change of the desktop's theme shows at once.
    Colors c;
    c.black = [] { return QApplication::palette().color(QPalette::WindowText); };
    c.darkGray = [] {
        const QPalette p = QApplication::palette();
        return blend(p.color(QPalette::WindowText), p.color(QPalette::Window), 0.3);
    };
    c.gray = [] { return QApplication::palette().color(QPalette::PlaceholderText); };
    c.red = [] {
        return isDark(QApplication::palette()) ? QColor(0xff, 0x6b, 0x6b)
                                               : QColor(0xc0, 0x1c, 0x28);
    };
    c.green = [] {
        return isDark(QApplication::palette()) ? QColor(0x57, 0xe3, 0x89)
                                               : QColor(0x1a, 0x7f, 0x37);
    };
    return c;
}

PreferencesSheet::PreferencesSheet(QWidget *parent)
    : QDialog(parent), mUi(std::make_unique<Ui::PreferencesSheet>()), mColors(paletteColors())
{
    mUi->setupUi(this);
    translate();
    mModel = new PreferencesVolumesModel(mVolumes, mColors, this);
    TableView *table = mUi->mProtectedVolumesTableView;
    table->setModel(mModel);
    table->horizontalHeader()->setStretchLastSection(true);
    table->setSelectionMode(QAbstractItemView::SingleSelection);

    connect(mUi->sheetOK, &QPushButton::clicked, this, &PreferencesSheet::sheetOK);
    connect(mUi->sheetCancel, &QPushButton::clicked, this, &PreferencesSheet::sheetCancel);
    connect(mUi->mPreferencesRemoveFromCache, &QSlider::valueChanged, this,
            &PreferencesSheet::editPreferencesChange);
    connect(mUi->mKeepPermanentDeletions, &QCheckBox::toggled, this,
            &PreferencesSheet::updateKeepNote);
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &PreferencesSheet::clickVolumesList);
    connect(mUi->mProtectedVolumesProtectButton, &QPushButton::clicked, this,
            &PreferencesSheet::protectSelectedVolume);
    connect(mUi->mProtectedVolumesUnprotectButton, &QPushButton::clicked, this,
            &PreferencesSheet::unprotectSelectedVolume);
}

PreferencesSheet::~PreferencesSheet() = default;

void PreferencesSheet::translate()
{
    //% "Settings"
    setWindowTitle(qtTrId("PreferencesTitle"));
    //% "Keep deleted items"
    mUi->retentionBox->setTitle(qtTrId("PreferencesRetention"));
    //% "Keep the items that are deleted"
    mUi->mProtectionEnabled->setText(qtTrId("PreferencesProtectionEnabled"));
    //% "Space kept free on protected volumes:"
    mUi->keepFreeLabel->setText(qtTrId("PreferencesKeepFree"));
    //% "but at most"
    mUi->keepFreeAtMostLabel->setText(qtTrId("PreferencesKeepFreeAtMost"));
    //% "When a protected volume has less free space, the oldest days of its cache are removed "
    //% "(never today's)."
    const QString keepFreeTip = qtTrId("PreferencesKeepFreeTip");
    for (QWidget *w :
         {static_cast<QWidget *>(mUi->keepFreeLabel), static_cast<QWidget *>(mUi->mKeepFreePercent),
          static_cast<QWidget *>(mUi->mKeepFreeGB)})
        w->setToolTip(keepFreeTip);
    //% "Also keep files deleted permanently (rm, Shift+Delete)"
    mUi->mKeepPermanentDeletions->setText(qtTrId("PreferencesKeepPermanentDeletions"));
    //% "Show Salvora 3 Menu in the panel"
    mUi->mLaunchMenu->setText(qtTrId("PreferencesLaunchMenu"));
    //% "Exclude names:"
    mUi->excludeNameLabel->setText(qtTrId("PreferencesExcludeName"));
    //% "Exclude extensions:"
    mUi->excludeExtensionsLabel->setText(qtTrId("PreferencesExcludeExtensions"));
    //% "Names separated by “;”, e.g. .DS_Store;Thumbs.db"
    mUi->mPreferencesExcludeName->setPlaceholderText(qtTrId("PreferencesExcludeNamePlaceholder"));
    //% "Extensions separated by “;”, e.g. tmp;part"
    mUi->mPreferencesExcludeExtensions->setPlaceholderText(
        qtTrId("PreferencesExcludeExtensionsPlaceholder"));
    //% "Protect"
    mUi->mProtectedVolumesProtectButton->setText(qtTrId("ProtectVolume"));
    //% "Do Not Protect"
    mUi->mProtectedVolumesUnprotectButton->setText(qtTrId("UnprotectVolume"));
    //% "Cancel"
    mUi->sheetCancel->setText(qtTrId("CancelButton"));
    //% "OK"
    mUi->sheetOK->setText(qtTrId("OKButton"));
}

void PreferencesSheet::setColors(const Colors &colors)
{
    mColors = colors;
    editPreferencesChange();
    updateVolumesNote();
    mModel->reload();
}

QColor PreferencesSheet::colorOf(Preferences::TextColor color) const
{
    switch (color) {
    case Preferences::TextColor::Red:
        return mColors.red();
    case Preferences::TextColor::DarkGray:
        return mColors.darkGray();
    case Preferences::TextColor::Black:
        break;
    }
    return mColors.black();
}

void PreferencesSheet::setLabel(QLabel *label, const QString &text, Preferences::TextColor color)
{
    label->setText(text);
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, colorOf(color));
    label->setPalette(p);
}

void PreferencesSheet::editPreferences(PreferencesTarget &target)
{
    // One run at a time: a second request while it is open would save twice.
    if (isVisible()) return;
    load(Preferences::load());
    PreferencesTarget *t = &target;
    connect(
        this, &QDialog::finished, this,
        [this, t](int code) { Preferences::sheetEnded(code, choice(), *t, this, mInstallMenu); },
        Qt::SingleShotConnection);
    open();
}

void PreferencesSheet::load(const Preferences::SheetState &state)
{
    setSliderPosition(state.removeFromCachePosition);
    if (state.protectionEnabled) mUi->mProtectionEnabled->setChecked(*state.protectionEnabled);
    if (state.launchMenu) mUi->mLaunchMenu->setChecked(*state.launchMenu);
    if (state.excludeName) mUi->mPreferencesExcludeName->setText(*state.excludeName);
    if (state.excludeExtension)
        mUi->mPreferencesExcludeExtensions->setText(*state.excludeExtension);
    mUi->mKeepFreePercent->setValue(int(state.keepFreePercent));
    mUi->mKeepFreeGB->setValue(double(state.keepFreeBytes) / kBytesPerGB);
    mKeepFreeBytes = state.keepFreeBytes;
    mSessionKeeps = state.sessionKeeps;
    mKeepLibrary = state.keepLibrary;
    mUi->mKeepPermanentDeletions->setChecked(state.keepPermanentDeletions);
    // Without the library it can only be turned off.
    mUi->mKeepPermanentDeletions->setEnabled(!mKeepLibrary.isEmpty() ||
                                             state.keepPermanentDeletions);
    updateKeepNote();
    mUi->mProtectedVolumesTableView->clearSelection();
    mVolumes = state.volumes;
    mModel->reload();
    mUi->mProtectedVolumesProtectButton->setEnabled(false);
    mUi->mProtectedVolumesUnprotectButton->setEnabled(false);
    updateVolumesNote();
    editPreferencesChange();
}

Preferences::SheetChoice PreferencesSheet::choice() const
{
    Preferences::SheetChoice c;
    c.removeFromCachePosition = sliderPosition();
    c.protectionEnabled = mUi->mProtectionEnabled->isChecked();
    c.launchMenu = mUi->mLaunchMenu->isChecked();
    c.excludeName = mUi->mPreferencesExcludeName->text();
    c.excludeExtension = mUi->mPreferencesExcludeExtensions->text();
    c.volumes = mVolumes;
    c.keepFreePercent = mUi->mKeepFreePercent->value();
    // What was loaded stays exact unless the box shows another number.
    const double gb = mUi->mKeepFreeGB->value();
    c.keepFreeBytes = std::abs(gb - double(mKeepFreeBytes) / kBytesPerGB) < 0.05
                          ? mKeepFreeBytes
                          : qint64(std::llround(gb * kBytesPerGB));
    c.keepPermanentDeletions = mUi->mKeepPermanentDeletions->isChecked();
    c.keepLibrary = mKeepLibrary;
    return c;
}

double PreferencesSheet::sliderPosition() const
{
    return double(mUi->mPreferencesRemoveFromCache->value()) / kSliderScale;
}

void PreferencesSheet::setSliderPosition(double position)
{
    const QSignalBlocker quiet(mUi->mPreferencesRemoveFromCache);
    mUi->mPreferencesRemoveFromCache->setValue(int(std::lround(position * kSliderScale)));
}

void PreferencesSheet::sheetOK()
{
    done(Preferences::kConfirm);
}

void PreferencesSheet::sheetCancel()
{
    done(Preferences::kCancel);
}

void PreferencesSheet::editPreferencesChange()
{
    const qint64 days = Preferences::getRemoveFromCacheValue(sliderPosition());
    const Preferences::RetentionTexts t =
        Preferences::retentionTexts(days, Settings::integer(SettingsKeys::PrefsRemoveFromCache));
    setLabel(mUi->mPreferencesRemoveFromCacheValue, t.value, t.valueColor);
    setLabel(mUi->mPreferencesRemoveInfos, t.remark, t.remarkColor);
}

qsizetype PreferencesSheet::selectedVolumeRow() const
{
    return mUi->mProtectedVolumesTableView->selectedRow();
}

void PreferencesSheet::clickVolumesList()
{
    const Preferences::VolumeButtons b =
        Preferences::clickVolumesList(mVolumes, selectedVolumeRow());
    mUi->mProtectedVolumesProtectButton->setEnabled(b.protect);
    mUi->mProtectedVolumesUnprotectButton->setEnabled(b.unprotect);
}

void PreferencesSheet::protectSelectedVolume()
{
    const qsizetype row = selectedVolumeRow();
    if (!Preferences::protectSelectedVolume(mVolumes, row)) return;
    // The row changes in place, so the selection (and with it the buttons) stays.
    mModel->rowChanged(int(row));
    updateVolumesNote();
    emit volumeProtected();
}

void PreferencesSheet::unprotectSelectedVolume()
{
    const qsizetype row = selectedVolumeRow();
    if (!Preferences::unprotectSelectedVolume(mVolumes, row)) return;
    mModel->rowChanged(int(row));
    updateVolumesNote();
    clickVolumesList();
}

void PreferencesSheet::updateVolumesNote()
{
    // A volume without a UUID cannot be recognised when it comes back, so its mark is not kept.
    QStringList names;
    for (qsizetype row : Preferences::unstorableRows(mVolumes))
        names.append(Preferences::displayName(mVolumes[row]));
    QLabel *note = mUi->mPreferencesVolumesNote;
    if (names.isEmpty()) {
        note->hide();
        note->clear();
        return;
    }
    //% "%1 has no volume identifier, so Salvora 3 could not recognise it later: it will not be "
    //% "protected."
    setLabel(note, qtTrId("VolumeWithoutIdentifier").arg(names.join(QStringLiteral(", "))),
             Preferences::TextColor::Red);
    note->show();
}

void PreferencesSheet::updateKeepNote()
{
    const QString note = Preferences::keepNote(mUi->mKeepPermanentDeletions->isChecked(),
                                               mSessionKeeps, !mKeepLibrary.isEmpty());
    setLabel(mUi->mKeepPermanentDeletionsNote, note, Preferences::TextColor::DarkGray);
    mUi->mKeepPermanentDeletionsNote->setVisible(!note.isEmpty());
}

void PreferencesSheet::changeEvent(QEvent *event)
{
    QDialog::changeEvent(event);
    if (event->type() == QEvent::ApplicationPaletteChange || event->type() == QEvent::ThemeChange) {
        editPreferencesChange();
        updateVolumesNote();
        updateKeepNote();
    }
}
