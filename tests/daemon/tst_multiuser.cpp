#include "DaemonHarness.h"

#include "cache/CacheLayout.h"
#include "common/SettingsKeys.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Harness;

// The daemon's set-user-id half, and two real accounts on one machine, each with its own daemon
// on its own session bus, and a shared data volume whose root every account may write (0777), as
// on a family computer: the root helper keeps root only to serve its one request and refuses every
// hostile one, nothing else holds root, and everything the one account tries against what
// Salvora 3 keeps or writes for the other fails.
namespace {

const QByteArray kBin = "/mnt/bin";
const QByteArray kFake = "/mnt/fake";         // sv3daemon with the stand-in agent beside it
const QByteArray kShared = "/mnt/shared";     // ext4, root 0777
const QByteArray kRootOnly = "/mnt/rootonly"; // ext4, root 0755 root's
const QString kSharedUuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-00000000A11C");
const QString kRootOnlyUuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-00000000B0B0");
constexpr int kRaceSeconds = 30;

// The value of --NAME=VALUE on a process's command line.
QByteArray argumentOf(qint64 pid, const QByteArray &name)
{
    const QByteArray cmdline = TestEnv::readFile("/proc/" + QByteArray::number(pid) + "/cmdline");
    for (const QByteArray &arg : cmdline.split('\0'))
        if (arg.startsWith("--" + name + '=')) return arg.mid(name.size() + 3);
    return {};
}

// Whether a process has ended (gone, or a zombie whose parent has not reaped it yet).
bool gone(qint64 pid)
{
    return QTest::qWaitFor(
        [&] {
            const QByteArray state = statusLine(pid, "State");
            return state.isEmpty() || state.startsWith('Z');
        },
        10000);
}

// A path as the stand-in agent takes it.
QByteArray hex(const QByteArray &b)
{
    return b.isEmpty() ? QByteArray("-") : b.toHex();
}

// The stand-in agent (attacker.cpp): one command line in, the first word of its answer out
// (done, refused, consent or failed).
struct FakeAgent : QProcess
{
    bool ready() { return waitForStarted(5000) && ask({}) == "fakeagent"; }
    QByteArray ask(const QByteArray &command)
    {
        if (!command.isEmpty()) write(command + '\n');
        while (!canReadLine())
            if (!waitForReadyRead(10000)) return "timeout";
        const QByteArray line = readLine().trimmed();
        return line.left(line.indexOf(' '));
    }
    bool quit()
    {
        write("quit\n");
        return waitForFinished(10000);
    }
};

struct Account
{
    explicit Account(QByteArray n) : name(std::move(n)) {}
    QByteArray name;
    uid_t uid = 0;
    gid_t gid = 0;
    QByteArray home;
    std::unique_ptr<Daemon> daemon;
    qint64 agent = -1;
    qint64 helper = -1;

    // setpriv's arguments that run what follows as this account, in a clean environment.
    QStringList as() const
    {
        return QStringLiteral("--reuid=%1 --regid=%2 --clear-groups -- env -i PATH=/usr/bin:/bin "
                              "LC_ALL=C.UTF-8")
                   .arg(uid)
                   .arg(gid)
                   .split(' ')
               << QStringLiteral("HOME=") + str(home);
    }
    // Runs a program as this account; true when it exited 0.
    bool run(const QStringList &args, QByteArray *out = nullptr) const
    {
        QProcess p;
        p.setProcessChannelMode(out ? QProcess::SeparateChannels : QProcess::ForwardedChannels);
        p.start(QStringLiteral("setpriv"), as() + args);
        const bool ok =
            p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
        if (out) *out = p.readAllStandardOutput().trimmed();
        return ok;
    }
    bool sh(const QByteArray &script) const
    {
        return run({QStringLiteral("sh"), QStringLiteral("-ec"), str(script)});
    }
    QByteArray cache(const QByteArray &volume) const
    {
        return volume == "/" ? home + "/.Salvora3Cache"
                             : volume + "/.Salvora3Cache/" + QByteArray::number(uid);
    }
    QByteArray trash(const QByteArray &volume) const
    {
        return volume == "/" ? home + "/.local/share/Trash"
                             : volume + "/.Trash-" + QByteArray::number(uid);
    }
    QByteArray logFile() const { return home + "/.local/share/Salvora 3/Salvora 3 Log.txt"; }

    // The daemon as the desktop session starts it: as the account, on a bus of its own.
    bool start()
    {
        daemon = std::make_unique<Daemon>(QStringLiteral("setpriv"),
                                          as() << QStringLiteral("dbus-run-session")
                                               << QStringLiteral("--") << str(kBin + "/sv3daemon"));
        if (!daemon->start()) return false;
        QByteArray pid;
        agent = Harness::run(QStringLiteral("pgrep"),
                             {"-u", QString::number(uid), "-x", "sv3daemon-agent"}, &pid)
                    ? pid.trimmed().toLongLong()
                    : -1;
        helper = argumentOf(agent, "privileged-pid").toLongLong();
        return agent > 0 && helper > 0;
    }
    // SIGTERM to the agent; false when it did not end, and was killed.
    bool stop()
    {
        if (!daemon || !daemon->isRunning()) return true;
        ::kill(pid_t(agent), SIGTERM);
        if (daemon->process().waitForFinished(10000)) return true;
        ::kill(pid_t(agent), SIGKILL);
        daemon->process().kill();
        daemon->process().waitForFinished(5000);
        return false;
    }
    // Trashes `path` (the account's), lets the daemon shadow it and empties that trash.
    bool trashAndEmpty(const QByteArray &volume, const QByteArray &path)
    {
        const int mark = daemon->shadowsTaken();
        return run({QStringLiteral("trash-put"), str(path)}) && daemon->waitForShadows(mark + 1) &&
               run({QStringLiteral("trash-empty"),
                    QStringLiteral("--trash-dir=") + str(trash(volume))});
    }
    bool trashAndKeep(const QByteArray &volume, const QByteArray &path)
    {
        const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
        return trashAndEmpty(volume, path) &&
               QTest::qWaitFor([&] { return !kept(cache(volume), name).isEmpty(); }, 10000);
    }
};

// What is wrong with the modes below a home after Salvora 3 used it: a folder others may write
// anywhere, and in what Salvora 3 made, a folder other than 0700 or a record other than 0600.
QByteArrayList modeProblems(const Account &a)
{
    QByteArrayList problems;
    const auto home = snapshot(a.home, true);
    for (auto it = home.begin(); it != home.end(); ++it)
        if (it.value().startsWith("40") && (it.value().mid(2, 3).toInt(nullptr, 8) & 022))
            problems << a.home + '/' + it.key() + ": " + it.value();
    const auto check = [&](const QByteArray &root) {
        const auto t = snapshot(root, true);
        if (t.isEmpty()) problems << root + ": missing";
        for (auto it = t.begin(); it != t.end(); ++it) {
            const QByteArray &rel = it.key();
            const QByteArray mode = it.value().left(it.value().indexOf(' '));
            // Kept items keep their own modes, behind their 0700 folders.
            const QByteArrayList parts = rel.split('/');
            const bool item = (rel.startsWith("20") && parts.size() > 2) ||
                              (rel.startsWith(".pending/") && parts.size() > 3);
            if (item && parts.last() != "record") continue;
            const bool folder = mode.startsWith("40");
            if (mode != (folder ? "40700" : "100600"))
                problems << root + '/' + rel + ": " + it.value().left(40);
        }
    };
    check(a.home + "/.Salvora3Cache");
    check(a.home + "/.local/share/Salvora 3");
    check(a.cache(kShared));
    return problems;
}

} // namespace

class TstMultiUser : public QObject
{
    Q_OBJECT
    QTemporaryDir images;
    bool madeDevDisk = false;
    // Named for this run, so that two runs never share an account.
    Account victim{"sv3victim" + QByteArray::number(getpid())};
    Account attacker{"sv3attacker" + QByteArray::number(getpid())};
    FakeAgent stealer; // the attacker's stand-in agent, on the socket taken from its real agent
    QMap<QByteArray, QByteArray> victimCaches;
    QMap<QByteArray, QMap<QByteArray, QByteArray>> before;

    QMap<QByteArray, QByteArray> cachesOf(const Account &a) const
    {
        QMap<QByteArray, QByteArray> all;
        for (const QByteArray &v : {QByteArray("/"), kShared})
            for (auto [k, val] : snapshot(a.cache(v), true).asKeyValueRange())
                // Size records are the daemon's to rewrite whenever it likes.
                if (!k.endsWith(CommonUtils::kCacheInformationName))
                    all.insert(a.cache(v) + '/' + k, val);
        return all;
    }

    static void removeAccount(const QByteArray &name)
    {
        sh("pkill -KILL -u " + name + " 2>/dev/null || true; userdel --force " + name +
           " 2>/dev/null || true; groupdel " + name + " 2>/dev/null || true");
    }

    // Accounts of runs that were killed before their clean-up: named after a process now gone.
    static void removeStaleAccounts()
    {
        QByteArrayList stale;
        setpwent();
        while (const passwd *pw = getpwent())
            for (const QByteArray prefix : {"sv3victim", "sv3attacker"}) {
                const QByteArray name(pw->pw_name);
                bool number = false;
                const int pid = name.mid(prefix.size()).toInt(&number);
                if (name.startsWith(prefix) && number && ::kill(pid, 0) != 0 && errno == ESRCH)
                    stale << name;
            }
        endpwent();
        for (const QByteArray &name : stale)
            removeAccount(name);
    }

    bool addAccount(Account &a)
    {
        removeAccount(a.name); // left by a run that crashed
        a.home = "/mnt/home/" + a.name;
        // A home as Debian makes it: the account's, open to all for reading.
        if (!sh("useradd --no-create-home --home-dir " + a.home + " --shell /bin/sh --user-group " +
                a.name + "; install -d -m 755 -o " + a.name + " -g " + a.name + ' ' + a.home))
            return false;
        const passwd *pw = getpwnam(a.name.constData());
        if (!pw) return false;
        a.uid = pw->pw_uid;
        a.gid = pw->pw_gid;
        return true;
    }

    // The account's settings: protection on, the volumes of `disks` protected; padded with blanks
    // to `padTo` bytes.
    bool writeSettings(const Account &a, const QVariantMap &disks, qsizetype padTo = 0)
    {
        const QJsonObject o{
            {QLatin1String(SettingsKeys::PrefsProtectionEnabled), 1},
            {QLatin1String(SettingsKeys::PrefsProtectedDisks), QJsonObject::fromVariantMap(disks)}};
        const QByteArray json = QJsonDocument(o).toJson(QJsonDocument::Compact);
        return a.sh("mkdir -m 700 ~/.config ~/.config/Salvora; cd ~/.config/Salvora; echo '" +
                    json + "' > s; head -c " +
                    QByteArray::number(qMax<qsizetype>(padTo - json.size(), 0)) +
                    " /dev/zero | tr '\\0' ' ' >> s; chmod 600 s; mv s 'Salvora 3.json'");
    }

    // Folders at the volume's root that another account may rename to the cache's name: one of
    // the victim's, an empty one of a third account's as a cache would be, an empty one of
    // root's, root's drop folder open to all.
    const QByteArrayList swapTargets{"victim-dir", "other-empty", "root-empty", "root-drop",
                                     "lost+found"};
    bool makeSwapTargets()
    {
        if (TestEnv::exists(kShared + "/victim-dir")) return true;
        return victim.sh(
                   "mkdir -m 700 /mnt/shared/victim-dir; echo v > /mnt/shared/victim-dir/v") &&
               ::mkdir("/mnt/shared/other-empty", 0711) == 0 &&
               ::chown("/mnt/shared/other-empty", 65534, 65534) == 0 &&
               ::mkdir("/mnt/shared/root-empty", 0755) == 0 &&
               ::mkdir("/mnt/shared/root-drop", 0777) == 0 &&
               ::chmod("/mnt/shared/root-drop", 01777) == 0;
    }

private slots:
    void initTestCase()
    {
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        for (const char *p : {"useradd", "setpriv", "dbus-run-session", "trash-put", "mkfifo"})
            if (!haveProgram(p))
                QSKIP(qPrintable(QStringLiteral("needs %1").arg(QLatin1String(p))));
        removeStaleAccounts();
        // /mnt itself is a mount where no cache may be; /mnt/plain, one without an identity.
        QVERIFY(
            sh("mount -t tmpfs -o mode=0755 sv3multi /mnt; cd /mnt;"
               "mkdir -m 755 home bin fake plain victim; mount -t tmpfs sv3plain plain;"
               "ln -s /mnt/rootonly linkvol; echo v > victim/v.txt; mkdir victim/.Salvora3Cache;"
               "echo in a fake cache > victim/.Salvora3Cache/v.txt"));
        QVERIFY(addAccount(victim));
        QVERIFY(addAccount(attacker));
        QVERIFY(TestEnv::mountExt4Image(images.filePath(QStringLiteral("shared.img")), kSharedUuid,
                                        str(kShared), 16));
        QVERIFY(::chmod(kShared.constData(), 0777) == 0);
        QVERIFY(TestEnv::mountExt4Image(images.filePath(QStringLiteral("rootonly.img")),
                                        kRootOnlyUuid, str(kRootOnly)));
        QCOMPARE(TestEnv::modeOf(kRootOnly), mode_t(0755));
        // What udev gives a desktop: each volume by its UUID, where accounts other than root
        // learn it. Only in this mount namespace (an empty /dev/disk is made when missing).
        madeDevDisk = !TestEnv::exists("/dev/disk");
        QVERIFY(!madeDevDisk || ::mkdir("/dev/disk", 0755) == 0);
        QVERIFY(sh("mount -t tmpfs -o mode=0755 sv3disk /dev/disk; mkdir /dev/disk/by-uuid"));
        for (const auto &[uuid, mount] :
             {std::pair{kSharedUuid, kShared}, {kRootOnlyUuid, kRootOnly}})
            QVERIFY(sh("mknod -m 600 /dev/disk/by-uuid/" + uuid.toLower().toLatin1() +
                       " b $(mountpoint -d " + mount + " | tr : ' ')"));
        // Set-user-id root, as the package installs it; and a copy with the stand-in agent.
        QVERIFY(
            sh("cd \"$SALVORA_BIN_DIR\"; install -m 4755 sv3daemon /mnt/bin;"
               "install sv3daemon-agent sv3daemon-attacker /mnt/bin; install sv3daemon /mnt/fake;"
               "install sv3daemon-attacker /mnt/fake/sv3daemon-agent"));

        QVERIFY(writeSettings(victim, {{kSharedUuid, str(kShared)}}));
        // The attacker lists the root-only volume too, in a 16 MB settings file.
        QVERIFY(writeSettings(
            attacker, {{kSharedUuid, str(kShared)}, {kRootOnlyUuid, str(kRootOnly)}}, 16 << 20));
        QVERIFY2(victim.start(), victim.daemon->output().constData());
        QVERIFY2(attacker.start(), attacker.daemon->output().constData());
    }

    void cleanupTestCase()
    {
        if (stealer.state() != QProcess::NotRunning && !stealer.quit()) stealer.kill();
        victim.stop();
        attacker.stop();
        for (const Account *a : {&victim, &attacker})
            if (a->uid) removeAccount(a->name);
        if (::umount("/dev/disk") == 0 && madeDevDisk) ::rmdir("/dev/disk");
    }

    // Root's own requests, through the stand-in agent: the volume's shared folder (root's, others
    // may only pass through) and root's private folder in it; every hostile request, and what
    // stands at the shared folder's name, refused before anything is made.
    void rootsRequests()
    {
        const QByteArray cache = kRootOnly + "/.Salvora3Cache", victimDir = "/mnt/victim";
        const auto victimBefore = snapshot(victimDir, true);
        FakeAgent s;
        s.start(str(kFake + "/sv3daemon"), {});
        QVERIFY(s.ready());
        const auto create = [&](const QByteArray &mount) { return s.ask("create " + hex(mount)); };
        QCOMPARE(create(kRootOnly), QByteArray("done"));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0711));
        QCOMPARE(TestEnv::modeOf(cache + "/0"), mode_t(0700));
        QCOMPARE(create(kRootOnly), QByteArray("done")); // already there
        // Not a mount point, a link to one, one without identity (never protected), one where no
        // cache lives, paths not in plain form, inside a mount but not its root, nothing.
        const QByteArrayList hostile =
            QByteArray("/ /mnt/home /mnt/linkvol /mnt/plain /mnt /mnt/rootonly/ "
                       "/mnt/rootonly/../rootonly mnt/rootonly /mnt/rootonly/.Salvora3Cache")
                .split(' ');
        for (const QByteArray &m : hostile + QByteArrayList{QByteArray()})
            QVERIFY2(create(m) == "refused", m.constData());
        QVERIFY(!TestEnv::exists("/mnt/plain/.Salvora3Cache") &&
                !TestEnv::exists("/mnt/.Salvora3Cache"));
        // The volume mounted again where volumes are not, and hidden by a mount without identity.
        const QByteArray elsewhere = QFile::encodeName(images.path()) + "/elsewhere";
        QVERIFY(sh("mkdir " + elsewhere + "; mount --bind /mnt/rootonly " + elsewhere +
                   "; mount -t tmpfs -o mode=0755 sv3over /mnt/rootonly"));
        QCOMPARE(create(elsewhere), QByteArray("refused"));
        QCOMPARE(create(kRootOnly), QByteArray("refused"));
        QVERIFY(sh("umount /mnt/rootonly " + elsewhere));
        // A mount point whose name ends in a blank, which the mount table escapes.
        QVERIFY(sh("mkdir '/mnt/blank '; mount --bind /mnt/rootonly '/mnt/blank '"));
        QCOMPARE(create("/mnt/blank "), QByteArray("done"));
        QVERIFY(sh("umount '/mnt/blank '"));

        // Removal requests of earlier versions and malformed datagrams are refused, and the
        // helper goes on serving.
        QVERIFY(TestEnv::writeFile(cache + "/0/2024-01-01/t/item.txt", "x"));
        QCOMPARE(s.ask("remove " + hex(cache + "/0") + ' ' + hex("2024-01-01")),
                 QByteArray("refused"));
        QVERIFY(TestEnv::exists(cache + "/0/2024-01-01/t/item.txt"));
        // The last: a good request with one byte more.
        for (const QByteArray &raw :
             {QByteArray("garbage"), QByteArray("S\x01\x09\x00\x00\x00\x00", 7),
              QByteArray("S\x01\x01\x05\x00/mnt\x00\x00\x00", 10), QByteArray(9000, 'S'),
              QByteArray("S\x01\x01\x0d\x00/mnt/rootonly\x00\x00!", 21)})
            QCOMPARE(s.ask("raw " + hex(raw)), QByteArray("refused"));
        QCOMPARE(create(kRootOnly), QByteArray("done"));
        QVERIFY(removeTree(cache));

        // A link at the shared folder's name is not followed.
        QVERIFY(::symlink(victimDir.constData(), cache.constData()) == 0);
        QCOMPARE(create(kRootOnly), QByteArray("refused"));
        QVERIFY(::unlink(cache.constData()) == 0);
        // A root folder open to all that holds something else than a cache is left alone.
        QVERIFY(TestEnv::writeFile(cache + "/notes.txt", "x"));
        QVERIFY(::chmod(cache.constData(), 0777) == 0);
        QCOMPARE(create(kRootOnly), QByteArray("refused"));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0777));
        QVERIFY(removeTree(cache));
        // An earlier version's shared cache, open to all: closed to writers at once, readable
        // while its day folders wait for their owners, then closed to all but passing through.
        QVERIFY(TestEnv::writeFile(cache + "/2024-01-01/2024-01-01 10_00_00/old.txt", "x"));
        QVERIFY(::chmod(cache.constData(), 0777) == 0);
        QCOMPARE(create(kRootOnly), QByteArray("done"));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0755));
        QVERIFY(removeTree(cache + "/2024-01-01"));
        QCOMPARE(create(kRootOnly), QByteArray("done"));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0711));
        QCOMPARE(snapshot(victimDir, true), victimBefore);

        // The helper leaves with its agent. Every request and its outcome is logged, hostile
        // bytes escaped.
        const qint64 helper = argumentOf(s.processId(), "privileged-pid").toLongLong();
        QVERIFY(helper > 0 && !statusLine(helper, "State").isEmpty());
        QVERIFY(s.quit());
        QVERIFY(gone(helper));
        const QByteArray log = s.readAllStandardError();
        QVERIFY(log.contains("uid 0: create the cache folder on /mnt/rootonly: done: "));
        QVERIFY(log.contains("malformed request of 8200 bytes: refused"));
        QVERIFY(removeTree(cache));
    }

    // The agents run with their accounts' ids and no capability; each root helper keeps root's
    // ids all through (the account can neither stop nor trace it) and only the capabilities its
    // one request needs (CAP_CHOWN, CAP_DAC_OVERRIDE), and reads nothing of the account's: a
    // 16 MB settings file costs it nothing.
    void helpersAreRootsAndSmall()
    {
        for (const Account *a : {&victim, &attacker}) {
            const QByteArray u = QByteArray::number(a->uid), g = QByteArray::number(a->gid);
            QCOMPARE(statusLine(a->agent, "Uid"), (u + ' ').repeated(4).trimmed());
            QCOMPARE(statusLine(a->agent, "Gid"), (g + ' ').repeated(4).trimmed());
            QCOMPARE(statusLine(a->agent, "CapEff"), QByteArray("0000000000000000"));
            QCOMPARE(statusLine(a->agent, "CapPrm"), QByteArray("0000000000000000"));
            QCOMPARE(statusLine(a->helper, "Uid"), QByteArray("0 0 0 0"));
            QCOMPARE(statusLine(a->helper, "CapEff"), QByteArray("0000000000000003"));
            QCOMPARE(statusLine(a->helper, "CapBnd"), QByteArray("0000000000000003"));
            QCOMPARE(statusLine(a->helper, "NoNewPrivs"), QByteArray("1"));
        }
        QVERIFY(!attacker.sh("kill -STOP " + QByteArray::number(attacker.helper) + " 2>/dev/null"));
        const qint64 hwm = statusLine(attacker.helper, "VmHWM").split(' ').value(0).toLongLong();
        QVERIFY2(hwm > 0 && hwm < 16000, QByteArray::number(hwm).constData());
    }

    // What the victim deletes is kept where only the victim may look: items, origin records and
    // size records alike.
    void keptItemsArePrivate_data()
    {
        QTest::addColumn<QByteArray>("volume");
        QTest::addColumn<QByteArray>("folder");
        QTest::newRow("home") << QByteArray("/") << victim.home + "/private";
        QTest::newRow("shared volume") << kShared << kShared + "/victim-private";
    }
    void keptItemsArePrivate()
    {
        QFETCH(QByteArray, volume);
        QFETCH(QByteArray, folder);
        QVERIFY(victim.sh("mkdir -m 700 '" + folder + "'; echo secret > '" + folder +
                          "/secret.txt'; chmod 644 '" + folder + "/secret.txt'"));
        QVERIFY(victim.trashAndKeep(volume, folder + "/secret.txt"));
        const QByteArray item = kept(victim.cache(volume), "secret.txt");
        QCOMPARE(TestEnv::readFile(item), QByteArray("secret\n"));
        const QByteArray origins = victim.cache(volume) + "/.origins/" + day() + ".jsonl";
        QCOMPARE(TestEnv::modeOf(origins), mode_t(0600));
        QVERIFY(TestEnv::readFile(origins).contains("secret.txt"));
        const QByteArray sizes =
            victim.cache(volume) + '/' + day() + '/' + CommonUtils::kCacheInformationName;
        if (TestEnv::exists(sizes)) QCOMPARE(TestEnv::modeOf(sizes), mode_t(0600));
        QByteArray out;
        QVERIFY(attacker.run({str(kBin + "/sv3daemon-attacker"), "open", str(item), str(origins),
                              str(victim.cache(volume))},
                             &out));
        QCOMPARE(out, QByteArray("EACCES EACCES EACCES"));
        // The attacker keeps something there too, for the checks below.
        const QByteArray mine = (volume == "/" ? attacker.home : kShared) + "/attacker-" +
                                QTest::currentDataTag() + ".txt";
        QVERIFY(attacker.sh("echo mine > '" + mine + '\''));
        QVERIFY(attacker.trashAndKeep(volume, mine));
    }

    // Nothing that others may write anywhere in either home; in what Salvora 3 made, folders
    // 0700 and records 0600; the volume's shared folder root's and 0711.
    void modesAfterUse()
    {
        for (const Account *a : {&victim, &attacker})
            QCOMPARE(modeProblems(*a), QByteArrayList());
        struct stat st = {};
        QVERIFY(::lstat((kShared + "/.Salvora3Cache").constData(), &st) == 0);
        QCOMPARE(st.st_uid, uid_t(0));
        QCOMPARE(st.st_mode & 07777, mode_t(0711));
    }

    // The attacker takes the helper's socket from its own agent and asks for everything it may
    // not have; `rm` by hand fails too. The victim's caches stay exactly as they were.
    void stolenSocket_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QByteArray>("answer");
        const QByteArray vShared = victim.cache(kShared), vHome = victim.cache("/"),
                         day = Harness::day();
        const auto row = [](const char *tag, const QByteArray &command, const char *answer) {
            QTest::newRow(tag) << command << QByteArray(answer);
        };
        // A path that is no volume's root, and any removal request, is refused whoever asks
        // (rootsRequests); here, what only this account's own rights decide.
        // A root-only volume: only with an administrator's consent.
        row("create: root-only volume", "create " + hex(kRootOnly), "consent");
        row("create: its own", "create " + hex(kShared), "done");
        row("rm: victim's day, volume", "rm " + vShared + '/' + day, "failed");
        row("rm: victim's day, home", "rm " + vHome + '/' + day, "failed");
        row("rm: victim's folder", "rm " + vShared, "failed");
    }
    void stolenSocket()
    {
        QFETCH(QByteArray, command);
        QFETCH(QByteArray, answer);
        if (stealer.state() == QProcess::NotRunning) {
            // The victim's processes and the helpers, root's, are out of its reach.
            for (const qint64 pid : {victim.agent, victim.helper, attacker.helper}) {
                QByteArray out;
                QVERIFY(!attacker.run(
                    {str(kBin + "/sv3daemon-attacker"), "steal", QString::number(pid), "3"}, &out));
                QCOMPARE(out, QByteArray("pidfd_getfd: EPERM"));
            }
            victimCaches = cachesOf(victim);
            QVERIFY(!victimCaches.isEmpty());
            const QByteArray fd = argumentOf(attacker.agent, "privileged-fd");
            QVERIFY(!fd.isEmpty());
            stealer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            stealer.start(QStringLiteral("setpriv"),
                          attacker.as() << str(kBin + "/sv3daemon-attacker") << "steal"
                                        << QString::number(attacker.agent) << fd);
            QVERIFY(stealer.ready());
        }
        if (command.startsWith("rm ")) {
            QCOMPARE(attacker.run({"rm", "-rf", str(command.mid(3))}) ? QByteArray("done")
                                                                      : QByteArray("failed"),
                     answer);
        } else {
            QCOMPARE(stealer.ask(command), answer);
        }
        QCOMPARE(cachesOf(victim), victimCaches);
        QVERIFY(!TestEnv::exists(kRootOnly + "/.Salvora3Cache"));
    }

    // The account's own folder there, opened to others by the account, is not used.
    void ownFolderOpenToOthers()
    {
        QVERIFY(attacker.sh("chmod 777 " + attacker.cache(kShared)));
        QCOMPARE(stealer.ask("create " + hex(kShared)), QByteArray("refused"));
        QVERIFY(attacker.sh("chmod 700 " + attacker.cache(kShared)));
    }

    // The root-only volume's root is root's: an account may have a folder there only once an
    // administrator allowed it, which the account alone cannot do.
    void administratorsConsent()
    {
        const QByteArray shared = kRootOnly + "/.Salvora3Cache";
        QVERIFY(!attacker.run({str(kBin + "/sv3daemon"), "--allow-volume", str(kRootOnly)}));
        QVERIFY(!TestEnv::exists(shared));
        QVERIFY(run(str(kBin + "/sv3daemon"), {"--allow-volume", str(kRootOnly)}));
        QCOMPARE(TestEnv::modeOf(shared), mode_t(0711));
        QCOMPARE(stealer.ask("create " + hex(kRootOnly)), QByteArray("done"));
        struct stat own = {};
        QVERIFY(::lstat(attacker.cache(kRootOnly).constData(), &own) == 0);
        QVERIFY(own.st_uid == attacker.uid && own.st_gid == attacker.gid &&
                (own.st_mode & 07777) == 0700);
        QVERIFY(removeTree(shared));
    }

    // The attacker moves root's shared folder aside and puts another folder in its place, asks
    // its helper for its own folder there, and the victim trashes something there. Neither agent
    // nor helper uses or changes that folder.
    void foreignFolderAtCacheName_data()
    {
        QTest::addColumn<QByteArray>("folder");
        for (const QByteArray &t : swapTargets.first(4))
            QTest::newRow(t.constData()) << t;
    }
    void foreignFolderAtCacheName()
    {
        QFETCH(QByteArray, folder);
        QVERIFY(makeSwapTargets());
        const auto targetBefore = snapshot(kShared + '/' + folder, true);
        QVERIFY(attacker.sh("cd /mnt/shared; mv .Salvora3Cache .real; mv " + folder +
                            " .Salvora3Cache"));
        const QByteArray back =
            "cd /mnt/shared; mv .Salvora3Cache " + folder + "; mv .real .Salvora3Cache";
        auto restore = qScopeGuard([&] { attacker.sh(back); });
        const QByteArray file = kShared + "/victim-private/at-" + folder + ".txt";
        // The attacker's helper is asked for the attacker's folder there.
        QCOMPARE(stealer.ask("create " + hex(kShared)), QByteArray("refused"));
        const int mark = victim.daemon->shadowsTaken();
        QVERIFY(victim.sh("echo x > " + file + "; trash-put " + file));
        // Its agent says it cannot keep the item (or has shadowed it somewhere).
        QTRY_VERIFY_WITH_TIMEOUT(TestEnv::readFile(victim.logFile()).contains(file) ||
                                     victim.daemon->shadowsTaken() > mark,
                                 10000);
        restore.dismiss();
        QVERIFY(attacker.sh(back));
        QCOMPARE(snapshot(kShared + '/' + folder, true), targetBefore);
    }

    // The attacker swaps the volume's shared folder (which it may rename: the volume's root is
    // open to all) with folders of the victim's and of root's, and moves it away so that a new
    // one is made, while its helper makes the attacker's folder as fast as it is asked to.
    // No folder of the victim or of root changes in any way.
    void renameExchangeRace()
    {
        QVERIFY(makeSwapTargets());
        const QByteArrayList &targets = swapTargets;
        QMap<QByteArray, QMap<QByteArray, QByteArray>> targetsBefore;
        for (const QByteArray &t : targets)
            targetsBefore.insert(t, snapshot(kShared + '/' + t, true));
        // Items the victim trashed above, while its cache was out of reach, may still be
        // shadowed into its pending area meanwhile, and size records rewritten; the rest of its
        // cache stays as it is.
        const auto keptPart = [&] {
            auto t = snapshot(victim.cache(kShared), true);
            t.removeIf([](auto it) {
                return it.key().startsWith(".pending/") ||
                       it.key().endsWith(CommonUtils::kCacheInformationName);
            });
            return t;
        };
        const auto victimBefore = keptPart();
        struct stat shared = {};
        QVERIFY(::lstat((kShared + "/.Salvora3Cache").constData(), &shared) == 0);
        QTest::qWait(1100); // nothing above passes for a folder the helper has just made

        QProcess racer;
        QStringList args = attacker.as();
        args << str(kBin + "/sv3daemon-attacker") << "race" << str(kShared)
             << QString::number(kRaceSeconds) << ".Salvora3Cache";
        for (const QByteArray &t : targets)
            args << str(t);
        racer.start(QStringLiteral("setpriv"), args);
        QVERIFY(racer.waitForStarted(5000));
        QMap<QByteArray, int> answers;
        for (int i = 0; racer.state() != QProcess::NotRunning; ++i) {
            ++answers[stealer.ask("create " + hex(kShared))];
            // The helper logs each request on the daemon's output: keep its pipe flowing.
            if (i % 32 == 0) {
                QCoreApplication::processEvents();
                attacker.daemon->output();
            }
        }
        racer.waitForFinished(5000);
        const QByteArray result = racer.readAllStandardOutput().trimmed();
        QVERIFY(result.startsWith("swaps=") && result != "swaps=0");
        QVERIFY(answers.value("done") > 0 && answers.value("refused") > 0);
        QVERIFY(!answers.contains("timeout"));

        for (const QByteArray &t : targets)
            QCOMPARE(snapshot(kShared + '/' + t, true), targetsBefore.value(t));
        QCOMPARE(keptPart(), victimBefore);
        QCOMPARE(modeProblems(victim), QByteArrayList());
        struct stat after = {};
        QVERIFY(::lstat((kShared + "/.Salvora3Cache").constData(), &after) == 0);
        QCOMPARE(after.st_ino, shared.st_ino);
        QCOMPARE(after.st_mode & 07777, mode_t(0711));
        // Every folder the helper made in the race is root's and closed, or the attacker's own.
        for (const QByteArray &name : snapshot(kShared, true).keys()) {
            if (!name.startsWith(".made-") || name.contains('/')) continue;
            struct stat st = {};
            QVERIFY(::lstat((kShared + '/' + name).constData(), &st) == 0);
            QVERIFY2((st.st_uid == 0 && (st.st_mode & 022) == 0) || st.st_uid == attacker.uid,
                     name.constData());
        }
    }

    // Caches and log folders that an earlier version left open to all (0777), with things the
    // other account planted in them: links to the account's own files and folders, and FIFOs.
    // Each daemon starts again, closes what is its own and keeps a new item; nothing planted is
    // followed or waited on.
    void plantedLinksAndFifos()
    {
        QVERIFY(victim.stop() && attacker.stop());
        const QByteArray day = Harness::day(), info = CommonUtils::kCacheInformationName;
        for (const Account *a : {&victim, &attacker}) {
            // What the earlier version did: folders open to all.
            QVERIFY(
                a->sh("cd; mkdir -p docs .Salvora3Cache/" + day +
                      " .Salvora3Cache/.origins; echo notes > notes.txt; echo doc > docs/doc.txt;"
                      "chmod 755 docs; chmod 777 .local .local/share '.local/share/Salvora 3' "
                      ".Salvora3Cache .Salvora3Cache/.origins .Salvora3Cache/" +
                      day));
            for (const char *target : {"/notes.txt", "/docs"})
                before.insert(a->name + target, snapshot(a->home + target, true));
        }
        const QByteArray v = victim.home, at = attacker.home;
        // The victim's log and origin folder are links to the victim's own things; its size
        // record is a FIFO.
        QVERIFY(attacker.sh("cd '" + v +
                            "/.local/share/Salvora 3'; rm -f 'Salvora 3 Log.txt';"
                            "ln -s " +
                            v + "/notes.txt 'Salvora 3 Log.txt'; cd " + v +
                            "/.Salvora3Cache; mv .origins .origins-old; ln -s " + v +
                            "/docs .origins;"
                            "rm -f " +
                            day + '/' + info + "; mkfifo " + day + '/' + info));
        // The attacker's log and origin record are FIFOs; its size record links to its notes.
        QVERIFY(victim.sh("cd '" + at +
                          "/.local/share/Salvora 3'; rm -f 'Salvora 3 Log.txt';"
                          "mkfifo 'Salvora 3 Log.txt'; cd " +
                          at + "/.Salvora3Cache; rm -f .origins/" + day +
                          ".jsonl; mkfifo .origins/" + day + ".jsonl; rm -f " + day + '/' + info +
                          "; ln -s " + at + "/notes.txt " + day + '/' + info));

        for (Account *a : {&victim, &attacker}) {
            QVERIFY2(a->start(), a->daemon->output().constData());
            QVERIFY(a->sh("echo again > ~/again.txt"));
            QVERIFY(a->trashAndEmpty("/", a->home + "/again.txt"));
            // Kept, or (while its origin cannot be recorded) kept aside and tried again, and
            // said so: never lost.
            QTRY_VERIFY_WITH_TIMEOUT(
                TestEnv::readFile(a->logFile()).contains(a->home + "/again.txt"), 10000);
            const QByteArray pending = a->cache("/") + "/.pending/" + QByteArray::number(a->uid);
            QVERIFY(!kept(a->cache("/"), "again.txt").isEmpty() ||
                    snapshot(pending, true).size() > 1);
            for (const char *f :
                 {"/.local", "/.local/share", "/.local/share/Salvora 3", "/.Salvora3Cache"})
                QVERIFY2((TestEnv::modeOf(a->home + f) & 022) == 0, (a->home + f).constData());
            // What stood at the log's name was replaced by the log, not written through.
            struct stat st = {};
            QVERIFY(::lstat(a->logFile().constData(), &st) == 0 && S_ISREG(st.st_mode) &&
                    (st.st_mode & 07777) == 0600 && st.st_uid == a->uid);
        }
        // Nothing planted was followed: what the links and the size record led to is unchanged.
        for (auto it = before.cbegin(); it != before.cend(); ++it)
            QVERIFY2(snapshot("/mnt/home/" + it.key(), true) == it.value(), it.key().constData());
    }
    // Neither FIFO planted as its log, origin record or size record holds a daemon: each ends
    // on SIGTERM, its helper with it.
    void endsOnSigterm()
    {
        for (Account *a : {&victim, &attacker}) {
            QVERIFY(a->daemon && a->daemon->isRunning());
            QVERIFY(a->stop());
            QVERIFY(gone(a->helper));
        }
    }
};

QTEST_GUILESS_MAIN(TstMultiUser)
#include "tst_multiuser.moc"
