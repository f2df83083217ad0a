#include "KeepFeed.h"

#include "browser/KeepPolicy.h"
#include "cache/CacheCommit.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "volumes/MountInfo.h"
#include "volumes/Volumes.h"

#include <QDateTime>
#include <QFile>
#include <QFileSystemWatcher>
#include <QSet>
#include <QTimer>

#include <climits>
#include <cstdlib>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

// The library compares the real paths of folders with the table's.
std::string canonical(const QByteArray &path)
{
    char real[PATH_MAX];
    return ::realpath(path.constData(), real) ? std::string(real) : path.toStdString();
}

std::vector<std::string> strings(const QByteArrayList &pieces)
{
    std::vector<std::string> out;
    for (const QByteArray &p : pieces)
        out.push_back(p.toStdString());
    return out;
}

} // namespace

KeepFeed::KeepFeed(QObject *parent)
    : QObject(parent), mWatcher(new QFileSystemWatcher(this)), mCoalesce(new QTimer(this))
{
    // A burst of deletions is told a few times a second, not once per item.
    mCoalesce->setSingleShot(true);
    mCoalesce->setInterval(300);
    connect(mCoalesce, &QTimer::timeout, this, [this] {
        // The library discards the day's size record as it keeps; once more after the burst.
        const QByteArray day = CommonUtils::nameForCacheFolderForToday().toLatin1();
        for (const QByteArray &cache : std::as_const(mCaches))
            ::unlink((cache + '/' + day + '/' + CommonUtils::kCacheInformationName).constData());
        emit kept();
    });
    connect(mWatcher, &QFileSystemWatcher::fileChanged, this, &KeepFeed::changed);
    // A new day's file appears as a change of the records' folder, and that folder as a change of
    // the cache: each is watched from then on. Only a change of the records tells of items.
    connect(mWatcher, &QFileSystemWatcher::directoryChanged, this, [this](const QString &path) {
        watch(mCaches);
        if (path.endsWith(QLatin1String(CacheCommit::kOriginsFolderName))) changed();
    });
}

keeptable::Table KeepFeed::tableFor(bool protection)
{
    const QByteArray home = CommonUtils::homeFolder();
    keeptable::Table t = keeptable::Table::withDefaults(
        home.toStdString(), canonical(CommonUtils::pathForTrashFolderInVolume(0)));
    t.on = protection;
    t.generation = quint64(QDateTime::currentMSecsSinceEpoch());
    const KeepPolicy::Exclusions exclusions = KeepPolicy::read().exclusions;
    t.lists[keeptable::ExcludedNames] = strings(exclusions.names());
    t.lists[keeptable::ExcludedExtensions] = strings(exclusions.extensions());
    const QByteArray uid = QByteArray::number(getuid());
    QSet<quint64> protectedDevices;
    for (const QString &volume : CommonUtils::getAllProtectedVolumes()) {
        const QByteArray path = QFile::encodeName(volume);
        struct stat st
        {
        };
        if (::stat(path == "/" ? home.constData() : path.constData(), &st) != 0) continue;
        if (path != "/") {
            // The volume's trashes hold the trash's own bookkeeping, never kept; their items are
            // kept as they are emptied.
            for (const QByteArray &trash : {path + "/.Trash-" + uid, path + "/.Trash/" + uid}) {
                t.lists[keeptable::ExcludedPlaces].push_back(trash.toStdString());
                t.lists[keeptable::Trashes].push_back(canonical(trash));
            }
        }
        // Only a cache that is there and sound: the library never makes one.
        const CacheFolder::Status status = CacheFolder::check(path, false);
        if (!status.ok()) continue;
        t.volumes.push_back({quint64(st.st_dev), status.path.toStdString(), path.toStdString()});
        protectedDevices.insert(quint64(st.st_dev));
    }
    for (const MountEntry &m : MountInfo::parse(MountInfo::readFile())) {
        const bool isProtected = protectedDevices.contains(quint64(makedev(m.major, m.minor)));
        t.lists[isProtected ? keeptable::ProtectedMounts : keeptable::OtherMounts].push_back(
            m.mountPoint.toStdString());
    }
    return t;
}

void KeepFeed::publish(bool protection)
{
    const keeptable::Table t = tableFor(protection);
    if (const int err = keeptable::publish(t, keeptable::defaultPath()))
        CommonUtils::addToLogFile(QStringLiteral("sv3daemon could not publish what to keep of "
                                                 "permanent deletions: %1.")
                                      .arg(QString::fromLocal8Bit(strerror(err))));
    QByteArrayList caches;
    for (const auto &v : t.volumes)
        caches.append(QByteArray::fromStdString(v.cachePath));
    watch(caches);
}

void KeepFeed::watch(const QByteArrayList &caches)
{
    mCaches = caches;
    const QStringList old = mWatcher->files() + mWatcher->directories();
    if (!old.isEmpty()) mWatcher->removePaths(old);
    const QByteArray day = CommonUtils::nameForCacheFolderForToday().toLatin1();
    for (const QByteArray &cache : caches) {
        const QByteArray origins = cache + '/' + CacheCommit::kOriginsFolderName;
        mWatcher->addPath(
            QFile::decodeName(QFile::exists(QFile::decodeName(origins)) ? origins : cache));
        const QString today = QFile::decodeName(CacheCommit::originsFileFor(cache, day));
        if (QFile::exists(today)) mWatcher->addPath(today);
    }
}

void KeepFeed::changed()
{
    if (!mCoalesce->isActive()) mCoalesce->start();
}
