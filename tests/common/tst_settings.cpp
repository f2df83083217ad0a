#include "TestEnv.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

// The test binary doubles as the "other process": `tst_settings --peer get KEY` prints the value
// (or "absent"), `--peer set KEY N` writes an integer.
static int runPeer(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList a = app.arguments();
    const QByteArray key = a.value(3).toLatin1();
    if (a.value(2) == QLatin1String("set")) {
        Settings::setInteger(key.constData(), a.value(4).toLongLong());
        return 0;
    }
    const auto v = Settings::integer(key.constData());
    printf("%s\n", v ? QByteArray::number(*v).constData() : "absent");
    return 0;
}

class TstSettings : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;

    QString peer(const QStringList &args)
    {
        QProcess p;
        p.start(QCoreApplication::applicationFilePath(), QStringList{QStringLiteral("--peer")} + args);
        if (!p.waitForFinished(10000))
            return QStringLiteral("timeout");
        return QString::fromLatin1(p.readAllStandardOutput()).trimmed();
    }

private slots:
    void init() { env = new TestEnv; }
    void cleanup() { delete env; }

    void absentIsNotZero()
    {
        QVERIFY(!Settings::integer(SettingsKeys::PrefsRemoveFromCache));
        QVERIFY(!Settings::contains(SettingsKeys::PrefsRemoveFromCache));
        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 0);
        QCOMPARE(Settings::integer(SettingsKeys::PrefsRemoveFromCache), std::optional<qint64>(0));
        Settings::remove(SettingsKeys::PrefsRemoveFromCache);
        QVERIFY(!Settings::integer(SettingsKeys::PrefsRemoveFromCache));
    }

    void typesSurviveTheFile()
    {
        const qint64 big = Q_INT64_C(9007199254740993); // not representable as a double
        Settings::setInteger(SettingsKeys::FirstUse, big);
        Settings::setString(SettingsKeys::PrefsExcludeName, QStringLiteral("a;b"));
        const QVariantMap disks{{QStringLiteral("12345678-9ABC-DEF0-1234-56789ABCDEF0"), QStringLiteral("/media/u/X")}};
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, disks);
        const QVariantMap snapshot{{QStringLiteral("U"), QVariantMap{{QStringLiteral("path"), QStringLiteral("/mnt/x")},
                                                                     {QStringLiteral("days"), QVariantList{QVariantMap{
                                                                          {QStringLiteral("size"), qint64(5)}}}}}}};
        Settings::setDictionary(SettingsKeys::ProtectedVolumesData, snapshot);

        // Read back through a fresh process-wide cache: the file is the truth.
        QCOMPARE(peer({QStringLiteral("get"), QString::fromLatin1(SettingsKeys::FirstUse)}), QString::number(big));
        QCOMPARE(Settings::integer(SettingsKeys::FirstUse), std::optional<qint64>(big));
        QCOMPARE(Settings::string(SettingsKeys::PrefsExcludeName), std::optional<QString>(QStringLiteral("a;b")));
        QCOMPARE(Settings::dictionary(SettingsKeys::PrefsProtectedDisks), std::optional<QVariantMap>(disks));
        const QVariant size = Settings::dictionary(SettingsKeys::ProtectedVolumesData)
                                  ->value(QStringLiteral("U")).toMap().value(QStringLiteral("days")).toList()
                                  .value(0).toMap().value(QStringLiteral("size"));
        QCOMPARE(size.typeId(), int(QMetaType::LongLong));
        // A string is not an integer, and an integer is not a string.
        QVERIFY(!Settings::string(SettingsKeys::FirstUse));
        QVERIFY(!Settings::dictionary(SettingsKeys::PrefsExcludeName));
    }

    void twoProcessesSeeEachOther()
    {
        const QString key = QString::fromLatin1(SettingsKeys::PrefsProtectionEnabled);
        QCOMPARE(peer({QStringLiteral("get"), key}), QStringLiteral("absent"));
        QCOMPARE(peer({QStringLiteral("set"), key, QStringLiteral("0")}), QString());
        // Zero written elsewhere reads as zero here, not as absent.
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(0));

        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        QCOMPARE(peer({QStringLiteral("get"), key}), QStringLiteral("1"));

        // Writes of different keys from two processes merge instead of overwriting each other.
        QCOMPARE(peer({QStringLiteral("set"), QString::fromLatin1(SettingsKeys::PrefsLaunchMenu), QStringLiteral("7")}),
                 QString());
        Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 30);
        QCOMPARE(peer({QStringLiteral("get"), QString::fromLatin1(SettingsKeys::PrefsLaunchMenu)}), QStringLiteral("7"));
        QCOMPARE(peer({QStringLiteral("get"), QString::fromLatin1(SettingsKeys::PrefsRemoveFromCache)}),
                 QStringLiteral("30"));
        QCOMPARE(Settings::integer(SettingsKeys::PrefsLaunchMenu), std::optional<qint64>(7));
    }

    void integerReadings_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<bool>("present");
        QTest::addColumn<qint64>("expected");
        QTest::newRow("number") << QVariant(qint64(14)) << true << qint64(14);
        QTest::newRow("bool") << QVariant(true) << true << qint64(1);
        QTest::newRow("double") << QVariant(2.9) << true << qint64(2);
        QTest::newRow("numeric text") << QVariant(QStringLiteral(" 30 ")) << true << qint64(30);
        QTest::newRow("text") << QVariant(QStringLiteral("never")) << false << qint64(0);
        QTest::newRow("dictionary") << QVariant(QVariantMap()) << false << qint64(0);
    }
    void integerReadings()
    {
        QFETCH(QVariant, stored);
        QFETCH(bool, present);
        QFETCH(qint64, expected);
        const auto v = Settings::toInteger(stored);
        QCOMPARE(v.has_value(), present);
        if (present)
            QCOMPARE(*v, expected);
    }

    void corruptFileReadsAsEmpty()
    {
        Settings::setInteger(SettingsKeys::PrefsLaunchMenu, 1);
        TestEnv::writeFile(QFile::encodeName(Settings::fileName()), "{ not json");
        QVERIFY(!Settings::integer(SettingsKeys::PrefsLaunchMenu));
        // Neither waited on nor followed: a FIFO or a link at the settings' name reads as no
        // settings, and the next save writes a regular file in its place.
        const QByteArray file = QFile::encodeName(Settings::fileName());
        const QByteArray victim = env->homeBytes() + "/victim";
        QVERIFY(TestEnv::writeFile(victim, "{\"PrefsLaunchMenu\": 7}"));
        for (const bool fifo : {true, false}) {
            QVERIFY(unlink(file.constData()) == 0);
            QVERIFY(fifo ? mkfifo(file.constData(), 0600) == 0
                         : symlink(victim.constData(), file.constData()) == 0);
            QVERIFY(!Settings::integer(SettingsKeys::PrefsLaunchMenu));
            Settings::setInteger(SettingsKeys::PrefsLaunchMenu, 2);
            QCOMPARE(Settings::integer(SettingsKeys::PrefsLaunchMenu), std::optional<qint64>(2));
            QCOMPARE(TestEnv::readFile(victim), QByteArray("{\"PrefsLaunchMenu\": 7}"));
        }
    }
};

int main(int argc, char **argv)
{
    if (argc >= 4 && std::strcmp(argv[1], "--peer") == 0)
        return runPeer(argc, argv);
    QCoreApplication app(argc, argv);
    TstSettings t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_settings.moc"
