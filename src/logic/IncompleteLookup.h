#pragma once

#include "browser/IncompleteItems.h"
#include "common/Jobs.h"

#include <QHash>
#include <QObject>

#include <memory>
#include <optional>

// Which rows of the contents list were kept only in part, for drawing them. A row whose name
// carries the marker has its day's origin records read off the main thread the first time it is
// asked for; `loaded` says when they are in.
class IncompleteLookup : public QObject
{
    Q_OBJECT
public:
    explicit IncompleteLookup(QObject *parent = nullptr);
    ~IncompleteLookup() override;

    // nullptr unless the item is known to be kept in part.
    const CacheCommit::Completeness *find(const QByteArray &timeFolderPath, QByteArrayView name);
    // The records may have changed: read them again when next asked.
    void clear();

signals:
    void loaded();

private:
    void readNext();

    // nullopt while being read.
    QHash<QByteArray, std::optional<IncompleteItems::DayMap>> mDays;
    QList<QByteArray> mToRead;
    std::shared_ptr<Mailbox> mMailbox;
    bool mReading = false;
    quint64 mGeneration = 0;
};
