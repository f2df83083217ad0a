#include "TestEnv.h"

#include "common/Jobs.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/Losses.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/SizeText.h"
#include "common/Texts.h"
#include "volumes/Volumes.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <cstring>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

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

// How our processes talk (the settings file, the notification bus) and what they leave in the
// user's support folder (the log; the record of items that could not be kept, with the watch that
// the window and the companion follow); size and count texts.
class TstCommon : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    const QDateTime base{QDate(2024, 5, 3), QTime(14, 7, 55)};

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
    static QByteArray logPath() { return QFile::encodeName(CommonUtils::logFilePath()); }
    static QByteArray lines(int n, int width)
    {
        QByteArray s;
        for (int i = 0; i < n; ++i)
            s += QByteArray(width - 1, char('a' + i % 26)) + '\n';
        return s;
    }
    // Not UTF-8 and with a line feed: kept as bytes, not as their display.
    static QByteArray pathOf(int i) { return "/home/u/caf\xe9\nf" + QByteArray::number(i); }
    void record(int i, bool partly = false)
    {
        QVERIFY(
            Losses::record({base.addSecs(60 * i), pathOf(i), QStringLiteral("no space"), partly}));
    }

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }
    void init()
    {
#ifdef __SANITIZE_THREAD__
        // Once a peer is forked, ThreadSanitizer kills the next thread started (Qt D-Bus's, the
        // loss watch's): the peers' tests run in the other builds.
        if (QByteArray(QTest::currentTestFunction()).startsWith("peer")) QSKIP("forks a peer");
#endif
        env = new TestEnv;
    }
    void cleanup()
    {
        delete std::exchange(env, nullptr);
    }

    void peerSeesTypesAndWritesInTheFile()
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
    void peerPostCarriesNamesAndDeleteLists()
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
        bus.stopObserving(QLatin1String(Salvora3Notification));
        QVERIFY(NotificationBus::post(QLatin1String(Salvora3Notification),
                                      QLatin1String(Salvora3CacheModified)));
        QTest::qWait(100);
        QCOMPARE(spy.size(), 2); // neither the companion's nor the unobserved one reached us
    }
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

        // The entry's form and order are trimming's (composeLogContent).
        CommonUtils::addToLogFile(QStringLiteral("Salvora 3 Launched."));
        QCOMPARE(TestEnv::modeOf(logPath()), mode_t(0600));
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
            struct stat st = {};
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

    // Marking seen takes what the user was shown, never what was recorded after it.
    void markSeen_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("after");
        QTest::addColumn<int>("shown"); // -1: markSeen() without a count
        QTest::addColumn<int>("left");
        QTest::newRow("all shown") << 3 << 0 << 3 << 0;
        QTest::newRow("three recorded since") << 1 << 3 << 1 << 3;
        QTest::newRow("nothing shown") << 2 << 0 << 0 << 2;
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
        QCOMPARE(Losses::summaryText(Losses::summary()).isEmpty(), left == 0);
        record(99); // the next loss is unseen again
        QCOMPARE(Losses::unseen().size(), left + 1);
        QCOMPARE(Losses::summary().count, left + 1);
    }

    // Sizes in decimal units; counts divide millions by 1000 too, on purpose.
    void sizeAndCount_data()
    {
        QTest::addColumn<bool>("count");
        QTest::addColumn<qint64>("n");
        QTest::addColumn<QString>("text");
        const auto row = [](bool count, qint64 n, const char *text) {
            QTest::addRow("%s %lld", count ? "count" : "size", n) << count << n << text;
        };
        row(false, 99, "99");
        row(false, 100, "0.1 KB");
        row(false, 9949, "9.9 KB");
        row(false, 9999, "10.0 KB");
        row(false, 10000, "10 KB");
        row(false, 999999, "1000 KB");
        row(false, 1000000, "1.0 MB");
        row(false, 12500000, "13 MB");
        row(false, 1000000000, "1.0 GB");
        row(false, std::numeric_limits<qint64>::max(), "9223372037 GB");
        row(true, 9999, "9999");
        row(true, 10000, "10 K");
        row(true, 999999, "999 K");
        row(true, 1000000, "1000 M");
    }
    void sizeAndCount()
    {
        QFETCH(bool, count);
        QFETCH(qint64, n);
        QFETCH(QString, text);
        QCOMPARE(count ? CommonUtils::getQtyStr(n) : CommonUtils::getSizeStr(n), text);
    }

    // Jobs off the GUI thread: each index of a parallel loop once, results handed back in order on
    // the receiver's thread and dropped once it is gone.
    void parallelForCallsEachIndexOnce_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("threads");
        QTest::newRow("nothing") << 0 << 0;
        QTest::newRow("fewer items than threads") << 3 << 8;
        QTest::newRow("many items") << 5000 << 3;
    }

    void parallelForCallsEachIndexOnce()
    {
        QFETCH(int, n);
        QFETCH(int, threads);
        std::vector<std::atomic<int>> calls(std::size_t(n) + 1);
        Jobs::parallelFor(
            std::size_t(n), [&](std::size_t i) { calls[i].fetch_add(1); }, unsigned(threads));
        for (int i = 0; i < n; ++i)
            QCOMPARE(calls[std::size_t(i)].load(), 1);
        QCOMPARE(calls[std::size_t(n)].load(), 0);
    }

    void postsArriveInOrderOnTheReceiversThread()
    {
        QObject receiver;
        const auto mailbox = std::make_shared<Mailbox>(&receiver);
        QList<int> seen; // -1: run on another thread
        const auto job = Jobs::start([mailbox, &seen, &receiver] {
            for (int i = 0; i < 100; ++i)
                mailbox->post([i, &seen, &receiver] {
                    seen.append(QThread::currentThread() == receiver.thread() ? i : -1);
                });
        });
        QVERIFY(job->wait(5000));
        QTRY_COMPARE(seen.size(), 100);
        for (int i = 0; i < 100; ++i)
            QCOMPARE(seen[i], i);
    }

    void lateResultIsDropped()
    {
        auto *receiver = new QObject;
        const auto mailbox = std::make_shared<Mailbox>(receiver);
        std::atomic<int> delivered{0};
        std::atomic<bool> posted{false};
        std::mutex gate;
        std::unique_lock hold(gate);
        // One result is posted before its receiver goes (and waits in the event queue), one after.
        const auto job = Jobs::start([mailbox, &delivered, &posted, &gate] {
            mailbox->post([&delivered] { delivered.fetch_add(1); });
            posted = true;
            std::lock_guard wait(gate);
            mailbox->post([&delivered] { delivered.fetch_add(1); });
        });
        while (!posted.load()) // no event handled meanwhile
            QThread::msleep(1);
        mailbox->detach();
        delete receiver;
        hold.unlock();
        QVERIFY(job->wait(5000));
        QCoreApplication::processEvents();
        QCOMPARE(delivered.load(), 0);
    }

    // The core is shared by the daemon's agent and the command-line tool, which must run without
    // a display: it may never load Qt Gui or Widgets.
    void coreLoadsNoGuiLibraries()
    {
        (void)CommonUtils::isEligibleMountPoint(QStringLiteral("/"));
        QFile maps(QStringLiteral("/proc/self/maps"));
        QVERIFY(maps.open(QIODevice::ReadOnly));
        const QByteArray m = maps.readAll();
        QVERIFY(!m.contains("libQt6Gui"));
        QVERIFY(!m.contains("libQt6Widgets"));
    }
};

int main(int argc, char **argv)
{
    if (argc >= 4 && std::strcmp(argv[1], "--peer") == 0) return runPeer(argc, argv);
    QCoreApplication app(argc, argv);
    TstCommon t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_common.moc"
