#include "common/NotificationBus.h"
#include "common/Notifications.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <cstring>

// `tst_notifications --peer NAME OBJECT` posts from another process, with a delete list whose
// paths are not UTF-8, and quits at once.
static int runPeer(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QByteArrayList paths{QByteArray("/c/.Salvora3Cache/2024-05-03/t/caf\xe9"), QByteArray("/c/x\ny")};
    const bool ok = NotificationBus::post(QString::fromUtf8(argv[2]), QString::fromUtf8(argv[3]),
                                          NotificationBus::deleteListUserInfo(paths));
    NotificationBus::flush();
    return ok ? 0 : 1;
}

class TstNotifications : public QObject
{
    Q_OBJECT

    static int peer(const char *name, const char *object)
    {
        return QProcess::execute(QCoreApplication::applicationFilePath(),
                                 {QStringLiteral("--peer"), QString::fromLatin1(name), QString::fromLatin1(object)});
    }

private slots:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
    }

    void crossProcessWithUserInfo()
    {
        NotificationBus bus;
        QVERIFY(bus.observe(QLatin1String(Notifications::Salvora3DaemonNotification)));
        QSignalSpy spy(&bus, &NotificationBus::received);
        QCOMPARE(peer(Notifications::Salvora3DaemonNotification, Notifications::Salvora3DaemonMustDelete), 0);
        QTRY_COMPARE(spy.size(), 1);
        QCOMPARE(spy[0][0].toString(), QLatin1String(Notifications::Salvora3DaemonNotification));
        QCOMPARE(spy[0][1].toString(), QLatin1String(Notifications::Salvora3DaemonMustDelete));
        const QByteArrayList paths = NotificationBus::deleteListFrom(spy[0][2].toMap());
        QCOMPARE(paths, QByteArrayList({QByteArray("/c/.Salvora3Cache/2024-05-03/t/caf\xe9"), QByteArray("/c/x\ny")}));
    }

    void namesAreFilteredAndObjectsMayBeEmpty()
    {
        NotificationBus bus;
        QVERIFY(bus.observe(QLatin1String(Notifications::Salvora3Notification)));
        QSignalSpy spy(&bus, &NotificationBus::received);
        QVERIFY(NotificationBus::post(QLatin1String(Notifications::Salvora3MenuNotification),
                                      QLatin1String(Notifications::Salvora3GetStatus)));
        QVERIFY(NotificationBus::post(QLatin1String(Notifications::Salvora3Notification), QString()));
        QTRY_COMPARE(spy.size(), 1);
        QCOMPARE(spy[0][1].toString(), QString());
        QVERIFY(spy[0][2].toMap().isEmpty());
        QTest::qWait(100);
        QCOMPARE(spy.size(), 1); // the companion's notification never reached us

        bus.stopObserving(QLatin1String(Notifications::Salvora3Notification));
        QVERIFY(NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                                      QLatin1String(Notifications::Salvora3CacheModified)));
        QTest::qWait(100);
        QCOMPARE(spy.size(), 1);
    }
};

int main(int argc, char **argv)
{
    if (argc >= 4 && std::strcmp(argv[1], "--peer") == 0)
        return runPeer(argc, argv);
    QCoreApplication app(argc, argv);
    TstNotifications t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_notifications.moc"
