// Programs that live for a session end with it: once the session bus goes away, the companion and
// the daemon's agent must not linger (the agent would keep its root helper alive too).
#include "TestEnv.h"
#include "common/NotificationBus.h"

#include <QDBusConnection>
#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#include <csignal>

class TstSessionEnd : public QObject
{
    Q_OBJECT

    // A private bus: its address, and the daemon's pid to kill it with.
    static bool startBus(QString &address, qint64 &pid)
    {
        QProcess p;
        p.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--fork"),
                                                QStringLiteral("--print-address=1"), QStringLiteral("--print-pid=1")});
        if (!p.waitForFinished(10000) || p.exitCode() != 0) return false;
        const QList<QByteArray> lines = p.readAllStandardOutput().trimmed().split('\n');
        if (lines.size() < 2) return false;
        address = QString::fromUtf8(lines[0].trimmed());
        pid = lines[1].trimmed().toLongLong();
        return !address.isEmpty() && pid > 0;
    }

private slots:
    void callbackWhenTheBusCloses()
    {
        TestEnv env;
        QString address;
        qint64 pid = 0;
        if (!startBus(address, pid)) QSKIP("no dbus-daemon to start");
        QDBusConnection bus = QDBusConnection::connectToBus(address, QStringLiteral("session-end-test"));
        QVERIFY(bus.isConnected());
        bool ended = false;
        QObject context;
        NotificationBus::whenSessionEnds(&context, [&] { ended = true; }, 50, bus);
        QTest::qWait(200);
        QVERIFY(!ended); // a live bus is left alone

        // The agent on the same bus, alone (no root helper): it must quit when the bus does.
        QProcess agent;
        QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
        e.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
        agent.setProcessEnvironment(e);
        agent.start(QStringLiteral(SALVORA_AGENT));
        QVERIFY(agent.waitForStarted());
        QTest::qWait(500);
        QCOMPARE(agent.state(), QProcess::Running);

        ::kill(pid_t(pid), SIGTERM);
        QTRY_VERIFY_WITH_TIMEOUT(ended, 5000);
        QVERIFY2(agent.waitForFinished(6000), "the agent outlived its session bus");
        QDBusConnection::disconnectFromBus(QStringLiteral("session-end-test"));
    }
};

QTEST_GUILESS_MAIN(TstSessionEnd)
#include "tst_session_end.moc"
