#include "common/NotificationBus.h"

#include "common/Notifications.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QTimer>

namespace {

void registerTypes()
{
    static const bool done = [] {
        qDBusRegisterMetaType<QByteArrayList>();
        return true;
    }();
    (void)done;
}

// Unwraps what QtDBus hands over as raw D-Bus arguments into plain Qt values.
QVariant demarshalled(const QVariant &v)
{
    if (v.canConvert<QDBusArgument>()) {
        const QDBusArgument arg = v.value<QDBusArgument>();
        switch (arg.currentType()) {
        case QDBusArgument::MapType: {
            QVariantMap map;
            arg >> map;
            for (auto it = map.begin(); it != map.end(); ++it)
                it.value() = demarshalled(it.value());
            return map;
        }
        case QDBusArgument::ArrayType: {
            if (arg.currentSignature() == QLatin1String("aay")) {
                QByteArrayList list;
                arg >> list;
                return QVariant::fromValue(list);
            }
            QVariantList list;
            arg.beginArray();
            while (!arg.atEnd())
                list.append(demarshalled(arg.asVariant()));
            arg.endArray();
            return list;
        }
        default:
            return arg.asVariant();
        }
    }
    return v;
}

} // namespace

NotificationBus::NotificationBus(QObject *parent, QDBusConnection connection)
    : QObject(parent), mConnection(std::move(connection))
{
    registerTypes();
}

bool NotificationBus::observe(const QString &name)
{
    return mConnection.isConnected() &&
           mConnection.connect(QString(), QString(), QLatin1String(Notifications::kInterface), name,
                               this, SLOT(onSignal(QDBusMessage)));
}

void NotificationBus::stopObserving(const QString &name)
{
    mConnection.disconnect(QString(), QString(), QLatin1String(Notifications::kInterface), name,
                           this, SLOT(onSignal(QDBusMessage)));
}

bool NotificationBus::post(const QString &name, const QString &object, const QVariantMap &userInfo,
                           QDBusConnection connection)
{
    registerTypes();
    if (!connection.isConnected()) return false;
    QDBusMessage m = QDBusMessage::createSignal(QLatin1String(Notifications::kObjectPath),
                                                QLatin1String(Notifications::kInterface), name);
    m << object << userInfo;
    return connection.send(m);
}

void NotificationBus::flush(QDBusConnection connection)
{
    if (!connection.isConnected()) return;
    // Messages leave in order, so once the bus has answered this, everything before it is out.
    connection.call(QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                   QStringLiteral("/org/freedesktop/DBus"),
                                                   QStringLiteral("org.freedesktop.DBus.Peer"),
                                                   QStringLiteral("Ping")),
                    QDBus::Block, 2000);
}

QVariantMap NotificationBus::deleteListUserInfo(const QByteArrayList &paths)
{
    registerTypes();
    return {
        {QLatin1String(Notifications::Salvora3DaemonMustDeleteList), QVariant::fromValue(paths)}};
}

QByteArrayList NotificationBus::deleteListFrom(const QVariantMap &userInfo)
{
    const QVariant v = userInfo.value(QLatin1String(Notifications::Salvora3DaemonMustDeleteList));
    if (v.canConvert<QByteArrayList>() && v.typeId() == qMetaTypeId<QByteArrayList>())
        return v.value<QByteArrayList>();
    QByteArrayList out;
    for (const QVariant &e : v.toList())
        out.append(e.typeId() == QMetaType::QByteArray ? e.toByteArray() : e.toString().toUtf8());
    return out;
}

void NotificationBus::onSignal(const QDBusMessage &message)
{
    const QList<QVariant> args = message.arguments();
    const QString object = args.value(0).toString();
    const QVariantMap userInfo = demarshalled(args.value(1)).toMap();
    emit received(message.member(), object, userInfo);
}

void NotificationBus::whenSessionEnds(QObject *context, std::function<void()> onClosed,
                                      int intervalMs, QDBusConnection connection)
{
    // QtDBus announces no disconnection; the connection just stops being connected when the bus's
    // socket closes, which a cheap check notices.
    auto *timer = new QTimer(context);
    QObject::connect(timer, &QTimer::timeout, context,
                     [timer, connection, onClosed = std::move(onClosed)] {
                         if (connection.isConnected()) return;
                         timer->stop();
                         onClosed();
                     });
    timer->start(intervalMs);
}
