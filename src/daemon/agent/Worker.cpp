#include "Worker.h"

#include "SafeFile.h"
#include "UniqueFd.h"
#include "cache/CacheFolder.h"
#include "cache/CacheLayout.h"
#include "cache/FolderWalk.h"

#include <QDateTime>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Fd = UniqueFd;
using Clock = std::chrono::steady_clock;

// Entries a shadow walks before the worker looks again at what is newest or most urgent: about a
// millisecond of links.
constexpr int kStepBudget = 64;
// A folder filled in place is walked again this often, until this many walks found nothing new.
constexpr auto kFollowInterval = std::chrono::milliseconds(250);
constexpr int kQuietWalks = 4;

QByteArray baseName(const QByteArray &path)
{
    return path.mid(path.lastIndexOf('/') + 1);
}

// The name an item gets in the cache: its original one, or its trash name when unknown.
QByteArray keptName(const ShadowRecord &r)
{
    const QByteArray name = baseName(r.origin);
    return name.isEmpty() || name == "." || name == ".." ? r.trashName : name;
}

qint64 msSince(Clock::time_point t)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count();
}

// Copies that an earlier run left half-made (temporary names) hold nothing trustworthy.
qint64 removeLeftoverCopies(int dirFd, int depth = 0)
{
    qint64 removed = 0;
    QList<std::pair<QByteArray, bool>> entries;
    FolderWalk::forEachEntry(dirFd, [&](const char *name, FolderWalk::Type type) {
        entries.append({QByteArray(name), type == FolderWalk::Type::Directory});
    });
    for (const auto &[name, folder] : entries) {
        if (folder && depth < 512) {
            Fd sub(
                openat(dirFd, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (sub.fd >= 0) removed += removeLeftoverCopies(sub.fd, depth + 1);
        } else if (!folder && name.startsWith(".sv3-") &&
                   unlinkat(dirFd, name.constData(), 0) == 0) {
            ++removed;
        }
    }
    return removed;
}

bool isPlainName(const QByteArray &name)
{
    return !name.isEmpty() && name != "." && name != ".." && !name.contains('/') &&
           !name.contains('\0');
}

// The item that the preload library kept of a trashed item while a program emptied the trash,
// as a path in the cache; empty when there is none. Its origin record names the inode the item
// had in the trash; only those records are read.
QByteArray keptByLibrary(const QByteArray &cacheFolder, const ShadowRecord &r)
{
    if (r.ino == 0) return {};
    const QByteArray needle = "\"trashIno\":\"" + QByteArray::number(r.ino) + '"';
    const QDateTime now = QDateTime::currentDateTime();
    // A batch that began before midnight records under the day before.
    for (const QDateTime &when : {now, now.addDays(-1)}) {
        const QByteArray day = CommonUtils::nameForCacheFolder(when).toLatin1();
        const safefile::ReadResult file = safefile::readRegular(
            AT_FDCWD, CacheCommit::originsFileFor(cacheFolder, day).constData(), 64u << 20);
        if (file.error != 0 || file.data.find(needle.constData()) == std::string::npos) continue;
        const QList<CacheCommit::Origin> origins = CacheCommit::readOrigins(cacheFolder, day);
        for (auto it = origins.crbegin(); it != origins.crend(); ++it) {
            if (it->trashIno != r.ino || it->uid != qint64(getuid()) ||
                (!r.origin.isEmpty() && it->path != r.origin) || !isPlainName(it->time) ||
                !isPlainName(it->name))
                continue;
            const QByteArray path = cacheFolder + '/' + day + '/' + it->time + '/' + it->name;
            // A folder item is a folder made for it; a file keeps its inode.
            struct stat st
            {
            };
            if (::lstat(path.constData(), &st) == 0 &&
                (S_ISDIR(st.st_mode) || quint64(st.st_ino) == r.ino))
                return path;
        }
    }
    return {};
}

// Moves into `to` what the folder `from` holds that `to` lacks, folder by folder: what the shadow
// saved and the library did not keep (it deleted for real what it could not keep). The number of
// entries moved.
qint64 mergeMissing(int from, int to, int depth = 0)
{
    QList<QByteArray> names;
    FolderWalk::forEachEntry(from, [&](const char *name, FolderWalk::Type) { names.append(name); });
    qint64 moved = 0, here = 0;
    // The folder keeps the times it had where it was.
    struct stat folder
    {
    };
    const bool timed = fstat(to, &folder) == 0;
    for (const QByteArray &name : std::as_const(names)) {
        if (name.startsWith(".sv3-")) continue;
        struct stat there
        {
        }, mine{};
        if (fstatat(to, name.constData(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT &&
                renameat2(from, name.constData(), to, name.constData(), RENAME_NOREPLACE) == 0)
                ++here;
            continue;
        }
        if (!S_ISDIR(there.st_mode) || depth >= 512 ||
            fstatat(from, name.constData(), &mine, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISDIR(mine.st_mode))
            continue;
        Fd a(openat(from, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        Fd b(openat(to, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (a.fd >= 0 && b.fd >= 0) moved += mergeMissing(a.fd, b.fd, depth + 1);
    }
    if (here > 0 && timed) {
        const timespec times[2] = {folder.st_atim, folder.st_mtim};
        futimens(to, times);
    }
    return moved + here;
}

} // namespace

struct ShadowWorker::Command
{
    enum class Kind { Shadow, Settle, Origin } kind = Kind::Shadow;
    QByteArray volume;
    ShadowRecord record;
    bool follow = false;
    KeepPolicy policy;
    std::shared_ptr<UniqueFd> item;
};

struct ShadowWorker::Task
{
    QByteArray volume;
    ShadowRecord record;
    bool follow = false;
    unsigned long long arrival = 0;
    std::shared_ptr<UniqueFd> item; // opened when it arrived: it holds the item till the walk
    // A folder's descriptor holds the folder, not its files: until its walk has begun, what is
    // in it is as exposed as an item nothing holds.
    bool itemIsFolder = false;

    bool exposed() const { return !started && (!(item && item->fd >= 0) || itemIsFolder); }
    bool started = false;
    bool reported = false;
    bool following = false;
    // The item left the trash: what is held is saved, then the item is settled with this.
    bool settling = false;
    KeepPolicy policy;
    int quietWalks = 0;
    qint64 leftovers = 0;
    Clock::time_point since = Clock::now();
    Clock::time_point nextWalk{};
    std::unique_ptr<Shadow::Mirror> mirror;

    bool runnable(Clock::time_point now) const { return settling || !following || now >= nextWalk; }
};

ShadowWorker::ShadowWorker(OnShadow onShadow, OnSettled onSettled)
    : mOnShadow(std::move(onShadow)), mOnSettled(std::move(onSettled)),
      mThread(Jobs::start([this] { run(); }))
{
}

ShadowWorker::~ShadowWorker()
{
    stop();
}

void ShadowWorker::stop()
{
    {
        std::lock_guard lock(mMutex);
        mStop = true;
    }
    mWake.notify_all();
    if (mThread) mThread->wait();
}

void ShadowWorker::post(Command command)
{
    {
        std::lock_guard lock(mMutex);
        mInbox.push_back(std::move(command));
    }
    mWake.notify_one();
}

void ShadowWorker::shadow(const QByteArray &volume, const ShadowRecord &record, bool follow,
                          int item)
{
    post({Command::Kind::Shadow, volume, record, follow, {}, std::make_shared<UniqueFd>(item)});
}

void ShadowWorker::settle(const QByteArray &volume, const ShadowRecord &record,
                          const KeepPolicy &policy)
{
    post({Command::Kind::Settle, volume, record, false, policy, {}});
}

void ShadowWorker::setOrigin(const QByteArray &volume, const QByteArray &id,
                             const QByteArray &origin)
{
    ShadowRecord r;
    r.id = id;
    r.origin = origin;
    post({Command::Kind::Origin, volume, r, false, {}, {}});
}

void ShadowWorker::run()
{
    for (;;) {
        std::deque<Command> commands;
        {
            std::unique_lock lock(mMutex);
            const auto now = Clock::now();
            const bool ready = std::any_of(mTasks.begin(), mTasks.end(),
                                           [&](const auto &t) { return t->runnable(now); });
            mBusy = ready || !mSettles.empty() || !mInbox.empty();
            if (!ready && mSettles.empty()) {
                // Asleep until told something, or until a followed folder is due for a walk.
                auto until = Clock::time_point::max();
                for (const auto &t : mTasks)
                    if (t->following) until = std::min(until, t->nextWalk);
                const auto woken = [&] { return mStop || !mInbox.empty(); };
                if (until == Clock::time_point::max())
                    mWake.wait(lock, woken);
                else
                    mWake.wait_until(lock, until, woken);
            }
            if (mStop) return;
            mBusy = true;
            commands.swap(mInbox);
        }
        take(commands);
        // A commit waits while a shadow races with a deletion; it goes before anything else.
        if (!mSettles.empty() && !racing()) {
            const Command c = std::move(mSettles.front());
            mSettles.pop_front();
            settleNow(c.volume, c.record, c.policy);
            continue;
        }
        stepNewestShadow();
    }
}

void ShadowWorker::take(std::deque<Command> &commands)
{
    for (Command &c : commands) {
        switch (c.kind) {
        case Command::Kind::Shadow: {
            auto t = std::make_unique<Task>();
            t->volume = c.volume;
            t->record = c.record;
            t->follow = c.follow;
            t->item = c.item;
            struct stat st
            {
            };
            t->itemIsFolder =
                t->item && t->item->fd >= 0 && fstat(t->item->fd, &st) == 0 && S_ISDIR(st.st_mode);
            t->arrival = ++mArrivals;
            mTasks.push_back(std::move(t));
            break;
        }
        case Command::Kind::Settle: {
            const auto found = std::find_if(mTasks.begin(), mTasks.end(), [&](const auto &t) {
                return t->record.id == c.record.id;
            });
            if (found != mTasks.end() && ((*found)->mirror || (*found)->item)) {
                // Gone from the trash while its shadow is taken (or before it began, but held
                // since it arrived): no more of it is walked than its descriptors reach, what is
                // held is saved, then it is settled.
                Task &t = **found;
                if (t.mirror) t.mirror->sourceGone();
                t.settling = true;
                t.policy = c.policy;
                t.reported = true;
                t.record.origin = c.record.origin.isEmpty() ? t.record.origin : c.record.origin;
                break;
            }
            if (found != mTasks.end()) mTasks.erase(found); // never started: nothing of it
            mSettles.push_back(std::move(c));
            break;
        }
        case Command::Kind::Origin: {
            for (auto &t : mTasks)
                if (t->record.id == c.record.id) t->record.origin = c.record.origin;
            const PendingArea pending(c.volume);
            if (std::optional<ShadowRecord> r = pending.readRecord(c.record.id)) {
                r->origin = c.record.origin;
                pending.rewriteRecord(*r);
            }
            break;
        }
        }
    }
}

bool ShadowWorker::racing() const
{
    return std::any_of(mTasks.begin(), mTasks.end(), [](const auto &t) {
        return t->exposed() || (t->mirror && t->mirror->holding());
    });
}

bool ShadowWorker::stepNewestShadow()
{
    const auto now = Clock::now();
    // Racing first: items that nothing holds yet (a link: only its shadow saves it; a folder:
    // only its walk holds its files), and folders whose files are being opened and held while
    // something may be deleting them. What is held or shadowed is safe and waits: an item that
    // left the trash, then the newest.
    const auto rank = [](const Task &t) {
        if (t.exposed()) return 3;
        if (t.mirror && t.mirror->holding()) return 2;
        if (t.settling) return 1;
        return 0;
    };
    Task *task = nullptr;
    for (const auto &t : mTasks) {
        if (!t->runnable(now)) continue;
        if (!task || rank(*t) > rank(*task) ||
            (rank(*t) == rank(*task) && t->arrival > task->arrival))
            task = t.get();
    }
    if (!task) return false;

    if (!task->started) {
        task->started = true;
        const PendingArea pending(task->volume);
        Fd pendingFd(pending.open(true));
        Fd files(-1);
        Fd shadowDir(-1);
        int err = pendingFd.fd < 0 ? errno : 0;
        if (err == 0 && !task->record.id.isEmpty()) {
            // A shadow an earlier run began: completed where it stands.
            shadowDir.fd = openat(pendingFd.fd, task->record.id.constData(),
                                  O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (shadowDir.fd >= 0) task->leftovers = removeLeftoverCopies(shadowDir.fd);
        }
        if (err == 0 && shadowDir.fd < 0) {
            shadowDir.fd = pending.create(pendingFd.fd, task->record);
            if (shadowDir.fd < 0) err = errno;
        }
        if (err == 0) {
            Fd trash(::open(task->record.trashDir.constData(),
                            O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            files.fd = trash.fd >= 0 ? openat(trash.fd, "files",
                                              O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                                     : -1;
            if (files.fd < 0) err = errno;
        }
        if (err != 0) {
            ShadowTaken r;
            r.volume = task->volume;
            r.record = task->record;
            r.startError = err;
            mOnShadow(r);
            mTasks.erase(std::find_if(mTasks.begin(), mTasks.end(),
                                      [&](const auto &t) { return t.get() == task; }));
            return true;
        }
        task->mirror = std::make_unique<Shadow::Mirror>(files.fd, task->record.trashName,
                                                        shadowDir.fd, PendingArea::kItemName,
                                                        task->item ? task->item->fd : -1);
        task->item.reset();
        if (task->settling) task->mirror->sourceGone();
    }
    if (task->mirror->step(kStepBudget)) finishWalk(*task);
    return true;
}

void ShadowWorker::finishWalk(Task &task)
{
    const Shadow::Mirror &m = *task.mirror;
    ShadowRecord &r = task.record;
    const bool wasComplete = r.walked && r.complete;
    r.walked = true;
    // A folder still being filled when it left may have had more coming.
    const bool quiet = !task.following || task.quietWalks > 0;
    r.complete = m.complete() && task.leftovers == 0 && (!task.settling || quiet);
    r.missingFiles = m.stats().failed + task.leftovers;
    r.missingBytes = m.stats().missingBytes;
    if (!task.reported || task.settling || wasComplete != r.complete)
        PendingArea(task.volume).rewriteRecord(r);
    if (!task.reported) {
        task.reported = true;
        ShadowTaken taken;
        taken.volume = task.volume;
        taken.record = r;
        taken.stats = m.stats();
        taken.complete = r.complete;
        taken.ms = msSince(task.since);
        mOnShadow(taken);
    }
    if (task.settling) {
        const QByteArray volume = task.volume;
        const ShadowRecord record = task.record;
        const KeepPolicy policy = task.policy;
        const Task *done = &task;
        mTasks.erase(std::find_if(mTasks.begin(), mTasks.end(),
                                  [&](const auto &t) { return t.get() == done; }));
        return settleNow(volume, record, policy);
    }
    if (task.follow) {
        task.quietWalks = task.following && m.madeThisWalk() == 0 ? task.quietWalks + 1 : 0;
        if (task.quietWalks < kQuietWalks || !task.following) {
            // Still being filled, or not known to be quiet yet: another walk later.
            task.following = true;
            task.nextWalk = Clock::now() + kFollowInterval;
            task.mirror->walkAgain();
            return;
        }
    }
    const Task *done = &task;
    mTasks.erase(
        std::find_if(mTasks.begin(), mTasks.end(), [&](const auto &t) { return t.get() == done; }));
}

void ShadowWorker::settleNow(const QByteArray &volume, const ShadowRecord &given,
                             const KeepPolicy &policy)
{
    const auto started = Clock::now();
    const PendingArea pending(volume);
    Settled s;
    s.volume = volume;
    s.record = given;
    const auto finish = [&](Settled::Outcome outcome, const QString &reason = {}) {
        s.outcome = outcome;
        s.reason = reason;
        s.ms = msSince(started);
        mOnSettled(s);
    };

    const std::optional<ShadowRecord> onDisk = pending.readRecord(given.id);
    // Emptied by a program that has the preload library: it kept the item already. The shadow
    // only adds what the library could not keep, then goes.
    const QByteArray byLibrary =
        keptByLibrary(CacheFolder::pathFor(volume), onDisk ? *onDisk : given);
    if (!byLibrary.isEmpty()) {
        qint64 merged = 0;
        if (onDisk) {
            s.record = *onDisk;
            Fd pendingFd(pending.open(false));
            Fd item(pendingFd.fd >= 0
                        ? openat(pendingFd.fd,
                                 (onDisk->id + '/' + PendingArea::kItemName).constData(),
                                 O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                        : -1);
            Fd kept(item.fd >= 0 ? ::open(byLibrary.constData(),
                                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                                 : -1);
            if (kept.fd >= 0) merged = mergeMissing(item.fd, kept.fd);
            pending.drop(onDisk->id);
        }
        if (merged == 0) return finish(Settled::Outcome::Dropped);
        // What was added changes the day's size.
        const QByteArray dayFolder = byLibrary.left(byLibrary.lastIndexOf('/'));
        ::unlink(
            (dayFolder.left(dayFolder.lastIndexOf('/')) + '/' + CommonUtils::kCacheInformationName)
                .constData());
        s.result.cachedPath = byLibrary;
        s.completeness.complete = true;
        return finish(Settled::Outcome::Kept);
    }
    if (!onDisk)
        return finish(Settled::Outcome::Lost,
                      QStringLiteral("it left the trash before anything of it could be saved"));
    const ShadowRecord r = *onDisk;
    s.record = r;
    // Put back: the same inode is where it came from, on the trash's file system (whose device
    // number is the one it has now, not necessarily the one recorded).
    struct stat st
    {
    }, trash{};
    const quint64 dev = ::stat(r.trashDir.constData(), &trash) == 0 ? quint64(trash.st_dev) : r.dev;
    const bool restored = !r.origin.isEmpty() && ::lstat(r.origin.constData(), &st) == 0 &&
                          quint64(st.st_ino) == r.ino && quint64(st.st_dev) == dev;
    if (restored || !policy.protection || policy.exclusions.matches(keptName(r))) {
        pending.drop(r.id);
        return finish(Settled::Outcome::Dropped);
    }
    Fd pendingFd(pending.open(false));
    Fd shadow(pendingFd.fd >= 0 ? openat(pendingFd.fd, r.id.constData(),
                                         O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                                : -1);
    struct stat item
    {
    };
    if (shadow.fd < 0 ||
        fstatat(shadow.fd, PendingArea::kItemName, &item, AT_SYMLINK_NOFOLLOW) != 0) {
        pending.drop(r.id);
        return finish(Settled::Outcome::Lost,
                      QStringLiteral("it left the trash before anything of it could be saved"));
    }
    s.completeness.complete = r.walked && r.complete;
    s.completeness.missingFiles = r.missingFiles;
    s.completeness.missingBytes = r.missingBytes;
    CacheFolder::Status status;
    Fd cache(CacheFolder::open(volume, true, &status));
    if (cache.fd < 0)
        return finish(Settled::Outcome::Failed,
                      QStringLiteral("its volume's cache folder cannot be used"));
    s.result = CacheCommit::moveIntoCache(shadow.fd, PendingArea::kItemName, cache.fd, status.path,
                                          keptName(r), r.origin, QDateTime::currentDateTime(),
                                          s.completeness);
    if (!s.result.ok()) return finish(Settled::Outcome::Failed, s.result.message());
    pending.drop(r.id);
    finish(Settled::Outcome::Kept);
}

BackgroundWorker::BackgroundWorker()
    : mThread(Jobs::start([this] {
          for (;;) {
              Job job;
              {
                  std::unique_lock lock(mMutex);
                  mBusy = !mJobs.empty();
                  mWake.wait(lock, [&] { return mStop || !mJobs.empty(); });
                  if (mStop) return;
                  mBusy = true;
                  job = std::move(mJobs.front());
                  mJobs.pop_front();
              }
              job(mStop);
          }
      }))
{
}

BackgroundWorker::~BackgroundWorker()
{
    stop();
}

void BackgroundWorker::post(Job job)
{
    {
        std::lock_guard lock(mMutex);
        mJobs.push_back(std::move(job));
    }
    mWake.notify_one();
}

void BackgroundWorker::stop()
{
    {
        std::lock_guard lock(mMutex);
        mStop = true;
    }
    mWake.notify_all();
    if (mThread) mThread->wait();
}
