#include "common/Locations.h"

#include "common/Folders.h"

#include <QDir>
#include <QFileInfo>

#include <pwd.h>
#include <unistd.h>

namespace {

// The install prefix when the executable sits in prefix/bin or prefix/libexec/salvora3.
QString prefixFor(const QString &exe)
{
    const QString dir = QFileInfo(exe).absolutePath();
    if (dir.endsWith(QLatin1String("/bin"))) return dir.chopped(4);
    if (dir.endsWith(QLatin1String("/libexec/salvora3"))) return dir.chopped(17);
    return {};
}

QString firstExisting(std::initializer_list<QString> candidates)
{
    for (const QString &c : candidates)
        if (!c.isEmpty() && QFileInfo::exists(c)) return c;
    return {};
}

QString withPrefix(const QString &prefix, const char *rest)
{
    return prefix.isEmpty() ? QString() : prefix + QLatin1String(rest);
}

} // namespace

namespace CommonUtils {

QByteArray homeFolder()
{
    QByteArray home = qgetenv("HOME");
    if (home.isEmpty()) {
        if (const passwd *pw = getpwuid(getuid())) home = pw->pw_dir;
    }
    return home;
}

QString pathForApplicationSupportFolder(const QString &name)
{
    QByteArray base = qgetenv("XDG_DATA_HOME");
    if (!base.startsWith('/')) base = homeFolder() + "/.local/share";
    const QString folder = QFile::decodeName(base) + QLatin1String("/Salvora 3");
    createFolder(QFile::encodeName(folder));
    return name.isNull() ? folder : folder + QLatin1Char('/') + name;
}

QString getUIDStr()
{
    return QString::number(getuid());
}

QString ownExecutablePath()
{
    return QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
}

QString daemonAppPathFor(const QString &exe)
{
    const QString prefix = prefixFor(exe);
    return firstExisting({withPrefix(prefix, "/libexec/salvora3/sv3daemon"),
                          withPrefix(prefix, "/share/salvora3/sv3daemon"),
                          QFileInfo(exe).absolutePath() + QLatin1String("/sv3daemon")});
}

QString launcherAppPathFor(const QString &exe)
{
    const QString prefix = prefixFor(exe);
    return firstExisting({withPrefix(prefix, "/libexec/salvora3/adminlauncher"),
                          QFileInfo(exe).absolutePath() + QLatin1String("/adminlauncher")});
}

QString menuAppPathFor(const QString &exe)
{
    const QString prefix = prefixFor(exe);
    return firstExisting({withPrefix(prefix, "/bin/salvora3-menu"),
                          QFileInfo(exe).absolutePath() + QLatin1String("/salvora3-menu")});
}

QString mainAppPathFor(const QString &exe)
{
    // Like the original lookup, only the name is tested, not the file.
    if (exe.endsWith(QLatin1String("/salvora3"))) return exe;
    const QString dir = QFileInfo(exe).absolutePath();
    if (dir.endsWith(QLatin1String("/libexec/salvora3")))
        return prefixFor(exe) + QLatin1String("/bin/salvora3");
    if (dir.isEmpty()) return {};
    return dir + QLatin1String("/salvora3");
}

QString resourcesFolderFor(const QString &exe)
{
    const QString prefix = prefixFor(exe);
    if (!prefix.isEmpty() && QFileInfo(prefix + QLatin1String("/share/salvora3")).isDir())
        return prefix + QLatin1String("/share/salvora3");
    return QFileInfo(exe).absolutePath() + QLatin1String("/../resources");
}

QString daemonAppPath()
{
    return daemonAppPathFor(ownExecutablePath());
}

QString menuAppPath()
{
    return menuAppPathFor(ownExecutablePath());
}

QString mainAppPath()
{
    return mainAppPathFor(ownExecutablePath());
}

} // namespace CommonUtils
