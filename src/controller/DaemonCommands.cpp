#include "controller/AppDelegate.h"

#include "common/Log.h"
#include "ui/PreferencesSheet.h"
#include "ui_PreferencesSheet.h"

#include <QDesktopServices>
#include <QLabel>
#include <QPushButton>

void AppDelegate::receiveNotification(const QString &name, const QString &object,
                                      const QVariantMap &userInfo)
{
    mNotifications->receiveNotification(name, object, userInfo);
}

void AppDelegate::setProtectionEnabledBox(bool checked)
{
    mPreferencesWindow->ui().mProtectionEnabled->setChecked(checked);
}

void AppDelegate::setNewVersionNotice(const QString &text, bool hidden)
{
    mNewVersion->setText(text);
    mNewVersion->setHidden(hidden);
    mNewVersionButton->setHidden(hidden);
}

void AppDelegate::openLogs()
{
    openFile(CommonUtils::logFilePath());
}

void AppDelegate::newVersion()
{
    mNotifications->newVersion();
}

void AppDelegate::protectionON()
{
    mNotifications->protectionON();
}

void AppDelegate::protectionOFF()
{
    mNotifications->protectionOFF();
}

void AppDelegate::toggleProtection()
{
    mNotifications->toggleProtection();
}

void AppDelegate::getStatus()
{
    mNotifications->getStatus();
}

void AppDelegate::gotoDownload()
{
    QDesktopServices::openUrl(NotificationProtocol::downloadUrl());
}
