#include "controller/AppDelegate.h"

#include "ui/MessageBar.h"

#include "cache/CacheLayout.h"
#include "common/KeepSession.h"
#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "logic/RemovalQueue.h"
#include "ui/MessageBoxPresenter.h"
#include "ui/PreferencesSheet.h"
#include "ui/RestoreUi.h"
#include "ui/SystemVersion.h"
#include "ui/TableView.h"
#include "ui/ZEL_Colors.h"
#include "ui_PreferencesSheet.h"
#include "volumes/MountWatcher.h"

#include <QApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QDialog>
#include <QHeaderView>
#include <QMainWindow>
#include <QTimer>
#include <QToolBar>
#include <QUrl>

#include <cstring>

namespace {

qint64 sOSXVersion = 0;

// Seconds since 2001-01-01 00:00 UTC, truncated.
qint64 referenceSecondsNow()
{
    return QDateTime::currentSecsSinceEpoch() - 978307200;
}

// The about box shows at every launch until closeAboutBox orders it out.
constexpr bool kAboutBoxVisibleAtLaunch = true;

} // namespace

AppDelegate::AppDelegate(QObject *parent)
    : QObject(parent), mWorkers(std::make_shared<WorkerState>(this)),
      mReadingCacheContents(mWorkers->readingCacheContents),
      mReadingCacheContentsMustStop(mWorkers->readingCacheContentsMustStop),
      mCalculatingSizeContents(mWorkers->calculatingSizeContents),
      mCalculatingSizeContentsMustStop(mWorkers->calculatingSizeContentsMustStop),
      mNextRefresh(mWorkers->nextRefresh)
{
    loadInterface();
}

AppDelegate::~AppDelegate()
{
    // Workers are told to stop, never waited for; whatever they post from now on is dropped.
    mReadingCacheContentsMustStop = true;
    mCalculatingSizeContentsMustStop = true;
    mWorkers->detach();
    // Before the window goes: a removal's last steps would refresh it.
    mRemovals->shutdown(RemovalQueue::kQuitWaitMs);
    qApp->removeEventFilter(this);
    if (Alerts::presenter() == mAlertPresenter.get()) Alerts::setPresenter(nullptr);
    delete mPreferencesWindow;
    delete mAboutWindow;
    delete window;
}

void AppDelegate::loadInterface()
{
    window = new QMainWindow;
    mainUi.setupUi(window);
    mAboutWindow = new QDialog(nullptr, Qt::Dialog | Qt::WindowCloseButtonHint);
    aboutUi.setupUi(mAboutWindow);
    mPreferencesWindow = new PreferencesSheet(window);
    // The sheet draws with the window's colours and installs the companion through its hook.
    PreferencesSheet::Colors colors;
    colors.black = &ZEL_Colors::getBlackColor_Adaptable;
    colors.darkGray = &ZEL_Colors::getDarkGrayColor_Adaptable;
    colors.gray = &ZEL_Colors::getGrayColor_Adaptable;
    colors.red = &ZEL_Colors::getRedColor_Adaptable;
    colors.green = &ZEL_Colors::getGreenColor_Adaptable;
    mPreferencesWindow->setColors(colors);
    mPreferencesWindow->setInstallMenu([this] { installSalvoraMenu(); });

    mAboutVersion = aboutUi.mAboutVersion;
    aboutUi.mAboutIcon->setPixmap(QApplication::windowIcon().pixmap(64, 64));
    mNewVersion = mainUi.mNewVersion;
    mNewVersionButton = mainUi.mNewVersionButton;
    mProtectionONButton = mainUi.mProtectionONButton;
    mProtectionOFFButton = mainUi.mProtectionOFFButton;
    mCopySelectedItemsButton = mainUi.mCopySelectedItemsButton;
    mRemoveSelectedItemsButton = mainUi.mRemoveSelectedItemsButton;
    mEditPrefsButton = mainUi.mEditPrefsButton;
    mShowHelpButton = mainUi.mShowHelpButton;
    mProtectionInfos = mainUi.mProtectionInfos;
    mProtectionInfosMore = mainUi.mProtectionInfosMore;
    mSearchString = mainUi.mSearchString;
    mSelectedVolumeMenu = mainUi.mSelectedVolumeMenu;
    mCacheInfos = mainUi.mCacheInfos;
    mTableViewDate = mainUi.mTableViewDate;
    mTableViewContents = mainUi.mTableViewContents;
    mContentsInfos = mainUi.mContentsInfos;
    mProtectedVolumesTableView = mPreferencesWindow->ui().mProtectedVolumesTableView;
    mProtectedVolumesProtectButton = mPreferencesWindow->ui().mProtectedVolumesProtectButton;
    mProtectedVolumesUnprotectButton = mPreferencesWindow->ui().mProtectedVolumesUnprotectButton;

    translateInterface();
    QFont nameFont = aboutUi.mAboutName->font();
    nameFont.setBold(true);
    aboutUi.mAboutName->setFont(nameFont);

    // Names are shown as they are, never as markup.
    for (QLabel *label : {mCacheInfos, mContentsInfos, mProtectionInfos, mProtectionInfosMore,
                          mAboutVersion, aboutUi.mAboutName})
        label->setTextFormat(Qt::PlainText);

    //% "Date"
    const QString dateTitle = qtTrId("ColumnDate");
    //% "Size"
    const QString sizeTitle = qtTrId("ColumnSize");
    //% "Items"
    const QString countTitle = qtTrId("ColumnCount");
    //% "Name"
    const QString nameTitle = qtTrId("ColumnName");
    //% "Moved to the cache"
    const QString timeTitle = qtTrId("ColumnCachingTime");
    //% "Original Location"
    const QString originTitle = qtTrId("ColumnOriginalLocation");
    const QStringList ids{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")};
    mDateModel = new TableModel(this, ids, this);
    mDateModel->setHeaderTitles({dateTitle, sizeTitle, countTitle});
    mContentsModel = new TableModel(this, ids + QStringList{QStringLiteral("4")}, this);
    mContentsModel->setHeaderTitles({nameTitle, sizeTitle, timeTitle, originTitle});
    mTableViewDate->setModel(mDateModel);
    mTableViewContents->setModel(mContentsModel);

    mTableViewDate->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    mTableViewDate->horizontalHeader()->resizeSection(1, 80);
    mTableViewDate->horizontalHeader()->resizeSection(2, 60);
    mTableViewContents->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    mTableViewContents->horizontalHeader()->resizeSection(1, 90);
    mTableViewContents->horizontalHeader()->resizeSection(2, 150);
    mTableViewContents->horizontalHeader()->resizeSection(3, 200);

    // What a restore did shows above the list it is about.
    mMessageBar = new MessageBar(mainUi.contentsPane);
    mainUi.contentsPaneLayout->insertWidget(mainUi.contentsPaneLayout->indexOf(mTableViewContents), mMessageBar);
    mainUi.mSplitter->setStretchFactor(1, 3);

    mNotifications = new NotificationProtocol(*this, this);
    mActions = new WindowActions(*this, this);
    mReveal = new FileManagerReveal(&RestoreUi::openUrl, this);
    setUpProgress();
    // The menu bar is the commands' own; the interface file's menus would duplicate it.
    window->menuBar()->clear();
    mActions->populateMenuBar(window->menuBar());
    mTableViewDate->setDelegate(this);
    mTableViewContents->setDelegate(this);
    connectActions();
    qApp->installEventFilter(this);
}

void AppDelegate::connectActions()
{
    connect(mTableViewDate->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { tableViewSelectionDidChange(mTableViewDate); });
    connect(mTableViewContents->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { tableViewSelectionDidChange(mTableViewContents); });
    connect(mTableViewContents, &QAbstractItemView::doubleClicked, this,
            [this] { doubleClickContentsList(); });
    connect(mSelectedVolumeMenu, &QComboBox::activated, this, [this] { updateSelectedVolume(); });
    // Protecting a volume in the sheet refreshes the contents list, as the button always did.
    connect(mPreferencesWindow, &PreferencesSheet::volumeProtected, this,
            [this] { clickDateList(); });
    connect(mNewVersionButton, &QPushButton::clicked, this, [this] { gotoDownload(); });

    // The search asks for a new scan once typing pauses, and at once on Enter.
    mSearchTimer = new QTimer(this);
    mSearchTimer->setSingleShot(true);
    mSearchTimer->setInterval(kSearchPauseMs);
    connect(mSearchTimer, &QTimer::timeout, this, [this] { updateListOfContentsInCache(); });
    connect(mSearchString, &QLineEdit::textEdited, mSearchTimer, qOverload<>(&QTimer::start));
    connect(mSearchString, &QLineEdit::returnPressed, this, [this] {
        mSearchTimer->stop();
        updateListOfContentsInCache();
    });

    // Header clicks sort the contents list; the indicator tells the direction.
    QHeaderView *header = mTableViewContents->horizontalHeader();
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(0, Qt::AscendingOrder);
    connect(header, &QHeaderView::sortIndicatorChanged, this,
            [this](int section, Qt::SortOrder order) {
                const QString id = mContentsModel->columnIdentifier(section);
                if (id == QLatin1String("1") || id == QLatin1String("3") || id == QLatin1String("4"))
                    sortDescriptorsDidChange(order == Qt::AscendingOrder);
            });
    connect(header, &QHeaderView::sectionClicked, this, [this, header](int section) {
        const QString id = mContentsModel->columnIdentifier(section);
        if (id == QLatin1String("1") || id == QLatin1String("3") || id == QLatin1String("4")) {
            mSortSection = section;
            mSortOrder = header->sortIndicatorOrder();
        } else {
            // Columns without a sort keep the indicator where it was.
            const QSignalBlocker blocker(header);
            header->setSortIndicator(mSortSection, mSortOrder);
        }
        didClickTableColumn(id);
    });
}

void AppDelegate::createToolbar()
{
    mToolbar = new QToolBar(window);
    mToolbar->setMovable(false);
    mToolbar->setFloatable(false);
    mActions->populateToolbar(mToolbar);
    // The button outlets are the toolbar's own buttons for the commands' actions.
    auto button = [this](const char *identifier) {
        QAction *action = mActions->toolbarItem(QLatin1String(identifier));
        return qobject_cast<QToolButton *>(mToolbar->widgetForAction(action));
    };
    mProtectionONButton = button(WindowActions::kProtectionON);
    mProtectionOFFButton = button(WindowActions::kProtectionOFF);
    mCopySelectedItemsButton = button(WindowActions::kCopyButton);
    mRemoveSelectedItemsButton = button(WindowActions::kRemoveButton);
    mEditPrefsButton = button(WindowActions::kPreferences);
    mShowHelpButton = button(WindowActions::kShowHelp);
    window->addToolBar(Qt::TopToolBarArea, mToolbar);
}

void AppDelegate::registerObservers()
{
    mNotificationBus = new NotificationBus(this);
    mNotificationBus->observe(QLatin1String(Notifications::Salvora3Notification));
    connect(mNotificationBus, &NotificationBus::received, mNotifications,
            &NotificationProtocol::receiveNotification);
    mMountWatcher = new MountWatcher(this);
    connect(mMountWatcher, &MountWatcher::deviceDidMount, this, &AppDelegate::deviceDidMount);
    connect(mMountWatcher, &MountWatcher::deviceDidUnmount, this, &AppDelegate::deviceDidUnmount);
    watchLosses();
}

bool AppDelegate::applicationDidFinishLaunching()
{
    // 1-2. Fresh state.
    mAdminPrivilegesWereSet = false;
    mDrawingDragImage = false;
    mSortByCaching = 0;
    mReadingCacheContents = false;
    mReadingCacheContentsMustStop = false;
    mCalculatingSizeContents = false;
    mCalculatingSizeContentsMustStop = false;
    mSelectedDate = -2;
    mDates.clear();
    mContents.clear();
    mProtectedVolumes.clear();
    mCacheTimesInDay.clear();

    // 3-4. Toolbar and preview items.
    createToolbar();

    // The privilege checks may already need to tell the user something.
    if (!mAlertPresenter) mAlertPresenter = std::make_unique<MessageBoxPresenter>(window);
    Alerts::setPresenter(mAlertPresenter.get());

    // 5. Without the privileges the program cannot work: end here, silently.
    if (!runPrivilegeChecks()) {
        terminate();
        return false;
    }

    // 6. First use.
    mFirstUse = false;
    if (!Settings::contains(SettingsKeys::FirstUse)) {
        Settings::setInteger(SettingsKeys::FirstUse, referenceSecondsNow());
        mFirstUse = true;
    }

    // 7. Retention, or a first configuration. The longer delays after privileges were just
    // installed leave the daemon time to start.
    if (Settings::contains(SettingsKeys::PrefsRemoveFromCache)) {
        QTimer::singleShot(mPrivilegeChecks.installSalvoraMenuDelayMs(), Qt::PreciseTimer, this,
                           [this] { installSalvoraMenu(); });
    } else {
        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache,
                             SettingsKeys::kFirstLaunchRemoveFromCache);
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled,
                             SettingsKeys::kFirstLaunchProtectionEnabled);
        Settings::setInteger(SettingsKeys::PrefsLaunchMenu, SettingsKeys::kFirstLaunchLaunchMenu);
        // Permanent deletions are kept too from the next login on: who installs Salvora 3 wants
        // what they delete kept, and rm is where most of it goes. An upgrade never gets here, so
        // a session that ran fine before does not start preloading a library unasked; the
        // Preferences, opened just after, show the check box and say when it takes effect.
        if (const KeepSession::Result r = KeepSession::enable();
            !r.ok() && r.failed != KeepSession::Result::Failed::Library)
            CommonUtils::addToLogFile(
                QStringLiteral("Salvora 3 could not turn on keeping permanent deletions: %1.")
                    .arg(QString::fromLocal8Bit(std::strerror(r.error))));
        QTimer::singleShot(mPrivilegeChecks.editPreferencesDelayMs(), Qt::PreciseTimer, this,
                           [this] { editPreferences(); });
    }

    // 8-9. Tables.
    setUpTables();

    // 10. Observers, and the daemon they listen to.
    registerObservers();
    startDaemonIfNeeded();

    // 11. The start-up volume's cache folder, created when missing.
    CommonUtils::pathForCacheFolderInVolume(0);

    // 12. The volume list fills the day list, which starts the contents scan. Every delay here
    // is precise: their order and length are part of the behaviour.
    QTimer::singleShot(150, Qt::PreciseTimer, this, [this] { updateProtectedVolumesList(); });
    QTimer::singleShot(2000, Qt::PreciseTimer, this, [this] { closeAboutBox(); });

    // 13. Status, title, window.
    updateStatusInfos();
    setWinTitle();
    window->show();
    window->raise();
    window->activateWindow();
    if (kAboutBoxVisibleAtLaunch) aboutWindow();

    // 14.
    CommonUtils::addToLogFile(QStringLiteral("Salvora 3 Launched."));
    mLaunched = true;

    // 15-16. The full-disk-access check has no counterpart on Linux.
    if (mFirstUse) QTimer::singleShot(1000, Qt::PreciseTimer, this, [this] { showHelp(); });
    QTimer::singleShot(NotificationProtocol::kNewVersionDelayMs, Qt::PreciseTimer, this,
                       [this] { newVersion(); });
    return true;
}

void AppDelegate::setUpTables()
{
    // Icons and text in the first columns come from the data source; the contents list's
    // columns "1" and "3" sort, ascending first.
    mTableViewContents->setDragEnabled(true);
    mTableViewContents->setDragDropMode(QAbstractItemView::DragOnly);
    mTableViewContents->setDefaultDropAction(Qt::CopyAction);
}

void AppDelegate::applicationWillTerminate()
{
    if (mNotificationBus)
        mNotificationBus->stopObserving(QLatin1String(Notifications::Salvora3Notification));
    mReadingCacheContentsMustStop = true;
    mCalculatingSizeContentsMustStop = true;
    mCopyJobs.stopAll();
    // A stopped copy takes away its hidden temporary; it gets the time to.
    mCopyJobs.waitForAll(RemovalQueue::kQuitWaitMs);
    // The item being deleted is finished rather than left to a dying thread.
    mRemovals->shutdown(RemovalQueue::kQuitWaitMs);
    if (mLaunched) CommonUtils::addToLogFile(QStringLiteral("Salvora 3 quits."));
    mLaunched = false;
}

void AppDelegate::closeAboutBox()
{
    mAboutWindow->hide();
}

qint64 AppDelegate::OSXVersion()
{
    if (sOSXVersion != 0) return sOSXVersion;
    const std::optional<SystemVersion::Parts> parts = SystemVersion::read();
    sOSXVersion = parts ? SystemVersion::decimal(*parts) : 0;
    return sOSXVersion;
}

void AppDelegate::resetOSXVersionCacheForTesting()
{
    sOSXVersion = 0;
}

void AppDelegate::openFile(const QString &path)
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

void AppDelegate::terminate()
{
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

bool AppDelegate::eventFilter(QObject *watched, QEvent *event)
{
    // A change of the desktop's theme re-colours every text that carries a theme colour.
    if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange) recolorTexts();
    return QObject::eventFilter(watched, event);
}
