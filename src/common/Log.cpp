#include "common/Log.h"

#include "common/Locations.h"

#include <QFile>
#include <QSaveFile>

#include <algorithm>

namespace {

bool isAscii(QByteArrayView bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

} // namespace

namespace CommonUtils {

QString logFilePath()
{
    return pathForApplicationSupportFolder(QStringLiteral("Salvora 3 Log.txt"));
}

QByteArray composeLogContent(const QString &message, const QByteArray *previous, const QDateTime &now)
{
    QByteArray old;
    if (previous) {
        old = *previous;
        // Over the bound, up to 25 lines go from the top: the newest old lines, not the oldest.
        // That is how the log has always been trimmed, and readers of it expect it.
        if (old.size() > kLogMaxLength) {
            for (int i = 0; i < kLogTrimLines; ++i) {
                const qsizetype lf = old.indexOf('\n');
                if (lf < 0)
                    break;
                old.remove(0, lf + 1);
            }
        }
    } else {
        // A missing or non-ASCII previous content renders as a missing object does.
        old = "(null)";
    }
    const QByteArray stamp = now.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")).toLatin1();
    return stamp + " - " + message.toLatin1() + '\n' + old;
}

void addToLogFile(const QString &message)
{
    const QString path = logFilePath();
    QFile in(path);
    QByteArray previous;
    bool havePrevious = true;
    if (in.exists()) {
        if (in.open(QIODevice::ReadOnly)) {
            previous = in.readAll();
            havePrevious = isAscii(previous);
        } else {
            havePrevious = false;
        }
    }
    // A message that is not ASCII cannot be written in the log's encoding; the entry is dropped.
    for (QChar c : message)
        if (c.unicode() >= 0x80)
            return;
    QSaveFile out(path);
    if (!out.open(QIODevice::WriteOnly))
        return;
    out.write(composeLogContent(message, havePrevious ? &previous : nullptr, QDateTime::currentDateTime()));
    out.commit();
}

} // namespace CommonUtils
