#pragma once

#include "browser/Restore.h"
#include "common/Jobs.h"
#include "logic/WorkProgress.h"
#include "logic/WorkerState.h"

#include <QByteArrayList>
#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QUrl>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class QMimeData;

// What one restore did, item by item, for the window to say.
struct RestoreReport
{
    enum class Kind { ToFolder, PutBack };
    Kind kind = Kind::ToFolder;
    QByteArray destination; // ToFolder: the chosen folder
    QList<Restore::ItemResult> results;
    QByteArrayList unrecorded; // PutBack: items whose original location was never recorded
};

// Getting items back out of the cache without the window: copy jobs on their own threads,
// file URLs made from byte paths, the drag data, and revealing items in the file manager.
namespace RestoreActions {

// A copy job: element 0 is the destination folder, then the sources in row order.
QByteArrayList makeJob(const QByteArray &destination, const QByteArrayList &sources);

// "file://" and the path percent-encoded byte by byte. QUrl::fromLocalFile would go through
// QString and lose bytes that are not UTF-8.
QByteArray fileUrlBytes(const QByteArray &path);
QUrl fileUrl(const QByteArray &path);
// The bytes of a local file URL's path; nullopt for other schemes and remote hosts.
std::optional<QByteArray> pathFromFileUrl(const QUrl &url);
// The folder that holds a path ("/" for a top-level name).
QByteArray parentFolder(const QByteArray &path);

// What a drag out of the contents list carries: text/uri-list with file URLs, in the given
// order. The caller owns the result (QDrag takes it).
QMimeData *dragMimeData(const QByteArrayList &paths);
// The paths a drag carries (for receivers and tests).
QByteArrayList pathsFromMimeData(const QMimeData &data);

// The message the window shows after a restore: what was restored and where, then each thing
// that was not, with its reason. Nothing fails silently.
struct Message
{
    enum class Level { Success, Warning, Error };
    Level level = Level::Success;
    QString text;
    QByteArrayList restored; // what "Show" reveals
};
Message describe(const RestoreReport &report);
// A folder as the message names it: its last name ("Documents"), "/" for the root.
QString folderTitle(const QByteArray &folder);

} // namespace RestoreActions

// Runs copy jobs, each on a thread of its own with its own copy of the job, and no window state.
// Each job counts its top-level items as they are done, for a WorkProgress to show when one is
// set, and can be cancelled there. At quit, stopAll() makes every running copy stop after the
// piece it is writing; a stopped copy never leaves a file under its final name.
class CopyJobs
{
public:
    CopyJobs();
    // Tells running jobs to stop; does not wait for them.
    ~CopyJobs();
    CopyJobs(const CopyJobs &) = delete;
    CopyJobs &operator=(const CopyJobs &) = delete;

    // Jobs started afterwards are followed there (main thread; it must outlive their start).
    void setProgress(WorkProgress *progress) { mProgress = progress; }
    // Each finished job's report goes to `reporter` on the mailbox's thread.
    using Reporter = std::function<void(const RestoreReport &)>;
    void setReporter(std::shared_ptr<Mailbox> mailbox, Reporter reporter);
    // Starts copySelectedItemsThread on the job; false (nothing started) without a destination
    // and at least one source, or after stopAll().
    bool start(const QByteArrayList &job);
    // Puts each cached item back at its original path (pairs of cached, original); the items
    // without a record are only reported.
    bool startPutBack(const QList<QPair<QByteArray, QByteArray>> &items, Restore::Clash clash,
                      const QByteArrayList &unrecorded = {});
    void stopAll();
    // Waits until no job runs, at most `timeoutMs`; true when none runs any more.
    bool waitForAll(int timeoutMs) const;
    int running() const;

    // Tests: runs on the worker after each item (to slow it down). Applies to later jobs.
    void setItemHookForTesting(std::function<void(const QByteArray &source)> hook);

private:
    struct Shared
    {
        std::atomic<int> running{0};
    };
    std::shared_ptr<Shared> mShared;
    // After stopAll(), no job starts any more.
    bool mStopped = false;
    WorkProgress *mProgress = nullptr;
    // The jobs that may still run, to stop them at quit.
    QList<std::weak_ptr<WorkJob>> mJobs;
    std::function<void(const QByteArray &)> mItemHook;
    std::shared_ptr<Mailbox> mMailbox;
    Reporter mReporter;
};

// Shows items in the file manager: org.freedesktop.FileManager1.ShowItems on the session bus,
// one call per item. When no file manager answers, the item's folder is opened instead with
// `openUrl` (the window passes QDesktopServices::openUrl; the core has no Gui).
class FileManagerReveal : public QObject
{
    Q_OBJECT
public:
    static constexpr char kService[] = "org.freedesktop.FileManager1";
    static constexpr char kPath[] = "/org/freedesktop/FileManager1";
    static constexpr char kInterface[] = "org.freedesktop.FileManager1";
    // A file manager that has to start first may take a while; beyond this it counts as absent.
    static constexpr int kTimeoutMs = 5000;

    using OpenUrl = std::function<bool(const QUrl &)>;
    explicit FileManagerReveal(OpenUrl openUrl, QObject *parent = nullptr,
                               QDBusConnection connection = QDBusConnection::sessionBus());

    void reveal(const QByteArray &path);
    void reveal(const QByteArrayList &paths);

signals:
    // After each item: whether the file manager took it, or its folder was opened instead.
    void revealed(const QByteArray &path, bool byFileManager);

private:
    OpenUrl mOpenUrl;
    QDBusConnection mConnection;
};
