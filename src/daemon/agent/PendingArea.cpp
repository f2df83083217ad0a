#include "PendingArea.h"

#include "SafeFile.h"
#include "SafeRemove.h"
#include "UniqueFd.h"
#include "cache/CacheFolder.h"
#include "cache/FolderWalk.h"

#include <QDateTime>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Fd = UniqueFd;

QByteArray readSmallFile(int dirFd, const char *name)
{
    const safefile::ReadResult r = safefile::readRegular(dirFd, name, 64 * 1024);
    return r.error == 0 ? QByteArray::fromStdString(r.data) : QByteArray();
}

} // namespace

QByteArray ShadowRecord::serialize() const
{
    QByteArray out = "Salvora3Shadow 1\n";
    out += "trash=" + trashDir.toPercentEncoding("/") + '\n';
    out += "name=" + trashName.toPercentEncoding() + '\n';
    out += "origin=" + origin.toPercentEncoding("/") + '\n';
    out += "dev=" + QByteArray::number(dev) + '\n';
    out += "ino=" + QByteArray::number(ino) + '\n';
    if (walked) {
        out += QByteArray("state=") + (complete ? "complete" : "partial") + '\n';
        out += "missing-files=" + QByteArray::number(missingFiles) + '\n';
        out += "missing-bytes=" + QByteArray::number(missingBytes) + '\n';
    }
    return out;
}

std::optional<ShadowRecord> ShadowRecord::parse(QByteArrayView text)
{
    const QList<QByteArray> lines = text.toByteArray().split('\n');
    if (lines.isEmpty() || lines.first() != "Salvora3Shadow 1") return std::nullopt;
    ShadowRecord r;
    bool okDev = false, okIno = false;
    for (const QByteArray &line : lines) {
        const qsizetype eq = line.indexOf('=');
        if (eq <= 0) continue;
        const QByteArray key = line.left(eq);
        const QByteArray value = line.mid(eq + 1);
        if (key == "trash")
            r.trashDir = QByteArray::fromPercentEncoding(value);
        else if (key == "name")
            r.trashName = QByteArray::fromPercentEncoding(value);
        else if (key == "origin")
            r.origin = QByteArray::fromPercentEncoding(value);
        else if (key == "dev")
            r.dev = value.toULongLong(&okDev);
        else if (key == "ino")
            r.ino = value.toULongLong(&okIno);
        else if (key == "state") {
            r.walked = true;
            r.complete = value == "complete";
        } else if (key == "missing-files")
            r.missingFiles = value.toLongLong();
        else if (key == "missing-bytes")
            r.missingBytes = value.toLongLong();
    }
    if (!okDev || !okIno || !r.trashDir.startsWith('/') || r.trashName.isEmpty() ||
        r.trashName.contains('/') || r.trashName == "." || r.trashName == ".." ||
        r.trashDir.contains('\0') || r.trashName.contains('\0') || r.origin.contains('\0'))
        return std::nullopt;
    return r;
}

PendingArea::PendingArea(QByteArray volumePath) : mVolumePath(std::move(volumePath)) {}

QByteArray PendingArea::folder() const
{
    return CacheFolder::pathFor(mVolumePath) + '/' + kFolderName + '/' +
           QByteArray::number(getuid());
}

int PendingArea::open(bool create) const
{
    CacheFolder::Status status;
    Fd cache(CacheFolder::open(mVolumePath, create, &status));
    if (cache.fd < 0) {
        errno = status.sysErrno ? status.sysErrno : EACCES;
        return -1;
    }
    Fd pending(safefile::openFolder(cache.fd, kFolderName, create, 0700));
    if (pending.fd < 0) return -1;
    return safefile::openFolder(pending.fd, QByteArray::number(getuid()).constData(), create, 0700);
}

QList<ShadowRecord> PendingArea::load() const
{
    QList<ShadowRecord> records;
    Fd pending(open(false));
    if (pending.fd < 0) return records;
    QByteArrayList ids;
    FolderWalk::forEachEntry(pending.fd, [&](const char *name, FolderWalk::Type type) {
        if (type == FolderWalk::Type::Directory) ids.append(QByteArray(name));
    });
    for (const QByteArray &id : ids) {
        Fd dir(openat(pending.fd, id.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (dir.fd < 0) continue;
        std::optional<ShadowRecord> r = ShadowRecord::parse(readSmallFile(dir.fd, kRecordName));
        if (!r) {
            // The record comes first: a shadow without one was never started and holds nothing.
            drop(id);
            continue;
        }
        r->id = id;
        records.append(*r);
    }
    return records;
}

std::optional<ShadowRecord> PendingArea::readRecord(const QByteArray &id) const
{
    Fd pending(open(false));
    Fd dir(pending.fd >= 0
               ? openat(pending.fd, id.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
               : -1);
    if (dir.fd < 0) return std::nullopt;
    std::optional<ShadowRecord> r = ShadowRecord::parse(readSmallFile(dir.fd, kRecordName));
    if (r) r->id = id;
    return r;
}

int PendingArea::create(int pendingFd, ShadowRecord &record) const
{
    if (record.id.isEmpty()) record.id = newId(record.ino);
    if (mkdirat(pendingFd, record.id.constData(), 0700) != 0) return -1;
    const int fd =
        openat(pendingFd, record.id.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 ||
        safefile::replaceFile(fd, kRecordName, record.serialize().toStdString(), 0600) != 0) {
        const int err = errno;
        if (fd >= 0) ::close(fd);
        saferemove::removeBeneath(pendingFd, record.id.toStdString());
        errno = err;
        return -1;
    }
    return fd;
}

QByteArray PendingArea::newId(quint64 ino)
{
    // Unique within the process, and across runs through the time.
    static std::atomic<quint64> counter{0};
    return QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + '-' +
           QByteArray::number(++counter) + '-' + QByteArray::number(ino);
}

bool PendingArea::rewriteRecord(const ShadowRecord &record) const
{
    Fd pending(open(false));
    if (pending.fd < 0) return false;
    Fd dir(
        openat(pending.fd, record.id.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return dir.fd >= 0 &&
           safefile::replaceFile(dir.fd, kRecordName, record.serialize().toStdString(), 0600) == 0;
}

int PendingArea::drop(const QByteArray &id) const
{
    Fd pending(open(false));
    if (pending.fd < 0) return errno;
    return saferemove::removeBeneath(pending.fd, id.toStdString());
}

int PendingArea::count() const
{
    Fd pending(open(false));
    int n = 0;
    if (pending.fd >= 0)
        FolderWalk::forEachEntry(pending.fd, [&](const char *, FolderWalk::Type type) {
            n += type == FolderWalk::Type::Directory;
        });
    return n;
}
