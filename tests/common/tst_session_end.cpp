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

    // The window quits on SIGTERM (a session ending) and SIGINT as when its last window closes:
    // at once, with status 0, and saying so in the log.
    void windowQuitsOnSignals_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << int(SIGTERM);
        QTest::newRow("SIGINT") << int(SIGINT);
    }
    void windowQuitsOnSignals()
    {
        QFETCH(int, signal);
        TestEnv env;
        QString address;
        qint64 busPid = 0;
        if (!startBus(address, busPid)) QSKIP("no dbus-daemon to start");
        QProcess window;
        QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
        e.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
        e.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        window.setProcessEnvironment(e);
        window.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        window.start(QStringLiteral(SALVORA_WINDOW));
        QVERIFY(window.waitForStarted());
        const QByteArray log = env.homeBytes() + "/.local/share/Salvora 3/Salvora 3 Log.txt";
        // Up and running: launched, or asking for its privileges (a build that has none).
        QTest::qWait(1500);
        QCOMPARE(window.state(), QProcess::Running);
        ::kill(pid_t(window.processId()), signal);
        const bool ended = window.waitForFinished(10000);
        ::kill(pid_t(busPid), SIGTERM);
        QVERIFY2(ended, "the window outlived the signal");
        QCOMPARE(window.exitStatus(), QProcess::NormalExit);
        QCOMPARE(window.exitCode(), 0);
        if (TestEnv::readFile(log).contains("Salvora 3 Launched."))
            QVERIFY(TestEnv::readFile(log).contains("Salvora 3 quits."));
    }
};

QTEST_GUILESS_MAIN(TstSessionEnd)
#include "tst_session_end.moc"
