#include "cache/OriginJournal.h"

#include "PathJoin.h"
#include "SafeFile.h"
#include "UniqueFd.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <fcntl.h>

namespace CacheCommit {

namespace {

bool isUtf8(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes).toUtf8() == bytes;
}

// Bytes that are UTF-8 are stored as text; others as base64 under the key with "64" appended.
void putBytes(QJsonObject &o, const char *key, const QByteArray &bytes)
{
    if (isUtf8(bytes))
        o.insert(QLatin1String(key), QString::fromUtf8(bytes));
    else
        o.insert(QLatin1String(key) + QLatin1String("64"), QString::fromLatin1(bytes.toBase64()));
}

QByteArray getBytes(const QJsonObject &o, const char *key)
{
    const QString k = QLatin1String(key);
    if (o.contains(k)) return o.value(k).toString().toUtf8();
    return QByteArray::fromBase64(o.value(k + QLatin1String("64")).toString().toLatin1());
}

} // namespace

// Written before the item takes its name, so that a crash in between leaves a record of an
// item that is not there (ignored) rather than an item without its record.
int appendOrigin(int cacheFd, const QByteArray &day, const Origin &origin)
{
    const UniqueFd folder(safefile::openFolder(cacheFd, kOriginsFolderName, true, 0700));
    if (folder.fd < 0) return errno;
    QJsonObject o;
    o.insert(QLatin1String("time"), QString::fromLatin1(origin.time));
    putBytes(o, "name", origin.name);
    putBytes(o, "path", origin.path);
    o.insert(QLatin1String("uid"), origin.uid);
    if (origin.ino != 0) o.insert(QLatin1String("ino"), QString::number(origin.ino));
    if (origin.trashIno != 0) o.insert(QLatin1String("trashIno"), QString::number(origin.trashIno));
    if (!origin.completeness.complete) {
        o.insert(QLatin1String("incomplete"), true);
        o.insert(QLatin1String("missingFiles"), origin.completeness.missingFiles);
        o.insert(QLatin1String("missingBytes"), origin.completeness.missingBytes);
    }
    const QByteArray line = QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
    return safefile::appendRecord(folder.fd, (day + ".jsonl").constData(), line.toStdString(),
                                  0600);
}

QByteArray originsFileFor(const QByteArray &cacheFolder, const QByteArray &day)
{
    return joinPath(joinPath(cacheFolder, kOriginsFolderName), day + ".jsonl");
}

QList<Origin> readOrigins(const QByteArray &cacheFolder, const QByteArray &day)
{
    QList<Origin> out;
    const safefile::ReadResult file =
        safefile::readRegular(AT_FDCWD, originsFileFor(cacheFolder, day).constData(), 64u << 20);
    if (file.error != 0) return out;
    const QByteArray data = QByteArray::fromStdString(file.data);
    for (const QByteArray &line : data.split('\n')) {
        const QJsonDocument doc = QJsonDocument::fromJson(line);
        if (!doc.isObject()) continue;
        const QJsonObject o = doc.object();
        Origin origin;
        origin.time = o.value(QLatin1String("time")).toString().toLatin1();
        origin.name = getBytes(o, "name");
        origin.path = getBytes(o, "path");
        origin.uid = o.value(QLatin1String("uid")).toInteger(-1);
        origin.ino = o.value(QLatin1String("ino")).toString().toULongLong();
        origin.trashIno = o.value(QLatin1String("trashIno")).toString().toULongLong();
        origin.completeness.complete = !o.value(QLatin1String("incomplete")).toBool();
        origin.completeness.missingFiles = o.value(QLatin1String("missingFiles")).toInteger();
        origin.completeness.missingBytes = o.value(QLatin1String("missingBytes")).toInteger();
        if (!origin.time.isEmpty() && !origin.name.isEmpty()) out.append(origin);
    }
    return out;
}

} // namespace CacheCommit
