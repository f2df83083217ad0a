#pragma once

#include <QByteArrayList>
#include <QList>
#include <QString>

#include <atomic>
#include <functional>

// Copies items out of a cache. A copy never overwrites anything and never leaves a partial file
// under its final name: it is built under a hidden temporary name in the destination folder and
// renamed into place only if the final name is still free. Files are cloned where the file
// system can; modes, times and symbolic links are kept as they are.
namespace Restore {

enum class Outcome { Copied, SkippedExisting, Failed, Stopped };

struct ItemResult
{
    QByteArray source;
    QByteArray target;
    Outcome outcome = Outcome::Failed;
    QString error; // for Failed: what went wrong, in one line
};

// Copies one item to exactly `target`.
ItemResult copyItem(const QByteArray &source, const QByteArray &target, const std::atomic<bool> *stop = nullptr);
// Copies each source into `destinationFolder` under its own last name, in order; an existing name
// is skipped (so of two sources with one name only the first is copied).
QList<ItemResult> copyItems(const QByteArray &destinationFolder, const QByteArrayList &sources,
                            const std::atomic<bool> *stop = nullptr,
                            const std::function<void(const ItemResult &)> &onItemDone = {});

QByteArray lastComponent(const QByteArray &path);

} // namespace Restore
