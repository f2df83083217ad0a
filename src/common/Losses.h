#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

// Items that could not be kept (a full disk, a name too long, a file gone before it could be
// saved) and items kept only in part: never a silent loss. The daemon appends one line per item
// to "Salvora 3 Not Kept.jsonl" beside the log; the window, the companion and `salvora status`
// tell the user how many since when, and which, until the user has seen them.
namespace Losses {

struct Loss
{
    QDateTime time;
    QByteArray path;     // the item's original path, or its name in the trash when unknown
    QString reason;      // English, like the log
    bool partly = false; // kept, but not whole
};

// Appends one loss; false when it could not be written (then it is at least in the log).
bool record(const Loss &loss);
// Every loss not yet seen, oldest first.
QList<Loss> unseen();
struct Summary
{
    qsizetype count = 0;
    QDateTime since; // the oldest unseen loss
};
Summary summary();
// The user has seen them: they no longer count (they stay readable in the log).
void markSeen();
// Only the first `shown` of them, as unseen() listed them: a loss recorded since stays unseen.
void markSeen(qsizetype shown);
QString filePath();
// "N items could not be kept since DATE", translated; empty when there is none.
QString summaryText(const Summary &summary);

} // namespace Losses
