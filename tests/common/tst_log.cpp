#include "TestEnv.h"

#include "common/Locations.h"
#include "common/Log.h"
#include "common/LossWatch.h"
#include "common/Losses.h"

#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

// What the programs leave in the user's support folder: the log, and the record of items that
// could not be kept with the watch that the window and the companion follow.
class TstLog : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    const QDateTime base{QDate(2024, 5, 3), QTime(14, 7, 55)};

    static QByteArray logPath() { return QFile::encodeName(CommonUtils::logFilePath()); }
    static QByteArray lines(int n, int width)
    {
        QByteArray s;
        for (int i = 0; i < n; ++i)
            s += QByteArray(width - 1, char('a' + i % 26)) + '\n';
        return s;
    }
    QByteArray pathOf(int i) { return "/home/u/f" + QByteArray::number(i); }
    void record(int i, bool partly = false)
    {
        QVERIFY(
            Losses::record({base.addSecs(60 * i), pathOf(i), QStringLiteral("no space"), partly}));
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
        QCOMPARE(CommonUtils::pathForApplicationSupportFolder(QStringLiteral("x")),
                 folder + QStringLiteral("/x"));

        CommonUtils::addToLogFile(QStringLiteral("Salvora 3 Launched."));
        QCOMPARE(TestEnv::modeOf(logPath()), mode_t(0600));
        QVERIFY(QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d - "
                                                  "Salvora 3 Launched.\\n$"))
                    .match(QString::fromLatin1(TestEnv::readFile(logPath())))
                    .hasMatch());
        CommonUtils::addToLogFile(QStringLiteral("Salvora 3 quits.")); // newest first
        const QByteArray two = TestEnv::readFile(logPath());
        QVERIFY(two.indexOf("quits") < two.indexOf("Launched"));
        QCOMPARE(two.count('\n'), 2);
    }

    void trimming_data()
    {
        QTest::addColumn<QByteArray>("old");
        QTest::addColumn<QByteArray>("kept"); // what follows the new entry
        const QByteArray exact = lines(1000, 100);
        QTest::newRow("exactly at the bound: whole") << exact << exact;
        // The first 25 lines go (the newest ones, deliberately).
        QTest::newRow("one over") << exact + "x" << (exact + "x").mid(25 * 100);
        QTest::newRow("fewer than 25 line feeds: up to the last")
            << QByteArray(100005, 'y') + "\nz\nw" << QByteArray("w");
        QTest::newRow("no line feed: whole") << QByteArray(150000, 'q') << QByteArray(150000, 'q');
        QTest::newRow("a message's line feeds count")
            << QByteArray("a\nb\nc\n") + QByteArray(100000, 'k') << QByteArray(100000, 'k');
    }
    void trimming()
    {
        QFETCH(QByteArray, old);
        QFETCH(QByteArray, kept);
        QCOMPARE(CommonUtils::composeLogContent(QStringLiteral("new"), &old, base),
                 "2024-05-03 14:07:55 - new\n" + kept);
    }

    void nonAsciiContent()
    {
        // An old log that is not ASCII is replaced by the entry and "(null)".
        QVERIFY(TestEnv::writeFile(logPath(), "2024 - caf\xc3\xa9\n"));
        CommonUtils::addToLogFile(QStringLiteral("next"));
        QVERIFY(TestEnv::readFile(logPath()).endsWith(" - next\n(null)"));
        // A message that is not ASCII is dropped and the file is left as it was.
        const QByteArray before = TestEnv::readFile(logPath());
        CommonUtils::addToLogFile(QStringLiteral("caf\u00e9"));
        QCOMPARE(TestEnv::readFile(logPath()), before);
    }

    // What stands at the log's name is never followed nor waited on: it reads as an unreadable
    // log and a regular file takes its place.
    void plantedLog()
    {
        const QByteArray path = logPath(), victim = env->homeBytes() + "/victim.txt";
        QVERIFY(TestEnv::writeFile(victim, "precious"));
        for (const bool fifo : {false, true}) {
            ::unlink(path.constData());
            QVERIFY(fifo ? mkfifo(path.constData(), 0600) == 0
                         : symlink(victim.constData(), path.constData()) == 0);
            CommonUtils::addToLogFile(QStringLiteral("entry"));
            QCOMPARE(TestEnv::readFile(victim), QByteArray("precious"));
            struct stat st
            {
            };
            QVERIFY(lstat(path.constData(), &st) == 0 && S_ISREG(st.st_mode));
            QVERIFY(TestEnv::readFile(path).endsWith(" - entry\n(null)"));
        }
    }

    // Installed: the daemon and launcher in libexec, found back from there; built: one folder.
    void siblingProgramLookups_data()
    {
        QTest::addColumn<QString>("own");
        QTest::addColumn<QStringList>("found"); // daemon, menu, window, launcher; "?": unchecked
        const QString u = QStringLiteral("/usr/bin/"), x = QStringLiteral("/usr/libexec/salvora3/"),
                      b = QStringLiteral("/build/bin/");
        QTest::newRow("installed") << u + "salvora3"
                                   << QStringList{x + "sv3daemon", u + "salvora3-menu",
                                                  u + "salvora3", x + "adminlauncher"};
        QTest::newRow("daemon") << x + "sv3daemon" << QStringList{"?", "?", u + "salvora3", "?"};
        QTest::newRow("build tree")
            << b + "salvora"
            << QStringList{b + "sv3daemon", b + "salvora3-menu", b + "salvora3", QString()};
    }
    void siblingProgramLookups()
    {
        QFETCH(QString, own);
        QFETCH(QStringList, found);
        QTemporaryDir dir;
        const QString root = dir.path();
        for (const char *f :
             {"/usr/bin/salvora3", "/usr/bin/salvora3-menu", "/usr/libexec/salvora3/sv3daemon",
              "/usr/libexec/salvora3/adminlauncher", "/build/bin/sv3daemon",
              "/build/bin/salvora3-menu"})
            QVERIFY(TestEnv::writeFile(QFile::encodeName(root + QLatin1String(f)), "#"));
        const QStringList got{
            CommonUtils::daemonAppPathFor(root + own), CommonUtils::menuAppPathFor(root + own),
            CommonUtils::mainAppPathFor(root + own), CommonUtils::launcherAppPathFor(root + own)};
        for (int i = 0; i < 4; ++i)
            if (found[i] != QLatin1String("?"))
                QCOMPARE(got[i], found[i].isEmpty() ? QString() : root + found[i]);
    }

    void lossRoundTrip()
    {
        QVERIFY(Losses::unseen().isEmpty());
        QCOMPARE(Losses::summary().count, 0);
        QVERIFY(Losses::summaryText(Losses::summary()).isEmpty());
        const QByteArray odd = "/home/u/caf\xe9\nreport.pdf";
        QVERIFY(Losses::record({base, odd, QStringLiteral("kept incomplete: 2 file(s)"), true}));
        const QList<Losses::Loss> all = Losses::unseen();
        QCOMPARE(all.size(), 1);
        QCOMPARE(all[0].path, odd); // bytes, not their display
        QVERIFY(all[0].partly);
        QCOMPARE(all[0].time, base);
        QVERIFY(!Losses::summaryText(Losses::summary()).isEmpty());
    }

    // Marking seen takes what the user was shown, never what was recorded after it.
    void markSeen_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("after");
        QTest::addColumn<int>("shown"); // -1: markSeen() without a count
        QTest::addColumn<int>("left");
        QTest::newRow("all shown") << 3 << 0 << 3 << 0;
        QTest::newRow("one recorded since") << 2 << 1 << 2 << 1;
        QTest::newRow("three recorded since") << 1 << 3 << 1 << 3;
        QTest::newRow("nothing shown") << 2 << 0 << 0 << 2;
        QTest::newRow("nothing there") << 0 << 0 << 0 << 0;
        QTest::newRow("markSeen() takes all") << 2 << 1 << -1 << 0;
    }
    void markSeen()
    {
        QFETCH(int, before);
        QFETCH(int, after);
        QFETCH(int, shown);
        QFETCH(int, left);
        for (int i = 0; i < before; ++i)
            record(i);
        QCOMPARE(Losses::unseen().size(), before);
        for (int i = before; i < before + after; ++i)
            record(i);
        shown < 0 ? Losses::markSeen() : Losses::markSeen(shown);
        const QList<Losses::Loss> rest = Losses::unseen();
        QCOMPARE(rest.size(), left);
        for (int i = 0; i < left; ++i)
            QCOMPARE(rest[i].path, pathOf(before + after - left + i));
        // Since the oldest that is left, whatever its place in the file.
        if (left > 0) QCOMPARE(Losses::summary().since, base.addSecs(60 * (before + after - left)));
        record(99); // the next loss is unseen again
        QCOMPARE(Losses::unseen().size(), left + 1);
        QCOMPARE(Losses::summary().count, left + 1);
    }

    // The watch learns of a loss by the file alone (the daemon announces none for a loss).
    void watchFollowsTheFile()
    {
        LossWatch watch;
        QSignalSpy changed(&watch, &LossWatch::changed);
        watch.start();
        QTRY_VERIFY(changed.size() >= 1);
        QCOMPARE(watch.summary().count, 0);
        record(0); // creates the file
        QTRY_COMPARE(watch.losses().size(), 1);
        record(1, true); // appends to it
        QTRY_COMPARE(watch.losses().size(), 2);
        QVERIFY(watch.losses()[1].partly);
        QCOMPARE(watch.summary().since, base);
        watch.markSeen();
        QCOMPARE(watch.losses().size(), 0); // at once, not after the read
        QTRY_VERIFY(Losses::unseen().isEmpty());
        record(2);
        QTRY_COMPARE(watch.losses().size(), 1);
        QCOMPARE(watch.losses()[0].path, pathOf(2));
    }
};

QTEST_GUILESS_MAIN(TstLog)
#include "tst_log.moc"
