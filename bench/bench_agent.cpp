// bench_agent: what the daemon's agent costs and how well it keeps listening.
//
//   dbus-run-session -- bench_agent SV3DAEMON [WORKDIR]
//
// In a private home under WORKDIR (default /tmp/salvora-bench/agent): the agent's CPU use while
// idle over 10 s (/proc/<pid>/stat), then the longest pause of its event loop (its own watchdog,
// read from its status line) and the time from SIGTERM to its exit, while it shadows a trashed
// folder of 60,000 files and while it purges 300 days of 3,000 files each (retention lowered).

#include "BenchUtil.h"

#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QThread>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray gHome;

void makeDirs(const QByteArray &path)
{
    QDir().mkpath(QFile::decodeName(path));
}

// `folders` x `files` empty files below root (made with plain system calls: this is the slow part).
void makeTree(const QByteArray &root, int folders, int files)
{
    for (int d = 0; d < folders; ++d) {
        const QByteArray dir = root + "/d" + QByteArray::number(d);
        makeDirs(dir);
        const int dfd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (int f = 0; f < files; ++f) {
            const int fd = ::openat(dfd, ("f" + QByteArray::number(f)).constData(),
                                    O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            if (fd >= 0) ::close(fd);
        }
        ::close(dfd);
    }
}

qint64 cpuTicks(qint64 pid)
{
    QFile f(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!f.open(QIODevice::ReadOnly)) return -1;
    const QByteArray stat = f.readAll();
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return fields.size() > 12 ? fields[11].toLongLong() + fields[12].toLongLong() : -1;
}

void pump(int ms)
{
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(5);
    }
}

bool waitFor(const std::function<bool()> &done, int ms)
{
    QElapsedTimer t;
    t.start();
    while (!done()) {
        if (t.elapsed() > ms) return false;
        pump(10);
    }
    return true;
}

class Agent
{
public:
    explicit Agent(const QString &program)
    {
        mProcess.setProcessChannelMode(QProcess::MergedChannels);
        mProcess.start(program, {});
        if (!waitFor([&] { return output().contains("sv3daemon ready"); }, 30000))
            std::fprintf(stderr, "bench_agent: the agent did not start:\n%s\n",
                         output().constData());
    }
    ~Agent()
    {
        if (mProcess.state() != QProcess::NotRunning) terminate();
    }
    qint64 pid() const { return mProcess.processId(); }
    QByteArray output()
    {
        mOutput += mProcess.readAll();
        return mOutput;
    }
    // Milliseconds from SIGTERM to its exit.
    qint64 terminate()
    {
        QElapsedTimer t;
        t.start();
        ::kill(pid_t(mProcess.processId()), SIGTERM);
        if (!mProcess.waitForFinished(30000)) mProcess.kill();
        return t.elapsed();
    }
    // Its own measure: the longest late beat of its event loop while it worked.
    qint64 longestStall()
    {
        const qsizetype before = CommonUtils::logFilePath().isEmpty() ? 0 : logSize();
        NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                              QLatin1String(Notifications::Salvora3GetStatus));
        const QRegularExpression re(
            QStringLiteral("longest pause of its event loop while working: (\\d+) ms"));
        qint64 ms = -1;
        waitFor(
            [&] {
                if (logSize() == before) return false;
                const auto m = re.match(QString::fromUtf8(log()));
                if (m.hasMatch()) ms = m.captured(1).toLongLong();
                return m.hasMatch();
            },
            10000);
        return ms;
    }

private:
    static QByteArray log()
    {
        QFile f(CommonUtils::logFilePath());
        return f.open(QIODevice::ReadOnly) ? f.read(4096) : QByteArray();
    }
    static qsizetype logSize() { return QFileInfo(CommonUtils::logFilePath()).size(); }
    QProcess mProcess;
    QByteArray mOutput;
};

void trash(const QByteArray &path, const QByteArray &name)
{
    const QByteArray t = gHome + "/.local/share/Trash";
    makeDirs(t + "/files");
    makeDirs(t + "/info");
    QFile info(QFile::decodeName(t + "/info/" + name + ".trashinfo"));
    info.open(QIODevice::WriteOnly);
    info.write("[Trash Info]\nPath=" + path + "\nDeletionDate=2024-05-03T14:07:55\n");
    info.close();
    ::rename(path.constData(), (t + "/files/" + name).constData());
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: dbus-run-session -- bench_agent SV3DAEMON [WORKDIR]\n");
        return 2;
    }
    const QString daemon = QString::fromLocal8Bit(argv[1]);
    gHome = QByteArray(argc > 2 ? argv[2] : "/tmp/salvora-bench/agent") + "/home";
    QDir(QFile::decodeName(gHome)).removeRecursively();
    makeDirs(gHome + "/.run");
    ::chmod((gHome + "/.run").constData(), 0700);
    qputenv("HOME", gHome);
    qputenv("XDG_CONFIG_HOME", gHome + "/.config");
    qputenv("XDG_DATA_HOME", gHome + "/.local/share");
    qputenv("XDG_CACHE_HOME", gHome + "/.cache");
    qputenv("XDG_RUNTIME_DIR", gHome + "/.run");
    QSettings::setPath(Settings::jsonFormat(), QSettings::UserScope,
                       QFile::decodeName(gHome + "/.config"));
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
    Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 0);
    const long tick = sysconf(_SC_CLK_TCK);

    {
        Agent a(daemon);
        pump(1000); // its start-up work done
        const qint64 before = cpuTicks(a.pid());
        pump(10000);
        std::printf("idle CPU over 10 s: %lld tick(s) of 1/%ld s (target 0)\n",
                    cpuTicks(a.pid()) - before, tick);
    }

    // Shadowing a 60,000-file folder: measured to its end, then SIGTERM in the middle of another.
    makeTree(gHome + "/bigA", 60, 1000);
    makeTree(gHome + "/bigB", 60, 1000);
    {
        Agent a(daemon);
        QElapsedTimer t;
        t.start();
        trash(gHome + "/bigA", "bigA");
        waitFor([&] { return a.output().contains("shadow of bigA"); }, 120000);
        const qint64 walked = t.elapsed();
        std::printf("shadow of a 60,000-file folder: %lld ms; longest event-loop stall meanwhile: "
                    "%lld ms (target <= 50)\n",
                    walked, a.longestStall());
    }
    {
        Agent a(daemon);
        trash(gHome + "/bigB", "bigB");
        pump(300);
        const bool working = !a.output().contains("shadow of bigB");
        std::printf("exit after SIGTERM while shadowing 60,000 files: %lld ms (target <= 1000)%s\n",
                    a.terminate(), working ? "" : " [the shadow had already ended]");
    }

    // Purging 300 days of 3,000 files each: SIGTERM 1 s into it, then the rest of it measured.
    const QByteArray cache = gHome + "/.Salvora3Cache";
    const QDate today = QDate::currentDate();
    QElapsedTimer gen;
    gen.start();
    QByteArrayList days;
    for (int d = 0; d < 300; ++d) {
        const QByteArray day =
            today.addDays(-400 - d).toString(QStringLiteral("yyyy-MM-dd")).toLatin1();
        makeTree(cache + '/' + day + '/' + day + " 10_00_00/old", 3, 1000);
        days << cache + '/' + day;
    }
    std::printf("(generated 300 days x 3,000 files in %lld ms)\n", gen.elapsed());
    Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 30);
    const auto left = [&] {
        int n = 0;
        for (const QByteArray &d : days)
            n += QFileInfo::exists(QFile::decodeName(d));
        return n;
    };
    qint64 stall = 0;
    {
        Agent a(daemon);
        pump(1000);
        const int remaining = left();
        stall = a.longestStall();
        std::printf("exit after SIGTERM while purging (%d of 300 days left): %lld ms (target <= "
                    "1000)\n",
                    remaining, a.terminate());
    }
    {
        Agent a(daemon);
        QElapsedTimer t;
        t.start();
        waitFor([&] { return left() == 0; }, 600000);
        const qint64 ms = t.elapsed();
        stall = std::max(stall, a.longestStall());
        std::printf("purge of 300 days x 3,000 files ended %lld ms after the restart; longest "
                    "event-loop stall over the whole purge: %lld ms (target <= 50)\n",
                    ms, stall);
    }
    QDir(QFile::decodeName(gHome)).removeRecursively();
    return 0;
}
