#include "TestEnv.h"

#include "common/Locations.h"
#include "common/Log.h"

#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

class TstLog : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    const QDateTime when{QDate(2024, 5, 3), QTime(14, 7, 55)};

    static QByteArray lines(int n, int width)
    {
        QByteArray s;
        for (int i = 0; i < n; ++i)
            s += QByteArray(width - 1, char('a' + i % 26)) + '\n';
        return s;
    }

private slots:
    void init() { env = new TestEnv; }
    void cleanup() { delete env; }

    void firstEntryCreatesFolderAndFile()
    {
        // Missing parents too are private, whatever the umask: nobody else may put anything in
        // ~/.local (its bin/ is on the login shell's PATH).
        const mode_t old = umask(0);
        const QString folder = CommonUtils::pathForApplicationSupportFolder();
        umask(old);
        QCOMPARE(folder, env->home() + QStringLiteral("/.local/share/Salvora 3"));
        for (const char *made : {"/.local", "/.local/share", "/.local/share/Salvora 3"})
            QCOMPARE(TestEnv::modeOf(env->homeBytes() + made), mode_t(0700));
        QCOMPARE(CommonUtils::pathForApplicationSupportFolder(QStringLiteral("x")), folder + QStringLiteral("/x"));

        CommonUtils::addToLogFile(QStringLiteral("Salvora 3 Launched."));
        const QByteArray log = TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath()));
        QCOMPARE(TestEnv::modeOf(QFile::encodeName(CommonUtils::logFilePath())), mode_t(0600));
        QVERIFY2(QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d - Salvora 3 Launched.\\n$"))
                     .match(QString::fromLatin1(log)).hasMatch(),
                 log.constData());

        // Newest first.
        CommonUtils::addToLogFile(QStringLiteral("Salvora 3 quits."));
        const QByteArray two = TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath()));
        QVERIFY(two.indexOf("quits") < two.indexOf("Launched"));
        QCOMPARE(two.count('\n'), 2);
    }

    void trimming()
    {
        const QByteArray head = "2024-05-03 14:07:55 - new\n";
        // Exactly at the bound: kept whole.
        const QByteArray exact = lines(1000, 100);
        QCOMPARE(exact.size(), 100000);
        QCOMPARE(CommonUtils::composeLogContent(QStringLiteral("new"), &exact, when), head + exact);

        // One over: the first 25 lines go (the newest ones, deliberately).
        const QByteArray over = exact + "x";
        QCOMPARE(CommonUtils::composeLogContent(QStringLiteral("new"), &over, when), head + over.mid(25 * 100));

        // Over the bound with fewer than 25 line feeds: everything up to the last one goes.
        const QByteArray few = QByteArray(100005, 'y') + "\nz\nw";
        QCOMPARE(CommonUtils::composeLogContent(QStringLiteral("new"), &few, when), head + "w");

        // Over the bound with no line feed: kept whole.
        const QByteArray flat(150000, 'q');
        QCOMPARE(CommonUtils::composeLogContent(QStringLiteral("new"), &flat, when), head + flat);

        // A message with line feeds counts as several lines when it is trimmed later.
        const QByteArray multi = QByteArray("a\nb\nc\n") + QByteArray(100000, 'k');
        QCOMPARE(CommonUtils::composeLogContent(QStringLiteral("new"), &multi, when).mid(head.size()),
                 QByteArray(100000, 'k'));
    }

    void nonAsciiContent()
    {
        const QByteArray path = QFile::encodeName(CommonUtils::logFilePath());
        // An old log that is not ASCII is replaced by the entry and "(null)".
        QVERIFY(TestEnv::writeFile(path, "2024 - caf\xc3\xa9\n"));
        CommonUtils::addToLogFile(QStringLiteral("next"));
        QVERIFY(TestEnv::readFile(path).endsWith(" - next\n(null)"));
        // A message that is not ASCII is dropped and the file is left as it was.
        const QByteArray before = TestEnv::readFile(path);
        CommonUtils::addToLogFile(QStringLiteral("caf\u00e9"));
        QCOMPARE(TestEnv::readFile(path), before);
    }

    // What stands at the log's name is never followed nor waited on: it reads as an unreadable
    // log and a regular file takes its place.
    void plantedLog_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::newRow("link to another file") << QByteArray("link");
        QTest::newRow("fifo") << QByteArray("fifo");
    }
    void plantedLog()
    {
        QFETCH(QByteArray, kind);
        const QByteArray path = QFile::encodeName(CommonUtils::logFilePath());
        const QByteArray victim = env->homeBytes() + "/victim.txt";
        QVERIFY(TestEnv::writeFile(victim, "precious"));
        QVERIFY(kind == "link" ? symlink(victim.constData(), path.constData()) == 0
                               : mkfifo(path.constData(), 0600) == 0);
        CommonUtils::addToLogFile(QStringLiteral("entry"));
        QCOMPARE(TestEnv::readFile(victim), QByteArray("precious"));
        struct stat st{};
        QVERIFY(lstat(path.constData(), &st) == 0 && S_ISREG(st.st_mode));
        QVERIFY(TestEnv::readFile(path).endsWith(" - entry\n(null)"));
    }

    void siblingProgramLookups()
    {
        QTemporaryDir dir;
        const QString root = dir.path();
        for (const char *f : {"/usr/bin/salvora3", "/usr/bin/salvora3-menu", "/usr/libexec/salvora3/sv3daemon",
                              "/usr/libexec/salvora3/adminlauncher", "/build/bin/sv3daemon", "/build/bin/salvora3-menu"})
            QVERIFY(TestEnv::writeFile(QFile::encodeName(root + QLatin1String(f)), "#"));
        const QString installed = root + QStringLiteral("/usr/bin/salvora3");
        QCOMPARE(CommonUtils::daemonAppPathFor(installed), root + QStringLiteral("/usr/libexec/salvora3/sv3daemon"));
        QCOMPARE(CommonUtils::menuAppPathFor(installed), root + QStringLiteral("/usr/bin/salvora3-menu"));
        QCOMPARE(CommonUtils::mainAppPathFor(installed), installed);
        // The daemon finds the window back from libexec.
        QCOMPARE(CommonUtils::mainAppPathFor(root + QStringLiteral("/usr/libexec/salvora3/sv3daemon")), installed);
        QCOMPARE(CommonUtils::launcherAppPathFor(installed),
                 root + QStringLiteral("/usr/libexec/salvora3/adminlauncher"));

        // Build tree: siblings in one folder.
        const QString built = root + QStringLiteral("/build/bin/salvora");
        QCOMPARE(CommonUtils::daemonAppPathFor(built), root + QStringLiteral("/build/bin/sv3daemon"));
        QCOMPARE(CommonUtils::menuAppPathFor(built), root + QStringLiteral("/build/bin/salvora3-menu"));
        QCOMPARE(CommonUtils::launcherAppPathFor(built), QString());
        QCOMPARE(CommonUtils::mainAppPathFor(built), root + QStringLiteral("/build/bin/salvora3"));
    }
};

QTEST_GUILESS_MAIN(TstLog)
#include "tst_log.moc"
