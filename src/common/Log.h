#pragma once

#include <QDateTime>
#include <QString>

namespace CommonUtils {

inline constexpr qsizetype kLogMaxLength = 100000;
inline constexpr int kLogTrimLines = 25;

// Puts one entry on top of "Salvora 3 Log.txt": "yyyy-MM-dd HH:mm:ss - message\n", then the old
// content. The file is ASCII, private (0600) and replaced whole through a new file, so a full
// disk leaves the old log as it was; a failure is told on stderr only, never to the caller.
void addToLogFile(const QString &message);
// The text that addToLogFile writes, given the previous file content (null when the file was
// missing or unreadable as ASCII) and the time of the entry.
QByteArray composeLogContent(const QString &message, const QByteArray *previous,
                             const QDateTime &now);
QString logFilePath();
// Bytes (a path, a name) as they may go into a log line: the log is ASCII, and a name must not be
// able to forge an entry. The rule is the one the root helper and the launcher log with.
QString logText(QByteArrayView bytes);

} // namespace CommonUtils
