#include "DaemonHarness.h"

#include "cache/SpaceGuard.h"
#include "common/Log.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QDate>
#include <QTest>

#include <sys/statvfs.h>
#include <unistd.h>

using namespace Harness;

// The agent's space guard on a real, small volume (a 16 MB ext4 image, loop-mounted in a private
// mount namespace): when kept items leave too little free space, the oldest days go, today's
// never does.
class TstDaemonSpaceGuard : public QObject
{
    Q_OBJECT
    Session *s = nullptr;
    QTemporaryDir images;
    const QString uuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-0123456789AD");
    const QByteArray mount = "/mnt/sv3 guard";
    const QByteArray cache = mount + "/.Salvora3Cache/" + QByteArray::number(getuid());

    static QByteArray day(int offset)
    {
        return QDate::currentDate().addDays(offset).toString(Qt::ISODate).toLatin1();
    }
    qint64 available() const
    {
        struct statvfs v{};
        return ::statvfs(mount.constData(), &v) == 0 ? qint64(v.f_bavail) * qint64(v.f_frsize) : -1;
    }
    qint64 total() const
    {
        struct statvfs v{};
        return ::statvfs(mount.constData(), &v) == 0 ? qint64(v.f_blocks) * qint64(v.f_frsize) : -1;
    }

private slots:
    void initTestCase()
    {
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        s = new Session;
        QVERIFY(run(QStringLiteral("mount"), {"-t", "tmpfs", "sv3test", "/mnt"}));
        QVERIFY(TestEnv::mountExt4Image(images.filePath(QStringLiteral("vol.img")), uuid,
                                        str(mount), 16));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, {{uuid, str(mount)}});
        // Half of the volume wanted free.
        Settings::setInteger(SettingsKeys::PrefsKeepFreePercent, 50);
        Settings::setInteger(SettingsKeys::PrefsKeepFreeBytes, 1'000'000'000);
        QVERIFY2(s->daemon.start(), s->daemon.output().constData());
        QTRY_VERIFY_WITH_TIMEOUT(TestEnv::exists(cache), 10000);
    }

    void cleanupTestCase()
    {
        const bool clean = !s || s->daemon.stop();
        delete s;
        QVERIFY(clean);
    }

    void oldestDaysGoTodayStays()
    {
        const qint64 mb = 1 << 20;
        const qint64 wanted = total() / 2;
        // Today's item leaves a megabyte less than wanted; two older days take two more.
        const qint64 todays = available() - wanted + mb;
        QVERIFY(todays > 0);
        QVERIFY(TestEnv::writeFile(cache + '/' + day(0) + '/' + day(0) + " 09_00_00/big.bin",
                                   QByteArray(todays, 't')));
        for (int d : {-9, -2}) {
            const QByteArray time = day(d) + " 10_00_00";
            QVERIFY(TestEnv::writeFile(cache + '/' + day(d) + '/' + time + "/old.bin",
                                       QByteArray(mb, 'o')));
            QVERIFY(TestEnv::writeOrigin(cache, day(d), time, "old.bin", mount + "/old.bin"));
        }
        QVERIFY(available() < wanted);
        // As `salvora rm` tells of what it kept.
        NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                              QLatin1String(Notifications::Salvora3DataMovedToCache));

        QTRY_VERIFY_WITH_TIMEOUT(!TestEnv::exists(cache + '/' + day(-2)), 10000);
        QVERIFY(!TestEnv::exists(cache + '/' + day(-9)));
        QVERIFY(!TestEnv::exists(cache + "/.origins/" + day(-9) + ".jsonl"));
        QVERIFY(TestEnv::exists(cache + '/' + day(0) + '/' + day(0) + " 09_00_00/big.bin"));
        QVERIFY(available() < wanted);
        QTRY_VERIFY_WITH_TIMEOUT(s->heard(Notifications::Salvora3CacheModified) > 0, 5000);
        QTRY_VERIFY_WITH_TIMEOUT(
            TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath()))
                .contains("no day older than today is left"),
            5000);
        const QByteArray log = TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath()));
        QCOMPARE(log.count("removed to free space on /mnt/sv3 guard"), 2);
        const auto action = SpaceGuard::lastAction();
        QVERIFY(action);
        QCOMPARE(action->volume, mount);
        QCOMPARE(action->days, 2);
        QCOMPARE(action->wantedFree, wanted);
        // The agent's status says so too.
        NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                              QLatin1String(Notifications::Salvora3GetStatus));
        QTRY_VERIFY2_WITH_TIMEOUT(
            TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath()))
                .contains("last days removed for space: 2 day(s) on /mnt/sv3 guard at "),
            TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath())).left(3000).constData(),
            5000);
    }
};

QTEST_GUILESS_MAIN(TstDaemonSpaceGuard)
#include "tst_daemon_spaceguard.moc"
