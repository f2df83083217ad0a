// The privilege step of start-up, case by case: which alerts the user sees, in which order,
// what goes to the log, and whether start-up may go on. A shell script stands in for the
// launcher (it does its job only when told to) and another for pkexec.

#include "TestEnv.h"

#include "common/AdminLauncher.h"
#include "common/Alerts.h"
#include "common/Log.h"
#include "logic/PrivilegeChecks.h"

#include <QCoreApplication>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

class Recorder : public Alerts::Presenter
{
public:
    QStringList shown; // "message|informative|buttons"
    QList<int> answers;
    int present(const Alerts::Alert &alert) override
    {
        shown.append(alert.message + u'|' + alert.informativeText + u'|' +
                     alert.buttons.join(u','));
        return answers.isEmpty() ? 0 : answers.takeFirst();
    }
};

QString alert(const char *message, const char *text, const char *button)
{
    return qtTrId(message) + u'|' + qtTrId(text) + u'|' + qtTrId(button);
}

const QString kMissing =
    QStringLiteral("The \"adminlauncher\" executable was not found.|Please, verify that the "
                   "executable is correctly installed or reinstall the application.|OK");
const QString kPassword = alert("PrivilegesNeededTitle", "PrivilegesNeededText", "OKButton");
QString launcherFailure(const char *text)
{
    return alert("PrivilegesNeededTitle", text, "QuitButton");
}
const QString kDaemonFailure = launcherFailure("BadPermissionsText2");

const QByteArray kSucceeded = "Set Privileges to adminlauncher succeeded.";
const QByteArray kUnable = "Unable to set Privileges to adminlauncher.";

bool isRootSetUid(const QByteArray &path)
{
    struct stat st = {};
    return ::stat(path.constData(), &st) == 0 && st.st_uid == 0 && (st.st_mode & S_ISUID) != 0;
}

enum Launcher { Missing, Privileged, Plain, PlainThatWorks, RefusedPassword };
enum Daemon { NoDaemon, PrivilegedDaemon, PlainDaemon };

} // namespace

class TstPrivilegeChecks : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QTemporaryDir *work = nullptr;
    Recorder recorder;
    QByteArray bin, L, D;

    void prepare(Launcher launcher, Daemon daemon)
    {
        if (launcher != Missing) {
            QVERIFY(TestEnv::writeFile(
                L, "#!/bin/sh\n"
                   "[ -e \"$(dirname \"$0\")/works\" ] || exit 0\n"
                   "case \"$2\" in 9|2) chown 0:0 \"$1\" && chmod 4755 \"$1\";; esac\n"));
            QVERIFY(::chmod(L.constData(), launcher == Privileged ? 04755 : 0755) == 0);
        }
        if (launcher == Privileged || launcher == PlainThatWorks)
            QVERIFY(TestEnv::writeFile(bin + "/works", ""));
        if (launcher == RefusedPassword) {
            const QByteArray pkexec = QFile::encodeName(work->path()) + "/pkexec";
            QVERIFY(TestEnv::writeFile(pkexec, "#!/bin/sh\nexit 126\n"));
            QVERIFY(::chmod(pkexec.constData(), 0755) == 0);
            ZEL_AdminLauncher::setElevationProgramForTesting(pkexec);
            ZEL_AdminLauncher::setAlwaysElevateForTesting(true);
        }
        if (daemon != NoDaemon) {
            QVERIFY(TestEnv::writeFile(D, "x"));
            QVERIFY(::chmod(D.constData(), daemon == PrivilegedDaemon ? 04755 : 0755) == 0);
        }
    }

    QByteArrayList logMessages() const
    {
        QByteArrayList messages;
        for (const QByteArray &line :
             TestEnv::readFile(QFile::encodeName(CommonUtils::logFilePath())).split('\n'))
            if (line.size() > 22) messages.append(line.mid(22)); // after "yyyy-MM-dd HH:mm:ss - "
        return messages;
    }

private slots:
    void initTestCase()
    {
        if (::geteuid() != 0) QSKIP("the stand-in launcher makes files root-owned: run as root");
    }

    void init()
    {
        env = new TestEnv;
        work = new QTemporaryDir;
        bin = QFile::encodeName(work->path()) + "/bin";
        QVERIFY(TestEnv::makeFolders(bin));
        L = bin + "/adminlauncher";
        D = bin + "/sv3daemon";
        recorder.shown.clear();
        recorder.answers.clear();
        Alerts::setPresenter(&recorder);
        ZEL_AdminLauncher::resetForTesting(QFile::decodeName(bin + "/salvora3"));
        ZEL_AdminLauncher::setAlwaysElevateForTesting(false);
    }
    void cleanup()
    {
        Alerts::setPresenter(nullptr);
        delete work;
        delete env;
    }

    void startUp_data()
    {
        QTest::addColumn<int>("launcher");
        QTest::addColumn<int>("daemon");
        QTest::addColumn<bool>("goesOn");
        QTest::addColumn<QStringList>("alerts");
        QTest::addColumn<QByteArrayList>("log");
        QTest::addColumn<bool>("privilegesWereSet");

        QTest::newRow("everything privileged") << int(Privileged) << int(PrivilegedDaemon) << true
                                               << QStringList{} << QByteArrayList{} << false;
        QTest::newRow("launcher privileged, daemon not: no alert")
            << int(Privileged) << int(PlainDaemon) << true << QStringList{} << QByteArrayList{}
            << false;
        QTest::newRow("launcher raised")
            << int(PlainThatWorks) << int(PrivilegedDaemon) << true << QStringList{kPassword}
            << QByteArrayList{kSucceeded} << true;
        QTest::newRow("launcher started but still plain")
            << int(Plain) << int(PrivilegedDaemon) << false
            << QStringList{kPassword, launcherFailure("BadPermissionsText")}
            << QByteArrayList{kUnable} << false;
        QTest::newRow("password refused")
            << int(RefusedPassword) << int(PrivilegedDaemon) << false
            << QStringList{kPassword, launcherFailure("BadPrivilegesText")}
            << QByteArrayList{kUnable} << false;
        QTest::newRow("launcher missing")
            << int(Missing) << int(PrivilegedDaemon) << false
            << QStringList{kMissing, kPassword, kMissing, launcherFailure("ExecutableNotFoundText")}
            << QByteArrayList{kUnable} << false;
        // The daemon check is skipped after a failed launcher check: no daemon alert here.
        QTest::newRow("launcher missing, daemon missing")
            << int(Missing) << int(NoDaemon) << false
            << QStringList{kMissing, kPassword, kMissing, launcherFailure("ExecutableNotFoundText")}
            << QByteArrayList{kUnable} << false;
        QTest::newRow("daemon missing") << int(Privileged) << int(NoDaemon) << false
                                        << QStringList{kDaemonFailure} << QByteArrayList{} << false;
        QTest::newRow("launcher raised, daemon missing")
            << int(PlainThatWorks) << int(NoDaemon) << false
            << QStringList{kPassword, kDaemonFailure} << QByteArrayList{kSucceeded} << true;
    }

    void startUp()
    {
        QFETCH(int, launcher);
        QFETCH(int, daemon);
        QFETCH(bool, goesOn);
        QFETCH(QStringList, alerts);
        QFETCH(QByteArrayList, log);
        QFETCH(bool, privilegesWereSet);
        prepare(Launcher(launcher), Daemon(daemon));

        PrivilegeChecks checks(QFile::decodeName(bin + "/salvora3"));
        QCOMPARE(checks.run(), goesOn);
        QCOMPARE(recorder.shown, alerts);
        QCOMPARE(logMessages(), log);
        QCOMPARE(checks.adminPrivilegesWereSet(), privilegesWereSet);
        QCOMPARE(checks.installSalvoraMenuDelayMs(), privilegesWereSet ? 5000 : 100);
        QCOMPARE(checks.editPreferencesDelayMs(), privilegesWereSet ? 5500 : 500);
        if (goesOn && daemon == PlainDaemon) // privileged silently, through the launcher's job 2
            QTRY_VERIFY(isRootSetUid(D));
    }

    // Closing an alert any other way than with its button brings it back.
    void alertsComeBackUntilTheirButton()
    {
        prepare(Plain, PrivilegedDaemon);
        recorder.answers = {-1, 0, -1, -1, 0};
        PrivilegeChecks checks(QFile::decodeName(bin + "/salvora3"));
        QVERIFY(!checks.run());
        QCOMPARE(recorder.shown,
                 (QStringList{kPassword, kPassword, launcherFailure("BadPermissionsText"),
                              launcherFailure("BadPermissionsText"),
                              launcherFailure("BadPermissionsText")}));
    }

    // The daemon job needs the launcher file: gone after the launcher check, the daemon fails.
    void launcherGoneBeforeTheDaemonJob()
    {
        prepare(Privileged, PlainDaemon);
        PrivilegeChecks checks(QFile::decodeName(bin + "/salvora3"));
        QVERIFY(checks.checkAdminlauncherPrivileges());
        QVERIFY(::unlink(L.constData()) == 0);
        QVERIFY(!checks.checkDaemonPrivileges());
        QCOMPARE(recorder.shown, QStringList{kDaemonFailure});
        QVERIFY(logMessages().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstPrivilegeChecks)
#include "tst_privilegechecks.moc"
