#include "WindowFixture.h"

#include "browser/ContentsSort.h"
#include "browser/DayTexts.h"
#include "browser/IncompleteItems.h"
#include "cache/CacheLayout.h"
#include "common/Alerts.h"
#include "common/Log.h"
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
#include "ui/PreferencesSheet.h"
#include "ui/PreviewPanel.h"
#include "ui/ProgressArea.h"
#include "ui/TableView.h"
#include "ui/ZEL_Colors.h"
#include "ui_PreferencesSheet.h"
#include "volumes/Volumes.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QStatusBar>
#include <QThread>
#include <QToolBar>
#include <QToolButton>
#include <QTreeWidget>

#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

// The window on generated caches: day list, contents scan and search, sort, messages, sizes,
// status line and the volume lists.

namespace {

// Answers every alert with one button and remembers how many it saw.
class AnsweringPresenter : public Alerts::Presenter
{
public:
    explicit AnsweringPresenter(int answer) : mAnswer(answer) {}
    int shown = 0;
    int present(const Alerts::Alert &) override
    {
        ++shown;
        return mAnswer;
    }

private:
    int mAnswer;
};

// Answers with one button and keeps the alerts it saw.
class RecordingPresenter : public AnsweringPresenter
{
public:
    using AnsweringPresenter::AnsweringPresenter;
    QList<Alerts::Alert> alerts;
    int present(const Alerts::Alert &alert) override
    {
        alerts.append(alert);
        return AnsweringPresenter::present(alert);
    }
};

} // namespace

class TstWindow : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    TestDelegate *c = nullptr;

    static QColor textColor(QLabel *label) { return label->palette().color(QPalette::WindowText); }

    void launch()
    {
        c = new TestDelegate;
        QVERIFY(Fixture::launchAndSettle(*c));
    }

    // A request that the test waits for to end.
    void scanAndWait(const QByteArray &timeFolder = QByteArray())
    {
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        c->updateListOfContentsInCache(timeFolder);
        QVERIFY(Fixture::waitForScans(ended, 1));
    }

    QByteArray item(const char *day, const char *time, const QByteArray &name, qint64 size = 1)
    {
        return Fixture::addItem(*env, day, time, name, size);
    }

    QAction *toolbarAction(const char *identifier) const
    {
        for (QAction *a : c->ui.mToolbar->actions())
            if (a->objectName() == QLatin1String(identifier)) return a;
        return nullptr;
    }

    // The window in front, the about box of the launch closed: shortcuts reach it.
    void activate()
    {
        c->closeAboutBox();
        c->ui.window->show();
        c->ui.window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(c->ui.window));
    }

    int rowOf(const QByteArray &name) const { return int(Fixture::names(*c).indexOf(name)); }

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

    // "/", /media/u/A and /media/u/B mounted, with UUIDs "UUID-<minor>".
    static void mountThreeVolumes()
    {
        const QByteArray table = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
                                 "2 1 8:17 / /media/u/A rw - ext4 /dev/sdb1 rw\n"
                                 "3 1 8:33 / /media/u/B rw - ext4 /dev/sdc1 rw\n";
        CommonUtils::setMountTableSourceForTesting([table] { return table; });
        CommonUtils::setIdentityResolverForTesting([](const MountEntry &e) {
            return VolumeIdentity{QStringLiteral("UUID-%1").arg(e.minor), QString()};
        });
        CommonUtils::resetVolumesLists();
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

    void firstFillSelectsNewestDay()
    {
        item("2024-05-01", "09_00_00", "old.txt");
        item("2024-05-02", "10_00_00", "middle.txt");
        item("2024-05-03", "08_00_00", "new one.txt");
        item("2024-05-03", "11_30_00", "new two.txt");
        launch();
        QCOMPARE(c->probe.days().size(), 3);
        QCOMPARE(c->probe.days()[0].name, QByteArray("2024-05-01")); // oldest first
        QCOMPARE(Fixture::selectedDays(*c), QList<int>{2});
        QCOMPARE(c->probe.selectedDate(), -2);
        QCOMPARE(Fixture::names(*c), QList<QByteArray>({"new one.txt", "new two.txt"}));
        QCOMPARE(c->ui.mContentsInfos->text(), QStringLiteral("2 items"));
        QCOMPARE(c->ui.mCacheInfos->text(), DayTexts::summary(c->probe.days(), 14));
        QVERIFY(c->ui.mCacheInfos->text().startsWith(
            QStringLiteral("3 days of activity (kept 14 days)\n")));
        QVERIFY(!c->probe.scanning() && !c->probe.scanMustStop());
        // The day table's cells.
        const QModelIndex day = c->ui.mDateModel->index(2, 0);
        QCOMPARE(day.data().toString(), CommonUtils::dateStringForCacheFolder("2024-05-03"));
        QCOMPARE(day.data(Qt::ForegroundRole).value<QColor>(),
                 ZEL_Colors::getBlackColor_Adaptable());
        QCOMPARE(c->ui.mDateModel->index(2, 1).data().toString(),
                 CommonUtils::getSizeStr(c->probe.days()[2].size));
        QCOMPARE(c->ui.mDateModel->index(2, 2).data().toString(), QStringLiteral("2"));
    }

    void selectionKeptWhenNothingChanged()
    {
        item("2024-05-01", "09_00_00", "a");
        item("2024-05-02", "09_00_00", "b");
        item("2024-05-03", "09_00_00", "c");
        launch();
        // The user selects the first and the last day.
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        QItemSelection both;
        both.select(c->ui.mDateModel->index(0, 0), c->ui.mDateModel->index(0, 2));
        both.select(c->ui.mDateModel->index(2, 0), c->ui.mDateModel->index(2, 2));
        c->ui.mTableViewDate->selectionModel()->select(both, QItemSelectionModel::ClearAndSelect);
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        QVERIFY(Fixture::waitForScans(ended, 1));
        QCOMPARE(Fixture::names(*c), QList<QByteArray>({"a", "c"}));
        const qsizetype scans = started.size();
        c->updateListOfDaysInCache();
        c->updateListOfDaysInCache();
        QCOMPARE(Fixture::selectedDays(*c), QList<int>({0, 2}));
        QTest::qWait(50);
        QCOMPARE(started.size(), scans);

        // A new day changes the list: the newest day is selected again.
        item("2024-05-04", "09_00_00", "d");
        c->updateListOfDaysInCache();
        QCOMPARE(Fixture::selectedDays(*c), QList<int>{3});
        QVERIFY(Fixture::waitForScans(ended, 2));
        QCOMPARE(Fixture::names(*c), QList<QByteArray>{"d"});
    }

    void rowRequestsAfterRemoval()
    {
        item("2024-05-01", "09_00_00", "a");
        item("2024-05-02", "09_00_00", "b");
        item("2024-05-03", "09_00_00", "c");
        launch();
        // A removal asks for the row that was selected; the same day stays selected.
        c->ui.mTableViewDate->selectRowAlone(1);
        c->probe.setSelectedDate(1);
        item("2024-05-04", "09_00_00", "d");
        c->updateListOfDaysInCache();
        QCOMPARE(Fixture::selectedDays(*c), QList<int>{1});
        QCOMPARE(c->probe.selectedDate(), -2);
        // None selected: the selection is left alone, once.
        c->ui.mTableViewDate->clearSelection();
        c->probe.setSelectedDate(-1);
        item("2024-05-05", "09_00_00", "e");
        c->updateListOfDaysInCache();
        QCOMPARE(Fixture::selectedDays(*c), QList<int>());
        QCOMPARE(c->probe.selectedDate(), -2);
        // A row beyond the table is ignored.
        c->probe.setSelectedDate(42);
        item("2024-05-06", "09_00_00", "f");
        c->updateListOfDaysInCache();
        QCOMPARE(Fixture::selectedDays(*c), QList<int>());
        QCOMPARE(c->probe.selectedDate(), -2);
        // Out-of-range contextual-menu tags do nothing.
        QVERIFY(Fixture::settle(*c));
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        c->probe.setCacheTimesInDay({Fixture::cachePath(*env) + "/2024-05-02/2024-05-02 09_00_00"});
        c->updateCacheContentsAtTime(-1);
        c->updateCacheContentsAtTime(1);
        QTest::qWait(300);
        QCOMPARE(started.size(), 0);
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        c->updateCacheContentsAtTime(0);
        QVERIFY(Fixture::waitForScans(ended, 1));
        QCOMPARE(Fixture::names(*c), QList<QByteArray>{"b"});
    }

    void secondDayStopsTheFirstScan()
    {
        // A large first day, so that its scan is surely running when the second day is chosen.
        for (int t = 0; t < 40; ++t) {
            const QByteArray time =
                QString::asprintf("%02d_%02d_00", 8 + t / 60, t % 60).toLatin1();
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
        QCOMPARE(started.size(), 1);
        QVERIFY(c->probe.scanning());
        c->ui.mTableViewDate->selectRowAlone(1);
        // The second request asked the first scan to stop and waits for it.
        QVERIFY(c->probe.scanMustStop());
        QCOMPARE(started.size(), 1);
        QVERIFY(Fixture::waitForScans(ended, 2));
        QCOMPARE(started.size(), 2);
        QCOMPARE(Fixture::names(*c), QList<QByteArray>({"second a", "second b"}));
        QVERIFY(!c->probe.scanning() && !c->probe.scanMustStop());
        QCOMPARE(c->ui.mContentsInfos->text(), QStringLiteral("2 items"));
    }

    void retryFollowsTheEndClosely()
    {
        for (int i = 0; i < 3000; ++i)
            item("2024-05-01", "09_00_00", "many " + QByteArray::number(i));
        item("2024-05-02", "09_00_00", "one");
        launch();
        QElapsedTimer clock;
        qint64 endedAt = -1, startedAt = -1;
        connect(c, &AppDelegate::contentsScanEnded, this, [&] {
            if (endedAt < 0) endedAt = clock.elapsed();
        });
        connect(c, &AppDelegate::contentsScanStarted, this, [&] { startedAt = clock.elapsed(); });
        clock.start();
        c->ui.mTableViewDate->selectRowAlone(0);
        c->ui.mTableViewDate->selectRowAlone(1);
        QTRY_VERIFY_WITH_TIMEOUT(startedAt > endedAt && endedAt >= 0, 5000);
        // The waiting request polls every 0.2 s.
        QVERIFY2(startedAt - endedAt <= 260,
                 qPrintable(QStringLiteral("%1 %2").arg(endedAt).arg(startedAt)));
        QVERIFY(Fixture::settle(*c));
        QCOMPARE(Fixture::names(*c), QList<QByteArray>{"one"});
    }

    void searchMatchesNamesCaseInsensitively()
    {
        item("2024-05-01", "09_00_00", "Annual report.pdf");
        item("2024-05-01", "09_00_00", "rep_ort");
        item("2024-05-01", "09_00_00", ".DS_Store");
        item("2024-05-01", "10_00_00", "REPORTS/inner.txt"); // a deleted folder: one item
        launch();
        QCOMPARE(Fixture::names(*c),
                 QList<QByteArray>({".DS_Store", "Annual report.pdf", "rep_ort", "REPORTS"}));
        c->ui.mSearchString->setText(QStringLiteral("RePoRt"));
        scanAndWait();
        QCOMPARE(Fixture::names(*c), QList<QByteArray>({"Annual report.pdf", "REPORTS"}));
        QCOMPARE(c->ui.mContentsInfos->text(), QStringLiteral("2 items"));
        c->ui.mSearchString->setText(QStringLiteral("inner"));
        scanAndWait();
        QCOMPARE(Fixture::names(*c), QList<QByteArray>());
        QCOMPARE(c->ui.mContentsInfos->text(), qtTrId("ContentsMessageSearchEmpty"));
        QCOMPARE(textColor(c->ui.mContentsInfos), ZEL_Colors::getRedColor_Adaptable());
    }

    void searchFieldWaitsForAPause()
    {
        item("2024-05-01", "09_00_00", "alpha");
        item("2024-05-01", "09_00_00", "beta");
        launch();
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        c->ui.mSearchString->setFocus();
        QElapsedTimer clock;
        clock.start();
        QTest::keyClicks(c->ui.mSearchString, QStringLiteral("alp"));
        QCOMPARE(started.size(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(started.size(), 1, 2000);
        QVERIFY2(clock.elapsed() >= 140, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(Fixture::waitForScans(ended, 1));
        QCOMPARE(Fixture::names(*c), QList<QByteArray>{"alpha"});
        // Enter asks at once.
        QTest::keyClicks(c->ui.mSearchString, QStringLiteral("x"));
        QTest::keyClick(c->ui.mSearchString, Qt::Key_Return);
        QCOMPARE(started.size(), 2);
        QVERIFY(Fixture::waitForScans(ended, 2));
        QTest::qWait(250);
        QCOMPARE(started.size(), 2); // the pending pause was cancelled by Enter
        QCOMPARE(c->ui.mContentsInfos->text(), qtTrId("ContentsMessageSearchEmpty"));
    }

    void headerClicksChooseTheSort()
    {
        item("2024-05-01", "09_00_00", "bravo");
        item("2024-05-01", "09_00_00", "Alpha");
        item("2024-05-01", "11_00_00", "charlie");
        item("2024-05-01", "10_00_00", "delta");
        launch();
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByName);
        QCOMPARE(Fixture::names(*c), QList<QByteArray>({"Alpha", "bravo", "charlie", "delta"}));
        Fixture::clickHeader(*c, QStringLiteral("1")); // the indicator was there: now descending
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByNameDescending);
        QCOMPARE(Fixture::names(*c), QList<QByteArray>({"delta", "charlie", "bravo", "Alpha"}));
        Fixture::clickHeader(*c, QStringLiteral("3"));
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByTime);
        QCOMPARE(Fixture::names(*c).last(), QByteArray("charlie"));
        QCOMPARE(Fixture::names(*c).at(2), QByteArray("delta"));
        Fixture::clickHeader(*c, QStringLiteral("3"));
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByTimeDescending);
        QCOMPARE(Fixture::names(*c).first(), QByteArray("charlie"));
        QCOMPARE(c->ui.mContentsModel->index(0, 2).data().toString(),
                 DayTexts::cachingTime("2024-05-01 11_00_00"));
        // The size column does not sort and leaves the indicator where it was.
        const QList<QByteArray> before = Fixture::names(*c);
        Fixture::clickHeader(*c, QStringLiteral("2"));
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByTimeDescending);
        QCOMPARE(Fixture::names(*c), before);
        QCOMPARE(c->ui.mTableViewContents->horizontalHeader()->sortIndicatorSection(), 2);
        Fixture::clickHeader(*c, QStringLiteral("1"));
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByName);
        // A new scan lists in the chosen order.
        Fixture::clickHeader(*c, QStringLiteral("1"));
        scanAndWait();
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByNameDescending);
        QCOMPARE(Fixture::names(*c), QList<QByteArray>({"delta", "charlie", "bravo", "Alpha"}));
    }

    void endMessages()
    {
        item("2024-05-01", "09_00_00", "one");
        item("2024-05-02", "09_00_00", "x");
        item("2024-05-02", "09_00_00", "y");
        item("2024-05-02", "10_00_00", "z");
        QVERIFY(TestEnv::makeFolders(Fixture::cachePath(*env) + "/2024-05-03/2024-05-03 09_00_00"));
        launch();
        QCOMPARE(c->probe.days().size(), 3);
        QCOMPARE(Fixture::names(*c), QList<QByteArray>());
        QCOMPARE(c->ui.mContentsInfos->text(), qtTrId("ContentsMessageEmpty"));
        QCOMPARE(textColor(c->ui.mContentsInfos), ZEL_Colors::getRedColor_Adaptable());
        QSignalSpy ended(c, &AppDelegate::contentsScanEnded);
        c->ui.mTableViewDate->selectRowAlone(0);
        QVERIFY(Fixture::waitForScans(ended, 1));
        QCOMPARE(c->ui.mContentsInfos->text(), qtTrId("ContentsMessage"));
        QCOMPARE(textColor(c->ui.mContentsInfos), ZEL_Colors::getDarkGrayColor_Adaptable());
        c->ui.mTableViewDate->selectRowAlone(1);
        QVERIFY(Fixture::waitForScans(ended, 2));
        QCOMPARE(c->ui.mContentsInfos->text(), QStringLiteral("3 items"));
        // With no day selected, every day is listed.
        c->ui.mTableViewDate->clearSelection();
        QVERIFY(Fixture::waitForScans(ended, 3));
        QCOMPARE(c->probe.contents().size(), 4);
        // The line follows the selection: a file shows its size, no selection the count.
        c->ui.mTableViewContents->selectRowAlone(0);
        QVERIFY(c->ui.mContentsInfos->text().startsWith(QStringLiteral("one\n")));
        QVERIFY(c->ui.mContentsInfos->text().endsWith(QStringLiteral(" - 1")));
        QVERIFY(c->ui.mCopySelectedItemsButton->isEnabled());
        c->ui.mTableViewContents->clearSelection();
        QCOMPARE(c->ui.mContentsInfos->text(), QStringLiteral("4 items"));
        QVERIFY(!c->ui.mCopySelectedItemsButton->isEnabled());
    }

    void unmountedVolumeListsSavedDays()
    {
        QVariantMap day{{"name", "2023-12-24"},
                        {"path", "/media/Old/.Salvora3Cache/2023-12-24"},
                        {"size", 5000},
                        {"count", 3}};
        Settings::setDictionary(
            SettingsKeys::ProtectedVolumesData,
            {{"0123-ABCD", QVariantMap{{"path", "/media/Old Disk"}, {"days", QVariantList{day}}}}});
        item("2024-05-01", "09_00_00", "home item");
        launch();
        QCOMPARE(c->ui.mSelectedVolumeMenu->count(), 2);
        QCOMPARE(c->ui.mSelectedVolumeMenu->itemText(1),
                 qtTrId("Unmounted").arg(QStringLiteral("Old Disk")));
        QVERIFY(c->ui.mSelectedVolumeMenu->itemText(0).endsWith(
            QStringLiteral(" (%1)").arg(QFileInfo(env->home()).fileName())));
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        c->ui.mSelectedVolumeMenu->setCurrentIndex(1);
        emit c->ui.mSelectedVolumeMenu->activated(1);
        QVERIFY(c->probe.volumeNotMounted());
        QCOMPARE(c->probe.days().size(), 1);
        QCOMPARE(c->probe.days()[0].count, 3);
        QCOMPARE(c->probe.contents().size(), 0);
        QCOMPARE(c->ui.mContentsInfos->text(), qtTrId("ContentsMessageNoVolume"));
        QCOMPARE(textColor(c->ui.mContentsInfos), ZEL_Colors::getRedColor_Adaptable());
        QTest::qWait(100);
        QCOMPARE(started.size(), 0);
        // Remembered days are dimmed in the date column only.
        QCOMPARE(c->ui.mDateModel->index(0, 0).data(Qt::ForegroundRole).value<QColor>(),
                 ZEL_Colors::getGrayColor_Adaptable());
        QCOMPARE(c->ui.mDateModel->index(0, 1).data(Qt::ForegroundRole).value<QColor>(),
                 ZEL_Colors::getDarkGrayColor_Adaptable());
        QCOMPARE(c->ui.mDateModel->index(0, 2).data().toString(), QStringLiteral("3"));
        // Back to the start-up volume.
        c->ui.mSelectedVolumeMenu->setCurrentIndex(0);
        emit c->ui.mSelectedVolumeMenu->activated(0);
        QVERIFY(!c->probe.volumeNotMounted());
        QVERIFY(Fixture::settle(*c));
        QCOMPARE(Fixture::names(*c), QList<QByteArray>{"home item"});
    }

    void folderSizeAfterTheCalculation()
    {
        const QByteArray a = item("2024-05-01", "09_00_00", "tree/a.bin", 1000);
        item("2024-05-01", "09_00_00", "tree/sub/b.bin", 234);
        QVERIFY(TestEnv::makeFolders(Fixture::cachePath(*env) +
                                     "/2024-05-01/2024-05-01 09_00_00/empty"));
        // A link counts as itself, never as what it points to.
        const QByteArray link =
            Fixture::cachePath(*env) + "/2024-05-01/2024-05-01 09_00_00/tree/link";
        QVERIFY(symlink(a.constData(), link.constData()) == 0);
        launch();
        QCOMPARE(Fixture::names(*c), QList<QByteArray>({"empty", "tree"}));
        QCOMPARE(c->ui.mContentsModel->index(1, 1).data().toString(),
                 QString()); // no size for folders
        QSignalSpy sizes(c, &AppDelegate::sizeContentsUpdated);
        c->ui.mTableViewContents->selectRowAlone(1);
        // The name and date at once, the size once the walk is done.
        QVERIFY(c->ui.mContentsInfos->text().startsWith(QStringLiteral("tree\n")));
        QVERIFY(!c->ui.mContentsInfos->text().contains(QStringLiteral(" - ")));
        const qint64 total = 1234 + qint64(a.size());
        QTRY_VERIFY_WITH_TIMEOUT(!sizes.isEmpty() && sizes.last().at(0).toLongLong() == total,
                                 3000);
        QTRY_VERIFY_WITH_TIMEOUT(!c->probe.sizing(), 2000);
        QVERIFY2(c->ui.mContentsInfos->text().endsWith(QStringLiteral(" - ") +
                                                       CommonUtils::getSizeStr(total)),
                 qPrintable(c->ui.mContentsInfos->text()));
        QVERIFY(!c->probe.sizingMustStop());
        // An empty folder shows the size text for zero.
        c->ui.mTableViewContents->selectRowAlone(0);
        QTRY_VERIFY_WITH_TIMEOUT(
            c->ui.mContentsInfos->text().startsWith(QStringLiteral("empty\n")) &&
                c->ui.mContentsInfos->text().endsWith(QStringLiteral(" - 0")),
            3000);
        // Leaving the list empties the line.
        QTRY_VERIFY_WITH_TIMEOUT(!c->probe.sizing(), 2000);
        c->ui.mTableViewContents->clearSelection();
        c->updateSizeContents(5);
        QCOMPARE(c->ui.mContentsInfos->text(), QString());
        QVERIFY(c->probe.sizingMustStop());
    }

    void quickSecondFolderWins()
    {
        for (int i = 0; i < 300; ++i)
            item("2024-05-01", "09_00_00", "big/f" + QByteArray::number(i), 10);
        item("2024-05-01", "09_00_00", "small/f", 7);
        launch();
        QSignalSpy sizes(c, &AppDelegate::sizeContentsUpdated);
        c->ui.mTableViewContents->selectRowAlone(0);
        QTest::qWait(120); // the first calculation starts
        c->ui.mTableViewContents->selectRowAlone(1);
        QTRY_VERIFY_WITH_TIMEOUT(
            c->ui.mContentsInfos->text().startsWith(QStringLiteral("small\n")) &&
                c->ui.mContentsInfos->text().endsWith(QStringLiteral(" - 7")) && !c->probe.sizing(),
            3000);
    }

    void statusLines()
    {
        const QByteArray table = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n";
        CommonUtils::setMountTableSourceForTesting([table] { return table; });
        CommonUtils::resetVolumesLists();
        launch();
        QCOMPARE(c->ui.mProtectionInfos->text(),
                 QStringLiteral("%1 - %2").arg(qtTrId("ProtectionEnabled").arg(1),
                                               qtTrId("EmptyCache")));
        QCOMPARE(textColor(c->ui.mProtectionInfos), ZEL_Colors::getGreenColor_Adaptable());
        QCOMPARE(c->ui.mProtectionInfosMore->text(), qtTrId("ProtectionEnabledMore"));
        item("2024-05-01", "09_00_00", "sized", 4000);
        c->updateStatusInfos();
        QCOMPARE(
            c->ui.mProtectionInfos->text(),
            QStringLiteral("%1 - %2").arg(qtTrId("ProtectionEnabled").arg(1),
                                          qtTrId("SizeOfCache").arg(QStringLiteral("4.0 KB"))));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        c->updateStatusInfos();
        QCOMPARE(c->ui.mProtectionInfos->text(), qtTrId("ProtectionDisabled"));
        QCOMPARE(textColor(c->ui.mProtectionInfos), ZEL_Colors::getRedColor_Adaptable());
        QCOMPARE(c->ui.mProtectionInfosMore->text(), qtTrId("ProtectionDisabledMore"));
        QVERIFY(c->ui.mProtectionONButton->isEnabled());
        QVERIFY(!c->ui.mProtectionOFFButton->isEnabled());
    }

    void statusCountsOfSeveralVolumes()
    {
        // One protected volume of three mounted ones: the X form, but the singular cache text.
        mountThreeVolumes();
        item("2024-05-01", "09_00_00", "sized", 4000);
        launch();
        QCOMPARE(
            c->ui.mProtectionInfos->text(),
            QStringLiteral("%1 - %2").arg(qtTrId("ProtectionEnabledX").arg(1).arg(3),
                                          qtTrId("SizeOfCache").arg(QStringLiteral("4.0 KB"))));
        // The mount notifications: a protected path refreshes the pop-up, anything else not.
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, {{"UUID-17", "/media/u/A"}});
        c->deviceDidMount(QStringLiteral("/Network"));
        QCOMPARE(c->ui.mSelectedVolumeMenu->count(), 1);
        c->deviceDidMount(QStringLiteral("/media/u/B"));
        QCOMPARE(c->ui.mSelectedVolumeMenu->count(), 1);
        c->deviceDidMount(QStringLiteral("/media/u/A"));
        QCOMPARE(c->ui.mSelectedVolumeMenu->count(), 2);
        QCOMPARE(c->ui.mSelectedVolumeMenu->itemText(1), QStringLiteral("A"));
        QVERIFY(TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath()))
                    .contains("Salvora 3 notified that device did Mount: /media/u/A"));
        QCOMPARE(c->ui.mProtectionInfosMore->text(), qtTrId("ProtectionEnabledMoreX").arg(2));
    }

    void preferencesSheetVolumes()
    {
        mountThreeVolumes();
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks,
                                {{"UUID-17", "/media/u/A"}, {"GONE", "/media/u/Gone"}});
        item("2024-05-01", "09_00_00", "a");
        launch();
        // The sheet opens over the window with the volume rows; its table and buttons are the
        // window's outlets.
        c->editPreferences();
        QVERIFY(c->ui.mPreferencesWindow->isVisible());
        const QList<VolumeRecord> &rows = c->ui.mPreferencesWindow->volumes();
        QCOMPARE(rows.size(), 4);
        QVERIFY(rows[1].isProtected && !rows[2].isProtected);
        QVERIFY(rows[3].unmounted && rows[3].uuid == QLatin1String("GONE"));
        QCOMPARE(c->ui.mProtectedVolumesTableView->model()->rowCount(), 4);
        QVERIFY(!c->ui.mProtectedVolumesProtectButton->isEnabled());
        // Protecting a row refreshes the contents list, as the button always did.
        c->ui.mProtectedVolumesTableView->selectRowAlone(2);
        QVERIFY(c->ui.mProtectedVolumesProtectButton->isEnabled());
        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        c->ui.mProtectedVolumesProtectButton->click();
        QCOMPARE(started.size(), 1);
        QVERIFY(Fixture::settle(*c));
        // Confirming refreshes the window: the pop-up now offers the newly protected volume.
        c->ui.mPreferencesWindow->sheetOK();
        QTRY_COMPARE_WITH_TIMEOUT(c->ui.mSelectedVolumeMenu->count(), 3, 2000);
        QCOMPARE(c->ui.mSelectedVolumeMenu->itemText(2), QStringLiteral("B"));
        QCOMPARE(Settings::dictionary(SettingsKeys::PrefsProtectedDisks)->size(), 3);
        QTRY_COMPARE_WITH_TIMEOUT(c->menuInstalledAt.size(), 2,
                                  2000); // start-up, then confirmation
    }

    // A loss appears under the status lines by itself (the daemon announces none), lists in
    // the dialog, and goes once marked seen.
    void lossesInTheStatusLine()
    {
        const QDateTime when(QDate(2026, 3, 1), QTime(9, 0));
        QVERIFY(Losses::record({when, "/home/u/big.iso", QStringLiteral("no space left"), false}));
        launch();
        QTRY_VERIFY_WITH_TIMEOUT(!c->probe.lossesInfo()->isHidden(), 3000);
        QVERIFY(Losses::record(
            {when.addSecs(60), "/home/u/a\nb", QStringLiteral("kept incomplete"), true}));
        QTRY_COMPARE_WITH_TIMEOUT(c->probe.lossWatch()->summary().count, 2, 3000);
        QVERIFY(
            c->probe.lossesInfo()->text().contains(Losses::summaryText({2, when}).toHtmlEscaped()));
        QCOMPARE(textColor(c->probe.lossesInfo()), ZEL_Colors::getRedColor_Adaptable());

        emit c->probe.lossesInfo()->linkActivated(QStringLiteral("losses"));
        QVERIFY(c->probe.lossesDialog() && c->probe.lossesDialog()->isVisible());
        QVERIFY(!c->probe.lossesDialog()->isModal());
        const QTreeWidget *list = c->probe.lossesDialog()->list();
        QCOMPARE(list->topLevelItemCount(), 2);
        QCOMPARE(list->topLevelItem(0)->text(1), QStringLiteral("/home/u/big.iso"));
        QCOMPARE(list->topLevelItem(0)->text(2), qtTrId("LossesNotKept"));
        // A line feed in a path would break the row: shown replaced.
        QCOMPARE(list->topLevelItem(1)->text(1), QStringLiteral("/home/u/a\uFFFDb"));
        QCOMPARE(list->topLevelItem(1)->text(2), qtTrId("LossesKeptInPart"));

        c->probe.lossesDialog()->markSeenButton()->click();
        QVERIFY(!c->probe.lossesDialog()->isVisible());
        QVERIFY(c->probe.lossesInfo()->isHidden());
        QTRY_VERIFY(Losses::unseen().isEmpty());
        // The next one shows again.
        QVERIFY(Losses::record({when.addSecs(120), "/home/u/c", QStringLiteral("gone"), false}));
        QTRY_VERIFY_WITH_TIMEOUT(!c->probe.lossesInfo()->isHidden(), 3000);
        QTRY_COMPARE(c->probe.lossWatch()->losses().size(), 1);
    }

    // Items kept in part: italics and a tip that says what is missing; a name alone is no proof.
    void incompleteItemsMarked_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("tip"); // empty: shown as a whole item
        const CacheCommit::Completeness files{false, 2, 0}, both{false, 1, 1500};
        QTest::newRow("files missing")
            << QByteArray("report (incomplete).pdf") << IncompleteItems::describe(files);
        QTest::newRow("bytes too")
            << QByteArray("photos (incomplete)") << IncompleteItems::describe(both);
        QTest::newRow("whole") << QByteArray("whole.txt") << QString();
        QTest::newRow("name alone") << QByteArray("decoy (incomplete).txt") << QString();
    }
    void incompleteItemsMarked()
    {
        QFETCH(QByteArray, name);
        QFETCH(QString, tip);
        const QByteArray cache = Fixture::cachePath(*env), day = "2024-05-01",
                         time = "2024-05-01 09_00_00";
        QVERIFY(!env->keep(cache, day, time, "report.pdf", {false, 2, 0}).isEmpty());
        QVERIFY(!env->keep(cache, day, time, "photos", {false, 1, 1500}).isEmpty());
        QVERIFY(!env->keep(cache, day, time, "whole.txt").isEmpty());
        item("2024-05-01", "09_00_00", "decoy (incomplete).txt");
        launch();
        const int row = int(Fixture::names(*c).indexOf(name));
        QVERIFY(row >= 0);
        const QModelIndex cell = c->ui.mContentsModel->index(row, 0);
        c->ui.mContentsModel->data(cell, Qt::ToolTipRole); // asks for the day's records
        QTRY_COMPARE(c->ui.mContentsModel->data(cell, Qt::ToolTipRole).toString(), tip);
        QCOMPARE(c->ui.mContentsModel->data(cell, Qt::FontRole).value<QFont>().italic(),
                 !tip.isEmpty());
    }

    void notificationRefreshes()
    {
        launch();
        QCOMPARE(c->probe.days().size(), 0);
        item("2024-05-01", "09_00_00", "moved in");
        QVERIFY(NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                                      QLatin1String(Notifications::Salvora3DataMovedToCache)));
        QTRY_COMPARE_WITH_TIMEOUT(c->probe.days().size(), 1, 5000);
        QVERIFY(Fixture::settle(*c));
        QTRY_COMPARE_WITH_TIMEOUT(Fixture::names(*c), QList<QByteArray>{"moved in"}, 3000);
    }

    // The companion switched protection off: the window hears it on the bus and says so.
    void settingsChangeUpdatesStatus()
    {
        launch();
        QVERIFY(Settings::integer(SettingsKeys::PrefsProtectionEnabled).value_or(0) != 0);
        const QString off = qtTrId("ProtectionDisabled");
        QVERIFY(c->ui.mProtectionInfos->text() != off);
        c->ui.mPreferencesWindow->ui().mProtectionEnabled->setChecked(true);
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 0);
        QVERIFY(NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                                      QLatin1String(Notifications::Salvora3SettingsDidChange)));
        QTRY_COMPARE_WITH_TIMEOUT(c->ui.mProtectionInfos->text(), off, 5000);
        QVERIFY(!c->ui.mPreferencesWindow->ui().mProtectionEnabled->isChecked());
    }

    // Deleting the only item of a day's only time folder takes the folder and the day away;
    // the alert's default button (Return) deletes nothing.
    void removeContentsAfterConfirmation()
    {
        const QByteArray gone = item("2024-05-01", "09_00_00", "lonely");
        item("2024-05-02", "10_00_00", "stays");
        launch();
        QCOMPARE(c->probe.days().size(), 2);
        c->ui.mTableViewDate->selectRowAlone(0);
        QVERIFY(Fixture::settle(*c));
        QCOMPARE(Fixture::names(*c), QList<QByteArray>{"lonely"});
        c->ui.mTableViewContents->selectRowAlone(0);

        AnsweringPresenter cancel(RemovalActions::kCancelIndex);
        Alerts::setPresenter(&cancel);
        c->removeContents();
        QCOMPARE(cancel.shown, 1);
        QVERIFY(QFileInfo::exists(QFile::decodeName(gone)));

        AnsweringPresenter remove(RemovalActions::kDeleteIndex);
        Alerts::setPresenter(&remove);
        QSignalSpy removed(c->probe.removals(), &RemovalQueue::removalFinished);
        c->removeContents();
        Alerts::setPresenter(nullptr);
        QCOMPARE(remove.shown, 1);
        QTRY_COMPARE_WITH_TIMEOUT(removed.size(), 1, 10000);
        QVERIFY(!QFileInfo::exists(QFile::decodeName(gone)));
        // One item: no progress flashed.
        QVERIFY(c->ui.window->statusBar()->isHidden());
        const QByteArray timeFolder = Fixture::cachePath(*env) + "/2024-05-01/2024-05-01 09_00_00";
        QVERIFY(!QFileInfo::exists(QFile::decodeName(timeFolder)));
        // The emptied day stays listed, with nothing in it, and stays selected.
        QTRY_COMPARE_WITH_TIMEOUT(c->probe.days().value(0).count, 0, 5000);
        QCOMPARE(c->probe.days().size(), 2);
        QCOMPARE(Fixture::selectedDays(*c), QList<int>{0});
        QVERIFY(Fixture::settle(*c));
        QVERIFY(Fixture::names(*c).isEmpty());

        // Nothing selected: no alert at all.
        c->ui.mTableViewContents->clearSelection();
        AnsweringPresenter unused(RemovalActions::kDeleteIndex);
        Alerts::setPresenter(&unused);
        c->removeContents();
        Alerts::setPresenter(nullptr);
        QCOMPARE(unused.shown, 0);
    }

    // A long removal shows its row in the status bar, which the window otherwise does not show;
    // its cancel button stops the deleting, and the row goes when the work ends.
    void longRemovalShowsProgressWithCancel()
    {
        QList<QByteArray> all;
        for (int i = 0; i < 30; ++i)
            all.append(
                item("2024-05-01", "09_00_00", "n" + QByteArray::number(i).rightJustified(2, '0')));
        launch();
        QVERIFY(c->ui.window->statusBar()->isHidden());
        QVERIFY(Fixture::settle(*c));
        c->ui.mTableViewContents->selectAll();
        QCOMPARE(c->selectedContentsPaths().size(), 30);
        c->probe.removals()->setItemHookForTesting(
            [](const QByteArray &) { QThread::msleep(100); });

        ProgressArea *area = c->ui.mRemovalProgressArea;
        QCOMPARE(area->cancelButton()->toolTip(), qtTrId("CancelButton"));
        QCOMPARE(area->cancelButton()->accessibleName(), qtTrId("CancelButton"));
        AnsweringPresenter remove(RemovalActions::kDeleteIndex);
        Alerts::setPresenter(&remove);
        QSignalSpy removed(c->probe.removals(), &RemovalQueue::removalFinished);
        c->removeContents();
        Alerts::setPresenter(nullptr);
        QTRY_VERIFY(!c->ui.window->statusBar()->isHidden());
        QVERIFY(!area->isHidden());
        QVERIFY(c->ui.mRestoreProgressArea->isHidden());
        QTRY_VERIFY(area->bar()->value() >= 2);
        QCOMPARE(area->bar()->maximum(), 30);
        QVERIFY(QRegularExpression(QStringLiteral("^Deleting \\d+ of 30$"))
                    .match(area->label()->text())
                    .hasMatch());
        area->cancelButton()->click();
        QTRY_VERIFY(!area->cancelButton()->isEnabled());
        // It may already have ended while the button was awaited.
        QTRY_COMPARE_WITH_TIMEOUT(removed.size(), 1, 10000);
        const QByteArrayList handed = removed[0][0].value<QByteArrayList>();
        QVERIFY(handed.size() < 30);
        QTRY_VERIFY(c->ui.window->statusBar()->isHidden());
        QVERIFY(area->isHidden());
        // The rebuilt list shows what the cancel spared.
        QVERIFY(Fixture::settle(*c));
        QTRY_COMPARE(Fixture::names(*c).size(), 30 - handed.size());
        QCOMPARE(ProgressArea::text(WorkJob::Kind::Restore, 12, 340),
                 QStringLiteral("Restoring 12 of 340"));
    }

    // The lists ask the window for their menus and drag data; only a selection gives a menu,
    // only the contents list gives drag data.
    void listMenusAndDrag()
    {
        const QByteArray first = item("2024-05-01", "09_00_00", "a");
        const QByteArray second = item("2024-05-01", "10_00_00", "b");
        launch();
        QCOMPARE(c->ui.window->menuBar()->actions().size(), 4);
        TableView *contents = c->ui.mTableViewContents;
        TableView *days = c->ui.mTableViewDate;
        QCOMPARE(contents->delegate(), static_cast<TableViewDelegate *>(c));
        QCOMPARE(days->delegate(), static_cast<TableViewDelegate *>(c));

        contents->clearSelection();
        QVERIFY(c->getFloatingPopupMenu(contents, contents) == nullptr);
        contents->selectRowAlone(0);
        std::unique_ptr<QMenu> menu(c->getFloatingPopupMenu(contents, contents));
        QVERIFY(menu);
        QVERIFY(!menu->actions().isEmpty());

        days->selectRowAlone(0);
        QVERIFY(Fixture::settle(*c));
        menu.reset(c->getFloatingPopupMenu(days, days));
        QVERIFY(menu);
        QCOMPARE(c->probe.cacheTimesInDay().size(), 2);
        days->clearSelection();
        QVERIFY(c->getFloatingPopupMenu(days, days) == nullptr);
        QVERIFY(Fixture::settle(*c));
        QTRY_COMPARE_WITH_TIMEOUT(c->probe.contents().size(), 2, 3000);

        QVERIFY(c->writeRowsWithIndexes(days, {0}) == nullptr);
        QVERIFY(!c->probe.drawingDragImage());
        std::unique_ptr<QMimeData> data(c->writeRowsWithIndexes(contents, {0, 1}));
        QVERIFY(data);
        QCOMPARE(
            RestoreActions::pathsFromMimeData(*data),
            (QByteArrayList{c->probe.contents().fullPath(0), c->probe.contents().fullPath(1)}));
        QVERIFY(QByteArrayList({first, second}).contains(c->probe.contents().fullPath(0)));
        QVERIFY(c->probe.drawingDragImage());
        QTRY_VERIFY_WITH_TIMEOUT(!c->probe.drawingDragImage(), 2000);
    }

    // Space opens the preview of the selected item and closes it again; without a selection
    // it does nothing, not even make the panel.
    void spaceTogglesPreview()
    {
        item("2024-05-01", "09_00_00", "note.txt");
        launch();
        c->ui.window->move(40, 30);
        c->ui.window->show();
        c->ui.mTableViewContents->clearSelection();
        c->doKeyDown(QStringLiteral(" "));
        QVERIFY(!c->probe.quickLook().sharedPreviewPanelExists());

        c->ui.mTableViewContents->selectRowAlone(0);
        QTest::keyClick(c->ui.mTableViewContents, Qt::Key_Space);
        QVERIFY(c->probe.quickLook().sharedPreviewPanelExists());
        auto *panel = dynamic_cast<PreviewPanel *>(c->probe.quickLook().controlledPanel());
        QVERIFY(panel);
        QVERIFY(panel->isVisible());
        // Over the main window, and on its screen.
        QVERIFY(c->ui.window->frameGeometry().contains(panel->frameGeometry().center()));
        QVERIFY(
            c->ui.window->screen()->availableGeometry().contains(panel->frameGeometry().topLeft()));
        QCOMPARE(c->probe.quickLook().items(), QByteArrayList{c->probe.contents().fullPath(0)});
        // Shown once its loading thread handed it over (which also orders that thread's file
        // closing before the clean-up's).
        QTRY_VERIFY(panel->infoLine().startsWith(QStringLiteral("note.txt")));
        QTest::keyClick(c->ui.mTableViewContents, Qt::Key_Space);
        QVERIFY(!panel->isVisible());
    }

    // Put Back through the window: the column shows where each item was deleted from, the
    // command needs a recorded origin (and says so), and the message bar tells the outcome.
    void putBackFromTheWindow()
    {
        const QByteArray home = env->homeBytes();
        const QByteArray cache = Fixture::cachePath(*env);
        const QByteArray time = "2024-05-01 09_00_00";
        QVERIFY(TestEnv::makeFolders(home + "/Documents"));
        QVERIFY(TestEnv::writeFile(home + "/Documents/notes.txt", "mine"));
        const QByteArray report = item("2024-05-01", "09_00_00", "report.txt");
        item("2024-05-01", "09_00_00", "photos/one.jpg");
        const QByteArray notes = item("2024-05-01", "09_00_00", "notes.txt");
        item("2024-05-01", "09_00_00", "orphan.txt");
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-01", time, "report.txt",
                                     home + "/Documents/report.txt"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-01", time, "photos",
                                     home + "/Pictures/2024/photos"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-01", time, "notes.txt",
                                     home + "/Documents/notes.txt"));
        c = new TestDelegate;
        QSignalSpy filled(c, &AppDelegate::contentsOriginsFilled);
        QVERIFY(Fixture::launchAndSettle(*c));
        QCOMPARE(Fixture::names(*c),
                 QList<QByteArray>({"notes.txt", "orphan.txt", "photos", "report.txt"}));
        QTRY_VERIFY(!filled.isEmpty()); // the origins come after the rows

        // The fourth column: the folder, whole in the tooltip, nothing for an item without record.
        QCOMPARE(c->ui.mContentsModel->headerData(3, Qt::Horizontal, Qt::DisplayRole).toString(),
                 qtTrId("ColumnOriginalLocation"));
        const QModelIndex reportOrigin = c->ui.mContentsModel->index(rowOf("report.txt"), 3);
        QCOMPARE(reportOrigin.data().toString(), QFile::decodeName(home + "/Documents"));
        QCOMPARE(reportOrigin.data(Qt::ToolTipRole).toString(),
                 QFile::decodeName(home + "/Documents"));
        QCOMPARE(c->ui.mContentsModel->index(rowOf("photos"), 3).data().toString(),
                 QFile::decodeName(home + "/Pictures/2024"));
        QVERIFY(c->ui.mContentsModel->index(rowOf("orphan.txt"), 3).data().toString().isEmpty());
        QCOMPARE(c->ui.mTableViewContents->textElideMode(), Qt::ElideMiddle);
        // Rows still cost no more than before.
        QCOMPARE(sizeof(CacheItems::Row), std::size_t(40));
        // It sorts like the name column: by folder (none first), then by name.
        c->ui.window->resize(1200, 600);
        Fixture::clickHeader(*c, QStringLiteral("4"));
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByOrigin);
        QCOMPARE(Fixture::names(*c),
                 QList<QByteArray>({"orphan.txt", "notes.txt", "report.txt", "photos"}));
        Fixture::clickHeader(*c, QStringLiteral("4"));
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByOriginDescending);
        QCOMPARE(Fixture::names(*c),
                 QList<QByteArray>({"photos", "report.txt", "notes.txt", "orphan.txt"}));
        filled.clear();
        scanAndWait(); // a new scan lists in that order too, once its origins are in
        QTRY_VERIFY(!filled.isEmpty());
        QCOMPARE(Fixture::names(*c),
                 QList<QByteArray>({"photos", "report.txt", "notes.txt", "orphan.txt"}));
        Fixture::clickHeader(*c, QStringLiteral("1"));
        QVERIFY(c->probe.sortOrder() == ContentsSort::ByName);

        QAction *putBack = toolbarAction("putBackButton");
        QVERIFY(putBack);
        QVERIFY(!putBack->isEnabled()); // nothing selected
        selectNames({"orphan.txt"});
        QVERIFY(!putBack->isEnabled());
        QCOMPARE(putBack->toolTip(), qtTrId("PutBackNoOriginTip"));
        QCOMPARE(c->ui.mToolbar->widgetForAction(putBack)->toolTip(), qtTrId("PutBackNoOriginTip"));
        std::unique_ptr<QMenu> menu(
            c->getFloatingPopupMenu(c->ui.mTableViewContents, c->ui.mTableViewContents));
        QVERIFY(menu->actions().contains(putBack));

        // A file, and a folder whose original parent was deleted meanwhile.
        selectNames({"photos", "report.txt"});
        QVERIFY(putBack->isEnabled());
        QCOMPARE(putBack->toolTip(), qtTrId("PutBackTip"));
        MessageBar *bar = c->ui.mMessageBar;
        QVERIFY(bar->isHidden());
        const mode_t mask = umask(022);
        putBack->trigger();
        QTRY_VERIFY(!bar->isHidden());
        umask(mask);
        QCOMPARE(bar->text(), qtTrId("PutBackDoneMany").arg(2));
        QCOMPARE(bar->level(), MessageBar::Level::Success);
        QVERIFY(!bar->actionButton()->isHidden());
        QCOMPARE(bar->actionButton()->text(), qtTrId("MessageBarShow"));
        QCOMPARE(TestEnv::readFile(home + "/Documents/report.txt"), QByteArray("x"));
        QCOMPARE(TestEnv::readFile(home + "/Pictures/2024/photos/one.jpg"), QByteArray("x"));
        QCOMPARE(TestEnv::modeOf(home + "/Pictures") & 0777, mode_t(0755));
        QVERIFY(!TestEnv::exists(report));
        // They left the cache, and the list.
        QTRY_COMPARE(Fixture::names(*c), QList<QByteArray>({"notes.txt", "orphan.txt"}));
        QVERIFY(Fixture::settle(*c));

        // A taken name: one question; Skip leaves the item in the cache.
        selectNames({"notes.txt"});
        activate();
        c->ui.mTableViewContents->setFocus();
        RecordingPresenter skip(1);
        Alerts::setPresenter(&skip);
        QTest::keyClick(c->ui.mTableViewContents, Qt::Key_R,
                        Qt::ControlModifier | Qt::ShiftModifier);
        QTRY_COMPARE(bar->text(),
                     qtTrId("RestoreNameTaken")
                         .arg(QStringLiteral("Documents"), QStringLiteral("notes.txt")));
        QCOMPARE(skip.alerts.size(), 1);
        QCOMPARE(
            skip.alerts[0].buttons,
            QStringList({qtTrId("KeepBothButton"), qtTrId("SkipButton"), qtTrId("CancelButton")}));
        QCOMPARE(bar->level(), MessageBar::Level::Warning);
        QVERIFY(bar->actionButton()->isHidden());
        QVERIFY(TestEnv::exists(notes));
        QCOMPARE(TestEnv::readFile(home + "/Documents/notes.txt"), QByteArray("mine"));

        // Cancel does nothing at all; Keep Both puts it back under a numbered name.
        RecordingPresenter cancel(2);
        Alerts::setPresenter(&cancel);
        bar->dismiss();
        putBack->trigger();
        QTRY_COMPARE(cancel.alerts.size(), 1);
        QTest::qWait(100);
        QVERIFY(bar->isHidden());
        QVERIFY(TestEnv::exists(notes));
        RecordingPresenter both(0);
        Alerts::setPresenter(&both);
        putBack->trigger();
        QTRY_COMPARE(bar->text(), qtTrId("PutBackDone1").arg(QStringLiteral("Documents")));
        Alerts::setPresenter(nullptr);
        QCOMPARE(TestEnv::readFile(home + "/Documents/notes 2.txt"), QByteArray("x"));
        QCOMPARE(TestEnv::readFile(home + "/Documents/notes.txt"), QByteArray("mine"));
        QVERIFY(!TestEnv::exists(notes));

        // Asked for all the same, an item without a record says why it stayed.
        QTRY_COMPARE(Fixture::names(*c), QList<QByteArray>({"orphan.txt"}));
        QVERIFY(Fixture::settle(*c));
        selectNames({"orphan.txt"});
        c->putBack();
        QTRY_COMPARE(bar->text(), qtTrId("PutBackNoOrigin").arg(QStringLiteral("orphan.txt")));
        QCOMPARE(bar->level(), MessageBar::Level::Error);
        bar->closeButton()->click();
        QVERIFY(bar->isHidden());
    }

    // Restore To: the chooser, then the message, which lists what a folder had to leave out.
    void restoreToSaysWhatHappened()
    {
        const QByteArray home = env->homeBytes();
        const QByteArray target = home + "/Restored";
        QVERIFY(TestEnv::makeFolders(target));
        QVERIFY(TestEnv::writeFile(target + "/taken.txt", "mine"));
        item("2024-05-01", "09_00_00", "taken.txt");
        item("2024-05-01", "09_00_00", "fine.txt");
        const QByteArray inside = item("2024-05-01", "09_00_00", "box/keep.txt");
        const QByteArray socketPath = inside.left(inside.lastIndexOf('/')) + "/sock";
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        QVERIFY(std::size_t(socketPath.size()) < sizeof addr.sun_path);
        std::memcpy(addr.sun_path, socketPath.constData(), std::size_t(socketPath.size()));
        QCOMPARE(bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
        close(fd);
        launch();
        MessageBar *bar = c->ui.mMessageBar;

        // Cancelled chooser: nothing happens.
        selectNames({"fine.txt"});
        c->copySelectedItems();
        QCOMPARE(c->restoreFolderAsked, 1);
        QTest::qWait(50);
        QVERIFY(bar->isHidden());

        c->restoreFolder = target;
        c->copySelectedItems();
        QTRY_COMPARE(bar->text(), qtTrId("RestoreDone1").arg(QStringLiteral("Restored")));
        QCOMPARE(bar->level(), MessageBar::Level::Success);

        selectNames({"box", "taken.txt"});
        c->copySelectedItems();
        const QString expected =
            qtTrId("RestoreDone1").arg(QStringLiteral("Restored")) + QLatin1Char('\n') +
            qtTrId("RestoreNameTaken")
                .arg(QStringLiteral("Restored"), QStringLiteral("taken.txt")) +
            QLatin1Char('\n') +
            qtTrId("RestorePartial")
                .arg(QStringLiteral("box"),
                     QStringLiteral("sock (%1)")
                         .arg(QStringLiteral("a device or socket cannot be restored")));
        QTRY_COMPARE(bar->text(), expected);
        QCOMPARE(bar->level(), MessageBar::Level::Warning);
        QCOMPARE(TestEnv::readFile(target + "/box/keep.txt"), QByteArray("x"));
        QVERIFY(!TestEnv::exists(target + "/box/sock"));
        QCOMPARE(TestEnv::readFile(target + "/taken.txt"), QByteArray("mine"));
        // The cache keeps what was copied out of it.
        QCOMPARE(Fixture::names(*c).size(), 3);
    }

    // The keys: Delete asks naming the item or the count, Ctrl+F goes to the search, F5
    // refreshes, the menu key and Shift+F10 open the list's menu, Tab leaves a list.
    void keyboard()
    {
        item("2024-05-01", "09_00_00", "report.pdf");
        item("2024-05-01", "09_00_00", "second.pdf");
        item("2024-05-02", "09_00_00", "other");
        launch();
        activate();
        TableView *contents = c->ui.mTableViewContents;
        selectNames({"other"});
        contents->setFocus();

        RecordingPresenter cancel(RemovalActions::kCancelIndex);
        Alerts::setPresenter(&cancel);
        QTest::keyClick(contents, Qt::Key_Delete);
        c->ui.mTableViewDate->selectRowAlone(0);
        QVERIFY(Fixture::settle(*c));
        contents->selectAll();
        contents->setFocus();
        QTest::keyClick(contents, Qt::Key_Delete);
        Alerts::setPresenter(nullptr);
        QCOMPARE(cancel.alerts.size(), 2);
        QCOMPARE(cancel.alerts[0].message,
                 qtTrId("DeleteOneItemTitle").arg(QStringLiteral("other")));
        QCOMPARE(cancel.alerts[1].message, qtTrId("DeleteItemsTitle").arg(2));
        QCOMPARE(cancel.alerts[1].buttons.first(), qtTrId("CancelButton")); // the default
        QCOMPARE(cancel.alerts[1].style, Alerts::Alert::Style::Critical);
        QCOMPARE(Fixture::names(*c).size(), 2);

        // In the search field, Delete edits the text.
        c->ui.mSearchString->setText(QStringLiteral("ab"));
        c->ui.mSearchString->setFocus();
        c->ui.mSearchString->setCursorPosition(0);
        RecordingPresenter unused(RemovalActions::kCancelIndex);
        Alerts::setPresenter(&unused);
        QTest::keyClick(c->ui.mSearchString, Qt::Key_Delete);
        Alerts::setPresenter(nullptr);
        QCOMPARE(unused.alerts.size(), 0);
        QCOMPARE(c->ui.mSearchString->text(), QStringLiteral("b"));
        c->ui.mSearchString->clear();

        contents->setFocus();
        QTest::keyClick(contents, Qt::Key_F, Qt::ControlModifier);
        QCOMPARE(QApplication::focusWidget(), c->ui.mSearchString);

        QSignalSpy started(c, &AppDelegate::contentsScanStarted);
        QTest::keyClick(c->ui.window, Qt::Key_F5);
        QCOMPARE(started.size(), 1);
        QVERIFY(Fixture::settle(*c));

        QList<QPointer<QMenu>> menus;
        QObject watch;
        connect(contents, &TableView::contextualMenuShown, &watch,
                [&](QMenu *m) { menus.append(m); });
        contents->selectRowAlone(0);
        contents->setFocus();
        QTest::keyClick(contents, Qt::Key_Menu);
        QTRY_COMPARE(menus.size(), 1);
        QVERIFY(menus[0]);
        menus[0]->close();
        contents->setFocus();
        QTest::keyClick(contents, Qt::Key_F10, Qt::ShiftModifier);
        QTRY_COMPARE(menus.size(), 2);
        QVERIFY(menus[1]);
        menus[1]->close();

        // Tab leaves each list for the next control instead of walking its cells.
        for (TableView *list : {c->ui.mTableViewDate, contents}) {
            list->setFocus();
            QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget *>(list));
            QTest::keyClick(list, Qt::Key_Tab);
            QVERIFY(QApplication::focusWidget() != list);
        }
    }

    void namesThatAreNotUtf8()
    {
        item("2024-05-01", "09_00_00", "caf\xe9 report");
        item("2024-05-01", "09_00_00", "plain");
        launch();
        QCOMPARE(c->probe.contents().size(), 2);
        QCOMPARE(c->probe.contents().name(0), QByteArrayView("caf\xe9 report"));
        c->ui.mTableViewContents->selectRowAlone(0);
        QVERIFY(c->ui.mContentsInfos->text().endsWith(QStringLiteral(" - 1"))); // read by its bytes
        c->ui.mSearchString->setText(QStringLiteral("REPORT"));
        scanAndWait();
        QCOMPARE(Fixture::names(*c), QList<QByteArray>{"caf\xe9 report"});
        // The temporary home is removed by name, which such a name would defeat.
        QCOMPARE(unlink(c->probe.contents().fullPath(0).constData()), 0);
    }
};

QTEST_MAIN(TstWindow)
#include "tst_window.moc"
