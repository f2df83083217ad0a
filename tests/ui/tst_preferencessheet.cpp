// The Preferences sheet as the user meets it: controls loaded from the settings, the retention
// labels and their colours, the volume buttons, OK and Escape with their result codes.

#include "PreferencesRecorder.h"
#include "TestEnv.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "ui/PreferencesSheet.h"
#include "ui/TableView.h"
#include "ui_PreferencesSheet.h"
#include "volumes/Volumes.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>

namespace {

using Recorder = PreferencesRecorder;

QColor textColor(const QLabel *label)
{
    return label->palette().color(QPalette::WindowText);
}

} // namespace

class TstPreferencesSheet : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QWidget *window = nullptr;
    PreferencesSheet *sheet = nullptr;
    int installs = 0;
    const PreferencesSheet::Colors colors{
        [] { return QColor(Qt::black); }, [] { return QColor(Qt::darkGray); },
        [] { return QColor(Qt::gray); }, [] { return QColor(Qt::red); },
        [] { return QColor(Qt::green); }};

    Ui::PreferencesSheet &ui() { return sheet->ui(); }
    void selectVolume(int row) { ui().mProtectedVolumesTableView->selectRowAlone(row); }

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }
    void init()
    {
        env = new TestEnv;
        CommonUtils::setMountTableSourceForTesting([] {
            return QByteArray("1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
                              "2 1 8:17 / /media/u/Data rw - ext4 /dev/sdb1 rw\n"
                              "3 1 0:50 / /media/u/Stick rw - fuse.x stick rw\n");
        });
        CommonUtils::setIdentityResolverForTesting([](const MountEntry &e) {
            if (e.major == 8 && e.minor == 17) return VolumeIdentity{kDataUuid, {}};
            return VolumeIdentity{};
        });
        CommonUtils::resetVolumesLists();
        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 30);
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        Settings::setInteger(SettingsKeys::PrefsLaunchMenu, 0);
        Settings::setString(SettingsKeys::PrefsExcludeName, QStringLiteral("a;b"));
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks,
                                {{kDataUuid, QStringLiteral("/media/u/Data")}});
        window = new QWidget;
        window->resize(800, 600);
        window->show();
        sheet = new PreferencesSheet(window);
        sheet->setColors(colors);
        installs = 0;
        sheet->setInstallMenu([this] { ++installs; });
    }
    void cleanup()
    {
        delete window;
        CommonUtils::setMountTableSourceForTesting({});
        CommonUtils::setIdentityResolverForTesting({});
        delete env;
    }

    void opensLoadedFromTheSettings()
    {
        Recorder r;
        sheet->editPreferences(r);
        QVERIFY(sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(sheet->parentWidget(), window);
        QVERIFY(std::abs(sheet->sliderPosition() - 67.39) < 0.01);
        QCOMPARE(Preferences::getRemoveFromCacheValue(sheet->sliderPosition()), 30);
        QVERIFY(ui().mProtectionEnabled->isChecked());
        QVERIFY(!ui().mLaunchMenu->isChecked());
        QCOMPARE(ui().mPreferencesExcludeName->text(), QStringLiteral("a;b"));
        // The empty fields say how entries are separated.
        QCOMPARE(ui().mPreferencesExcludeName->placeholderText(), qtTrId("PreferencesExcludeNamePlaceholder"));
        QCOMPARE(ui().mPreferencesExcludeExtensions->placeholderText(),
                 qtTrId("PreferencesExcludeExtensionsPlaceholder"));
        QCOMPARE(ui().mPreferencesRemoveFromCacheValue->text(), qtTrId("ManyDays").arg(30));
        QCOMPARE(textColor(ui().mPreferencesRemoveFromCacheValue), QColor(Qt::black));
        QCOMPARE(ui().mPreferencesRemoveInfos->text(), qtTrId("DaysOfActivityNormal"));
        QCOMPARE(textColor(ui().mPreferencesRemoveInfos), QColor(Qt::darkGray));
        QCOMPARE(sheet->volumes().size(), 3);
        QVERIFY(!ui().mProtectedVolumesProtectButton->isEnabled());
        QVERIFY(!ui().mProtectedVolumesUnprotectButton->isEnabled());
        QVERIFY(ui().mPreferencesVolumesNote->isHidden());
        QVERIFY(r.calls.isEmpty());
    }

    void sliderLabelsFollowTheChoice()
    {
        Recorder r;
        sheet->editPreferences(r);
        QSlider *slider = ui().mPreferencesRemoveFromCache;
        slider->setValue(slider->maximum());
        QCOMPARE(ui().mPreferencesRemoveFromCacheValue->text(), qtTrId("Never"));
        QCOMPARE(textColor(ui().mPreferencesRemoveFromCacheValue), QColor(Qt::red));
        QCOMPARE(ui().mPreferencesRemoveInfos->text(), qtTrId("DaysOfActivityUnlimited"));
        // Shorter than the stored 30 days: older days will go, said in red.
        slider->setValue(0);
        QCOMPARE(ui().mPreferencesRemoveFromCacheValue->text(), qtTrId("OneDay").arg(1));
        QCOMPARE(ui().mPreferencesRemoveInfos->text(), qtTrId("DaysOfActivityLower"));
        QCOMPARE(textColor(ui().mPreferencesRemoveInfos), QColor(Qt::red));
        // Just below the far right end is 60 days.
        slider->setValue(slider->maximum() - 1);
        QCOMPARE(ui().mPreferencesRemoveFromCacheValue->text(), qtTrId("ManyDays").arg(60));
    }

    // The keeping check box says whether this session has the library and when a change takes
    // effect; without the library it can only be turned off.
    void keepCheckBox_data()
    {
        QTest::addColumn<bool>("library");
        QTest::addColumn<bool>("kept");
        QTest::addColumn<bool>("session");
        QTest::addColumn<bool>("toggle");
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<QString>("note"); // an id; empty: no note shown
        QTest::newRow("no library") << false << false << false << false << false
                                    << "KeepLibraryMissing";
        QTest::newRow("no library, still on") << false << true << false << false << true
                                              << "KeepLibraryMissing";
        QTest::newRow("on from the next login") << true << false << false << true << true
                                                << "KeepFromNextLogin";
        QTest::newRow("on in this session") << true << true << true << false << true
                                            << "KeepSessionHasIt";
        QTest::newRow("off from the next login") << true << true << true << true << true
                                                 << "KeepStopsAtNextLogin";
        QTest::newRow("off") << true << false << false << false << true << "";
    }
    void keepCheckBox()
    {
        QFETCH(bool, library);
        QFETCH(bool, kept);
        QFETCH(bool, session);
        QFETCH(bool, toggle);
        QFETCH(bool, enabled);
        QFETCH(QString, note);
        Preferences::SheetState state;
        state.keepPermanentDeletions = kept;
        state.sessionKeeps = session;
        state.keepLibrary = library ? QByteArray("/usr/lib/salvora3/libsalvora3-keep.so") : "";
        sheet->load(state);
        sheet->show();
        QCheckBox *box = ui().mKeepPermanentDeletions;
        QCOMPARE(box->isEnabled(), enabled);
        if (toggle) box->click();
        QCOMPARE(sheet->choice().keepPermanentDeletions, kept != toggle);
        QCOMPARE(sheet->choice().keepLibrary, state.keepLibrary);
        QCOMPARE(ui().mKeepPermanentDeletionsNote->isVisible(), !note.isEmpty());
        QCOMPARE(ui().mKeepPermanentDeletionsNote->text(),
                 note.isEmpty() ? QString() : qtTrId(note.toLatin1().constData()));
    }

    void keepFreeBoxes()
    {
        Preferences::SheetState state;
        state.keepFreePercent = 5;
        state.keepFreeBytes = 2'123'456'789;
        sheet->load(state);
        QCOMPARE(ui().mKeepFreePercent->value(), 5);
        // Shown rounded, kept exact while untouched.
        QCOMPARE(ui().mKeepFreeGB->value(), 2.1);
        QCOMPARE(sheet->choice().keepFreeBytes, qint64(2'123'456'789));
        ui().mKeepFreeGB->setValue(3.5);
        ui().mKeepFreePercent->setValue(8);
        QCOMPARE(sheet->choice().keepFreeBytes, qint64(3'500'000'000));
        QCOMPARE(sheet->choice().keepFreePercent, qint64(8));
    }

    void volumeButtonsAndConfirming()
    {
        Recorder r;
        QSignalSpy protectedSpy(sheet, &PreferencesSheet::volumeProtected);
        QSignalSpy finished(sheet, &QDialog::finished);
        sheet->editPreferences(r);

        selectVolume(0); // the start-up volume cannot be changed
        QVERIFY(!ui().mProtectedVolumesProtectButton->isEnabled());
        QVERIFY(!ui().mProtectedVolumesUnprotectButton->isEnabled());

        selectVolume(2); // the stick: not protected, and without a UUID
        QVERIFY(ui().mProtectedVolumesProtectButton->isEnabled());
        QTest::mouseClick(ui().mProtectedVolumesProtectButton, Qt::LeftButton);
        QVERIFY(sheet->volumes()[2].isProtected);
        QCOMPARE(protectedSpy.size(), 1);
        // The buttons are not re-evaluated after protecting.
        QVERIFY(ui().mProtectedVolumesProtectButton->isEnabled());
        QVERIFY(!ui().mProtectedVolumesUnprotectButton->isEnabled());
        // The sheet says why that mark will not be kept.
        QVERIFY(!ui().mPreferencesVolumesNote->isHidden());
        QVERIFY(ui().mPreferencesVolumesNote->text().contains(QLatin1String("Stick")));

        selectVolume(1); // Data, protected
        QVERIFY(ui().mProtectedVolumesUnprotectButton->isEnabled());
        QTest::mouseClick(ui().mProtectedVolumesUnprotectButton, Qt::LeftButton);
        QVERIFY(!sheet->volumes()[1].isProtected);
        QVERIFY(ui().mProtectedVolumesProtectButton->isEnabled());
        QVERIFY(!ui().mProtectedVolumesUnprotectButton->isEnabled());

        ui().mPreferencesExcludeExtensions->setText(QStringLiteral(".JPG; .png;jpg"));
        QTest::mouseClick(ui().sheetOK, Qt::LeftButton);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished[0][0].toInt(), Preferences::kConfirm);
        QVERIFY(!sheet->isVisible());
        QCOMPARE(r.calls, QStringList({"volumes", "days", "dayTable", "status"}));
        QCOMPARE(Settings::string(SettingsKeys::PrefsExcludeExtension), QStringLiteral("jpg;png"));
        QCOMPARE(Settings::integer(SettingsKeys::PrefsLaunchMenu), std::optional<qint64>(1));
        QCOMPARE(Settings::integer(SettingsKeys::PrefsRemoveFromCache), std::optional<qint64>(30));
        // Data was unprotected, the stick cannot be stored.
        QCOMPARE(Settings::dictionary(SettingsKeys::PrefsProtectedDisks), QVariantMap());
        QTRY_COMPARE(installs, 1);
    }

    void escapeCancelsAndStoresNothing()
    {
        Recorder r;
        QSignalSpy finished(sheet, &QDialog::finished);
        sheet->editPreferences(r);
        ui().mPreferencesExcludeName->setText(QStringLiteral("changed"));
        ui().mProtectionEnabled->setChecked(false);
        QTest::keyClick(sheet, Qt::Key_Escape);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished[0][0].toInt(), Preferences::kCancel);
        QCOMPARE(r.calls, QStringList({"status"}));
        QCOMPARE(Settings::string(SettingsKeys::PrefsExcludeName), QStringLiteral("a;b"));
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(1));

        // Opened again, the controls come from the settings, not from the cancelled session.
        sheet->editPreferences(r);
        QCOMPARE(ui().mPreferencesExcludeName->text(), QStringLiteral("a;b"));
        // The empty fields say how entries are separated.
        QCOMPARE(ui().mPreferencesExcludeName->placeholderText(), qtTrId("PreferencesExcludeNamePlaceholder"));
        QCOMPARE(ui().mPreferencesExcludeExtensions->placeholderText(),
                 qtTrId("PreferencesExcludeExtensionsPlaceholder"));
        QVERIFY(ui().mProtectionEnabled->isChecked());
        QTest::mouseClick(ui().sheetCancel, Qt::LeftButton);
        QCOMPARE(finished.size(), 2);
        QCOMPARE(finished[1][0].toInt(), Preferences::kCancel);
        QCOMPARE(installs, 0);
    }

    void paletteColoursByDefault()
    {
        PreferencesSheet plain(window);
        plain.load(Preferences::load());
        plain.setSliderPosition(100);
        plain.editPreferencesChange();
        QCOMPARE(textColor(plain.ui().mPreferencesRemoveFromCacheValue),
                 PreferencesSheet::paletteColors().red());
        QVERIFY(PreferencesSheet::paletteColors().black() !=
                PreferencesSheet::paletteColors().red());
    }
};

QTEST_MAIN(TstPreferencesSheet)
#include "tst_preferencessheet.moc"
