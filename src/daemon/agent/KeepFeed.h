#pragma once

#include "KeepTable.h"

#include <QByteArrayList>
#include <QObject>

class QFileSystemWatcher;
class QTimer;

// The agent's side of the preload library (src/keep): publishes the table the library maps
// (protected devices and their checked caches, what is never kept, on or off) whenever the
// settings or the volumes change, and tells the agent, at most a few times a second, that items
// were kept behind its back: every item kept gets a line in its cache's .origins/<day>.jsonl,
// which is watched.
class KeepFeed : public QObject
{
    Q_OBJECT
public:
    explicit KeepFeed(QObject *parent = nullptr);

    // The table for the settings and the volumes mounted now, keeping on while protection is.
    // The generation grows with time, so that a restarted agent's tables are newer too.
    static keeptable::Table tableFor(bool protection);
    void publish(bool protection);

signals:
    void kept();

private:
    void watch(const QByteArrayList &caches);
    void changed();

    QFileSystemWatcher *mWatcher;
    QTimer *mCoalesce;
    QByteArrayList mCaches;
};
