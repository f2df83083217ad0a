#include "controller/AppDelegate.h"

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
#include "volumes/MountWatcher.h"

#include <QApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QMainWindow>
#include <QTimer>
#include <QUrl>

#include <cstring>

namespace {

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
    buildWindow(this, this);
    // The sheet installs the companion through the controller's hook.
    mPreferencesWindow->setInstallMenu([this] { installSalvoraMenu(); });
    mNotifications = new NotificationProtocol(*this, this);
    mActions = new WindowActions(*this, this);
    mReveal = new FileManagerReveal(&RestoreUi::openUrl, this);
    setUpProgress();
    // The menu bar is the commands' own.
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
    connect(
        header, &QHeaderView::sortIndicatorChanged, this, [this](int section, Qt::SortOrder order) {
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
    buildToolbar(*mActions);

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
