#include "common/LossWatch.h"

#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QTimer>

#include <fcntl.h>

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
    : QObject(parent), mWatcher(new QFileSystemWatcher(this)), mCoalesce(new QTimer(this)),
      mMailbox(std::make_shared<Mailbox>(this))
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
    // A mark being written is let finish; a stalled home folder must not keep the program from
    // quitting.
    if (mReader) mReader->wait(2000);
    mMailbox->detach();
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
    struct stat st
    {
    };
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
    const qsizetype mark = std::exchange(mMarkShown, -1);
    mReader = Jobs::start([this, mark, mailbox = mMailbox] {
        if (mark >= 0) Losses::markSeen(mark);
        mailbox->post([this, losses = Losses::unseen()]() mutable { readDone(std::move(losses)); });
    });
}

void LossWatch::readDone(QList<Losses::Loss> losses)
{
    mReader.reset();
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
