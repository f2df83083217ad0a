#include "cache/SpaceGuard.h"

#include "SafeFile.h"
#include "SafeRemove.h"
#include "UniqueFd.h"
#include "cache/CacheCommit.h"
#include "cache/CacheLayout.h"
#include "cache/FolderWalk.h"
#include "common/Locations.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace SpaceGuard {

namespace {

constexpr char kRecordName[] = "Salvora 3 Space Guard.txt";

QByteArray recordFolder()
{
    return QFile::encodeName(CommonUtils::pathForApplicationSupportFolder());
}

} // namespace

qint64 Threshold::bytesFor(qint64 totalBytes) const
{
    if (percent <= 0 || floorBytes <= 0 || totalBytes <= 0) return 0;
    return std::min(totalBytes / 100 * percent + totalBytes % 100 * percent / 100, floorBytes);
}

Threshold readThreshold()
{
    Threshold t;
    if (const auto p = Settings::integer(SettingsKeys::PrefsKeepFreePercent))
        t.percent = std::clamp<qint64>(*p, 0, 50);
    if (const auto b = Settings::integer(SettingsKeys::PrefsKeepFreeBytes))
        t.floorBytes = std::max<qint64>(*b, 0);
    return t;
}

std::optional<Space> spaceOf(int fd)
{
    struct statvfs s
    {
    };
    if (::fstatvfs(fd, &s) != 0) return std::nullopt;
    const auto unit = qint64(s.f_frsize ? s.f_frsize : s.f_bsize);
    return Space{qint64(s.f_blocks) * unit, qint64(s.f_bavail) * unit};
}

Outcome run(int cacheFd, const Threshold &threshold, const QDate &today,
            const std::atomic<bool> &stop, const Probe &probe)
{
    Outcome o;
    o.before = probe(cacheFd);
    o.after = o.before;
    if (!o.before) return o;
    o.wantedFree = threshold.bytesFor(o.before->totalBytes);
    if (o.before->availableBytes >= o.wantedFree) return o;

    // Day folders are named yyyy-MM-dd: by name is by age.
    QByteArrayList days;
    FolderWalk::forEachEntry(cacheFd, [&](const char *name, FolderWalk::Type type) {
        if (type != FolderWalk::Type::Directory || std::strncmp(name, "20", 2) != 0) return;
        const auto date = CommonUtils::dateForCacheFolder(QByteArrayView(name));
        if (date && date->date() < today) days.append(QByteArray(name));
    });
    std::sort(days.begin(), days.end());
    for (const QByteArray &day : std::as_const(days)) {
        const int err = saferemove::removeBeneath(cacheFd, day.toStdString(), &stop);
        if (err == ECANCELED) {
            o.cancelled = true;
            return o;
        }
        if (err != 0) {
            // What went may still have freed enough; the next day is tried either way.
            o.failures << QStringLiteral("%1 (%2)").arg(QString::fromLatin1(day),
                                                        QString::fromLocal8Bit(std::strerror(err)));
        } else {
            ::unlinkat(
                cacheFd,
                (QByteArray(CacheCommit::kOriginsFolderName) + '/' + day + ".jsonl").constData(),
                0);
            o.removed << day;
        }
        o.after = probe(cacheFd);
        if (!o.after || o.after->availableBytes >= o.wantedFree) break;
    }
    return o;
}

void recordAction(const Action &a)
{
    const UniqueFd dir(safefile::openPathCreating(recordFolder().toStdString(), 0700));
    if (dir.fd < 0) return;
    const QByteArray line = a.when.toUTC().toString(Qt::ISODate).toLatin1() + '\t' +
                            QByteArray::number(a.wantedFree) + '\t' + QByteArray::number(a.days) +
                            '\t' + a.volume + '\n';
    safefile::replaceFile(dir.fd, kRecordName, line.toStdString(), 0600);
}

std::optional<Action> lastAction()
{
    const safefile::ReadResult r =
        safefile::readRegular(AT_FDCWD, (recordFolder() + '/' + kRecordName).constData(), 8192);
    if (r.error) return std::nullopt;
    QByteArray line = QByteArray::fromStdString(r.data);
    if (line.endsWith('\n')) line.chop(1);
    // The volume comes last: a mount path may hold tabs.
    const QList<QByteArray> f = line.split('\t');
    if (f.size() < 4) return std::nullopt;
    Action a;
    a.when = QDateTime::fromString(QString::fromLatin1(f[0]), Qt::ISODate);
    bool ok1 = false, ok2 = false;
    a.wantedFree = f[1].toLongLong(&ok1);
    a.days = f[2].toInt(&ok2);
    a.volume = line.mid(f[0].size() + f[1].size() + f[2].size() + 3);
    if (!a.when.isValid() || !ok1 || !ok2 || a.volume.isEmpty()) return std::nullopt;
    return a;
}

} // namespace SpaceGuard
