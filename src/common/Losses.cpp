#include "common/Losses.h"

#include "common/Locations.h"

#include "SafeFile.h"
#include "UniqueFd.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace Losses {

namespace {

constexpr char kFileName[] = "Salvora 3 Not Kept.jsonl";
constexpr char kSeenName[] = "Salvora 3 Not Kept (seen).jsonl";
constexpr char kMarkingName[] = "Salvora 3 Not Kept (marking).jsonl";
constexpr std::size_t kReadLimit = 16u << 20;
constexpr char kTimeFormat[] = "yyyy-MM-dd HH:mm:ss";

int openFolder()
{
    const QByteArray folder = QFile::encodeName(CommonUtils::pathForApplicationSupportFolder());
    return safefile::openPathCreating(folder.toStdString(), 0700);
}

bool isUtf8(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes).toUtf8() == bytes;
}

} // namespace

QString filePath()
{
    return CommonUtils::pathForApplicationSupportFolder(QLatin1String(kFileName));
}

bool record(const Loss &loss)
{
    UniqueFd dir(openFolder());
    if (dir.fd < 0) return false;
    QJsonObject o;
    o.insert(QLatin1String("time"), loss.time.toString(QLatin1String(kTimeFormat)));
    if (isUtf8(loss.path))
        o.insert(QLatin1String("path"), QString::fromUtf8(loss.path));
    else
        o.insert(QLatin1String("path64"), QString::fromLatin1(loss.path.toBase64()));
    o.insert(QLatin1String("reason"), loss.reason);
    if (loss.partly) o.insert(QLatin1String("partly"), true);
    const QByteArray line = QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
    return safefile::appendRecord(dir.fd, kFileName, line.toStdString(), 0600) == 0;
}

QList<Loss> unseen()
{
    QList<Loss> out;
    UniqueFd dir(openFolder());
    if (dir.fd < 0) return out;
    const safefile::ReadResult file = safefile::readRegular(dir.fd, kFileName, kReadLimit);
    if (file.error != 0) return out;
    for (const QByteArray &line : QByteArray::fromStdString(file.data).split('\n')) {
        const QJsonObject o = QJsonDocument::fromJson(line).object();
        if (o.isEmpty()) continue;
        Loss l;
        l.time = QDateTime::fromString(o.value(QLatin1String("time")).toString(),
                                       QLatin1String(kTimeFormat));
        l.path =
            o.contains(QLatin1String("path"))
                ? o.value(QLatin1String("path")).toString().toUtf8()
                : QByteArray::fromBase64(o.value(QLatin1String("path64")).toString().toLatin1());
        l.reason = o.value(QLatin1String("reason")).toString();
        l.partly = o.value(QLatin1String("partly")).toBool();
        out.append(l);
    }
    return out;
}

Summary summary()
{
    const QList<Loss> all = unseen();
    Summary s;
    s.count = all.size();
    // Losses put back by markSeen(shown) follow newer ones: the oldest is not always the first.
    for (const Loss &l : all)
        if (!s.since.isValid() || (l.time.isValid() && l.time < s.since)) s.since = l.time;
    return s;
}

void markSeen()
{
    markSeen(-1);
}

void markSeen(qsizetype shown)
{
    UniqueFd dir(openFolder());
    if (dir.fd < 0) return;
    if (shown < 0) {
        renameat(dir.fd, kFileName, dir.fd, kSeenName);
        return;
    }
    // Taken aside first, so that the daemon's next record starts a new file; whatever came after
    // the losses the user saw goes back to it.
    if (renameat(dir.fd, kFileName, dir.fd, kMarkingName) != 0) return;
    const safefile::ReadResult file = safefile::readRegular(dir.fd, kMarkingName, kReadLimit);
    std::string rest;
    qsizetype counted = 0;
    for (const QByteArray &line : QByteArray::fromStdString(file.data).split('\n')) {
        if (QJsonDocument::fromJson(line).object().isEmpty()) continue;
        if (++counted > shown) rest += line.toStdString() + '\n';
    }
    if (!rest.empty() && safefile::appendRecord(dir.fd, kFileName, rest, 0600) != 0) {
        // Better shown twice than never: all of it stays unseen.
        if (renameat2(dir.fd, kMarkingName, dir.fd, kFileName, RENAME_NOREPLACE) == 0) return;
    }
    renameat(dir.fd, kMarkingName, dir.fd, kSeenName);
}

QString summaryText(const Summary &summary)
{
    if (summary.count <= 0) return {};
    //% "%n item(s) could not be kept since %1"
    return qtTrId("LossesSince", int(std::min<qsizetype>(summary.count, INT_MAX)))
        .arg(QLocale().toString(summary.since, QLocale::ShortFormat));
}

} // namespace Losses
