#include "common/Log.h"

#include "common/Locations.h"

#include "Printable.h"
#include "SafeFile.h"
#include "UniqueFd.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kLogFileName[] = "Salvora 3 Log.txt";
// A log that grew far beyond its bound was not written by us; it reads as unreadable.
constexpr std::size_t kLogReadLimit = 16u << 20;

bool isAscii(QByteArrayView bytes)
{
    return std::all_of(bytes.begin(), bytes.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

} // namespace

namespace CommonUtils {

QString logText(QByteArrayView bytes)
{
    return QString::fromStdString(
        printable(std::string_view(bytes.data(), std::size_t(bytes.size()))));
}

QString logFilePath()
{
    return pathForApplicationSupportFolder(QLatin1String(kLogFileName));
}

QByteArray composeLogContent(const QString &message, const QByteArray *previous,
                             const QDateTime &now)
{
    QByteArray old;
    if (previous) {
        old = *previous;
        // Over the bound, up to 25 lines go from the top: the newest old lines, not the oldest.
        // That is how the log has always been trimmed, and readers of it expect it.
        if (old.size() > kLogMaxLength) {
            for (int i = 0; i < kLogTrimLines; ++i) {
                const qsizetype lf = old.indexOf('\n');
                if (lf < 0) break;
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
    // A message that is not ASCII cannot be written in the log's encoding; the entry is dropped.
    for (QChar c : message)
        if (c.unicode() >= 0x80) return;
    const QByteArray folder = QFile::encodeName(pathForApplicationSupportFolder());
    UniqueFd dir(safefile::openPathCreating(folder.toStdString(), 0700));
    QByteArray content;
    int err = dir.fd < 0 ? errno : safefile::makePrivate(dir.fd);
    if (err == 0) {
        // Never followed, never waited on: a link or FIFO planted as the log reads as unreadable
        // and is replaced by a regular file.
        const safefile::ReadResult old = safefile::readRegular(dir.fd, kLogFileName, kLogReadLimit);
        const bool havePrevious = old.error == 0 || old.error == ENOENT;
        const QByteArray previous = QByteArray::fromStdString(old.data);
        content =
            composeLogContent(message, havePrevious && isAscii(previous) ? &previous : nullptr,
                              QDateTime::currentDateTime());
        if (old.error != 0 && old.error != ENOENT)
            std::fprintf(stderr,
                         "Salvora 3: the log was not a readable file (%s); it is replaced\n",
                         std::strerror(old.error));
        err = safefile::replaceFile(dir.fd, kLogFileName, content.toStdString(), 0600);
    }
    // The old log stays whole when the new one cannot be written (a full disk): say so where
    // someone may still see it.
    if (err != 0)
        std::fprintf(stderr, "Salvora 3: cannot write the log (%s): %s\n", std::strerror(err),
                     message.toLatin1().constData());
}

} // namespace CommonUtils
