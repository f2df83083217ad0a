#pragma once

#include <QByteArrayList>
#include <QDBusConnection>
#include <QObject>
#include <QVariantMap>

#include <functional>

class QDBusMessage;

// Broadcast notifications over the session bus: a D-Bus signal from any sender on object path
// /Salvora3, interface org.salvora.Salvora3, member = the notification name, arguments
// (s object, a{sv} userInfo). No destination: every observer of that name hears it.
class NotificationBus : public QObject
{
    Q_OBJECT
public:
    explicit NotificationBus(QObject *parent = nullptr,
                             QDBusConnection connection = QDBusConnection::sessionBus());

    // Starts hearing the notifications of this name from any sender. False without a bus.
    bool observe(const QString &name);
    void stopObserving(const QString &name);

    // Sends at once; false without a bus. A process that quits right after should call flush().
    static bool post(const QString &name, const QString &object, const QVariantMap &userInfo = {},
                     QDBusConnection connection = QDBusConnection::sessionBus());
    // Returns once everything sent so far has left this process (a round trip to the bus).
    static void flush(QDBusConnection connection = QDBusConnection::sessionBus());

    // Calls `onClosed` once the session bus connection is gone (the session ended), checking every
    // `intervalMs`. Programs that live for a session use it to end with their session rather than
    // linger after logout. The timer belongs to `context`.
    static void whenSessionEnds(QObject *context, std::function<void()> onClosed,
                                int intervalMs = 2000,
                                QDBusConnection connection = QDBusConnection::sessionBus());

    // User-info helpers for the delete list.
    static QVariantMap deleteListUserInfo(const QByteArrayList &paths);
    static QByteArrayList deleteListFrom(const QVariantMap &userInfo);

signals:
    // `object` is empty when the notification had none.
    void received(const QString &name, const QString &object, const QVariantMap &userInfo);

private slots:
    void onSignal(const QDBusMessage &message);

private:
    QDBusConnection mConnection;
};
