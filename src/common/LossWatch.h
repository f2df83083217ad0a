#pragma once

#include "common/Jobs.h"
#include "common/Losses.h"

#include <QObject>

#include <memory>
#include <sys/stat.h>

class QFileSystemWatcher;
class QTimer;

// The unseen losses, kept current for a window or the companion: read off the calling thread
// (the file may be long), again whenever it changes on disk or refresh() is asked for. At most one
// read runs; a request meanwhile is served when it ends.
class LossWatch : public QObject
{
    Q_OBJECT
public:
    explicit LossWatch(QObject *parent = nullptr);
    ~LossWatch() override;

    // Starts watching and reads once.
    void start();
    const QList<Losses::Loss> &losses() const { return mLosses; }
    Losses::Summary summary() const;
    // The losses listed now are seen; any recorded since stay unseen.
    void markSeen();

public slots:
    // Reads again when the file changed since the last read (a rename, a new record).
    void refresh();

signals:
    void changed();

private:
    void watchFile();
    void read();
    void readDone(QList<Losses::Loss> losses);

    QFileSystemWatcher *mWatcher = nullptr;
    QTimer *mCoalesce = nullptr;
    std::shared_ptr<Mailbox> mMailbox;
    std::shared_ptr<Jobs::Handle> mReader;
    bool mReadAgain = false;
    qsizetype mMarkShown = -1; // losses to mark seen before the next read
    struct stat mLastSeen
    {
    };
    bool mEverRead = false;
    QList<Losses::Loss> mLosses;
};
