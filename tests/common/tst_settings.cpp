#include "TestEnv.h"

#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

using namespace SettingsKeys;

// Paths of a delete list that are not UTF-8, as another process posts them.
static const QByteArrayList kOddPaths{"/c/.Salvora3Cache/2024-05-03/t/caf\xe9", "/c/x\ny"};

// The test binary doubles as the "other process": `--peer get KEY` prints the value (or
// "absent"), `--peer set KEY N` writes an integer, `--peer post NAME OBJECT` posts kOddPaths
// as a delete list and quits at once.
static int runPeer(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QByteArray verb = argv[2], key = argv[3];
    if (verb == "post") {
        const bool ok = NotificationBus::post(QString::fromUtf8(key), QString::fromUtf8(argv[4]),
                                              NotificationBus::deleteListUserInfo(kOddPaths));
        NotificationBus::flush();
        return ok ? 0 : 1;
    }
    if (verb == "set") {
        Settings::setInteger(key.constData(), QByteArray(argv[4]).toLongLong());
        return 0;
    }
    const auto v = Settings::integer(key.constData());
    printf("%s\n", v ? QByteArray::number(*v).constData() : "absent");
    return 0;
}

// The two ways our processes talk: the settings file and the notification bus.
class TstSettings : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;

    static QByteArray peer(const QByteArrayList &args)
    {
        QProcess p;
        QStringList a{QStringLiteral("--peer")};
        for (const QByteArray &arg : args)
            a << QString::fromLatin1(arg);
        p.start(QCoreApplication::applicationFilePath(), a);
        if (!p.waitForFinished(10000) || p.exitCode() != 0) return "failed";
        return p.readAllStandardOutput().trimmed();
    }

private slots:
    void init() { env = new TestEnv; }
    void cleanup() { delete env; }

    void absentIsNotZero()
    {
        QVERIFY(!Settings::integer(PrefsRemoveFromCache));
        QVERIFY(!Settings::contains(PrefsRemoveFromCache));
        Settings::setInteger(PrefsRemoveFromCache, 0);
        QCOMPARE(Settings::integer(PrefsRemoveFromCache), std::optional<qint64>(0));
        QVERIFY(Settings::contains(PrefsRemoveFromCache));
        Settings::remove(PrefsRemoveFromCache);
        QVERIFY(!Settings::integer(PrefsRemoveFromCache));
    }

    void typesSurviveTheFile()
    {
        const qint64 big = Q_INT64_C(9007199254740993); // not representable as a double
        Settings::setInteger(FirstUse, big);
        Settings::setString(PrefsExcludeName, QStringLiteral("a;b"));
        const QVariantMap disks{{QStringLiteral("12345678-9ABC"), QStringLiteral("/media/u/X")}};
        Settings::setDictionary(PrefsProtectedDisks, disks);
        const QVariantList days{QVariantMap{{QStringLiteral("size"), qint64(5)}}};
        Settings::setDictionary(
            ProtectedVolumesData,
            {{QStringLiteral("U"), QVariantMap{{QStringLiteral("days"), days}}}});

        // Read back through a fresh process-wide cache: the file is the truth.
        QCOMPARE(peer({"get", FirstUse}), QByteArray::number(big));
        QCOMPARE(Settings::integer(FirstUse), std::optional<qint64>(big));
        QCOMPARE(Settings::string(PrefsExcludeName), std::optional<QString>(QStringLiteral("a;b")));
        QCOMPARE(Settings::dictionary(PrefsProtectedDisks), std::optional<QVariantMap>(disks));
        const QVariant size = Settings::dictionary(ProtectedVolumesData)
                                  ->value(QStringLiteral("U"))
                                  .toMap()[QStringLiteral("days")]
                                  .toList()[0]
                                  .toMap()[QStringLiteral("size")];
        QCOMPARE(size.typeId(), int(QMetaType::LongLong));
        // A string is not an integer, and an integer is not a string.
        QVERIFY(!Settings::string(FirstUse));
        QVERIFY(!Settings::dictionary(PrefsExcludeName));
    }

    void twoProcessesSeeEachOther()
    {
        QCOMPARE(peer({"get", PrefsProtectionEnabled}), "absent");
        QCOMPARE(peer({"set", PrefsProtectionEnabled, "0"}), "");
        // Zero written elsewhere reads as zero here, not as absent.
        QCOMPARE(Settings::integer(PrefsProtectionEnabled), std::optional<qint64>(0));
        Settings::setInteger(PrefsProtectionEnabled, 1);
        QCOMPARE(peer({"get", PrefsProtectionEnabled}), "1");
        // Writes of different keys from two processes merge instead of overwriting each other.
        QCOMPARE(peer({"set", PrefsLaunchMenu, "7"}), "");
        Settings::setInteger(PrefsRemoveFromCache, 30);
        QCOMPARE(peer({"get", PrefsLaunchMenu}), "7");
        QCOMPARE(peer({"get", PrefsRemoveFromCache}), "30");
        QCOMPARE(Settings::integer(PrefsLaunchMenu), std::optional<qint64>(7));
    }

    void integerReadings_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<std::optional<qint64>>("expected");
        QTest::newRow("number") << QVariant(qint64(14)) << std::optional<qint64>(14);
        QTest::newRow("bool") << QVariant(true) << std::optional<qint64>(1);
        QTest::newRow("double") << QVariant(2.9) << std::optional<qint64>(2);
        QTest::newRow("numeric text") << QVariant(" 30 ") << std::optional<qint64>(30);
        QTest::newRow("text") << QVariant("never") << std::optional<qint64>();
        QTest::newRow("dictionary") << QVariant(QVariantMap()) << std::optional<qint64>();
    }
    void integerReadings()
    {
        QFETCH(QVariant, stored);
        QFETCH(std::optional<qint64>, expected);
        QCOMPARE(Settings::toInteger(stored), expected);
    }

    void corruptFileReadsAsEmpty()
    {
        Settings::setInteger(PrefsLaunchMenu, 1);
        const QByteArray file = QFile::encodeName(Settings::fileName());
        TestEnv::writeFile(file, "{ not json");
        QVERIFY(!Settings::integer(PrefsLaunchMenu));
        // Neither waited on nor followed: a FIFO or a link at the settings' name reads as no
        // settings, and the next save writes a regular file in its place.
        const QByteArray victim = env->homeBytes() + "/victim";
        QVERIFY(TestEnv::writeFile(victim, "{\"PrefsLaunchMenu\": 7}"));
        for (const bool fifo : {true, false}) {
            QVERIFY(unlink(file.constData()) == 0);
            QVERIFY(fifo ? mkfifo(file.constData(), 0600) == 0
                         : symlink(victim.constData(), file.constData()) == 0);
            QVERIFY(!Settings::integer(PrefsLaunchMenu));
            Settings::setInteger(PrefsLaunchMenu, 2);
            QCOMPARE(Settings::integer(PrefsLaunchMenu), std::optional<qint64>(2));
            QCOMPARE(TestEnv::readFile(victim), QByteArray("{\"PrefsLaunchMenu\": 7}"));
        }
    }

    // Another process's post reaches an observer of its name with the delete list byte for byte;
    // other names never do, nor anything after observing stops; the object may be empty.
    void busCarriesNamesAndDeleteLists()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        using namespace Notifications;
        NotificationBus bus;
        QVERIFY(bus.observe(QLatin1String(Salvora3DaemonNotification)));
        QVERIFY(bus.observe(QLatin1String(Salvora3Notification)));
        QSignalSpy spy(&bus, &NotificationBus::received);
        QCOMPARE(peer({"post", Salvora3DaemonNotification, Salvora3DaemonMustDelete}), "");
        QTRY_COMPARE(spy.size(), 1);
        QCOMPARE(spy[0][0].toString(), QLatin1String(Salvora3DaemonNotification));
        QCOMPARE(spy[0][1].toString(), QLatin1String(Salvora3DaemonMustDelete));
        QCOMPARE(NotificationBus::deleteListFrom(spy[0][2].toMap()), kOddPaths);

        QVERIFY(NotificationBus::post(QLatin1String(Salvora3MenuNotification),
                                      QLatin1String(Salvora3GetStatus)));
        QVERIFY(NotificationBus::post(QLatin1String(Salvora3Notification), QString()));
        QTRY_COMPARE(spy.size(), 2);
        QCOMPARE(spy[1][1].toString(), QString());
        QVERIFY(spy[1][2].toMap().isEmpty());
        bus.stopObserving(QLatin1String(Salvora3Notification));
        QVERIFY(NotificationBus::post(QLatin1String(Salvora3Notification),
                                      QLatin1String(Salvora3CacheModified)));
        QTest::qWait(100);
        QCOMPARE(spy.size(), 2); // neither the companion's nor the unobserved one reached us
    }
};

int main(int argc, char **argv)
{
    if (argc >= 4 && std::strcmp(argv[1], "--peer") == 0) return runPeer(argc, argv);
    QCoreApplication app(argc, argv);
    TstSettings t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_settings.moc"
