// The Preferences: first their rules without the widgets (the retention slider, the filters, the
// volume rows, what confirming stores, announces and refreshes), then the sheet as the user meets
// it (controls loaded from the settings, the retention labels, the volume buttons, OK and Escape
// with their result codes).

#include "TestEnv.h"

#include "common/KeepSession.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "logic/PreferencesLogic.h"
#include "ui/PreferencesSheet.h"
#include "ui/TableView.h"
#include "ui_PreferencesSheet.h"
#include "volumes/Volumes.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>

#include <cmath>

using namespace Preferences;

namespace {

// Records the refreshes the preferences ask of the window, in order.
class Recorder : public PreferencesTarget
{
public:
    QStringList calls;
    void updateProtectedVolumesList() override { calls.append(QStringLiteral("volumes")); }
    void updateListOfDaysInCache() override { calls.append(QStringLiteral("days")); }
    void reloadDayTable() override { calls.append(QStringLiteral("dayTable")); }
    void updateStatusInfos() override { calls.append(QStringLiteral("status")); }
};

const QString kDataUuid = QStringLiteral("0A1B2C3D-0000-4000-8000-00000000D474");
const QString kGoneUuid = QStringLiteral("0A1B2C3D-0000-4000-8000-0000000060E1");

VolumeRecord row(const QString &path, const QString &uuid, bool isProtected = false)
{
    VolumeRecord r;
    r.path = path;
    r.uuid = uuid;
    r.isProtected = isProtected;
    return r;
}

std::optional<qint64> stored(const char *key)
{
    return Settings::integer(key);
}

} // namespace

class TstPreferences : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QWidget *window = nullptr;
    PreferencesSheet *sheet = nullptr;
    int installs = 0;

    // The sheet over a window, with settings stored before: 30 days, protection on, the
    // companion off, a name filter, the data volume protected.
    void makeSheet()
    {
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
        installs = 0;
        sheet->setInstallMenu([this] { ++installs; });
    }
    Ui::PreferencesSheet &ui() { return sheet->ui(); }
    void selectVolume(int row) { ui().mProtectedVolumesTableView->selectRowAlone(row); }

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }
    void init()
    {
        env = new TestEnv;
        // "/" and two removable volumes, one of which (a stick) has no UUID.
        CommonUtils::setMountTableSourceForTesting([] {
            return QByteArray("1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
                              "2 1 8:17 / /media/u/Data rw - ext4 /dev/sdb1 rw\n"
                              "3 1 0:50 / /media/u/Stick rw - fuse.x stick rw\n");
        });
        CommonUtils::setIdentityResolverForTesting([](const MountEntry &e) {
            if (e.major == 8 && e.minor == 17) return VolumeIdentity{kDataUuid, {}};
            if (e.major == 8 && e.minor == 1)
                return VolumeIdentity{QStringLiteral("11111111-2222-4333-8444-555555555555"), {}};
            return VolumeIdentity{};
        });
        CommonUtils::resetVolumesLists();
    }
    void cleanup()
    {
        delete window;
        window = nullptr;
        sheet = nullptr;
        CommonUtils::setMountTableSourceForTesting({});
        CommonUtils::setIdentityResolverForTesting({});
        delete env;
        env = nullptr;
    }

    // Where days sit on the slider, its ends, and every day in between read back.
    void retentionSlider()
    {
        QCOMPARE(setRemoveFromCacheValue(1), 0.0);
        QCOMPARE(setRemoveFromCacheValue(14), 50.0);
        QVERIFY(std::abs(setRemoveFromCacheValue(30) - 67.3913) < 1e-3);
        // Never sits at the far right; 60 days lands there too and reads back as never.
        QCOMPARE(setRemoveFromCacheValue(0), 100.0);
        QCOMPARE(setRemoveFromCacheValue(60), 100.0);
        QCOMPARE(getRemoveFromCacheValue(100.0), qint64(0));
        QCOMPARE(getRemoveFromCacheValue(99.99), qint64(60));
        // At the sheet's slider resolution (hundredths), every day from 1 to 59 comes back.
        for (qint64 d = 1; d < 60; ++d) {
            const double onSlider = std::round(setRemoveFromCacheValue(d) * 100) / 100;
            QCOMPARE(getRemoveFromCacheValue(onSlider), d);
        }
    }

    void filters_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("names");
        QTest::addColumn<QString>("extensions");
        auto row = [](const char *tag, const char *text, const char *names, const char *exts) {
            QTest::newRow(tag) << QString(text) << QString(names) << QString(exts);
        };
        row("duplicates, empties, blanks", "Foo;;bar;FOO; baz", " baz;bar;foo", "bar;baz;foo");
        row("extensions", ".JPG; .png;jpg", " .png;.jpg;jpg", "jpg;png");
        row("only separators", ";;;", "", "");
        row("inner blanks kept", "My File;a", "a;my file", "a;myfile");
        row("non-ASCII lower-cased", "ÉTÉ;été", "été", "été");
    }
    void filters()
    {
        QFETCH(QString, text);
        QFETCH(QString, names);
        QFETCH(QString, extensions);
        QCOMPARE(cleanFilters(text), names);
        QCOMPARE(cleanExtensions(text), extensions);
    }

    void volumeRowsFromMountsAndSettings()
    {
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks,
                                {{kDataUuid, QStringLiteral("/media/u/Old")},
                                 {kGoneUuid, QStringLiteral("/media/u/Gone")}});
        const QList<VolumeRecord> rows = buildVolumeRows();
        QCOMPARE(rows.size(), 4);
        QStringList paths, uuids;
        for (const VolumeRecord &r : rows) {
            paths.append(r.path);
            uuids.append(r.uuid);
        }
        // The last: a protected volume that is not mounted, under the path stored for it.
        QCOMPARE(paths, QStringList({"/", "/media/u/Data", "/media/u/Stick", "/media/u/Gone"}));
        QCOMPARE(uuids.mid(1), QStringList({kDataUuid, QString(), kGoneUuid}));
        QVERIFY(rows[0].isProtected && rows[1].isProtected && !rows[2].isProtected);
        QVERIFY(!rows[1].unmounted && rows[1].description.has_value());
        QVERIFY(rows[3].isProtected && rows[3].unmounted);
        QCOMPARE(displayName(rows[3]), QStringLiteral("Gone"));
        // Rows out of range change nothing; a row without a UUID cannot be stored.
        QList<VolumeRecord> few{row("/", "R"), row("/media/u/Stick", QString())};
        QVERIFY(!clickVolumesList(few, 2).protect);
        QVERIFY(!protectSelectedVolume(few, -1));
        QVERIFY(!unprotectSelectedVolume(few, 7));
        QVERIFY(protectSelectedVolume(few, 1));
        QCOMPARE(unstorableRows(few), QList<qsizetype>({1}));
        QVERIFY(protectedDisksFrom(few).isEmpty());
    }

    // The check box writes or removes the session's files only when it changes what is there;
    // the user's own lines of ~/.profile stay.
    void keepCheckBoxStores_data()
    {
        QTest::addColumn<bool>("before");
        QTest::addColumn<bool>("checked");
        QTest::newRow("turned on") << false << true;
        QTest::newRow("turned off") << true << false;
        QTest::newRow("left on") << true << true;
        QTest::newRow("left off") << false << false;
    }
    void keepCheckBoxStores()
    {
        QFETCH(bool, before);
        QFETCH(bool, checked);
        const QByteArray library = env->homeBytes() + "/lib/libsalvora3-keep.so";
        QVERIFY(TestEnv::writeFile(library, "not really"));
        const QByteArray mine = "export EDITOR=vi";
        QVERIFY(TestEnv::writeFile(env->homeBytes() + "/.profile", mine));
        if (before) QVERIFY(KeepSession::enable(library).ok());
        QCOMPARE(load().keepPermanentDeletions, before);

        SheetChoice c;
        c.keepPermanentDeletions = checked;
        c.keepLibrary = library;
        save(c);
        QCOMPARE(load().keepPermanentDeletions, checked);
        // What the files hold: tst_keep::keepCommand.
        QCOMPARE(TestEnv::exists(KeepSession::environmentFile()), checked);
        const QByteArray profile = TestEnv::readFile(env->homeBytes() + "/.profile");
        QCOMPARE(profile.count("export LD_PRELOAD="), checked ? 1 : 0);
        if (!checked) QCOMPARE(profile, before ? mine + '\n' : mine);
    }

    // The free space kept is stored only when the choice differs from what applies.
    void keepFree_data()
    {
        QTest::addColumn<qint64>("percent");
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<bool>("percentStored");
        QTest::addColumn<bool>("bytesStored");
        QTest::newRow("defaults") << qint64(5) << qint64(2'000'000'000) << false << false;
        QTest::newRow("a share") << qint64(10) << qint64(2'000'000'000) << true << false;
        QTest::newRow("an amount, or off") << qint64(5) << qint64(0) << false << true;
    }
    void keepFree()
    {
        QFETCH(qint64, percent);
        QFETCH(qint64, bytes);
        QFETCH(bool, percentStored);
        QFETCH(bool, bytesStored);
        SheetChoice c;
        c.keepFreePercent = percent;
        c.keepFreeBytes = bytes;
        save(c);
        QCOMPARE(Settings::contains(SettingsKeys::PrefsKeepFreePercent), percentStored);
        QCOMPARE(Settings::contains(SettingsKeys::PrefsKeepFreeBytes), bytesStored);
        const SheetState loaded = load();
        QCOMPARE(loaded.keepFreePercent, percent);
        QCOMPARE(loaded.keepFreeBytes, bytes);
    }

    // Absent is not off: the sheet leaves such controls as they are (stored values loaded:
    // opensLoadedFromTheSettingsLabelsFollow).
    void loadingLeavesAbsentKeysAlone()
    {
        const SheetState s = load();
        QVERIFY(!s.protectionEnabled && !s.launchMenu && !s.excludeName && !s.excludeExtension);
    }

    // ---- The sheet.
    void opensLoadedFromTheSettingsLabelsFollow()
    {
        makeSheet();
        Recorder r;
        sheet->editPreferences(r);
        QVERIFY(sheet->isVisible());
        QVERIFY(std::abs(sheet->sliderPosition() - 67.39) < 0.01);
        QVERIFY(ui().mProtectionEnabled->isChecked() && !ui().mLaunchMenu->isChecked());
        QCOMPARE(ui().mPreferencesExcludeName->text(), QStringLiteral("a;b"));
        QCOMPARE(sheet->volumes().size(), 3);
        QVERIFY(ui().mPreferencesVolumesNote->isHidden() && r.calls.isEmpty());
        // The labels follow the slider; shorter than the stored 30 days, older days will go.
        QSlider *slider = ui().mPreferencesRemoveFromCache;
        slider->setValue(slider->maximum());
        QCOMPARE(ui().mPreferencesRemoveFromCacheValue->text(), qtTrId("Never"));
        slider->setValue(0);
        QCOMPARE(ui().mPreferencesRemoveInfos->text(), qtTrId("DaysOfActivityLower"));
    }

    // The keeping check box says whether this session has the library and when a change takes
    // effect.
    void keepCheckBoxShows_data()
    {
        QTest::addColumn<bool>("library");
        QTest::addColumn<bool>("kept");
        QTest::addColumn<bool>("session");
        QTest::addColumn<bool>("toggle");
        QTest::addColumn<QString>("note"); // an id; empty: no note shown
        // Without the library the box can still be turned off.
        QTest::newRow("no library, turned off")
            << false << true << false << true << "KeepLibraryMissing";
        QTest::newRow("on from the next login")
            << true << false << false << true << "KeepFromNextLogin";
        QTest::newRow("on in this session") << true << true << true << false << "KeepSessionHasIt";
        QTest::newRow("off from the next login")
            << true << true << true << true << "KeepStopsAtNextLogin";
        QTest::newRow("off") << true << false << false << false << "";
    }
    void keepCheckBoxShows()
    {
        makeSheet();
        QFETCH(bool, library);
        QFETCH(bool, kept);
        QFETCH(bool, session);
        QFETCH(bool, toggle);
        QFETCH(QString, note);
        Preferences::SheetState state;
        state.keepPermanentDeletions = kept;
        state.sessionKeeps = session;
        state.keepLibrary = library ? QByteArray("/usr/lib/salvora3/libsalvora3-keep.so") : "";
        sheet->load(state);
        if (toggle) ui().mKeepPermanentDeletions->click();
        QCOMPARE(sheet->choice().keepPermanentDeletions, kept != toggle);
        QCOMPARE(sheet->choice().keepLibrary, state.keepLibrary);
        QCOMPARE(ui().mKeepPermanentDeletionsNote->text(),
                 note.isEmpty() ? QString() : qtTrId(note.toLatin1().constData()));
    }

    void keepFreeBoxes()
    {
        makeSheet();
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
        makeSheet();
        Recorder r;
        QSignalSpy protectedSpy(sheet, &PreferencesSheet::volumeProtected);
        QSignalSpy finished(sheet, &QDialog::finished);
        sheet->editPreferences(r);

        selectVolume(0); // the start-up volume cannot be changed
        QVERIFY(!ui().mProtectedVolumesProtectButton->isEnabled() &&
                !ui().mProtectedVolumesUnprotectButton->isEnabled());

        selectVolume(2); // the stick: not protected, and without a UUID
        QTest::mouseClick(ui().mProtectedVolumesProtectButton, Qt::LeftButton);
        QVERIFY(sheet->volumes()[2].isProtected);
        QCOMPARE(protectedSpy.size(), 1);
        // The sheet says why that mark will not be kept.
        QVERIFY(ui().mPreferencesVolumesNote->text().contains(QLatin1String("Stick")));

        selectVolume(1); // Data, protected
        QTest::mouseClick(ui().mProtectedVolumesUnprotectButton, Qt::LeftButton);
        QVERIFY(!sheet->volumes()[1].isProtected);
        QTest::mouseClick(ui().mProtectedVolumesProtectButton, Qt::LeftButton); // and back

        // Confirming stores the cleaned filters, announces the change and refreshes the window.
        NotificationBus companion;
        const bool bus = companion.observe(QLatin1String(Notifications::Salvora3MenuNotification));
        QSignalSpy heard(&companion, &NotificationBus::received);
        ui().mPreferencesExcludeName->setText(QStringLiteral("Foo;;bar;FOO; baz"));
        ui().mPreferencesExcludeExtensions->setText(QStringLiteral(".JPG; .png;jpg"));
        QTest::mouseClick(ui().sheetOK, Qt::LeftButton);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished[0][0].toInt(), Preferences::kConfirm);
        QCOMPARE(r.calls, QStringList({"volumes", "days", "dayTable", "status"}));
        QCOMPARE(Settings::string(SettingsKeys::PrefsExcludeName), QStringLiteral(" baz;bar;foo"));
        QCOMPARE(Settings::string(SettingsKeys::PrefsExcludeExtension), QStringLiteral("jpg;png"));
        QCOMPARE(stored(SettingsKeys::PrefsRemoveFromCache), 30);
        QCOMPARE(stored(SettingsKeys::PrefsProtectionEnabled), 1);
        // While protection is on, the companion always runs.
        QCOMPARE(stored(SettingsKeys::PrefsLaunchMenu), 1);
        // Only the marked rows after the first that have a UUID: not the root, not the stick.
        QCOMPARE(Settings::dictionary(SettingsKeys::PrefsProtectedDisks),
                 QVariantMap({{kDataUuid, QStringLiteral("/media/u/Data")}}));
        QTRY_COMPARE(installs, 1);
        if (bus) {
            QTRY_COMPARE(heard.size(), 1);
            QCOMPARE(heard[0][1].toString(),
                     QLatin1String(Notifications::Salvora3SettingsDidChange));
        }
        // Protection off: the launch box is stored as it is.
        sheet->editPreferences(r);
        ui().mProtectionEnabled->setChecked(false);
        ui().mLaunchMenu->setChecked(false);
        QTest::mouseClick(ui().sheetOK, Qt::LeftButton);
        QCOMPARE(stored(SettingsKeys::PrefsLaunchMenu), 0);
        QCOMPARE(stored(SettingsKeys::PrefsProtectionEnabled), 0);
    }

    void escapeCancelsAndStoresNothing()
    {
        makeSheet();
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
        QCOMPARE(stored(SettingsKeys::PrefsProtectionEnabled), 1);

        // Opened again, the controls come from the settings, not from the cancelled session.
        sheet->editPreferences(r);
        QCOMPARE(ui().mPreferencesExcludeName->text(), QStringLiteral("a;b"));
        QVERIFY(ui().mProtectionEnabled->isChecked());
        QTest::mouseClick(ui().sheetCancel, Qt::LeftButton);
        QCOMPARE(finished.size(), 2);
        QTest::qWait(kInstallMenuDelayMs * 2);
        QCOMPARE(installs, 0);
    }
};

QTEST_MAIN(TstPreferences)
#include "tst_preferences.moc"
