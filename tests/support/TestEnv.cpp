#include "TestEnv.h"

#include "common/Settings.h"
#include "volumes/Volumes.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

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
    QSettings::setPath(Settings::jsonFormat(), QSettings::UserScope, QFile::decodeName(home + "/.config"));
    CommonUtils::resetVolumesLists();
}

TestEnv::~TestEnv()
{
    qputenv("HOME", mOldHome);
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

bool TestEnv::writeFile(const QByteArray &path, QByteArrayView content)
{
    QDir().mkpath(QFileInfo(QFile::decodeName(path)).absolutePath());
    QFile f(QFile::decodeName(path));
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return f.write(content.data(), content.size()) == content.size();
}

QByteArray TestEnv::readFile(const QByteArray &path)
{
    QFile f(QFile::decodeName(path));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool canMountPrivately(QString *why)
{
    if (geteuid() != 0) {
        *why = QStringLiteral("needs root to loop-mount a volume");
        return false;
    }
    // Refuse to mount anything in the machine's own namespace.
    if (QFileInfo(QStringLiteral("/proc/self/ns/mnt")).symLinkTarget() ==
        QFileInfo(QStringLiteral("/proc/1/ns/mnt")).symLinkTarget()) {
        *why = QStringLiteral("not in a private mount namespace (run it through ctest)");
        return false;
    }
    return true;
}
