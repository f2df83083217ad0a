#include "DaemonHarness.h"

#include "cache/CacheCommit.h"
#include "cache/CacheLayout.h"
#include "common/Log.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/MountInfo.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Harness {

bool Daemon::start()
{
    mOutput.clear();
    mProcess.start(mProgram, mArgs);
    if (!mProcess.waitForStarted(5000)) return false;
    // Gives up early when the daemon has ended without saying it.
    const auto ready = [&] { return output().contains("sv3daemon ready"); };
    return QTest::qWaitFor([&] { return ready() || !isRunning(); }, 15000) && ready();
}

bool Daemon::stop()
{
    if (mProcess.state() == QProcess::NotRunning) return true;
    ::kill(pid_t(mProcess.processId()), SIGTERM);
    if (mProcess.waitForFinished(10000)) {
        output();
        return mProcess.exitStatus() == QProcess::NormalExit;
    }
    mProcess.kill();
    mProcess.waitForFinished(5000);
    return false;
}

void DaemonSuite::initTestCase()
{
    if (!bus.observe(QLatin1String(Notifications::Salvora3Notification)))
        QSKIP("no session bus (run through ctest, which starts a private one)");
    if (!haveProgram("gio") || !haveProgram("trash-put") || !haveProgram("trash-empty"))
        QSKIP("needs gio (libglib2.0-bin) and trash-cli; see scripts/deps.sh");
    if (const QString why = missing(); !why.isEmpty()) QSKIP(qPrintable(why));
    // The bus starts services (gvfsd, which empties the trash for `gio trash --empty`) with the
    // test's home, never the real one.
    using Environment = QMap<QString, QString>;
    qDBusRegisterMetaType<Environment>();
    Environment vars;
    for (const char *name :
         {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"})
        vars.insert(QLatin1String(name), QString::fromLocal8Bit(qgetenv(name)));
    QDBusMessage m = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("UpdateActivationEnvironment"));
    m << QVariant::fromValue(vars);
    QCOMPARE(QDBusConnection::sessionBus().call(m).type(), QDBusMessage::ReplyMessage);
    QVERIFY(TestEnv::makeFolders(trash + "/files") && TestEnv::makeFolders(trash + "/info"));
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
    Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 0);
    prepare();
    if (!QTest::currentTestFailed()) QVERIFY2(daemon.start(), daemon.output().constData());
}

void DaemonSuite::cleanupTestCase()
{
    QVERIFY(daemon.stop());
}

int DaemonSuite::heard(const char *object) const
{
    return int(std::count_if(spy.begin(), spy.end(), [&](const QList<QVariant> &args) {
        return args.value(1).toString() == QLatin1String(object);
    }));
}

bool DaemonSuite::shadowedSince(int mark, const QByteArray &cacheFolder, int count)
{
    return QTest::qWaitFor([&] { return pendingCount(cacheFolder) == count; }, 10000) &&
           daemon.waitForShadows(mark + count);
}

bool DaemonSuite::trashAndShadow(const QByteArray &cacheFolder, const QByteArrayList &paths)
{
    const int mark = daemon.shadowsTaken();
    return trashPut(paths) && shadowedSince(mark, cacheFolder, int(paths.size()));
}

bool haveProgram(const char *name)
{
    return !QStandardPaths::findExecutable(QLatin1String(name)).isEmpty();
}

bool foreignTrashExists()
{
    const QByteArray uid = QByteArray::number(getuid());
    for (const MountEntry &e : MountInfo::parse(MountInfo::readFile())) {
        const QByteArray top = e.mountPoint == "/" ? QByteArray() : e.mountPoint;
        if (TestEnv::exists(top + "/.Trash-" + uid) || TestEnv::exists(top + "/.Trash/" + uid))
            return true;
    }
    return false;
}

bool makeTree(const QByteArray &root, int folders, int files)
{
    for (int d = 0; d < folders; ++d)
        for (int f = 0; f < files; ++f)
            if (!TestEnv::writeFile(root + "/d" + QByteArray::number(d) + "/f" +
                                        QByteArray::number(f),
                                    root + QByteArray::number(d * 100000 + f)))
                return false;
    return true;
}

bool trashPut(const QByteArrayList &paths)
{
    QStringList args;
    for (const QByteArray &p : paths)
        args << str(p);
    return run(QStringLiteral("trash-put"), args);
}

bool emptyTrash(const QByteArray &trash)
{
    return run(QStringLiteral("trash-empty"), {QStringLiteral("--trash-dir=") + str(trash)});
}

bool trashByHand(const QByteArray &trash, const QByteArray &path, const QByteArray &trashName,
                 const QByteArray &origin)
{
    const QByteArray info =
        "[Trash Info]\nPath=" + (origin.isEmpty() ? path : origin).toPercentEncoding("/") +
        "\nDeletionDate=2024-05-03T14:07:55\n";
    return TestEnv::makeFolders(trash + "/files") &&
           TestEnv::writeFile(trash + "/info/" + trashName + ".trashinfo", info) &&
           ::rename(path.constData(), (trash + "/files/" + trashName).constData()) == 0;
}

bool emptyByHand(const QByteArray &trash, const QByteArray &trashName)
{
    return removeTree(trash + "/files/" + trashName) &&
           ::unlink((trash + "/info/" + trashName + ".trashinfo").constData()) == 0;
}

QByteArrayList names(const QByteArray &folder, bool hidden)
{
    QByteArrayList out;
    if (DIR *d = opendir(folder.constData())) {
        while (dirent *e = readdir(d))
            if (qstrcmp(e->d_name, ".") != 0 && qstrcmp(e->d_name, "..") != 0 &&
                (hidden || e->d_name[0] != '.'))
                out.append(QByteArray(e->d_name));
        closedir(d);
    }
    std::sort(out.begin(), out.end());
    return out;
}

namespace {

void walk(const QByteArray &base, const QByteArray &rel, bool owners, bool times,
          QMap<QByteArray, QByteArray> &out)
{
    const QByteArray full = rel.isEmpty() ? base : base + '/' + rel;
    struct stat st = {};
    if (lstat(full.constData(), &st) != 0) return;
    char link[4096];
    const ssize_t n = S_ISLNK(st.st_mode) ? readlink(full.constData(), link, sizeof link) : 0;
    QByteArray v = S_ISDIR(st.st_mode)   ? QByteArray("d")
                   : S_ISREG(st.st_mode) ? "f:" + TestEnv::readFile(full)
                                         : "l:" + QByteArray(link, n > 0 ? n : 0);
    if (times && !S_ISLNK(st.st_mode))
        v = QByteArray::number(qint64(st.st_mtim.tv_sec)) + '.' +
            QByteArray::number(qint64(st.st_mtim.tv_nsec)) + ' ' + v;
    if (owners)
        v = QByteArray::number(st.st_mode, 8) + ' ' + QByteArray::number(st.st_uid) + ' ' + v;
    if (owners || !rel.isEmpty() || !S_ISDIR(st.st_mode)) out.insert(rel, v);
    if (S_ISDIR(st.st_mode))
        for (const QByteArray &name : names(full))
            walk(base, rel.isEmpty() ? name : rel + '/' + name, owners, times, out);
}

} // namespace

QMap<QByteArray, QByteArray> snapshot(const QByteArray &folder, bool owners, bool times)
{
    QMap<QByteArray, QByteArray> out;
    walk(folder, {}, owners, times, out);
    return out;
}

QByteArrayList cachedItems(const QByteArray &cacheFolder)
{
    QByteArrayList items;
    for (const QByteArray &day : names(cacheFolder, false))
        for (const QByteArray &time : names(cacheFolder + '/' + day, false))
            // Hidden names too: a kept item may be one.
            for (const QByteArray &name : names(cacheFolder + '/' + day + '/' + time))
                items.append(day + '/' + time + '/' + name);
    std::sort(items.begin(), items.end());
    return items;
}

QByteArray kept(const QByteArray &cacheFolder, const QByteArray &name)
{
    const QByteArrayList items = cachedItems(cacheFolder);
    for (auto it = items.crbegin(); it != items.crend(); ++it)
        if (it->endsWith('/' + name)) return cacheFolder + '/' + *it;
    return {};
}

bool keptFrom(const QByteArray &cacheFolder, const QByteArray &path)
{
    const QList<CacheCommit::Origin> origins = CacheCommit::readOrigins(cacheFolder, day());
    return std::any_of(origins.begin(), origins.end(),
                       [&](const CacheCommit::Origin &o) { return o.path == path; });
}

int pendingCount(const QByteArray &cacheFolder)
{
    return int(names(cacheFolder + "/.pending/" + QByteArray::number(getuid()), false).size());
}

qint64 cpuNanoseconds(qint64 pid)
{
    // The first field of each thread's schedstat: the time it ran, in nanoseconds.
    const QString tasks = QStringLiteral("/proc/%1/task").arg(pid);
    const QStringList threads = QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    if (threads.isEmpty()) return -1;
    qint64 sum = 0;
    for (const QString &t : threads)
        sum += TestEnv::readFile(QFile::encodeName(tasks + '/' + t) + "/schedstat")
                   .split(' ')
                   .value(0)
                   .toLongLong();
    return sum;
}

QByteArray statusLine(qint64 pid, const char *key)
{
    QFile f(QStringLiteral("/proc/%1/status").arg(pid));
    if (!f.open(QIODevice::ReadOnly)) return {};
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith(QByteArray(key) + ':')) return line.mid(qstrlen(key) + 1).simplified();
    return {};
}

} // namespace Harness
