#include "DaemonHarness.h"
#include "TestEnv.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>
#include <QTest>

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Harness;

namespace {

// sv3daemon, copied with a stand-in agent beside it; the test talks to the stand-in, which sends
// the privileged helper whatever it is told.
class FakeAgent
{
public:
    bool start(const QString &program, const QStringList &args = {},
               const QProcessEnvironment &env = {})
    {
        p.setProcessChannelMode(QProcess::SeparateChannels);
        if (!env.isEmpty()) p.setProcessEnvironment(env);
        p.start(program, args);
        return p.waitForStarted(5000) && line() == "fakeagent ready";
    }
    QByteArray line()
    {
        while (!p.canReadLine())
            if (!p.waitForReadyRead(10000)) return "timeout";
        return p.readLine().trimmed();
    }
    QByteArray send(const QByteArray &command)
    {
        p.write(command + '\n');
        return line();
    }
    static QByteArray hex(const QByteArray &b) { return b.isEmpty() ? QByteArray("-") : b.toHex(); }
    // The first word of the answer: done, refused or failed.
    QByteArray create(const QByteArray &mount) { return word(send("create " + hex(mount))); }
    QByteArray remove(const QByteArray &cache, const QByteArray &rel)
    {
        return word(send("remove " + hex(cache) + ' ' + hex(rel)));
    }
    QByteArray raw(const QByteArray &bytes) { return word(send("raw " + hex(bytes))); }
    QMap<QByteArray, QByteArray> status()
    {
        QMap<QByteArray, QByteArray> out;
        for (const QByteArray &kv : send("status").split(';')) {
            const qsizetype eq = kv.indexOf('=');
            out.insert(kv.left(eq), kv.mid(eq + 1));
        }
        return out;
    }
    bool quit()
    {
        p.write("quit\n");
        return p.waitForFinished(10000);
    }
    static QByteArray word(const QByteArray &answer) { return answer.left(answer.indexOf(' ')); }
    // What the helper logged so far (its stderr).
    QByteArray log()
    {
        mLog += p.readAllStandardError();
        return mLog;
    }
    QProcess p;
    QByteArray mLog;
};

bool copyExecutable(const QString &from, const QString &to, mode_t mode)
{
    QFile::remove(to);
    return QFile::copy(from, to) && ::chown(QFile::encodeName(to).constData(), 0, 0) == 0 &&
           ::chmod(QFile::encodeName(to).constData(), mode) == 0;
}

bool gone(qint64 pid)
{
    return QTest::qWaitFor(
        [&] {
            return statusLine(pid, "State").isEmpty() || statusLine(pid, "State").startsWith('Z');
        },
        10000);
}

} // namespace

// The set-user-id half: it keeps root only to serve its one request, refuses every hostile one,
// and nothing else of the daemon ever holds root.
class TstDaemonPrivileged : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QTemporaryDir images;
    const QString uuid = QStringLiteral("00DDBA11-0000-4000-8000-0000000000AD");
    const QByteArray vol = "/mnt/vol";
    const QByteArray victim = "/mnt/victim";
    const QByteArray cache = "/mnt/vol/.Salvora3Cache";
    QByteArray home;
    QMap<QByteArray, QByteArray> victimBefore;
    passwd user{};
    QByteArray userHome;

    QString exe(const char *dir, const char *name) const
    {
        return QStringLiteral("/mnt/%1/%2").arg(dir, name);
    }

    // An account with an existing home folder to mount over (only in this namespace).
    bool findUser()
    {
        setpwent();
        while (const passwd *pw = getpwent()) {
            struct stat st{};
            const QByteArray dir = pw->pw_dir;
            if (pw->pw_uid != 0 && (dir.startsWith("/var/") || dir.startsWith("/home/")) &&
                ::lstat(pw->pw_dir, &st) == 0 && S_ISDIR(st.st_mode)) {
                user = *pw;
                userHome = dir;
                endpwent();
                return true;
            }
        }
        endpwent();
        return false;
    }

    QStringList asUser() const
    {
        return {QStringLiteral("--reuid=%1").arg(user.pw_uid),
                QStringLiteral("--regid=%1").arg(user.pw_gid), QStringLiteral("--clear-groups"),
                QStringLiteral("--")};
    }

private slots:
    void initTestCase()
    {
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        env = new TestEnv;
        home = env->homeBytes();
        const QString image = images.filePath(QStringLiteral("vol.img"));
        QVERIFY(run(QStringLiteral("mount"), {"-t", "tmpfs", "sv3test", "/mnt"}));
        QVERIFY(TestEnv::mountExt4Image(image, uuid, QStringLiteral("/mnt/vol")));
        for (const char *d : {"/mnt/plain", "/mnt/notmounted", "/mnt/bin", "/mnt/bin2"})
            QVERIFY(TestEnv::makeFolders(d));
        QVERIFY(run(QStringLiteral("mount"), {"-t", "tmpfs", "sv3plain", "/mnt/plain"}));
        // Set-user-id works on these two (the test's own /tmp may forbid it).
        QVERIFY(
            run(QStringLiteral("mount"), {"-t", "tmpfs", "-o", "mode=0755", "sv3bin", "/mnt/bin"}));
        QVERIFY(run(QStringLiteral("mount"),
                    {"-t", "tmpfs", "-o", "mode=0755", "sv3bin2", "/mnt/bin2"}));
        QVERIFY(TestEnv::makeFolders(home + "/notelig"));
        QVERIFY(run(QStringLiteral("mount"),
                    {"-t", "tmpfs", "sv3notelig", QFile::decodeName(home + "/notelig")}));
        QVERIFY(::symlink("/mnt/vol", "/mnt/linkvol") == 0);
        QVERIFY(TestEnv::writeFile(victim + "/v.txt", "victim"));
        QVERIFY(TestEnv::writeFile(victim + "/x", "victim x"));
        QVERIFY(TestEnv::writeFile(victim + "/.Salvora3Cache/v.txt", "victim in a fake cache"));
        victimBefore = snapshot(victim);

        QVERIFY(copyExecutable(binary("sv3daemon"), exe("bin", "sv3daemon"), 04755));
        QVERIFY(copyExecutable(binary("sv3daemon-fakeagent"), exe("bin", "sv3daemon-agent"), 0755));
        QVERIFY(copyExecutable(binary("sv3daemon"), exe("bin2", "sv3daemon"), 04755));
        QVERIFY(copyExecutable(binary("sv3daemon-agent"), exe("bin2", "sv3daemon-agent"), 0755));
    }

    void cleanupTestCase()
    {
        run(QStringLiteral("umount"), {QFile::decodeName(home + "/notelig")});
        delete env;
    }

    void createRequests()
    {
        // As root, for root: the volume's shared folder (root's, others may only pass through)
        // and root's own private folder in it.
        FakeAgent s;
        QVERIFY(s.start(exe("bin", "sv3daemon")));
        QCOMPARE(s.create(vol), QByteArray("done"));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0711));
        QCOMPARE(TestEnv::modeOf(cache + "/0"), mode_t(0700));
        QCOMPARE(s.create(vol), QByteArray("done")); // already there

        const QByteArrayList hostile{"/",
                                     "/mnt/notmounted", // not a mount point
                                     "/mnt/linkvol",    // a link to one
                                     "/mnt/plain",      // no identity, so never protected
                                     home + "/notelig", // a mount, but not where caches live
                                     "/mnt/vol/",       // not in plain form
                                     "/mnt/vol/../vol",
                                     "mnt/vol",
                                     "/mnt/vol/.Salvora3Cache", // inside a mount, not its root
                                     ""};
        for (const QByteArray &m : hostile)
            QVERIFY2(s.create(m) == "refused", m.constData());
        QVERIFY(!TestEnv::exists("/mnt/plain/.Salvora3Cache") &&
                !TestEnv::exists(home + "/notelig/.Salvora3Cache"));

        // Removal requests of earlier versions and malformed datagrams are refused, and the
        // helper goes on serving.
        QVERIFY(TestEnv::writeFile(cache + "/0/2024-01-01/t/item.txt", "x"));
        QCOMPARE(s.remove(cache + "/0", "2024-01-01"), QByteArray("refused"));
        QVERIFY(TestEnv::exists(cache + "/0/2024-01-01/t/item.txt"));
        QCOMPARE(s.raw("garbage"), QByteArray("refused"));
        QCOMPARE(s.raw(QByteArray("S\x01\x09\x00\x00\x00\x00", 7)), QByteArray("refused"));
        QCOMPARE(s.raw(QByteArray("S\x01\x01\x05\x00/mnt\x00\x00\x00", 10)), QByteArray("refused"));
        QCOMPARE(s.raw(QByteArray(9000, 'S')), QByteArray("refused"));
        QCOMPARE(s.create(vol), QByteArray("done"));
        QCOMPARE(snapshot(victim), victimBefore);
        QVERIFY(s.quit());
        // Every request and its outcome is logged, hostile bytes escaped.
        const QByteArray log = s.log();
        QVERIFY(log.contains("uid 0: create the cache folder on /mnt/vol: done: "));
        QVERIFY(log.contains("malformed request of 8200 bytes: refused"));
        QVERIFY(removeTree(cache));
    }

    void foldersThatAreNotTheCache()
    {
        // What stands at the shared folder's name is checked before anything is made in it.
        FakeAgent s;
        QVERIFY(s.start(exe("bin", "sv3daemon")));
        QVERIFY(::symlink(victim.constData(), cache.constData()) == 0);
        QCOMPARE(s.create(vol), QByteArray("refused"));
        QVERIFY(::unlink(cache.constData()) == 0);
        // A root folder open to all that holds something else than a cache is left alone.
        QVERIFY(TestEnv::writeFile(cache + "/notes.txt", "x"));
        QVERIFY(::chmod(cache.constData(), 0777) == 0);
        QCOMPARE(s.create(vol), QByteArray("refused"));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0777));
        QVERIFY(removeTree(cache));
        // An earlier version's shared cache, open to all: closed to writers at once, readable
        // while its day folders wait for their owners, then closed to all but passing through.
        QVERIFY(TestEnv::writeFile(cache + "/2024-01-01/2024-01-01 10_00_00/old.txt", "x"));
        QVERIFY(::chmod(cache.constData(), 0777) == 0);
        QCOMPARE(s.create(vol), QByteArray("done"));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0755));
        QVERIFY(removeTree(cache + "/2024-01-01"));
        QCOMPARE(s.create(vol), QByteArray("done"));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0711));
        QCOMPARE(snapshot(victim), victimBefore);
        QVERIFY(s.quit());
        QVERIFY(removeTree(cache));
    }

    void helperLeavesWithTheAgent()
    {
        FakeAgent s;
        QVERIFY(s.start(exe("bin", "sv3daemon")));
        const qint64 helper = s.status().value("helper").toLongLong();
        QVERIFY(helper > 0);
        QVERIFY(!statusLine(helper, "State").isEmpty());
        QVERIFY(s.quit());
        QVERIFY(gone(helper));
    }

    void setUserIdStartAsAUser()
    {
        if (!findUser()) QSKIP("no account with a home folder to borrow");
        const uid_t uid = user.pw_uid;
        const gid_t gid = user.pw_gid;
        QVERIFY(
            run(QStringLiteral("mount"),
                {"-t", "tmpfs", "-o", QStringLiteral("mode=0700,uid=%1,gid=%2").arg(uid).arg(gid),
                 "sv3userhome", QFile::decodeName(userHome)}));
        // The user's settings count for nothing here: not even a 16 MB file is read.
        QVERIFY(TestEnv::writeFile(userHome + "/.config/Salvora/Salvora 3.json",
                                   QByteArray(16 << 20, '[')));

        QProcessEnvironment penv;
        penv.insert(QStringLiteral("PATH"), QStringLiteral("/usr/bin:/bin"));
        penv.insert(QStringLiteral("HOME"), QFile::decodeName(userHome));
        FakeAgent s;
        QVERIFY(s.start(QStringLiteral("setpriv"), asUser() << exe("bin", "sv3daemon"), penv));
        // One answer first: the helper limits itself before it serves.
        QCOMPARE(s.create("/"), QByteArray("refused"));
        const auto st = s.status();
        const QByteArray u = QByteArray::number(uid), g = QByteArray::number(gid);
        QCOMPARE(st.value("uid"), u + ' ' + u + ' ' + u + ' ' + u);
        QCOMPARE(st.value("gid"), g + ' ' + g + ' ' + g + ' ' + g);
        QCOMPARE(st.value("capeff"), QByteArray("0000000000000000"));
        QCOMPARE(st.value("capprm"), QByteArray("0000000000000000"));
        // The helper: root's ids all through (the user can neither stop nor trace it), and only
        // the capabilities its one request needs (CAP_CHOWN, CAP_DAC_OVERRIDE).
        QCOMPARE(st.value("helper-uid"), QByteArray("0 0 0 0"));
        QCOMPARE(st.value("helper-capeff"), QByteArray("0000000000000003"));
        QCOMPARE(st.value("helper-capbnd"), QByteArray("0000000000000003"));
        QCOMPARE(st.value("helper-nnp"), QByteArray("1"));
        const qint64 helper = st.value("helper").toLongLong();
        QVERIFY(helper > 0);
        QCOMPARE(statusLine(helper, "VmHWM").split(' ').value(0).toLongLong() < 16000, true);

        // The volume's root is root's: the user may not have a folder there unless an
        // administrator allows it, which the user alone cannot do.
        QCOMPARE(s.create(vol), QByteArray("consent"));
        QVERIFY(!TestEnv::exists(cache));
        QVERIFY(!run(QStringLiteral("setpriv"), asUser() << exe("bin", "sv3daemon")
                                                         << "--allow-volume" << str(vol)));
        QVERIFY(!TestEnv::exists(cache));
        QVERIFY(run(exe("bin", "sv3daemon"), {"--allow-volume", str(vol)}));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0711));
        QCOMPARE(s.create(vol), QByteArray("done"));
        struct stat own{};
        QVERIFY(::lstat((cache + '/' + u).constData(), &own) == 0 && own.st_uid == uid &&
                own.st_gid == gid && (own.st_mode & 07777) == 0700);
        QCOMPARE(s.create("/mnt/plain"), QByteArray("refused"));
        QVERIFY(s.quit());
        QVERIFY(gone(helper));
        QVERIFY(s.log().contains(QByteArray("serving uid ") + u + " with root's rights"));
        QVERIFY(removeTree(cache));
    }

    void realAgentNeverHoldsRoot()
    {
        if (userHome.isEmpty()) QSKIP("no account with a home folder to borrow");
        if (!haveProgram("dbus-run-session") || !haveProgram("trash-put"))
            QSKIP("needs dbus-run-session and trash-cli");
        const uid_t uid = user.pw_uid;
        const gid_t gid = user.pw_gid;
        QProcessEnvironment penv;
        penv.insert(QStringLiteral("PATH"), QStringLiteral("/usr/bin:/bin"));
        penv.insert(QStringLiteral("HOME"), QFile::decodeName(userHome));
        penv.insert(QStringLiteral("XDG_DATA_HOME"), QFile::decodeName(userHome + "/.local/share"));
        penv.insert(QStringLiteral("XDG_CONFIG_HOME"), QFile::decodeName(userHome + "/.config"));
        Daemon d(QStringLiteral("setpriv"));
        d.process().setProcessEnvironment(penv);
        d.process().setArguments(asUser() << QStringLiteral("dbus-run-session")
                                          << QStringLiteral("--") << exe("bin2", "sv3daemon"));
        d.process().setProgram(QStringLiteral("setpriv"));
        d.process().start();
        QVERIFY(d.waitForOutput("sv3daemon ready"));

        const qint64 agent = descendant(QFile::encodeName(exe("bin2", "sv3daemon-agent")), d.pid());
        const qint64 helper = descendant(QFile::encodeName(exe("bin2", "sv3daemon")), d.pid());
        QVERIFY(agent > 0 && helper > 0);
        // Whatever happens below, the session ends with the test.
        const auto end = qScopeGuard([agent] { ::kill(pid_t(agent), SIGTERM); });
        const QByteArray u = QByteArray::number(uid), g = QByteArray::number(gid);
        qInfo("agent %lld: Uid %s, Gid %s; helper %lld: Uid %s", agent,
              statusLine(agent, "Uid").constData(), statusLine(agent, "Gid").constData(), helper,
              statusLine(helper, "Uid").constData());
        QCOMPARE(statusLine(agent, "Uid"), u + ' ' + u + ' ' + u + ' ' + u);
        QCOMPARE(statusLine(agent, "Gid"), g + ' ' + g + ' ' + g + ' ' + g);
        QCOMPARE(statusLine(agent, "CapEff"), QByteArray("0000000000000000"));
        QCOMPARE(statusLine(agent, "CapPrm"), QByteArray("0000000000000000"));
        QCOMPARE(statusLine(helper, "Uid"), QByteArray("0 0 0 0"));

        // And it does its work with the user's rights.
        QVERIFY(TestEnv::writeFile(userHome + "/doc.txt", "the user's"));
        QVERIFY(::chown((userHome + "/doc.txt").constData(), uid, gid) == 0);
        const auto asTheUser = [&](const QStringList &args) {
            QProcess p;
            p.setProcessEnvironment(penv);
            p.start(QStringLiteral("setpriv"), asUser() + args);
            return p.waitForFinished(30000) && p.exitCode() == 0;
        };
        QVERIFY(asTheUser({QStringLiteral("trash-put"), str(userHome + "/doc.txt")}));
        QVERIFY(d.waitForShadows(1));
        QVERIFY(
            asTheUser({QStringLiteral("trash-empty"),
                       QStringLiteral("--trash-dir=") + str(userHome + "/.local/share/Trash")}));
        QTRY_VERIFY2_WITH_TIMEOUT(!kept(userHome + "/.Salvora3Cache", "doc.txt").isEmpty(),
                                  d.output().right(2000).constData(), 10000);

        QVERIFY(::kill(pid_t(agent), SIGTERM) == 0);
        QVERIFY(d.process().waitForFinished(10000));
        QVERIFY(gone(helper));
    }
};

QTEST_GUILESS_MAIN(TstDaemonPrivileged)
#include "tst_daemon_privileged.moc"
