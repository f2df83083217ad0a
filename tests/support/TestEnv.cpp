#include "TestEnv.h"

#include "browser/Removal.h"
#include "cache/CacheCommit.h"
#include "common/Log.h"
#include "common/Settings.h"
#include "volumes/Volumes.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

TestEnv::TestEnv() : mOldHome(qgetenv("HOME"))
{
    QStandardPaths::setTestModeEnabled(true);
    const QByteArray home = homeBytes();
    qputenv("HOME", home);
    qputenv("XDG_CONFIG_HOME", home + "/.config");
    qputenv("XDG_DATA_HOME", home + "/.local/share");
    qputenv("XDG_CACHE_HOME", home + "/.cache");
    qputenv("XDG_RUNTIME_DIR", home + "/.run");
    QDir().mkpath(QFile::decodeName(home + "/.run"));
    ::chmod(home + "/.run", 0700);
    QSettings::setPath(Settings::jsonFormat(), QSettings::UserScope,
                       QFile::decodeName(home + "/.config"));
    CommonUtils::resetVolumesLists();
}

TestEnv::~TestEnv()
{
    qputenv("HOME", mOldHome);
    // By bytes: QTemporaryDir cannot remove names that are not UTF-8.
    Removal::removeTree(homeBytes());
}

bool TestEnv::runProgram(const QString &program, const QStringList &args, QByteArray *output)
{
    QProcess p;
    p.setProcessChannelMode(output ? QProcess::MergedChannels : QProcess::ForwardedChannels);
    p.start(program, args);
    const bool ok =
        p.waitForFinished(60000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    if (output) *output = p.readAll();
    return ok;
}

bool TestEnv::mountExt4Image(const QString &image, const QString &uuid, const QString &mountPoint,
                             int megabytes)
{
    return runProgram(QStringLiteral("truncate"),
                      {QStringLiteral("-s%1M").arg(megabytes), image}) &&
           runProgram(QStringLiteral("mkfs.ext4"), {QStringLiteral("-q"), QStringLiteral("-F"),
                                                    QStringLiteral("-U"), uuid.toLower(), image}) &&
           QDir().mkpath(mountPoint) &&
           runProgram(QStringLiteral("mount"),
                      {QStringLiteral("-o"), QStringLiteral("loop"), image, mountPoint});
}

mode_t TestEnv::modeOf(const QByteArray &path)
{
    struct stat st = {};
    return lstat(path.constData(), &st) == 0 ? st.st_mode & 07777 : 0;
}

bool TestEnv::exists(const QByteArray &path)
{
    struct stat st = {};
    return lstat(path.constData(), &st) == 0;
}

QByteArray TestEnv::keep(const QByteArray &cache, const QByteArray &day, const QByteArray &time,
                         const QByteArray &name, const CacheCommit::Completeness &completeness)
{
    const QByteArray from = homeBytes() + "/.keep";
    if (!makeFolders(cache) || !writeFile(from + '/' + name, "kept")) return {};
    const int src = ::open(from.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int dst = ::open(cache.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const CacheCommit::Result r = CacheCommit::moveIntoFolder(
        src, name, dst, cache, day, time, name, homeBytes() + "/docs/" + name, completeness);
    ::close(src);
    ::close(dst);
    return r.cachedPath;
}

QByteArray TestEnv::logText()
{
    return readFile(QFile::encodeName(CommonUtils::logFilePath()));
}

QByteArrayList TestEnv::logMessages()
{
    QByteArrayList messages;
    for (const QByteArray &line : logText().split('\n'))
        if (line.size() > 22) messages.append(line.mid(22)); // after "yyyy-MM-dd HH:mm:ss - "
    return messages;
}

QByteArray TestEnv::homeBytes() const
{
    return QFile::encodeName(mDir.path());
}

void TestEnv::clearSettings()
{
    QFile::remove(Settings::fileName());
    Settings::sync();
}

bool TestEnv::makeFolders(const QByteArray &path)
{
    // Byte paths all the way: names need not be UTF-8.
    for (qsizetype i = 1; i <= path.size(); ++i) {
        if (i < path.size() && path[i] != '/') continue;
        const QByteArray part = path.left(i);
        if (::mkdir(part.constData(), 0777) != 0 && errno != EEXIST) return false;
    }
    return true;
}

bool TestEnv::writeFile(const QByteArray &path, QByteArrayView content)
{
    const qsizetype slash = path.lastIndexOf('/');
    if (slash > 0 && !makeFolders(path.left(slash))) return false;
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    const bool ok = ::write(fd, content.data(), std::size_t(content.size())) == content.size();
    return ::close(fd) == 0 && ok;
}

bool TestEnv::writeOrigin(const QByteArray &cache, const QByteArray &day, const QByteArray &time,
                          const QByteArray &name, const QByteArray &originalPath)
{
    auto put = [](QJsonObject &o, const char *key, const QByteArray &bytes) {
        if (QString::fromUtf8(bytes).toUtf8() == bytes)
            o.insert(QLatin1String(key), QString::fromUtf8(bytes));
        else
            o.insert(QLatin1String(key) + QLatin1String("64"),
                     QString::fromLatin1(bytes.toBase64()));
    };
    QJsonObject o;
    o.insert(QLatin1String("time"), QString::fromLatin1(time));
    put(o, "name", name);
    put(o, "path", originalPath);
    o.insert(QLatin1String("uid"), qint64(getuid()));
    const QByteArray file = CacheCommit::originsFileFor(cache, day);
    const QByteArray line = QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
    return writeFile(file, readFile(file) + line);
}

QByteArray TestEnv::readFile(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    QByteArray data;
    char buf[65536];
    for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;)
        data.append(buf, n);
    ::close(fd);
    return data;
}

bool canMountPrivately(QString *why)
{
    if (geteuid() != 0) {
        *why = QStringLiteral("needs root to loop-mount a volume");
        return false;
    }
    // Refuse to mount anything in the machine's own namespace: only in the one that
    // in-private-mount-ns.sh made (comparing with /proc/1/ns/mnt is not enough, as init's may be
    // unreadable even to root).
    char self[64] = {};
    const ssize_t n = ::readlink("/proc/self/ns/mnt", self, sizeof self - 1);
    const QByteArray made = qgetenv("SALVORA_PRIVATE_MOUNT_NS");
    if (n <= 0 || made.isEmpty() || made != QByteArray(self, n) ||
        QFileInfo(QStringLiteral("/proc/self/ns/mnt")).symLinkTarget() ==
            QFileInfo(QStringLiteral("/proc/1/ns/mnt")).symLinkTarget()) {
        *why = QStringLiteral("not in a private mount namespace (run it through ctest)");
        return false;
    }
    return true;
}
