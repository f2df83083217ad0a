#include "common/LossWatch.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QThread>
#include <QTimer>

#include <fcntl.h>

#include <memory>
#include <mutex>
#include <utility>

namespace {

// The log beside the file is rewritten at every line: changes in the folder come in bursts.
constexpr int kCoalesceMs = 200;

bool sameFile(const struct stat &a, const struct stat &b)
{
    return a.st_ino == b.st_ino && a.st_dev == b.st_dev && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

} // namespace

LossWatch::LossWatch(QObject *parent)
    : QObject(parent), mWatcher(new QFileSystemWatcher(this)), mCoalesce(new QTimer(this))
{
    mCoalesce->setSingleShot(true);
    mCoalesce->setInterval(kCoalesceMs);
    connect(mCoalesce, &QTimer::timeout, this, &LossWatch::refresh);
    auto later = [this] { mCoalesce->start(); };
    connect(mWatcher, &QFileSystemWatcher::directoryChanged, this, later);
    connect(mWatcher, &QFileSystemWatcher::fileChanged, this, later);
}

LossWatch::~LossWatch()
{
    if (mReader) {
        disconnect(mReader, nullptr, this, nullptr);
        // A stalled home folder must not keep the program from quitting.
        if (!mReader->wait(QDeadlineTimer(2000))) {
            mReader->setParent(nullptr);
            connect(mReader, &QThread::finished, mReader, &QObject::deleteLater);
        }
    }
}

void LossWatch::start()
{
    const QString file = Losses::filePath();
    mWatcher->addPath(QFileInfo(file).absolutePath());
    refresh();
}

Losses::Summary LossWatch::summary() const
{
    Losses::Summary s;
    s.count = mLosses.size();
    for (const Losses::Loss &l : mLosses)
        if (!s.since.isValid() || (l.time.isValid() && l.time < s.since)) s.since = l.time;
    return s;
}

void LossWatch::watchFile()
{
    // A renamed or new file is a new inode: the watch is set again on the name.
    const QString file = Losses::filePath();
    if (!mWatcher->files().contains(file) && QFileInfo::exists(file)) mWatcher->addPath(file);
}

void LossWatch::refresh()
{
    watchFile();
    struct stat st{};
    if (fstatat(AT_FDCWD, QFile::encodeName(Losses::filePath()).constData(), &st,
                AT_SYMLINK_NOFOLLOW) != 0)
        st = {};
    if (mEverRead && sameFile(st, mLastSeen)) return;
    mLastSeen = st;
    mEverRead = true;
    read();
}

void LossWatch::read()
{
    if (mReader) {
        mReadAgain = true;
        return;
    }
    // The result belongs to the thread as much as to this object: either may go first. Its lock
    // orders the thread's writes before the reads here where sanitizers can see it.
    struct Result
    {
        std::mutex lock;
        QList<Losses::Loss> losses;
    };
    auto result = std::make_shared<Result>();
    const qsizetype mark = std::exchange(mMarkShown, -1);
    mReader = QThread::create([result, mark] {
        if (mark >= 0) Losses::markSeen(mark);
        QList<Losses::Loss> losses = Losses::unseen();
        std::lock_guard lock(result->lock);
        result->losses = std::move(losses);
    });
    mReader->setParent(this);
    connect(mReader, &QThread::finished, this, [this, result] {
        std::unique_lock lock(result->lock);
        QList<Losses::Loss> losses = std::move(result->losses);
        lock.unlock();
        readDone(std::move(losses));
    });
    mReader->start(QThread::LowPriority);
}

void LossWatch::readDone(QList<Losses::Loss> losses)
{
    mReader->deleteLater();
    mReader = nullptr;
    if (mReadAgain) {
        mReadAgain = false;
        read();
        return;
    }
    mLosses = std::move(losses);
    emit changed();
}

void LossWatch::markSeen()
{
    // Marked on the reading thread, in order with the reads, and shown as done at once.
    mMarkShown = mLosses.size();
    mLosses.clear();
    emit changed();
    read();
}
