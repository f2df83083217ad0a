#include "DaemonHarness.h"

#include "common/Log.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QFile>
#include <QStandardPaths>
#include <QTest>

#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Harness {

QString binary(const char *name)
{
    return QString::fromLocal8Bit(qgetenv("SALVORA_BIN_DIR")) + QLatin1Char('/') +
           QLatin1String(name);
}

Daemon::Daemon(QString program) : mProgram(std::move(program))
{
    mProcess.setProcessChannelMode(QProcess::MergedChannels);
}

Daemon::~Daemon()
{
    stop();
}

bool Daemon::start(int timeoutMs)
{
    mOutput.clear();
    mProcess.start(mProgram, {});
    if (!mProcess.waitForStarted(5000)) return false;
    return waitForOutput("sv3daemon ready", timeoutMs);
}

bool Daemon::stop(int timeoutMs)
{
    if (mProcess.state() == QProcess::NotRunning) return true;
    ::kill(pid_t(mProcess.processId()), SIGTERM);
    if (mProcess.waitForFinished(timeoutMs)) {
        output();
        return mProcess.exitStatus() == QProcess::NormalExit;
    }
    mProcess.kill();
    mProcess.waitForFinished(5000);
    return false;
}

QByteArray Daemon::output()
{
    mOutput += mProcess.readAll();
    return mOutput;
}

bool Daemon::waitForOutput(const QByteArray &needle, int timeoutMs)
{
    return QTest::qWaitFor(
               [&] {
                   if (mProcess.state() == QProcess::NotRunning && !output().contains(needle))
                       return true;
                   return output().contains(needle);
               },
               timeoutMs) &&
           output().contains(needle);
}

int Daemon::shadowsTaken()
{
    return int(output().count("shadow of "));
}

bool Daemon::waitForShadows(int count, int timeoutMs)
{
    return QTest::qWaitFor([&] { return shadowsTaken() >= count; }, timeoutMs);
}

bool run(const QString &program, const QStringList &args, QByteArray *output, int timeoutMs)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    const bool ok =
        p.waitForFinished(timeoutMs) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    const QByteArray out = p.readAll();
    if (output) *output = out;
    if (!ok) qWarning().noquote() << program << args.join(QLatin1Char(' ')) << "failed:" << out;
    return ok;
}

bool haveProgram(const char *name)
{
    return !QStandardPaths::findExecutable(QLatin1String(name)).isEmpty();
}

bool pointBusActivationAtTestHome()
{
    using Environment = QMap<QString, QString>;
    qDBusRegisterMetaType<Environment>();
    Environment env;
    for (const char *name :
         {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"})
        env.insert(QLatin1String(name), QString::fromLocal8Bit(qgetenv(name)));
    QDBusMessage m = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("UpdateActivationEnvironment"));
    m << QVariant::fromValue(env);
    return QDBusConnection::sessionBus().call(m).type() == QDBusMessage::ReplyMessage;
}

namespace {

void snapshotInto(const QByteArray &base, const QByteArray &rel, QMap<QByteArray, QByteArray> &out)
{
    DIR *d = opendir((rel.isEmpty() ? base : base + '/' + rel).constData());
    if (!d) return;
    QByteArrayList names;
    while (dirent *e = readdir(d))
        if (qstrcmp(e->d_name, ".") != 0 && qstrcmp(e->d_name, "..") != 0)
            names.append(QByteArray(e->d_name));
    closedir(d);
    for (const QByteArray &name : names) {
        const QByteArray r = rel.isEmpty() ? name : rel + '/' + name;
        const QByteArray full = base + '/' + r;
        struct stat st{};
        if (lstat(full.constData(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            out.insert(r, "d");
            snapshotInto(base, r, out);
        } else if (S_ISLNK(st.st_mode)) {
            char buf[4096];
            const ssize_t n = readlink(full.constData(), buf, sizeof buf);
            out.insert(r, "l:" + QByteArray(buf, n > 0 ? n : 0));
        } else {
            const int fd = ::open(full.constData(), O_RDONLY | O_CLOEXEC);
            QByteArray content;
            char buf[65536];
            for (ssize_t n; fd >= 0 && (n = ::read(fd, buf, sizeof buf)) > 0;)
                content.append(buf, n);
            if (fd >= 0) ::close(fd);
            out.insert(r, "f:" + content);
        }
    }
}

QByteArrayList entries(const QByteArray &folder)
{
    QByteArrayList names;
    if (DIR *d = opendir(folder.constData())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.') names.append(QByteArray(e->d_name));
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

QMap<QByteArray, QByteArray> snapshot(const QByteArray &folder)
{
    QMap<QByteArray, QByteArray> out;
    snapshotInto(folder, {}, out);
    return out;
}

QByteArrayList cachedItems(const QByteArray &cacheFolder)
{
    QByteArrayList items;
    for (const QByteArray &day : entries(cacheFolder))
        for (const QByteArray &time : entries(cacheFolder + '/' + day)) {
            // Hidden names too: a kept item may be one.
            DIR *d = opendir((cacheFolder + '/' + day + '/' + time).constData());
            if (!d) continue;
            while (dirent *e = readdir(d))
                if (qstrcmp(e->d_name, ".") != 0 && qstrcmp(e->d_name, "..") != 0)
                    items.append(day + '/' + time + '/' + e->d_name);
            closedir(d);
        }
    std::sort(items.begin(), items.end());
    return items;
}

int pendingCount(const QByteArray &cacheFolder)
{
    return int(entries(cacheFolder + "/.pending/" + QByteArray::number(getuid())).size());
}

bool removeTree(const QByteArray &path)
{
    struct stat st{};
    if (lstat(path.constData(), &st) != 0) return errno == ENOENT;
    if (S_ISDIR(st.st_mode)) {
        QByteArrayList names;
        if (DIR *d = opendir(path.constData())) {
            while (dirent *e = readdir(d))
                if (qstrcmp(e->d_name, ".") != 0 && qstrcmp(e->d_name, "..") != 0)
                    names.append(QByteArray(e->d_name));
            closedir(d);
        }
        for (const QByteArray &n : names)
            removeTree(path + '/' + n);
        return rmdir(path.constData()) == 0;
    }
    return unlink(path.constData()) == 0;
}

QByteArray logContent()
{
    QFile f(CommonUtils::logFilePath());
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

qint64 cpuTicks(qint64 pid)
{
    QFile f(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!f.open(QIODevice::ReadOnly)) return -1;
    const QByteArray stat = f.readAll();
    // Fields after the command name, which may hold blanks, start after the last ')'.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    // utime and stime are fields 14 and 15 of the line, 12 and 13 after the name.
    return fields.size() > 12 ? fields[11].toLongLong() + fields[12].toLongLong() : -1;
}

} // namespace Harness
