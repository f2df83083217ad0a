#pragma once

#include "logic/PreferencesLogic.h"

#include <QColor>
#include <QDialog>

#include <functional>
#include <memory>

namespace Ui {
class PreferencesSheet;
}
class PreferencesVolumesModel;
class QLabel;

// The Preferences sheet: window-modal over the main window, ending with Preferences::kConfirm
// (OK) or Preferences::kCancel (Cancel, Escape, the close box). It only shows and collects; the
// rules and the settings are PreferencesLogic's.
class PreferencesSheet : public QDialog
{
    Q_OBJECT
public:
    // The slider counts hundredths of a position, so that every day from 1 to 60 has a place
    // on it (a plain 0 to 100 slider cannot reach 60).
    static constexpr int kSliderScale = 100;

    // The text colours, by the names of the adaptive colour getters. The defaults follow the
    // application palette; the window may pass the ZEL_Colors getters instead.
    struct Colors
    {
        std::function<QColor()> black;
        std::function<QColor()> darkGray;
        std::function<QColor()> gray;
        std::function<QColor()> red;
        std::function<QColor()> green;
    };
    static Colors paletteColors();

    explicit PreferencesSheet(QWidget *parent = nullptr);
    ~PreferencesSheet() override;

    void setColors(const Colors &colors);
    // What confirming runs 0.1 s later; LoginItems::installSalvoraMenu() by default (tests).
    void setInstallMenu(std::function<void()> installMenu)
    {
        mInstallMenu = std::move(installMenu);
    }

    // editPreferences: loads the controls from the settings, builds the volume rows, disables
    // both volume buttons, updates the labels and opens the sheet. When it ends, a confirmed
    // choice is saved and `target` refreshed (Preferences::sheetEnded).
    void editPreferences(PreferencesTarget &target);

    void load(const Preferences::SheetState &state);
    Preferences::SheetChoice choice() const;
    double sliderPosition() const;
    void setSliderPosition(double position);
    const QList<VolumeRecord> &volumes() const { return mVolumes; }

    // The outlets.
    Ui::PreferencesSheet &ui() const { return *mUi; }

public slots:
    void sheetOK();
    void sheetCancel();
    void reject() override { sheetCancel(); }
    // Rewrites the two retention labels for the slider's position.
    void editPreferencesChange();
    void clickVolumesList();
    void protectSelectedVolume();
    void unprotectSelectedVolume();

signals:
    // After protectSelectedVolume marked a row; the window refreshes its contents list
    // (clickDateList), as the protect button always did.
    void volumeProtected();

protected:
    void changeEvent(QEvent *event) override;

private:
    void translate();
    void setLabel(QLabel *label, const QString &text, Preferences::TextColor color);
    QColor colorOf(Preferences::TextColor color) const;
    void updateVolumesNote();
    void updateKeepNote();
    qsizetype selectedVolumeRow() const;

    std::unique_ptr<Ui::PreferencesSheet> mUi;
    PreferencesVolumesModel *mModel = nullptr;
    QList<VolumeRecord> mVolumes;
    qint64 mKeepFreeBytes = 0; // as loaded
    bool mSessionKeeps = false;
    QByteArray mKeepLibrary;
    Colors mColors;
    std::function<void()> mInstallMenu;
};
