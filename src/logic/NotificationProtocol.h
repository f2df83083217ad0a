#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <optional>

// What the notification protocol needs from the window. The window's controller implements it;
// tests implement it with a recorder.
class NotificationTarget
{
public:
    virtual ~NotificationTarget() = default;
    virtual void updateListOfDaysInCache() = 0;
    virtual void updateListOfContentsInCache() = 0;
    virtual void updateStatusInfos() = 0;
    // The protection check box of the Preferences sheet (mProtectionEnabled).
    virtual void setProtectionEnabledBox(bool checked) = 0;
    // mNewVersion gets the text; it and mNewVersionButton are hidden or shown together.
    virtual void setNewVersionNotice(const QString &text, bool hidden) = 0;
    // Opens the log file with the desktop's default application.
    virtual void openLogs() = 0;
};

// The window's side of the notifications it exchanges with the daemon and the companion: the
// reaction to "Salvora3Notification", the version notice, the status request and the protection
// switch. Main thread only.
class NotificationProtocol : public QObject
{
    Q_OBJECT
public:
    static constexpr int kNewVersionDelayMs = 3000;
    // The companion writes its status first; the daemon's lines then land above it in the log.
    static constexpr int kStatusPauseMs = 500;
    static constexpr int kOpenLogsDelayMs = 1000;

    explicit NotificationProtocol(NotificationTarget &target, QObject *parent = nullptr,
                                  QDBusConnection connection = QDBusConnection::sessionBus());

    // Whether the notice stays hidden. Deliberately a plain text comparison, not a numeric one:
    // a running 3.10 counts as older than a latest 3.9, and a running 3.0.1 against a latest 3.0
    // shows the notice.
    static bool isNewVersionHidden(const QString &running, const QString &latest);
    // The newest available version: the first line of the `version` setting. nullopt when the
    // setting is absent or its first line is empty.
    static std::optional<QString> latestVersion(const std::optional<QString> &versionSetting);
    static QString newVersionText(const QString &latest, const QString &running);
    // The download page, from the text under "WebDownload".
    static QUrl downloadUrl();
    // This program's version (the build's project version).
    static QString runningVersion();

public slots:
    // Connect NotificationBus::received of an observer of "Salvora3Notification" here.
    void receiveNotification(const QString &name, const QString &object,
                             const QVariantMap &userInfo = QVariantMap());
    // Shows or hides the notice from the `version` setting; leaves it alone when there is none.
    void newVersion();
    // Asks the companion, then (after a pause that blocks the calling thread) the daemon for
    // their status, and opens the log a second later.
    void getStatus();
    void protectionON() { protectionChange(1); }
    void protectionOFF() { protectionChange(0); }
    // Stores the switch, tells the companion, refreshes the status. The sheet's check box is not
    // touched: it follows the sheet or a received settings change only.
    void protectionChange(qint64 value);
    // Absent counts as off, so the first toggle switches protection on.
    void toggleProtection();

private:
    void postToMenu(const char *object);

    NotificationTarget &mTarget;
    QDBusConnection mConnection;
    QString mRunningVersion;

public:
    // Tests pretend to be another version.
    void setRunningVersionForTesting(const QString &version) { mRunningVersion = version; }
};
