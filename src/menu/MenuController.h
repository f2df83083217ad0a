#pragma once

#include "common/Jobs.h"

#include <QObject>
#include <QString>

#include <memory>

class LossWatch;
class LossesDialog;
class NotificationBus;
class MountWatcher;
class QAction;
class QMenu;
class QSystemTrayIcon;

// "Salvora 3 Menu": a tray icon whose menu tells whether protection is on and how much the
// caches hold, switches protection, opens the window and the log. It follows the settings that
// the window and the daemon share, and obeys "Salvora3MenuNotification".
class MenuController : public QObject
{
    Q_OBJECT
public:
    struct Options
    {
        QString daemonPath;  // started when no process owns the daemon's bus name
        QString mainAppPath; // "Open Salvora 3"
    };
    static Options defaultOptions();

    explicit MenuController(Options options = defaultOptions(), QObject *parent = nullptr);
    ~MenuController() override;

    // Observes the notifications, reads the settings, starts the size calculation, shows the
    // icon (or logs that there is no tray) and starts the daemon when it is not running.
    void start();

    bool protectionEnabled() const { return mProtectionEnabled; }
    // Total bytes of all caches; -1 until the first calculation has ended.
    qint64 cacheSize() const { return mCacheSize; }
    QString stateText() const;
    QString sizeText() const;
    // "N items could not be kept since DATE"; empty when there is none unseen.
    QString lossesText() const;
    // One line for the log, in English like every log line.
    QString statusLine() const;
    bool trayAvailable() const;

    QMenu *menu() const { return mMenu; }
    QAction *protectionOnAction() const { return mProtectionOn; }
    QAction *protectionOffAction() const { return mProtectionOff; }
    QAction *lossesAction() const { return mLossesLine; }
    LossWatch *lossWatch() const { return mLosses; }
    // The list of them, once shown.
    LossesDialog *lossesDialog() const { return mLossesDialog; }

public slots:
    void readSettings();
    void setProtection(bool on);
    void refreshCacheSize();
    void openMainApp();
    void showLog();
    void showLosses();

signals:
    void stateChanged();
    void quitRequested();

private:
    void onNotification(const QString &name, const QString &object);
    void sizeCalculated(qint64 size);
    void updateTexts();
    void startDaemonIfNeeded();

    Options mOptions;
    NotificationBus *mBus = nullptr;
    MountWatcher *mMounts = nullptr;
    QSystemTrayIcon *mTray = nullptr;
    QMenu *mMenu = nullptr;
    QAction *mStateLine = nullptr;
    QAction *mSizeLine = nullptr;
    QAction *mLossesLine = nullptr;
    LossWatch *mLosses = nullptr;
    LossesDialog *mLossesDialog = nullptr;
    QAction *mProtectionOn = nullptr;
    QAction *mProtectionOff = nullptr;
    bool mProtectionEnabled = false;
    qint64 mCacheSize = -1;

    // The size calculation walks the caches' records on a worker thread; at most one runs, and
    // a request while it runs is remembered and served when it ends.
    std::shared_ptr<Mailbox> mMailbox;
    std::shared_ptr<Jobs::Handle> mSizeWorker;
    bool mSizeRequestedAgain = false;
};
