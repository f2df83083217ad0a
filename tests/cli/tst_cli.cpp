#include "TestEnv.h"

#include "cli/CliIo.h"
#include "common/Losses.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"

#include <QDate>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <vector>

extern char **environ;

struct Run
{
    int status = -1;
    QByteArray out, err;
};

// Runs the built `salvora` against caches made in a temporary home.
class TstCli : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    // The cache; an item with a name that is not UTF-8 and holds a line feed; an item whose name
    // another one shares; a folder to restore into.
    QByteArray cache, odd, zeta, out;

    // Spawned by hand: arguments are bytes, which QProcess cannot pass when they are not UTF-8.
    Run salvora(const QList<QByteArray> &args, const QByteArray &input = QByteArray())
    {
        const QByteArray dir = env->homeBytes() + "/.run";
        TestEnv::writeFile(dir + "/in", input);
        const QByteArray program = qgetenv("SALVORA_BIN_DIR") + "/salvora";
        std::vector<char *> argv{const_cast<char *>(program.constData())};
        for (const QByteArray &a : args)
            argv.push_back(const_cast<char *>(a.constData()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_addopen(&fa, 0, dir + "/in", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&fa, 1, dir + "/out", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&fa, 2, dir + "/err", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        pid_t pid = 0;
        Run r;
        if (posix_spawn(&pid, program.constData(), &fa, nullptr, argv.data(), environ) == 0) {
            int status = 0;
            waitpid(pid, &status, 0);
            r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        posix_spawn_file_actions_destroy(&fa);
        r.out = TestEnv::readFile(dir + "/out");
        r.err = TestEnv::readFile(dir + "/err");
        return r;
    }

    void file(const QByteArray &rel, const QByteArray &content = "x")
    {
        QVERIFY(TestEnv::writeFile(cache + '/' + rel, content));
    }
    static QJsonValue json(const Run &r, const char *key)
    {
        return QJsonDocument::fromJson(r.out).object().value(QLatin1String(key));
    }

private slots:
    void init()
    {
        env = new TestEnv;
        cache = env->homeBytes() + "/.Salvora3Cache";
        odd = cache + "/2024-05-03/2024-05-03 08_00_00/caf\xe9 report\n2.txt";
        zeta = cache + "/2024-05-03/2024-05-03 11_30_00/zeta.txt";
        out = env->homeBytes() + "/restored";
        file("2024-05-01/2024-05-01 09_00_00/Annual report.pdf", QByteArray(1500, 'a'));
        file("2024-05-01/2024-05-01 09_00_00/rep_ort.txt");
        QVERIFY(TestEnv::writeFile(odd, "latin-1 name with a line feed"));
        file("2024-05-03/2024-05-03 08_00_00/tree/inner.txt", "inner");
        QVERIFY(TestEnv::writeFile(zeta, "x") && TestEnv::makeFolders(out));
    }
    void cleanup() { delete env; }

    void listings()
    {
        Run r = salvora({"volumes"});
        QVERIFY(r.out.startsWith("0\t/\t"));

        r = salvora({"days"});
        const QList<QByteArray> lines = r.out.split('\n');
        QVERIFY(lines[0].startsWith("2024-05-01\t"));
        QVERIFY(lines[1].startsWith("2024-05-03\t"));
        QVERIFY(lines[3].contains("5 files"));

        const QJsonArray days = json(salvora({"days", "--json"}), "days").toArray();
        QCOMPARE(days[0].toObject().value("count").toInt(), 2);

        r = salvora({"ls", "-s", "RePoRt"});
        QCOMPARE(r.out.count('\n'), 2);
        QVERIFY(r.out.startsWith("Annual report.pdf\t1.5 KB\t")); // no header but on a terminal
        QVERIFY(
            salvora({"ls", "-s", "annual", "--no-sizes"}).out.startsWith("Annual report.pdf\t\t"));

        r = salvora({"ls", "--sort", "time", "-r"});
        QVERIFY(r.out.startsWith("zeta.txt\t"));
        r = salvora({"ls", "-t", "2024-05-03 08_00_00"});
        QCOMPARE(r.out.count('\n'), 2);
        QVERIFY(r.out.contains("tree\t\t")); // folders have no size text

        QCOMPARE(json(salvora({"size", cache + "/2024-05-03", "--json"}), "files").toInt(), 3);
        // JSON keeps every byte of a name, and stays plain JSON.
        r = salvora({"ls", "--json", "-s", "caf"});
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.contains("\"caf\\udce9 report\\n2.txt\""));
        QVERIFY(r.out.contains(CliIo::jsonString(odd)));
        QCOMPARE(CliIo::decodeSurrogateEscapes(QStringLiteral("caf\xdce9 \u00e9")),
                 QByteArray("caf\xe9 \xc3\xa9"));
        QJsonParseError error{};
        QJsonDocument::fromJson(r.out, &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
    }

    void removal()
    {
        const QByteArray &item = zeta;
        // Without --yes and with nothing to read an answer from: refuse.
        Run r = salvora({"remove", item});
        QCOMPARE(r.status, 1);
        QVERIFY(TestEnv::exists(item));
        r = salvora({"remove", item}, "n\n");
        QVERIFY(TestEnv::exists(item));

        NotificationBus bus;
        const bool haveBus = bus.observe(QLatin1String(Notifications::Salvora3DaemonNotification));
        QSignalSpy spy(&bus, &NotificationBus::received);
        r = salvora({"remove", item}, "y\n");
        QCOMPARE(r.status, 0);
        QVERIFY(!TestEnv::exists(item));
        QVERIFY(!TestEnv::exists(item.left(item.lastIndexOf('/')))); // emptied time folder goes
        if (haveBus) {
            QTRY_COMPARE(spy.size(), 1);
            QCOMPARE(NotificationBus::deleteListFrom(spy[0][2].toMap()), QByteArrayList{item});
        }

        // Not a cache item: refused, whatever the answer.
        r = salvora({"remove", "--yes", env->homeBytes() + "/.run"});
        QCOMPARE(r.status, 1);
        QVERIFY(TestEnv::exists(env->homeBytes() + "/.run"));

        r = salvora({"remove", "--yes", "--day", "2024-05-01"});
        QCOMPARE(r.status, 0);
        QVERIFY(!TestEnv::exists(cache + "/2024-05-01"));
        r = salvora({"remove", "--yes", "--day", "2024-05-01"});
        QCOMPARE(r.status, 1);
    }

    void rmKeepsWhatItDeletes()
    {
        const QByteArray docs = env->homeBytes() + "/docs";
        QVERIFY(TestEnv::writeFile(docs + "/tree/sub/deep\xff.txt", "deep"));
        QVERIFY(TestEnv::writeFile(docs + "/note.txt", "note"));
        const Run r =
            salvora({"rm", "--json", docs + "/tree", docs + "/note.txt", docs + "/missing"});
        QCOMPARE(r.status, 1); // one of three failed
        QVERIFY(r.err.contains("missing"));
        QVERIFY(!TestEnv::exists(docs + "/tree"));
        const QJsonArray results = QJsonDocument::fromJson(r.out).array();
        QCOMPARE(results.size(), 3);
        const QString cached = results[0].toObject().value("cachedPath").toString();
        const QString today = QDate::currentDate().toString(QStringLiteral("yyyy-MM-dd"));
        const QByteArray timeFolder = QFile::encodeName(cached.section('/', 0, -2));
        QCOMPARE(TestEnv::readFile(timeFolder + "/tree/sub/deep\xff.txt"), QByteArray("deep"));

        // Back where it came from: it leaves the cache.
        Run back = salvora({"restore", "--to-original", timeFolder + "/note.txt"});
        QCOMPARE(back.status, 0);
        QCOMPARE(TestEnv::readFile(docs + "/note.txt"), QByteArray("note"));
        QVERIFY(!TestEnv::exists(timeFolder + "/note.txt"));
        back = salvora({"restore", "--to-original", zeta});
        QCOMPARE(back.status, 1);

        // Never over what is there now: numbered with --keep-both.
        QCOMPARE(salvora({"rm", docs + "/note.txt"}).status, 0);
        QVERIFY(TestEnv::writeFile(docs + "/note.txt", "new"));
        back = salvora({"restore", "--to-original", "--keep-both", "note.txt", "-d", "today"});
        QCOMPARE(back.status, 0);
        QCOMPARE(TestEnv::readFile(docs + "/note 2.txt"), QByteArray("note"));
        QCOMPARE(TestEnv::readFile(docs + "/note.txt"), QByteArray("new"));

        // --permanently keeps nothing: the tree is gone and today's time folders are as they were.
        QVERIFY(TestEnv::writeFile(docs + "/old/sub/x\xff", "x"));
        const QStringList before =
            QDir(QFile::decodeName(cache + '/' + today.toUtf8())).entryList();
        const Run gone = salvora({"rm", "--permanently", docs + "/old/", docs + "/missing"});
        QCOMPARE(gone.status, 1);
        QVERIFY(gone.err.contains("missing: No such file"));
        QVERIFY(!TestEnv::exists(docs + "/old"));
        QCOMPARE(QDir(QFile::decodeName(cache + '/' + today.toUtf8())).entryList(), before);
    }

    // An item as `ls` prints it: a unique name, DAY/TIME/NAME, a name narrowed to a day; a
    // shared name lists the candidates. 0 only when all was restored, 3 when something was skipped.
    void restoreByListedName_data()
    {
        QTest::addColumn<QByteArrayList>("args");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("restored"); // a name in the destination, or nothing
        const auto row = [](const char *name, QByteArrayList args, int status,
                            const char *restored = "") {
            QTest::newRow(name) << args << status << QByteArray(restored);
        };
        row("unique name", {"rep_ort.txt"}, 0, "rep_ort.txt");
        row("shared name", {"zeta.txt"}, 1);
        row("narrowed to a day", {"zeta.txt", "-d", "2024-05-03"}, 0, "zeta.txt");
        row("day/time/name", {"2024-05-01/2024-05-01 09_00_00/zeta.txt"}, 0, "zeta.txt");
        row("no such item", {"nothing.txt"}, 1);
        row("one of two skipped", {"Annual report.pdf", "rep_ort.txt"}, 3, "rep_ort.txt");
    }
    void restoreByListedName()
    {
        QFETCH(QByteArrayList, args);
        QFETCH(int, status);
        QFETCH(QByteArray, restored);
        file("2024-05-01/2024-05-01 09_00_00/zeta.txt", "older zeta");
        QVERIFY(TestEnv::writeFile(out + "/Annual report.pdf", "mine"));
        const Run r = salvora(QByteArrayList{"restore"} + args + QByteArrayList{"--to", out});
        QCOMPARE(r.status, status);
        if (!restored.isEmpty()) QVERIFY(TestEnv::exists(out + '/' + restored));
        if (status == 1) QVERIFY(!TestEnv::exists(out + "/zeta.txt"));
        if (QByteArray(QTest::currentDataTag()) == "shared name") {
            // Both candidates, each as a shell reads it back.
            QVERIFY(r.err.contains("  " + cache + "/2024-05-01/2024-05-01 09_00_00/zeta.txt\n"));
            QVERIFY(r.err.contains("  " + zeta + "\n"));
        }
        QCOMPARE(TestEnv::readFile(out + "/Annual report.pdf"), QByteArray("mine"));
    }

    // A name that is not UTF-8, pasted from `ls` into a shell, names the same bytes again.
    void nonUtf8NamePastedBack()
    {
        const Run listed = salvora({"ls", "-s", "caf"});
        const QByteArray pasted = listed.out.split('\t').first();
        QCOMPARE(pasted, QByteArray("$'caf\\xe9 report\\n2.txt'"));
        const QString line = QStringLiteral("\"$SALVORA_BIN_DIR/salvora\" restore %1 --to \"$0\"");
        QVERIFY(TestEnv::runProgram(
            QStringLiteral("bash"),
            {QStringLiteral("-c"), line.arg(QString::fromLatin1(pasted)), QFile::decodeName(out)}));
        QCOMPARE(TestEnv::readFile(out + "/caf\xe9 report\n2.txt"),
                 QByteArray("latin-1 name with a line feed"));
        QCOMPARE(CliIo::shellText("it's"), QByteArray("$'it\\'s'"));
        QCOMPARE(CliIo::shellText("plain name.txt"), QByteArray("plain name.txt"));
    }

    // -d today|yesterday, and the sort by size.
    void daysByWordAndSortBySize()
    {
        const QByteArray yesterday =
            QDate::currentDate().addDays(-1).toString(QStringLiteral("yyyy-MM-dd")).toLatin1();
        file(yesterday + '/' + yesterday + " 10_00_00/late.txt", "late");
        Run r = salvora({"ls", "-d", "yesterday"});
        QVERIFY(r.out.startsWith("late.txt\t"));
        QCOMPARE(r.out.count('\n'), 1);
        QCOMPARE(salvora({"ls", "-d", "today"}).status, 1); // nothing deleted today

        r = salvora({"ls", "--sort", "size", "-d", "2024-05-01", "-d", "2024-05-03"});
        QList<QByteArray> names;
        for (const QByteArray &line : r.out.split('\n'))
            if (!line.isEmpty()) names.append(line.split('\t').first());
        QCOMPARE(names, QList<QByteArray>({"tree", "rep_ort.txt", "zeta.txt",
                                           "$'caf\\xe9 report\\n2.txt'", "Annual report.pdf"}));
        r = salvora({"ls", "--sort", "size", "-r", "-d", "2024-05-01"});
        QVERIFY(r.out.startsWith("Annual report.pdf\t"));
    }

    // Kept in part: marked by their origin record, not by their name alone.
    void incompleteItems()
    {
        const QByteArray day = "2024-05-04", time = "2024-05-04 10_00_00";
        QVERIFY(!env->keep(cache, day, time, "report.pdf", {false, 2, 300}).isEmpty());
        QVERIFY(!env->keep(cache, day, time, "notes.txt", {false, 0, 0}).isEmpty());
        QVERIFY(!env->keep(cache, day, time, "whole.txt").isEmpty());
        file(day + '/' + time + "/decoy (incomplete).txt"); // no record says so
        struct Expected
        {
            const char *name;
            bool incomplete;
            int missingFiles, missingBytes;
        };
        const Expected table[]{{"report (incomplete).pdf", true, 2, 300},
                               {"notes (incomplete).txt", true, 0, 0},
                               {"whole.txt", false, 0, 0},
                               {"decoy (incomplete).txt", false, 0, 0}};
        QHash<QString, QJsonObject> items;
        for (const QJsonValue &v : json(salvora({"ls", "--json"}), "items").toArray())
            items.insert(v.toObject().value("name").toString(), v.toObject());
        const Run plain = salvora({"ls"});
        for (const Expected &e : table) {
            const QJsonObject o = items.value(QLatin1String(e.name));
            QVERIFY(!o.isEmpty());
            QCOMPARE(o.value("incomplete").toBool(), e.incomplete);
            QCOMPARE(o.contains("missingFiles"), e.incomplete);
            QCOMPARE(o.value("missingFiles").toInt(), e.missingFiles);
            QCOMPARE(o.value("missingBytes").toInt(), e.missingBytes);
            const QByteArray line = plain.out.mid(plain.out.indexOf(QByteArray(e.name) + '\t'));
            QCOMPARE(line.left(line.indexOf('\n')).endsWith("\t(incomplete)"), e.incomplete);
        }
    }

    void statusListsLossesUntilSeen()
    {
        const QDateTime when(QDate(2026, 3, 1), QTime(9, 0));
        QVERIFY(Losses::record(
            {when, "/home/u/big.iso", QStringLiteral("no space left on the disk"), false}));
        QVERIFY(Losses::record({when.addSecs(60), "/home/u/caf\xe9",
                                QStringLiteral("kept incomplete: 1 file(s) missing"), true}));
        Run r = salvora({"status", "--json"});
        const QJsonArray notKept = json(r, "notKept").toArray();
        QCOMPARE(notKept.size(), 2);
        QCOMPARE(notKept[0].toObject().value("reason").toString(),
                 QStringLiteral("no space left on the disk"));
        QVERIFY(notKept[1].toObject().value("partly").toBool());
        QVERIFY(r.out.contains(CliIo::jsonString("/home/u/caf\xe9")));
        r = salvora({"status", "--seen"});
        QVERIFY(r.out.contains("not kept: 2 item(s) since 2026-03-01 09:00\n"));
        QVERIFY(r.out.contains("/home/u/caf\\xe9: kept incomplete")); // escaped for the terminal
        r = salvora({"status"});
        QVERIFY(!r.out.contains("not kept"));
        QVERIFY(Losses::unseen().isEmpty());
    }

    void errors()
    {
        QCOMPARE(salvora({"frobnicate"}).status, 2);
        QCOMPARE(salvora({"ls", "--sort", "size", "--no-sizes"}).status, 2);
        QCOMPARE(salvora({"restore", "x", "--to-original", "--skip", "--keep-both"}).status, 2);
        QCOMPARE(salvora({"days", "-v", "7"}).status, 1);
        // Named after the program.
        const Run bad = salvora({"restore", zeta + "-none", "--to", out});
        QCOMPARE(bad.status, 1);
        QVERIFY(bad.err.startsWith("salvora: "));
    }
};

QTEST_GUILESS_MAIN(TstCli)
#include "tst_cli.moc"
