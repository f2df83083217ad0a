#include "browser/VolumeMenu.h"

#include "common/Locations.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/Volumes.h"

#include <QFile>
#include <QSysInfo>

namespace {

QString lastComponent(const QString &path)
{
    QString p = path;
    while (p.size() > 1 && p.endsWith(QLatin1Char('/')))
        p.chop(1);
    return p.mid(p.lastIndexOf(QLatin1Char('/')) + 1);
}

QString prettyName()
{
    for (const char *file : {"/etc/os-release", "/usr/lib/os-release"}) {
        QFile f(QString::fromLatin1(file));
        if (!f.open(QIODevice::ReadOnly)) continue;
        for (const QByteArray &line : f.readAll().split('\n')) {
            if (!line.startsWith("PRETTY_NAME=")) continue;
            QByteArray v = line.mid(12).trimmed();
            if (v.size() >= 2 && (v.startsWith('"') || v.startsWith('\'')) && v.endsWith(v.front()))
                v = v.mid(1, v.size() - 2);
            if (!v.isEmpty()) return QString::fromUtf8(v);
        }
    }
    return QSysInfo::machineHostName();
}

} // namespace

namespace VolumeMenu {

QString displayName(const QString &mountPath)
{
    if (mountPath == QLatin1String("/")) return prettyName();
    if (const auto d = CommonUtils::getVolumeInfosForPath(mountPath); d && !d->label.isEmpty())
        return d->label;
    return lastComponent(mountPath);
}

QList<VolumeMenuEntry> build()
{
    CommonUtils::updateAllProtectedVolumesList();
    const QStringList volumes = CommonUtils::getAllProtectedVolumes();
    QVariantMap snapshots =
        Settings::dictionary(SettingsKeys::ProtectedVolumesData).value_or(QVariantMap());

    QList<VolumeMenuEntry> menu;
    const QString home = lastComponent(QFile::decodeName(CommonUtils::homeFolder()));
    const QString root = displayName(QStringLiteral("/"));
    //% "%1 (current user)"
    const QString title = root.isEmpty() ? qtTrId("CurrentUser").arg(home)
                                         : QStringLiteral("%1 (%2)").arg(root, home);
    menu.append({title, QStringLiteral("/"), QString()});
    for (qsizetype i = 1; i < volumes.size(); ++i) {
        menu.append({lastComponent(volumes[i]), volumes[i], QString()});
        if (const auto d = CommonUtils::getVolumeInfosForPath(volumes[i]); d && !d->uuid.isEmpty())
            snapshots.remove(d->uuid);
    }
    for (auto it = snapshots.cbegin(); it != snapshots.cend(); ++it) {
        const QString stored = it.value().toMap().value(QStringLiteral("path")).toString();
        //% "%1 (unmounted)"
        menu.append({qtTrId("Unmounted").arg(lastComponent(stored)), QString(), it.key()});
    }
    return menu;
}

qsizetype cacheIndexOf(const QList<VolumeMenuEntry> &menu, qsizetype menuIndex)
{
    if (menuIndex < 0 || menuIndex >= menu.size() || !menu[menuIndex].isMounted()) return -1;
    return menuIndex; // mounted entries come first, in the protected list's order
}

} // namespace VolumeMenu
