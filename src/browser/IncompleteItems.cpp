#include "browser/IncompleteItems.h"

#include "common/SizeText.h"

#include <cstring>

namespace IncompleteItems {

bool hasMarker(QByteArrayView name)
{
    // incompleteName puts it before the last extension, and a clash may number it after.
    // Asked of every row of a listing: a parenthesis is rare in names, and memchr finds it fast.
    static constexpr char kMarker[] = "(incomplete)";
    constexpr std::size_t kLength = sizeof kMarker - 1;
    const char *begin = name.data(), *end = begin + name.size();
    for (const char *p = begin; p < end; ++p) {
        p = static_cast<const char *>(std::memchr(p, '(', std::size_t(end - p)));
        if (!p) return false;
        if (p > begin && p[-1] == ' ' && std::size_t(end - p) >= kLength &&
            std::memcmp(p, kMarker, kLength) == 0)
            return true;
    }
    return false;
}

QByteArray dayFolderOf(const QByteArray &timeFolderPath)
{
    const qsizetype slash = timeFolderPath.lastIndexOf('/');
    return slash > 0 ? timeFolderPath.left(slash) : QByteArray();
}

QByteArray keyOf(const QByteArray &timeFolderPath, QByteArrayView name)
{
    const qsizetype slash = timeFolderPath.lastIndexOf('/');
    QByteArray key = timeFolderPath.mid(slash + 1);
    key += '/';
    key += name;
    return key;
}

DayMap ofDay(const QByteArray &dayFolder)
{
    DayMap out;
    const qsizetype slash = dayFolder.lastIndexOf('/');
    if (slash <= 0) return out;
    const QByteArray cache = dayFolder.left(slash);
    const QByteArray day = dayFolder.mid(slash + 1);
    // A later record of the same item (the start-up check finishing an interrupted commit) wins.
    for (const CacheCommit::Origin &o : CacheCommit::readOrigins(cache, day)) {
        const QByteArray key = o.time + '/' + o.name;
        if (o.completeness.complete)
            out.remove(key);
        else
            out.insert(key, o.completeness);
    }
    return out;
}

QHash<qsizetype, CacheCommit::Completeness> inList(const CacheItems &items)
{
    QHash<qsizetype, CacheCommit::Completeness> out;
    QHash<QByteArray, DayMap> days;
    for (qsizetype i = 0; i < items.size(); ++i) {
        const CacheItems::Row &r = items.row(i);
        if (!hasMarker(items.name(r))) continue;
        const QByteArray &timeFolder = items.timeFolderPath(r.folder);
        const QByteArray day = dayFolderOf(timeFolder);
        auto it = days.find(day);
        if (it == days.end()) it = days.insert(day, ofDay(day));
        const auto found = it->constFind(keyOf(timeFolder, items.name(r)));
        if (found != it->cend()) out.insert(i, *found);
    }
    return out;
}

QString describe(const CacheCommit::Completeness &c)
{
    QString what;
    if (c.missingFiles > 0 && c.missingBytes > 0)
        //% "Kept in part: %n file(s) and %1 missing"
        what = qtTrId("IncompleteFilesAndBytes", int(c.missingFiles))
                   .arg(CommonUtils::getSizeStr(c.missingBytes));
    else if (c.missingFiles > 0)
        //% "Kept in part: %n file(s) missing"
        what = qtTrId("IncompleteFiles", int(c.missingFiles));
    else if (c.missingBytes > 0)
        //% "Kept in part: %1 missing"
        what = qtTrId("IncompleteBytes").arg(CommonUtils::getSizeStr(c.missingBytes));
    else
        //% "Kept in part: some of it could not be saved"
        what = qtTrId("IncompleteUnknown");
    return what;
}

} // namespace IncompleteItems
