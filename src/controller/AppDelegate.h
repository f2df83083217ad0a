#pragma once

#include "browser/CacheItems.h"
#include "browser/SortOrder.h"
#include "browser/VolumeMenu.h"
#include "cache/DayEntry.h"
#include "logic/NotificationProtocol.h"
#include "logic/PreferencesLogic.h"
#include "logic/PrivilegeChecks.h"
#include "logic/QuickLook.h"
#include "logic/RemovalActions.h"
#include "logic/RestoreActions.h"
#include "logic/WorkerState.h"
#include "ui/Actions.h"
#include "ui/MainWindowOutlets.h"
#include "ui/TableModel.h"
#include "ui/TableView.h"
#include "volumes/DiskDescription.h"

#include <QElapsedTimer>
#include <QHash>
#include <QIcon>
#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

namespace CacheCommit {
struct Completeness;
}
class ContentsScanJob;
class IncompleteLookup;
class LossWatch;
class LossesDialog;
class MessageBoxPresenter;
class MountWatcher;
class NotificationBus;
class PreviewPanel;
class QLabel;
class QTimer;
class RemovalQueue;
class WorkProgress;

// The window's controller. It owns every piece of the window's state, answers the tables as
// their data source and drives the workers. Its operations are split by concern over the files
// of this folder: StartUp, VolumeList, DayTable, ContentsList, SizeDisplay, Status, Tables,
// Preferences, DaemonCommands, ItemCommands, RemoveCommands, PutBack, Progress, Preview. The
// widgets are the outlets that ui/MainWindowOutlets builds; tests read the state through
// WindowProbe.
class AppDelegate : public QObject,
                    public TableDataSource,
                    public PreferencesTarget,
                    public NotificationTarget,
                    public RemovalTarget,
                    public WindowCommands,
                    public TableViewDelegate,
                    private MainWindowOutlets
{
    Q_OBJECT
    friend class WindowProbe;

public:
    explicit AppDelegate(QObject *parent = nullptr);
    ~AppDelegate() override;

    // Start-up and shutdown (StartUp.cpp). Returns false when start-up ended the program.
    bool applicationDidFinishLaunching();
    void applicationWillTerminate();
    void closeAboutBox();

    // Volume list (VolumeList.cpp). The Preferences sheet's volume table and its protect and
    // unprotect buttons are the sheet's own (ui/PreferencesSheet).
    void updateProtectedVolumesList() override;
    void updateSelectedVolume();
    void deviceDidMount(const QString &path);
    void deviceDidUnmount(const QString &path);

    // Day list (DayTable.cpp).
    void updateListOfDaysInCache() override;
    void reloadDayTable() override;
    void clickDateList();
    void updateCacheContents();
    void updateCacheContentsAtTime(qsizetype tag) override;

    // Contents scan and search (ContentsList.cpp). An empty path scans the selected days (all
    // days when none is selected); a time folder's path scans that folder alone.
    void updateListOfContentsInCache(const QByteArray &timeFolder);
    void updateListOfContentsInCache() override { updateListOfContentsInCache(QByteArray()); }
    void sortContents();
    SortOrder sortOrder() const { return SortOrder::fromCode(mSortByCaching); }

    // Size calculation (SizeDisplay.cpp).
    void calcSizeContents(const QByteArray &path);
    void updateSizeContents(qint64 size);

    // Status line, title, about box and help (Status.cpp).
    void updateStatusInfos() override;
    void setWinTitle();
    void aboutWindow() override;
    void showHelp() override;
    void enableToolBarItem(const QString &identifier, bool enable);
    // Items that could not be kept: a line under the status with their list (LossesStatus.cpp).
    void updateLossesInfo();
    void showLosses();

    // Table display (Tables.cpp).
    int numberOfRowsInTableView(const TableModel *table) override;
    QVariant cellValue(const TableModel *table, int row, const QString &column, int role) override;
    void tableViewSelectionDidChange(TableView *table);
    void sortDescriptorsDidChange(bool ascending);
    void didClickTableColumn(const QString &identifier);
    void clickContentsList();

    // Notifications from the daemon and the companion, and the commands that send them
    // (DaemonCommands.cpp); the protocol itself is NotificationProtocol's.
    void receiveNotification(const QString &name, const QString &object,
                             const QVariantMap &userInfo);
    void setProtectionEnabledBox(bool checked) override;
    void setNewVersionNotice(const QString &text, bool hidden) override;
    void openLogs() override;
    void toggleProtection() override;
    void getStatus() override;
    // The new-version button: the download page in the browser.
    void gotoDownload();

    // Menus, the lists' requests, restoring and revealing (ItemCommands.cpp).
    void removeSelectedDays() override;
    void removeAllCaches() override;
    void showInFinder() override;
    void toggleQL() override;
    void quit() override;
    void doKeyDown(const QString &characters) override;
    QMenu *getFloatingPopupMenu(TableView *table, TableView *forTable) override;
    QMimeData *writeRowsWithIndexes(TableView *table, const QList<int> &rows) override;
    static constexpr int kDragImageResetMs = 500;

    // Deleting from the caches for good, each after a confirmation (RemoveCommands.cpp).
    // The contents list's selected items, in ascending row order.
    QByteArrayList selectedContentsPaths() const;

    // Preferences sheet: opens it; what it saves and refreshes is the sheet's.
    void editPreferences() override;

    // ---- Hooks for the parts that other components connect. Each default lets start-up go on.
    // Privileges, companion and daemon (Services.cpp).
    // checkAdminlauncherPrivileges, then checkDaemonPrivileges; false ends the program.
    virtual bool runPrivilegeChecks();
    // Puts the menu companion among the login items and launches it.
    virtual void installSalvoraMenu();
    // Starts the daemon when nobody owns its bus name.
    virtual void startDaemonIfNeeded();
    // Looks for a newer version and shows the notice.
    virtual void newVersion();
    // Toolbar and contents actions.
    void protectionON() override;
    void protectionOFF() override;
    void copySelectedItems() override;
    void removeContents() override;

    // Put Back, the restores' messages and the keyboard's commands (PutBack.cpp).
    void putBack() override;
    void refresh() override;
    void focusSearch() override;
    // Whether any selected item has a recorded origin; the command and its tooltip follow.
    void updatePutBackAction();
    // Shows what a restore did in the message bar, and refreshes after a put back.
    void restoreFinished(const RestoreReport &report);
    virtual void doubleClickContentsList();
    // Opens a document with the user's default application.
    virtual void openFile(const QString &path);
    // The "Restore To" folder chooser; nullopt when cancelled.
    virtual std::optional<QByteArray> chooseRestoreFolder();
    // The help document "Salvora 3.rtf" among the installed resources.
    virtual QString helpDocumentPath() const;
    // Ends the program (a refused privilege check).
    virtual void terminate();

    // Pause of the search field before its text starts a scan, and the least time between two
    // hand-overs of a running scan to the window.
    static constexpr int kSearchPauseMs = 150;
    static constexpr int kHandOverIntervalMs = 100;
    static constexpr int kScanRetryMs = 200;
    static constexpr int kSizeRetryMs = 100;

signals:
    // When a scan thread starts.
    void contentsScanStarted();
    // After each hand-over of a running scan was shown, and after the end message.
    void contentsListChanged();
    void contentsScanEnded();
    // After the scan's rows all know where their items were deleted from (the list is re-sorted
    // first when it is sorted by that). A scan that was stopped or replaced never says it.
    void contentsOriginsFilled();
    // After the information line showed a size from the size calculation.
    void sizeContentsUpdated(qint64 size);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    PreviewPanelControl *lazilyCreatedPanel();
    void loadInterface();
    void setUpTables();
    void registerObservers();
    void watchLosses();
    void connectActions();
    void setUpProgress();
    void progressChanged();
    void putBackPlanned(const QList<QPair<QByteArray, QByteArray>> &items,
                        const QByteArrayList &unrecorded, const QByteArrayList &taken);

    // Contents scan.
    void contentsReady(const std::shared_ptr<ContentsScanJob> &job);
    void takeContents(const std::shared_ptr<ContentsScanJob> &job);
    void endContentsScan(const std::shared_ptr<ContentsScanJob> &job);
    void takeOrigins(const std::shared_ptr<ContentsScanJob> &job, std::uint32_t first,
                     const std::vector<std::uint32_t> &ids);
    void endOrigins(const std::shared_ptr<ContentsScanJob> &job);
    void showEndOfScanMessage();

    // Table cells.
    QVariant dayCell(int row, const QString &column, int role) const;
    QVariant contentsCell(int row, const QString &column, int role);
    void readItemAttributes(qsizetype row);
    QIcon iconForItem(qsizetype row);
    const CacheCommit::Completeness *incompleteOf(qsizetype row);

    // Texts with a colour that follows the theme: remembered, so a theme change re-colours them.
    void setText(QLabel *label, const QString &text, QColor (*color)() = nullptr);
    void recolorTexts();

    // ---- Widgets made when first needed, beside the outlets.
    QLabel *mLossesInfo = nullptr;
    LossesDialog *mLossesDialog = nullptr;
    LossWatch *mLossWatch = nullptr;
    // Which contents rows were kept only in part.
    IncompleteLookup *mIncomplete = nullptr;

    // ---- State.
    QList<DayEntry> mDates;
    CacheItems mContents;
    QList<VolumeMenuEntry> mProtectedVolumes;
    QByteArrayList mCacheTimesInDay;
    qint64 mSelectedDate = -2;
    // The space bar's preview; its panel is made on first use (Preview.cpp).
    QuickLook mQuickLook{[this] { return lazilyCreatedPanel(); }};
    bool mVolumeNotMounted = false;
    bool mFirstUse = false;
    bool mAdminPrivilegesWereSet = false;
    bool mDrawingDragImage = false;
    // The contents list's order, kept as its integer code (sortOrder() reads it).
    qint64 mSortByCaching = 0;
    bool mSortAscending = false;

    // The long work's counts, and the removals' worker (one removal at a time).
    WorkProgress *mProgress = nullptr;
    RemovalQueue *mRemovals = nullptr;

    // Shared with the workers; the flags and mNextRefresh live in it.
    const std::shared_ptr<WorkerState> mWorkers;
    std::atomic<bool> &mReadingCacheContents;
    std::atomic<bool> &mReadingCacheContentsMustStop;
    std::atomic<bool> &mCalculatingSizeContents;
    std::atomic<bool> &mCalculatingSizeContentsMustStop;
    std::atomic<double> &mNextRefresh;

    PrivilegeChecks mPrivilegeChecks;
    // The core's alerts show over the window while this window lives.
    std::unique_ptr<MessageBoxPresenter> mAlertPresenter;
    NotificationBus *mNotificationBus = nullptr;
    NotificationProtocol *mNotifications = nullptr;
    WindowActions *mActions = nullptr;
    PreviewPanel *mPreviewPanel = nullptr;
    FileManagerReveal *mReveal = nullptr;
    CopyJobs mCopyJobs;
    MountWatcher *mMountWatcher = nullptr;
    QTimer *mSearchTimer = nullptr;
    bool mLaunched = false;

    std::shared_ptr<ContentsScanJob> mContentsJob;
    // The listed scan whose rows are still learning their origins.
    std::shared_ptr<ContentsScanJob> mOriginsJob;
    QElapsedTimer mSinceHandOver;
    bool mHandOverScheduled = false;
    qint64 mHandOverPauseMs = kHandOverIntervalMs;

    int mSortSection = 0;
    Qt::SortOrder mSortOrder = Qt::AscendingOrder;

    QHash<QString, QIcon> mIconCache;
    QHash<QLabel *, QColor (*)()> mTextColors;
};
