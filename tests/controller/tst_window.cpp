#include "WindowFixture.h"

#include "AlertRecorder.h"

#include "browser/ContentsSort.h"
#include "browser/IncompleteItems.h"
#include "common/LossWatch.h"
#include "common/Losses.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/SizeText.h"
#include "common/Texts.h"
#include "logic/RemovalActions.h"
#include "logic/RemovalQueue.h"
#include "logic/RestoreActions.h"
#include "ui/LossesDialog.h"
#include "ui/MessageBar.h"
#include "ui/PreviewPanel.h"
#include "ui/ProgressArea.h"
#include "ui/TableView.h"
#include "ui_PreferencesSheet.h"
#include "volumes/Volumes.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>
#include <QThread>
#include <QToolBar>
#include <QToolButton>
#include <QTreeWidget>

#include <unistd.h>

// The window on generated caches: day list, contents scan and search, sort, messages, sizes,
// status line and the volume lists.

using Names = QList<QByteArray>;

class TstWindow : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    TestDelegate *c = nullptr;

    void launch()
    {
        c = new TestDelegate;
        QVERIFY(Fixture::launchAndSettle(*c));
    }
    QByteArray item(const char *day, const char *time, const QByteArray &name, qint64 size = 1)
    {
        return Fixture::addItem(*env, day, time, name, size);
    }
    QByteArray timeFolder(const char *day, const char *time) const
    {
        return Fixture::cachePath(*env) + '/' + day + '/' + day + ' ' + time;
    }
    Names names() const { return Fixture::names(*c); }
    QString info() const { return c->ui.mContentsInfos->text(); }
    QList<int> selectedDays() const { return c->ui.mTableViewDate->selectedRowNumbers(); }
    int rowOf(const QByteArray &name) const { return int(names().indexOf(name)); }

    // A new scan (of `timeFolder`, or of the selected days), waited for.
    void scanAndWait(const QByteArray &timeFolder = QByteArray())
    {
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        c->updateListOfContentsInCache(timeFolder);
        QVERIFY(Fixture::waitForScans(ended, 1));
    }
    // Selects this day alone (-1: none) and waits for the scan it starts.
    void pickDay(int row)
    {
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        if (row < 0)
            c->ui.mTableViewDate->clearSelection();
        else
            c->ui.mTableViewDate->selectRowAlone(row);
        QVERIFY(Fixture::waitForScans(ended, 1));
    }
    // Clicks a header and checks the order chosen and the names in it.
    void sortBy(const char *column, SortOrder order, const Names &expected)
    {
        QHeaderView *header = c->ui.mTableViewContents->horizontalHeader();
        const int section = c->ui.mContentsModel->columnForIdentifier(QLatin1String(column));
        const QPoint at(header->sectionViewportPosition(section) + header->sectionSize(section) / 2,
                        header->height() / 2);
        QTest::mouseClick(header->viewport(), Qt::LeftButton, Qt::NoModifier, at);
        QVERIFY(c->probe.sortOrder() == order);
        if (!expected.isEmpty()) QCOMPARE(names(), expected);
    }
    QString status() const { return c->ui.mProtectionInfos->text(); }

    // The window in front, the about box of the launch closed: shortcuts reach it.
    void activate()
    {
        c->closeAboutBox();
        c->ui.window->show();
        c->ui.window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(c->ui.window));
    }

    void selectNames(const QByteArrayList &names)
    {
        QItemSelection selection;
        for (const QByteArray &n : names) {
            const int row = rowOf(n);
            QVERIFY2(row >= 0, n.constData());
            selection.select(c->ui.mContentsModel->index(row, 0),
                             c->ui.mContentsModel->index(row, 3));
        }
        c->ui.mTableViewContents->selectionModel()->select(selection,
                                                           QItemSelectionModel::ClearAndSelect);
    }

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }
    void init()
    {
        env = new TestEnv;
        Fixture::setLaterLaunch();
    }
    void cleanup()
    {
        delete c;
        c = nullptr;
        CommonUtils::setMountTableSourceForTesting({});
        CommonUtils::setIdentityResolverForTesting({});
        CommonUtils::resetVolumesLists();
        delete env;
    }

    // The first fill selects the newest day; refreshes keep the user's selection unless the
    // list changed, and a removal's request for a row is honoured once.
    void dayListSelection()
    {
        item("2024-05-01", "09_00_00", "1");
        item("2024-05-02", "10_00_00", "2");
        item("2024-05-03", "08_00_00", "new one.txt");
        item("2024-05-03", "11_30_00", "new two.txt");
        launch();
        QCOMPARE(selectedDays(), QList<int>{2}); // oldest first: the newest is the last row
        QCOMPARE(names(), Names({"new one.txt", "new two.txt"}));

        // The user selects the first and the last day.
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        QItemSelection both;
        both.select(c->ui.mDateModel->index(0, 0), c->ui.mDateModel->index(0, 2));
        both.select(c->ui.mDateModel->index(2, 0), c->ui.mDateModel->index(2, 2));
        c->ui.mTableViewDate->selectionModel()->select(both, QItemSelectionModel::ClearAndSelect);
        QVERIFY(Fixture::waitForScans(ended, 1));
        QCOMPARE(names(), Names({"1", "new one.txt", "new two.txt"}));
        const qsizetype scans = started.size();
        c->updateListOfDaysInCache();
        c->updateListOfDaysInCache();
        QCOMPARE(selectedDays(), QList<int>({0, 2}));
        QTest::qWait(50);
        QCOMPARE(started.size(), scans);
        // A new day changes the list: the newest day is selected again.
        item("2024-05-04", "09_00_00", "4");
        c->updateListOfDaysInCache();
        QCOMPARE(selectedDays(), QList<int>{3});
        QVERIFY(Fixture::waitForScans(ended, 2));
        QCOMPARE(names(), Names{"4"});

        // A removal asks for the row that was selected (1); the same day stays selected. None
        // selected (-1): the selection is left alone, once. A row beyond the table is ignored.
        c->ui.mTableViewDate->selectRowAlone(1);
        const QList<std::tuple<int, QList<int>, const char *>> requests{
            {1, {1}, "2024-05-05"}, {-1, {}, "2024-05-06"}, {42, {}, "2024-05-07"}};
        for (const auto &[request, selected, day] : requests) {
            if (request < 0) c->ui.mTableViewDate->clearSelection();
            c->probe.setSelectedDate(request);
            item(day, "09_00_00", "new");
            c->updateListOfDaysInCache();
            QCOMPARE(selectedDays(), selected);
            QCOMPARE(c->probe.selectedDate(), -2);
        }
        // Out-of-range contextual-menu tags do nothing.
        QVERIFY(Fixture::settle(*c));
        started.clear();
        c->probe.setCacheTimesInDay({timeFolder("2024-05-02", "10_00_00")});
        c->updateCacheContentsAtTime(-1);
        c->updateCacheContentsAtTime(1);
        QTest::qWait(300);
        QCOMPARE(started.size(), 0);
        c->updateCacheContentsAtTime(0);
        QVERIFY(Fixture::settle(*c));
        QCOMPARE(names(), Names{"2"});
    }

    // A second day chosen during a long scan asks it to stop, and starts once it has ended.
    void secondDayStopsTheFirstScan()
    {
        for (int t = 0; t < 40; ++t) {
            const QByteArray time = QString::asprintf("08_%02d_00", t).toLatin1();
            for (int i = 0; i < 150; ++i)
                item("2024-05-01", time.constData(), "first " + QByteArray::number(i));
        }
        item("2024-05-02", "09_00_00", "second a");
        item("2024-05-02", "10_00_00", "second b");
        item("2024-05-03", "09_00_00", "newest");
        launch();
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        c->ui.mTableViewDate->selectRowAlone(0);
        QVERIFY(started.size() == 1 && c->probe.scanning());
        c->ui.mTableViewDate->selectRowAlone(1);
        QVERIFY(c->probe.scanMustStop() && started.size() == 1);
        QVERIFY(Fixture::waitForScans(ended, 2));
        QCOMPARE(names(), Names({"second a", "second b"}));
        QVERIFY(!c->probe.scanning() && !c->probe.scanMustStop());
    }

    // The field asks after a pause in the typing, or at once on Enter (what matches:
    // tst_browser::searchMatchesOwnNameOnly).
    void search()
    {
        for (const char *name : {"Annual report.pdf", "rep_ort", "caf\xe9 report"})
            item("2024-05-01", "09_00_00", name);
        item("2024-05-01", "10_00_00", "REPORTS/inner.txt");
        launch();
        // The size is read through the name's bytes.
        c->ui.mTableViewContents->selectRowAlone(rowOf("caf\xe9 report"));
        QVERIFY(info().endsWith(QStringLiteral(" - 1")));
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        c->ui.mSearchString->setFocus();
        QTest::keyClicks(c->ui.mSearchString, QStringLiteral("RePoRt"));
        QCOMPARE(started.size(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(started.size(), 1, 2000);
        QVERIFY(Fixture::waitForScans(ended, 1));
        QCOMPARE(names(), Names({"Annual report.pdf", "caf\xe9 report", "REPORTS"}));
        // Enter asks at once, and the pending pause is cancelled.
        QTest::keyClicks(c->ui.mSearchString, QStringLiteral("s"));
        QTest::keyClick(c->ui.mSearchString, Qt::Key_Return);
        QCOMPARE(started.size(), 2);
        QVERIFY(Fixture::waitForScans(ended, 2));
        QTest::qWait(250);
        QCOMPARE(started.size(), 2);
        QCOMPARE(names(), Names{"REPORTS"});
        c->ui.mSearchString->setText(QStringLiteral("inner"));
        scanAndWait();
        QCOMPARE(info(), qtTrId("ContentsMessageSearchEmpty"));
        // The temporary home is removed by name, which such a name would defeat.
        QCOMPARE(unlink((timeFolder("2024-05-01", "09_00_00") + "/caf\xe9 report").constData()), 0);
    }

    // The line under the contents: what a day gave, or that the volume chosen is not mounted
    // (its days remembered). The search's and a selected item's line: search().
    void contentsMessages()
    {
        QVariantMap day{{"name", "2023-12-24"},
                        {"path", "/media/Old/.Salvora3Cache/2023-12-24"},
                        {"size", 5000},
                        {"count", 3}};
        Settings::setDictionary(
            SettingsKeys::ProtectedVolumesData,
            {{"0123-ABCD", QVariantMap{{"path", "/media/Old Disk"}, {"days", QVariantList{day}}}}});
        item("2024-05-01", "09_00_00", "one");
        for (const char *name : {"x", "y"})
            item("2024-05-02", "09_00_00", name);
        item("2024-05-02", "10_00_00", "z");
        QVERIFY(TestEnv::makeFolders(timeFolder("2024-05-03", "09_00_00")));
        launch();
        pickDay(0);
        QCOMPARE(info(), qtTrId("ContentsMessage"));
        pickDay(-1); // with no day selected, every day is listed
        QCOMPARE(info(), QStringLiteral("4 items"));

        QCOMPARE(c->ui.mSelectedVolumeMenu->count(), 2);
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        c->ui.mSelectedVolumeMenu->setCurrentIndex(1);
        emit c->ui.mSelectedVolumeMenu->activated(1);
        QVERIFY(c->probe.volumeNotMounted());
        QVERIFY(c->probe.days().size() == 1 && c->probe.days()[0].count == 3);
        QCOMPARE(c->probe.contents().size(), 0);
        QCOMPARE(info(), qtTrId("ContentsMessageNoVolume"));
        QTest::qWait(100);
        QCOMPARE(started.size(), 0);
        c->ui.mSelectedVolumeMenu->setCurrentIndex(0); // back to the start-up volume
        emit c->ui.mSelectedVolumeMenu->activated(0);
        QVERIFY(Fixture::settle(*c));
        QCOMPARE(info(), qtTrId("ContentsMessageEmpty")); // the newest day again
    }

    // A folder's size comes after a walk, which a second folder chosen meanwhile replaces.
    void folderSizeAfterTheCalculation()
    {
        for (int i = 0; i < 300; ++i)
            item("2024-05-01", "09_00_00", "big/f" + QByteArray::number(i), 10);
        item("2024-05-01", "09_00_00", "small/f", 7);
        item("2024-05-01", "09_00_00", "tree/a.bin", 1000);
        item("2024-05-01", "09_00_00", "tree/sub/b.bin", 234);
        launch();
        QCOMPARE(names(), Names({"big", "small", "tree"}));
        c->ui.mTableViewContents->selectRowAlone(2);
        // The name and date at once, the size once the walk is done (what it counts:
        // tst_browser::sizeWalk).
        QVERIFY(info().startsWith(QStringLiteral("tree\n")) && !info().contains(" - "));
        QTRY_VERIFY_WITH_TIMEOUT(
            info().endsWith(" - " + CommonUtils::getSizeStr(1234)) && !c->probe.sizing(), 3000);
        // A quick second choice wins over a long first walk.
        c->ui.mTableViewContents->selectRowAlone(0);
        QTest::qWait(120); // the first calculation starts
        c->ui.mTableViewContents->selectRowAlone(1);
        QTRY_VERIFY_WITH_TIMEOUT(
            info().startsWith("small\n") && info().endsWith(" - 7") && !c->probe.sizing(), 3000);
        // Leaving the list empties the line.
        c->ui.mTableViewContents->clearSelection();
        c->updateSizeContents(5);
        QCOMPARE(info(), QString());
        QVERIFY(c->probe.sizingMustStop());
    }

    // The status lines count the volumes and follow the bus; a mount refreshes the pop-up only
    // for a protected path, and the sheet lists and changes the protected ones.
    void statusAndVolumes()
    {
        QByteArray table = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n";
        CommonUtils::setMountTableSourceForTesting([&table] { return table; });
        CommonUtils::setIdentityResolverForTesting([](const MountEntry &e) {
            return VolumeIdentity{QStringLiteral("UUID-%1").arg(e.minor), QString()};
        });
        CommonUtils::resetVolumesLists();
        launch();
        const QString on = qtTrId("ProtectionEnabled").arg(1);
        QCOMPARE(status(), on + " - " + qtTrId("EmptyCache"));
        // Items moved in, announced on the bus, refresh the lists.
        item("2024-05-01", "09_00_00", "sized", 4000);
        const QLatin1String name(Notifications::Salvora3Notification);
        QVERIFY(
            NotificationBus::post(name, QLatin1String(Notifications::Salvora3DataMovedToCache)));
        QTRY_COMPARE_WITH_TIMEOUT(c->probe.days().size(), 1, 5000);
        QVERIFY(Fixture::settle(*c));
        QTRY_COMPARE_WITH_TIMEOUT(names(), Names{"sized"}, 3000);
        c->updateStatusInfos();
        const QString size = qtTrId("SizeOfCache").arg("4.0 KB");
        QCOMPARE(status(), on + " - " + size);
        // One protected volume of three mounted ones: the X form, but the singular cache text.
        table += "2 1 8:17 / /media/u/A rw - ext4 /dev/sdb1 rw\n"
                 "3 1 8:33 / /media/u/B rw - ext4 /dev/sdc1 rw\n";
        CommonUtils::resetVolumesLists();
        c->updateStatusInfos();
        QCOMPARE(status(), qtTrId("ProtectionEnabledX").arg(1).arg(3) + " - " + size);
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks,
                                {{"UUID-17", "/media/u/A"}, {"GONE", "/media/u/Gone"}});
        c->deviceDidMount(QStringLiteral("/media/u/B"));
        QCOMPARE(c->ui.mSelectedVolumeMenu->count(), 1);
        c->deviceDidMount(QStringLiteral("/media/u/A"));
        QCOMPARE(c->ui.mSelectedVolumeMenu->count(), 2);

        // The sheet opens with the volume rows; its table and buttons are the window's outlets.
        c->editPreferences();
        QCOMPARE(c->ui.mProtectedVolumesTableView->model()->rowCount(), 4);
        // Protecting a row refreshes the contents list, as the button always did (the sheet's
        // own rules: tst_preferences::volumeButtonsAndConfirming).
        c->ui.mProtectedVolumesTableView->selectRowAlone(2);
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        c->ui.mProtectedVolumesProtectButton->click();
        QCOMPARE(started.size(), 1);
        QVERIFY(Fixture::settle(*c));
        // Confirming refreshes the window: the pop-up now offers the newly protected volume.
        c->ui.mPreferencesWindow->sheetOK();
        QTRY_COMPARE_WITH_TIMEOUT(c->ui.mSelectedVolumeMenu->count(), 3, 2000);
        QCOMPARE(c->ui.mSelectedVolumeMenu->itemText(2), QStringLiteral("B"));
        // The companion: installed at start-up, then again after confirming.
        QTRY_COMPARE_WITH_TIMEOUT(c->menuInstalls, 2, 2000);

        // The companion switched protection off: the window hears it on the bus and says so.
        c->ui.mPreferencesWindow->ui().mProtectionEnabled->setChecked(true);
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        QVERIFY(
            NotificationBus::post(name, QLatin1String(Notifications::Salvora3SettingsDidChange)));
        QTRY_COMPARE_WITH_TIMEOUT(status(), qtTrId("ProtectionDisabled"), 5000);
        QVERIFY(!c->ui.mPreferencesWindow->ui().mProtectionEnabled->isChecked());
    }

    // A loss appears under the status lines by itself (the daemon announces none), lists in
    // the dialog, and goes once marked seen.
    void lossesInTheStatusLine()
    {
        const QDateTime when(QDate(2026, 3, 1), QTime(9, 0));
        QVERIFY(Losses::record({when, "/home/u/big.iso", QStringLiteral("no space left"), false}));
        launch();
        QLabel *line = c->probe.lossesInfo();
        QTRY_VERIFY_WITH_TIMEOUT(!line->isHidden(), 3000);
        QVERIFY(Losses::record(
            {when.addSecs(60), "/home/u/a\nb", QStringLiteral("kept incomplete"), true}));
        QTRY_COMPARE_WITH_TIMEOUT(c->probe.lossWatch()->summary().count, 2, 3000);
        QVERIFY(line->text().contains(Losses::summaryText({2, when}).toHtmlEscaped()));

        emit line->linkActivated(QStringLiteral("losses"));
        LossesDialog *dialog = c->probe.lossesDialog();
        QVERIFY(dialog && dialog->isVisible());
        const QTreeWidget *list = dialog->list();
        QCOMPARE(list->topLevelItemCount(), 2);
        QCOMPARE(list->topLevelItem(0)->text(2), qtTrId("LossesNotKept"));
        // A line feed in a path would break the row: shown replaced.
        QCOMPARE(list->topLevelItem(1)->text(1), QStringLiteral("/home/u/a\uFFFDb"));
        QCOMPARE(list->topLevelItem(1)->text(2), qtTrId("LossesKeptInPart"));

        dialog->markSeenButton()->click();
        QVERIFY(!dialog->isVisible() && line->isHidden());
        QTRY_VERIFY(Losses::unseen().isEmpty());
    }

    // Items kept in part: italics and a tip that says what is missing; a name alone is no proof.
    void incompleteItemsMarked()
    {
        const QByteArray cache = Fixture::cachePath(*env), day = "2024-05-01",
                         time = "2024-05-01 09_00_00";
        QVERIFY(!env->keep(cache, day, time, "report.pdf", {false, 2, 0}).isEmpty());
        QVERIFY(!env->keep(cache, day, time, "whole.txt").isEmpty());
        item("2024-05-01", "09_00_00", "decoy (incomplete).txt");
        launch();
        const QList<std::pair<QByteArray, QString>> rows{
            {"report (incomplete).pdf", IncompleteItems::describe({false, 2, 0})},
            {"whole.txt", QString()}, // empty: shown as a whole item
            {"decoy (incomplete).txt", QString()}};
        for (const auto &[name, tip] : rows) {
            QVERIFY2(rowOf(name) >= 0, name.constData());
            const QModelIndex cell = c->ui.mContentsModel->index(rowOf(name), 0);
            c->ui.mContentsModel->data(cell, Qt::ToolTipRole); // asks for the day's records
            QTRY_COMPARE(c->ui.mContentsModel->data(cell, Qt::ToolTipRole).toString(), tip);
            QCOMPARE(c->ui.mContentsModel->data(cell, Qt::FontRole).value<QFont>().italic(),
                     !tip.isEmpty());
        }
    }

    // Deleting the only item of a day's only time folder takes the folder away, but the day
    // stays. A long removal shows its row in the status bar, which the window otherwise does not
    // show; its cancel button stops the deleting, and the row goes when the work ends.
    void removeContents()
    {
        item("2024-05-01", "09_00_00", "lonely");
        for (int i = 10; i < 40; ++i)
            item("2024-05-02", "10_00_00", "n" + QByteArray::number(i));
        launch();
        pickDay(0);
        c->ui.mTableViewContents->selectRowAlone(0);
        AlertRecorder remove(RemovalActions::kDeleteIndex);
        QSignalSpy removed(c->probe.removals(), &RemovalQueue::removalFinished);
        c->removeContents();
        QCOMPARE(remove.shown.size(), 1);
        QTRY_COMPARE_WITH_TIMEOUT(removed.size(), 1, 10000);
        // The emptied day stays listed, with nothing in it, and stays selected.
        QTRY_COMPARE_WITH_TIMEOUT(c->probe.days().value(0).count, 0, 5000);
        QCOMPARE(selectedDays(), QList<int>{0});
        QVERIFY(Fixture::settle(*c));
        QVERIFY(names().isEmpty());

        pickDay(1);
        c->ui.mTableViewContents->selectAll();
        c->probe.removals()->setItemHookForTesting(
            [](const QByteArray &) { QThread::msleep(100); });
        ProgressArea *area = c->ui.mRemovalProgressArea;
        removed.clear();
        c->removeContents();
        QTRY_VERIFY(!c->ui.window->statusBar()->isHidden() && !area->isHidden());
        QTRY_VERIFY(area->bar()->value() >= 2);
        area->cancelButton()->click();
        // It may already have ended while the button was awaited.
        QTRY_COMPARE_WITH_TIMEOUT(removed.size(), 1, 10000);
        const QByteArrayList handed = removed[0][0].value<QByteArrayList>();
        QVERIFY(handed.size() < 30);
        QTRY_VERIFY(c->ui.window->statusBar()->isHidden() && area->isHidden());
        // The rebuilt list shows what the cancel spared.
        QVERIFY(Fixture::settle(*c));
        QTRY_COMPARE(names().size(), 30 - handed.size());
    }

    // Put Back and Restore To through the window: the column shows where each item was deleted
    // from, Put Back needs a recorded origin (and says so), the message bar tells the outcome.
    void putBackFromTheWindow()
    {
        const QByteArray home = env->homeBytes();
        const QByteArray cache = Fixture::cachePath(*env);
        const QByteArray time = "2024-05-01 09_00_00";
        QVERIFY(TestEnv::writeFile(home + "/Documents/notes.txt", "mine"));
        const QByteArray report = item("2024-05-01", "09_00_00", "report.txt");
        item("2024-05-01", "09_00_00", "photos/one.jpg");
        const QByteArray notes = item("2024-05-01", "09_00_00", "notes.txt");
        item("2024-05-01", "09_00_00", "orphan.txt");
        const QList<std::pair<QByteArray, QByteArray>> origins{
            {"report.txt", "/Documents/report.txt"},
            {"photos", "/Pictures/2024/photos"},
            {"notes.txt", "/Documents/notes.txt"}};
        for (const auto &[name, origin] : origins)
            QVERIFY(TestEnv::writeOrigin(cache, "2024-05-01", time, name, home + origin));
        c = new TestDelegate;
        QSignalSpy filled(c, &AppDelegate::contentsOriginsFilled);
        QVERIFY(Fixture::launchAndSettle(*c));
        QTRY_VERIFY(!filled.isEmpty()); // the origins come after the rows

        // The fourth column: the folder, nothing for an item without record.
        QCOMPARE(c->ui.mContentsModel->index(rowOf("report.txt"), 3).data().toString(),
                 QFile::decodeName(home + "/Documents"));
        QVERIFY(c->ui.mContentsModel->index(rowOf("orphan.txt"), 3).data().toString().isEmpty());
        // A header click chooses the sort, a second one turns it round (the orders themselves:
        // tst_browser::sortCodes); the size column does not sort.
        c->ui.window->resize(1200, 600);
        const Names byOriginDown{"photos", "report.txt", "notes.txt", "orphan.txt"};
        sortBy("4", ContentsSort::ByOrigin, {"orphan.txt", "notes.txt", "report.txt", "photos"});
        sortBy("4", ContentsSort::ByOriginDescending, byOriginDown);
        sortBy("2", ContentsSort::ByOriginDescending, byOriginDown);
        filled.clear();
        scanAndWait(); // a new scan lists in that order too, once its origins are in
        QTRY_VERIFY(!filled.isEmpty());
        QCOMPARE(names(), byOriginDown);
        sortBy("1", ContentsSort::ByName, {});

        QAction *putBack = nullptr;
        for (QAction *a : c->ui.mToolbar->actions())
            if (a->objectName() == QLatin1String("putBackButton")) putBack = a;
        QVERIFY(putBack && !putBack->isEnabled()); // nothing selected
        selectNames({"orphan.txt"});
        QVERIFY(!putBack->isEnabled());

        // A file, and a folder whose original parent was deleted meanwhile (how they move, and
        // the modes of the parents made: tst_browser::putBack; the message's wording:
        // tst_restore_actions::restoreMessages).
        selectNames({"photos", "report.txt"});
        MessageBar *bar = c->ui.mMessageBar;
        putBack->trigger();
        QTRY_VERIFY(!bar->isHidden());
        QCOMPARE(bar->text(), qtTrId("PutBackDoneMany").arg(2));
        QCOMPARE(TestEnv::readFile(home + "/Pictures/2024/photos/one.jpg"), QByteArray("x"));
        QVERIFY(!TestEnv::exists(report));
        // They left the cache, and the list.
        QTRY_COMPARE(names(), Names({"notes.txt", "orphan.txt"}));
        QVERIFY(Fixture::settle(*c));

        // A taken name: one question; Skip leaves the item in the cache.
        selectNames({"notes.txt"});
        activate();
        c->ui.mTableViewContents->setFocus();
        {
            AlertRecorder skip(1);
            QTest::keyClick(c->ui.mTableViewContents, Qt::Key_R,
                            Qt::ControlModifier | Qt::ShiftModifier);
            QTRY_COMPARE(bar->text(), qtTrId("RestoreNameTaken").arg("Documents", "notes.txt"));
            QCOMPARE(skip.shown.size(), 1);
            QCOMPARE(skip.shown[0].buttons.value(1), qtTrId("SkipButton"));
        }
        QVERIFY(TestEnv::exists(notes));

        // Cancel does nothing at all.
        bar->dismiss();
        {
            AlertRecorder cancel(2);
            putBack->trigger();
            QTRY_COMPARE(cancel.shown.size(), 1);
            QTest::qWait(100);
        }
        QVERIFY(bar->isHidden() && TestEnv::exists(notes));
        // Asked for all the same, an item without a record says why it stayed.
        selectNames({"orphan.txt"});
        c->putBack();
        QTRY_COMPARE(bar->level(), MessageBar::Level::Error);
        bar->dismiss();

        // Restore To: a cancelled chooser does nothing; a chosen folder gets a copy, and the
        // cache keeps what was copied out of it.
        c->copySelectedItems();
        QCOMPARE(c->restoreFolderAsked, 1);
        QTest::qWait(50);
        QVERIFY(bar->isHidden());
        QVERIFY(TestEnv::makeFolders(home + "/Restored"));
        c->restoreFolder = home + "/Restored";
        c->copySelectedItems();
        QTRY_COMPARE(bar->level(), MessageBar::Level::Success);
        QCOMPARE(TestEnv::readFile(home + "/Restored/orphan.txt"), QByteArray("x"));
        QCOMPARE(names().size(), 2);
    }

    // The keys: Delete asks naming the item or the count, F5 refreshes (the other shortcuts:
    // tst_actions::menuBarCommandsAndShortcuts; the menu keys: tst_ui::keysAndDrops). The lists ask
    // the window for their menus and drag data (only a selection gives a menu, only the contents
    // list gives drag data), and the space bar for the preview.
    void keysMenusDragAndPreview()
    {
        item("2024-05-01", "09_00_00", "a.txt");
        item("2024-05-01", "10_00_00", "b.txt");
        item("2024-05-02", "09_00_00", "other");
        launch();
        activate();
        TableView *contents = c->ui.mTableViewContents;
        TableView *days = c->ui.mTableViewDate;
        selectNames({"other"});
        contents->setFocus();
        {
            AlertRecorder cancel(RemovalActions::kCancelIndex);
            QTest::keyClick(contents, Qt::Key_Delete);
            days->selectRowAlone(0);
            QVERIFY(Fixture::settle(*c));
            contents->selectAll();
            contents->setFocus();
            QTest::keyClick(contents, Qt::Key_Delete);
            QCOMPARE(cancel.shown.size(), 2);
            QCOMPARE(cancel.shown[0].message, qtTrId("DeleteOneItemTitle").arg("other"));
            QCOMPARE(cancel.shown[1].message, qtTrId("DeleteItemsTitle").arg(2));
            QCOMPARE(names().size(), 2);

            // In the search field, Delete edits the text.
            c->ui.mSearchString->setText(QStringLiteral("ab"));
            c->ui.mSearchString->setFocus();
            c->ui.mSearchString->setCursorPosition(0);
            QTest::keyClick(c->ui.mSearchString, Qt::Key_Delete);
            QCOMPARE(cancel.shown.size(), 2);
            QCOMPARE(c->ui.mSearchString->text(), QStringLiteral("b"));
            c->ui.mSearchString->clear();
        }

        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        QTest::keyClick(c->ui.window, Qt::Key_F5);
        QCOMPARE(started.size(), 1);
        QVERIFY(Fixture::settle(*c));

        QVERIFY(c->getFloatingPopupMenu(contents, contents) == nullptr);
        contents->selectRowAlone(0);
        std::unique_ptr<QMenu> menu(c->getFloatingPopupMenu(contents, contents));
        QVERIFY(menu && !menu->actions().isEmpty());
        days->selectRowAlone(0);
        QVERIFY(Fixture::settle(*c));
        menu.reset(c->getFloatingPopupMenu(days, days));
        QVERIFY(menu);
        QCOMPARE(c->probe.cacheTimesInDay().size(), 2);
        days->clearSelection();
        QVERIFY(c->getFloatingPopupMenu(days, days) == nullptr);
        QVERIFY(Fixture::settle(*c));
        QTRY_COMPARE_WITH_TIMEOUT(c->probe.contents().size(), 3, 3000);

        QVERIFY(c->writeRowsWithIndexes(days, {0}) == nullptr);
        std::unique_ptr<QMimeData> data(c->writeRowsWithIndexes(contents, {0, 1}));
        QVERIFY(data);
        const QByteArrayList paths{c->probe.contents().fullPath(0),
                                   c->probe.contents().fullPath(1)};
        QCOMPARE(RestoreActions::pathsFromMimeData(*data), paths);
        QTRY_VERIFY_WITH_TIMEOUT(!c->probe.drawingDragImage(), 2000);

        // Space opens the preview of the selected item (closing it: tst_previewpanel::
        // spaceOpensAndClosesThePanel); without a selection it does nothing, not even make the
        // panel.
        contents->clearSelection();
        c->doKeyDown(QStringLiteral(" "));
        QVERIFY(!c->probe.quickLook().sharedPreviewPanelExists());
        contents->selectRowAlone(0);
        QTest::keyClick(contents, Qt::Key_Space);
        auto *panel = dynamic_cast<PreviewPanel *>(c->probe.quickLook().controlledPanel());
        QVERIFY(panel && panel->isVisible());
        QCOMPARE(c->probe.quickLook().items(), QByteArrayList{paths[0]});
        // Shown once its loading thread handed it over (which also orders that thread's file
        // closing before the clean-up's).
        QTRY_VERIFY(panel->infoLine().startsWith(
            QFile::decodeName(paths[0].mid(paths[0].lastIndexOf('/') + 1))));
    }
};

QTEST_MAIN(TstWindow)
#include "tst_window.moc"
