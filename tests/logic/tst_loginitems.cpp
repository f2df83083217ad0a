// The companion's login item over XDG autostart entries, the quit notice when it is switched
// off, and the running-program lookups over /proc.

#include "TestEnv.h"

#include "common/Applications.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "logic/LoginItems.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <sys/stat.h>

namespace {

const QByteArray kRemoved = "Salvora 3 Menu removed from login list.";
const QByteArray kOther = "Other occurence of Salvora 3 Menu removed from login list.";
const QByteArray kAdded = "Salvora 3 Menu added in login list.";

} // namespace

class TstLoginItems : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray autostart, M, oldCopy;
    QStringList launched;
    qint64 running = 0;
    NotificationBus *bus = nullptr;
    QSignalSpy *quits = nullptr;

    void entry(const QByteArray &file, const QByteArray &program, const QByteArray &extra = {})
    {
        QVERIFY(TestEnv::writeFile(autostart + '/' + file,
                                   "[Desktop Entry]\nType=Application\nExec=" +
                                       AutostartList::execValueFor(program) + "\n" + extra));
    }
    QByteArrayList entries() const
    {
        QByteArrayList out;
        for (const AutostartList::Item &item : AutostartList(autostart).snapshot())
            out.append(item.file + " -> " + item.program);
        return out;
    }
    void installCompanion()
    {
        LoginItems::Companion c = LoginItems::defaultCompanion();
        c.menuPath = QFile::decodeName(M);
        QCOMPARE(c.autostartFolder, autostart);
        c.isLaunched = [this](const QString &) { return running; };
        c.launch = [this](const QString &path) {
            launched.append(path);
            return true;
        };
        LoginItems::installSalvoraMenu(c);
    }
private slots:
    void init()
    {
        env = new TestEnv;
        autostart = env->homeBytes() + "/.config/autostart";
        M = env->homeBytes() + "/opt/Salvora 3/bin/salvora3-menu";
        oldCopy = env->homeBytes() + "/old/bin/salvora3-menu";
        QVERIFY(TestEnv::writeFile(M, "companion"));
        launched.clear();
        running = 0;
        bus = new NotificationBus;
        bus->observe(QLatin1String(Notifications::Salvora3MenuNotification));
        quits = new QSignalSpy(bus, &NotificationBus::received);
    }
    void cleanup()
    {
        delete quits;
        delete bus;
        delete env;
    }

    // Setting 1, 0 or absent (-1) over the listed entries ("file=program", "$M" the companion,
    // "$OLD" a stale copy of it, " hidden" a hidden entry): what stays listed, what is logged
    // (newest first), whether the companion is started and whether it is told to quit. Stale
    // copies before the companion's entry go; the walk stops at it, so later ones stay.
    void install_data()
    {
        QTest::addColumn<int>("setting");
        QTest::addColumn<bool>("running");
        QTest::addColumn<bool>("noCompanion");
        QTest::addColumn<QByteArrayList>("given");
        QTest::addColumn<QByteArrayList>("listed");
        QTest::addColumn<QByteArrayList>("logged");
        QTest::addColumn<bool>("launch");
        QTest::addColumn<bool>("quit");
        const auto row = [](const char *name, int setting, QByteArrayList given,
                            QByteArrayList listed, QByteArrayList logged, bool launch, bool quit,
                            bool running = false, bool noCompanion = false) {
            QTest::newRow(name) << setting << running << noCompanion << given << listed << logged
                                << launch << quit;
        };
        const QByteArray own = "salvora3-menu.desktop";
        row("on, listed and running", 1, {own + "=$M"}, {own + " -> $M"}, {}, false, false, true);
        row("on, listed", 1, {own + "=$M"}, {own + " -> $M"}, {}, true, false);
        row("on, older copies around it", 1,
            {"a-old.desktop=$OLD", "m.desktop=$M", "z-old.desktop=$OLD",
             "other.desktop=/usr/bin/unrelated"},
            {"m.desktop -> $M", "other.desktop -> /usr/bin/unrelated", "z-old.desktop -> $OLD"},
            {kOther}, true, false);
        row("on, only an older copy", 1, {"a-old.desktop=$OLD"}, {own + " -> $M"}, {kAdded, kOther},
            true, false);
        row("on, no folder", 1, {}, {own + " -> $M"}, {kAdded}, true, false);
        // A hidden entry does not resolve: the companion gets an entry of its own beside it.
        row("on, hidden entry", 1, {own + "=$M hidden"},
            {"salvora3-menu-2.desktop -> $M", own + " -> "}, {kAdded}, true, false);
        // A missing companion file only keeps it from being started.
        row("on, no companion file", 1, {}, {own + " -> $M"}, {kAdded}, false, false, false, true);
        row("off", 0, {"a-old.desktop=$OLD", own + "=$M"}, {"a-old.desktop -> $OLD"}, {kRemoved},
            false, true);
        row("absent", -1, {"a-old.desktop=$OLD", own + "=$M"}, {"a-old.desktop -> $OLD"},
            {kRemoved}, false, true);
        row("off, nothing listed", 0, {}, {}, {}, false, true);
    }
    void install()
    {
        QFETCH(int, setting);
        QFETCH(bool, running);
        QFETCH(bool, noCompanion);
        QFETCH(QByteArrayList, given);
        QFETCH(QByteArrayList, listed);
        QFETCH(QByteArrayList, logged);
        QFETCH(bool, launch);
        QFETCH(bool, quit);
        const auto named = [this](QByteArray s) {
            return s.replace("$M", M).replace("$OLD", oldCopy);
        };
        if (setting >= 0) Settings::setInteger(SettingsKeys::PrefsLaunchMenu, setting);
        if (noCompanion) QVERIFY(::unlink(M.constData()) == 0);
        for (const QByteArray &g : given) {
            const QByteArrayList parts = named(g).split('=');
            const bool hidden = parts[1].endsWith(" hidden");
            entry(parts[0], hidden ? parts[1].chopped(7) : parts[1], hidden ? "Hidden=true\n" : "");
        }
        this->running = running;
        installCompanion();
        QByteArrayList expected;
        for (const QByteArray &l : listed)
            expected.append(named(l));
        QCOMPARE(entries(), expected);
        QCOMPARE(TestEnv::logMessages(), logged);
        QCOMPARE(launched, launch ? QStringList{QFile::decodeName(M)} : QStringList());
        if (given.isEmpty() && listed.isEmpty()) // nothing created either
            QVERIFY(!QFileInfo::exists(QFile::decodeName(autostart)));
        if (quit) {
            QTRY_COMPARE(quits->size(), 1);
            QCOMPARE(quits->at(0).at(1).toString(),
                     QLatin1String(Notifications::Salvora3MenuMustQuit));
        } else {
            QTest::qWait(50);
            QCOMPARE(quits->size(), 0);
        }
    }
    void execRoundTrip_data()
    {
        QTest::addColumn<QByteArray>("program");
        QTest::newRow("blanks") << QByteArray("/opt/Salvora 3/bin/salvora3-menu");
        QTest::newRow("quotes") << QByteArray("/a/\"q\"/'s'/b");
        QTest::newRow("shell characters") << QByteArray("/a/$HOME/`x`/b\\c;d|e&f");
        QTest::newRow("percent") << QByteArray("/a/100%/b%%u");
        QTest::newRow("control characters") << QByteArray("/a/new\nline\tand\rcr/b");
        QTest::newRow("not UTF-8") << QByteArray("/a/caf\xe9/b");
    }
    void execRoundTrip()
    {
        QFETCH(QByteArray, program);
        const QByteArray exec = AutostartList::execValueFor(program);
        QVERIFY(!exec.contains('\n'));
        QCOMPARE(AutostartList::programOf("[Desktop Entry]\nExec=" + exec + "\n"), program);
        QCOMPARE(AutostartList::programOf("[Desktop Entry]\nExec=" + exec + " --with %U\n"),
                 program);
    }

    void entriesThatDoNotResolve_data()
    {
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<QByteArray>("program");
        const auto row = [](const char *name, const char *entry, const char *program) {
            QTest::newRow(name) << QByteArray(entry) << QByteArray(program);
        };
        row("arguments", "[Desktop Entry]\nExec=/usr/bin/x --flag\n", "/usr/bin/x");
        row("spaces and CRLF", "[Desktop Entry]\r\nExec = \"/a b/c\" %u\r\n", "/a b/c");
        row("escaped blank", "[Desktop Entry]\nExec=/a\\sb\n", "/a");
        row("hidden", "[Desktop Entry]\nExec=/usr/bin/x\nHidden=true\n", "");
        row("relative program", "[Desktop Entry]\nExec=x --flag\n", "");
        row("other group", "[Desktop Action new]\nExec=/usr/bin/x\n", "");
        row("open quote", "[Desktop Entry]\nExec=\"/usr/bin/x\n", "");
        row("first Exec wins", "[Desktop Entry]\nExec=/a\nExec=/b\n", "/a");
    }
    void entriesThatDoNotResolve()
    {
        QFETCH(QByteArray, entry);
        QFETCH(QByteArray, program);
        QCOMPARE(AutostartList::programOf(entry), program);
    }

    void runningProgramsFromProc()
    {
        // A copy of sleep under a name of its own: counted by path (same file) and by name.
        const QByteArray name =
            "sv3-probe-" + QByteArray::number(QCoreApplication::applicationPid());
        const QByteArray copy = env->homeBytes() + "/run/" + name;
        QVERIFY(TestEnv::writeFile(copy, TestEnv::readFile("/bin/sleep")));
        QVERIFY(::chmod(copy.constData(), 0755) == 0);
        const QByteArray twin = env->homeBytes() + "/twin/" + name;
        QVERIFY(TestEnv::writeFile(twin, TestEnv::readFile("/bin/sleep")));
        QCOMPARE(CommonUtils::isApplicationLaunchedWithPath(QFile::decodeName(copy)), 0);
        QProcess p;
        p.start(QFile::decodeName(copy), {QStringLiteral("30")});
        QVERIFY(p.waitForStarted());
        QTRY_COMPARE(CommonUtils::isApplicationLaunchedWithPath(QFile::decodeName(copy)), 1);
        QCOMPARE(CommonUtils::isApplicationLaunchedWithName(QString::fromLatin1(name)), 1);
        QCOMPARE(CommonUtils::isApplicationLaunchedWithPath(QFile::decodeName(twin)),
                 0); // same bytes, other file
        QCOMPARE(CommonUtils::isApplicationLaunchedWithName(QString::fromLatin1(name.chopped(1))),
                 0);
        p.kill();
        QVERIFY(p.waitForFinished());
        QCOMPARE(CommonUtils::isApplicationLaunchedWithPath(QFile::decodeName(copy)), 0);
    }
};

QTEST_GUILESS_MAIN(TstLoginItems)
#include "tst_loginitems.moc"
