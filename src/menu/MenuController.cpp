#include "MenuController.h"

#include "cache/SizeRecords.h"
#include "common/Daemon.h"
#include "common/Jobs.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/LossWatch.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/SizeText.h"
#include "ui/LossesDialog.h"
#include "volumes/MountWatcher.h"
#include "volumes/Volumes.h"

#include <QAction>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QDesktopServices>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QUrl>

#include <atomic>
#include <memory>

Q_LOGGING_CATEGORY(lcMenu, "salvora.menu")

namespace {

// A plain disc: green while protection is on, grey while it is off.
QIcon stateIcon(bool on)
{
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(on ? QColor(0x2e, 0xa0, 0x43) : QColor(0x8a, 0x8a, 0x8a));
    painter.drawEllipse(3, 3, 26, 26);
    painter.end();
    return QIcon::fromTheme(QStringLiteral("salvora3"), QIcon(pixmap));
}

} // namespace

MenuController::Options MenuController::defaultOptions()
{
    return {CommonUtils::daemonAppPath(), CommonUtils::mainAppPath()};
}

MenuController::MenuController(Options options, QObject *parent)
    : QObject(parent), mOptions(std::move(options)), mBus(new NotificationBus(this)),
      mMounts(new MountWatcher(this)), mMenu(new QMenu), mLosses(new LossWatch(this)),
      mMailbox(std::make_shared<Mailbox>(this))
{
    mStateLine = mMenu->addAction(QString());
    mStateLine->setEnabled(false);
    mSizeLine = mMenu->addAction(QString());
    mSizeLine->setEnabled(false);
    // Shown only while items that could not be kept are unseen; it opens their list.
    mLossesLine = mMenu->addAction(QString(), this, &MenuController::showLosses);
    mLossesLine->setVisible(false);
    mMenu->addSeparator();
    //% "Turn Protection On"
    mProtectionOn =
        mMenu->addAction(qtTrId("MenuProtectionOn"), this, [this] { setProtection(true); });
    //% "Turn Protection Off"
    mProtectionOff =
        mMenu->addAction(qtTrId("MenuProtectionOff"), this, [this] { setProtection(false); });
    mMenu->addSeparator();
    //% "Open Salvora 3"
    mMenu->addAction(qtTrId("MenuOpenApp"), this, &MenuController::openMainApp);
    //% "Show Log"
    mMenu->addAction(qtTrId("MenuShowLog"), this, &MenuController::showLog);
    mMenu->addSeparator();
    //% "Quit Salvora 3 Menu"
    mMenu->addAction(qtTrId("MenuQuit"), this, &MenuController::quitRequested);

    connect(mBus, &NotificationBus::received, this,
            [this](const QString &name, const QString &object, const QVariantMap &) {
                onNotification(name, object);
            });
    connect(mLosses, &LossWatch::changed, this, &MenuController::updateTexts);
    auto volumesChanged = [this] {
        CommonUtils::resetVolumesLists();
        refreshCacheSize();
    };
    connect(mMounts, &MountWatcher::deviceDidMount, this, volumesChanged);
    connect(mMounts, &MountWatcher::deviceDidUnmount, this, volumesChanged);
}

MenuController::~MenuController()
{
    // A cache on a stalled volume must not keep the companion from quitting: what the size
    // calculation finds afterwards is dropped.
    mMailbox->detach();
    delete mLossesDialog;
    delete mTray;
    delete mMenu;
}

void MenuController::start()
{
    mBus->observe(QLatin1String(Notifications::Salvora3MenuNotification));
    // The window's notifications say when the caches changed, which changes the total.
    mBus->observe(QLatin1String(Notifications::Salvora3Notification));
    readSettings();
    mLosses->start();

    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        mTray = new QSystemTrayIcon(stateIcon(mProtectionEnabled));
        mTray->setContextMenu(mMenu);
        updateTexts();
        mTray->show();
    } else {
        CommonUtils::addToLogFile(QStringLiteral(
            "Salvora 3 Menu: no system tray is available; running without an icon."));
    }
    startDaemonIfNeeded();
}

void MenuController::startDaemonIfNeeded()
{
    Daemon::startIfNeeded(mOptions.daemonPath, QStringLiteral("Salvora 3 Menu"));
}

bool MenuController::trayAvailable() const
{
    return mTray != nullptr;
}

QString MenuController::stateText() const
{
    if (mProtectionEnabled)
        //% "Protection is on"
        return qtTrId("MenuStateOn");
    //% "Protection is off"
    return qtTrId("MenuStateOff");
}

QString MenuController::sizeText() const
{
    if (mCacheSize < 0)
        //% "Caches: calculating…"
        return qtTrId("MenuSizeUnknown");
    //% "Caches: %1"
    return qtTrId("MenuSize").arg(CommonUtils::getSizeStr(mCacheSize));
}

QString MenuController::lossesText() const
{
    return Losses::summaryText(mLosses->summary());
}

QString MenuController::statusLine() const
{
    const QString size = mCacheSize < 0 ? QStringLiteral("not calculated yet")
                                        : QString::number(mCacheSize) + QStringLiteral(" bytes");
    return QStringLiteral("Salvora 3 Menu status: protection %1, caches %2, %3.")
        .arg(mProtectionEnabled ? QStringLiteral("on") : QStringLiteral("off"), size,
             mTray ? QStringLiteral("icon shown") : QStringLiteral("no system tray"));
}

void MenuController::readSettings()
{
    // Absent, or not a number, counts as off.
    mProtectionEnabled = Settings::integer(SettingsKeys::PrefsProtectionEnabled).value_or(0) != 0;
    updateTexts();
    refreshCacheSize();
}

void MenuController::setProtection(bool on)
{
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, on ? 1 : 0);
    Settings::sync();
    // The window follows "Salvora3Notification", the daemon "Salvora3MenuNotification".
    NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                          QLatin1String(Notifications::Salvora3SettingsDidChange));
    NotificationBus::post(QLatin1String(Notifications::Salvora3MenuNotification),
                          QLatin1String(Notifications::Salvora3SettingsDidChange));
    readSettings();
}

void MenuController::refreshCacheSize()
{
    if (mSizeWorker) {
        mSizeRequestedAgain = true;
        return;
    }
    mSizeWorker = Jobs::start([this, mailbox = mMailbox] {
        mailbox->post([this, size = CommonUtils::getSizeOfCaches()] { sizeCalculated(size); });
    });
}

void MenuController::sizeCalculated(qint64 size)
{
    mSizeWorker.reset();
    mCacheSize = std::max<qint64>(0, size);
    updateTexts();
    if (mSizeRequestedAgain) {
        mSizeRequestedAgain = false;
        refreshCacheSize();
    }
}

void MenuController::updateTexts()
{
    mStateLine->setText(stateText());
    mSizeLine->setText(sizeText());
    const QString losses = lossesText();
    mLossesLine->setText(losses);
    mLossesLine->setVisible(!losses.isEmpty());
    mProtectionOn->setEnabled(!mProtectionEnabled);
    mProtectionOff->setEnabled(mProtectionEnabled);
    if (mTray) {
        mTray->setIcon(stateIcon(mProtectionEnabled));
        QString tip = QStringLiteral("Salvora 3 Menu\n%1\n%2").arg(stateText(), sizeText());
        if (!losses.isEmpty()) tip += QLatin1Char('\n') + losses;
        mTray->setToolTip(tip);
    }
    emit stateChanged();
}

void MenuController::openMainApp()
{
    if (!mOptions.mainAppPath.isEmpty() && QFileInfo::exists(mOptions.mainAppPath))
        QProcess::startDetached(mOptions.mainAppPath, {});
}

void MenuController::showLog()
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(CommonUtils::logFilePath()));
}

void MenuController::showLosses()
{
    // The companion has no window of its own: the list is a window of its own.
    if (!mLossesDialog) mLossesDialog = new LossesDialog(mLosses);
    mLossesDialog->present();
}

void MenuController::onNotification(const QString &name, const QString &object)
{
    if (name == QLatin1String(Notifications::Salvora3MenuNotification)) {
        if (object == QLatin1String(Notifications::Salvora3SettingsDidChange))
            readSettings();
        else if (object == QLatin1String(Notifications::Salvora3GetStatus))
            CommonUtils::addToLogFile(statusLine());
        else if (object == QLatin1String(Notifications::Salvora3MenuMustQuit))
            emit quitRequested();
    } else if (name == QLatin1String(Notifications::Salvora3Notification)) {
        if (object == QLatin1String(Notifications::Salvora3CacheModified) ||
            object == QLatin1String(Notifications::Salvora3DataMovedToCache)) {
            refreshCacheSize();
            mLosses->refresh();
        } else if (object == QLatin1String(Notifications::Salvora3SettingsDidChange))
            readSettings();
    }
}
