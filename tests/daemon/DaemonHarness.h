#pragma once

#include "TestEnv.h"
#include "browser/Removal.h"
#include "common/NotificationBus.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QDate>
#include <QMap>
#include <QProcess>
#include <QSignalSpy>
#include <QString>
#include <QStringList>
#include <QTest>

// Helpers for the end-to-end tests of sv3daemon: starting the real programs, driving real trash
// tools, and looking at the caches they fill.
namespace Harness {

// A program of the build tree (SALVORA_BIN_DIR).
inline QString binary(const char *name)
{
    return QFile::decodeName(qgetenv("SALVORA_BIN_DIR") + '/' + name);
}

// The daemon as the session starts it: `sv3daemon`, which becomes the agent.
class Daemon
{
public:
    explicit Daemon(QString program = binary("sv3daemon"), QStringList args = {})
        : mProgram(std::move(program)), mArgs(std::move(args))
    {
        mProcess.setProcessChannelMode(QProcess::MergedChannels);
    }
    ~Daemon() { stop(); }
    // Starts it and waits until the agent says it is watching.
    bool start();
    // SIGTERM and wait; true when it ended by itself.
    bool stop();
    qint64 pid() const { return mProcess.processId(); }
    bool isRunning() const { return mProcess.state() != QProcess::NotRunning; }
    QProcess &process() { return mProcess; }
    // Everything it printed so far (stdout and stderr).
    QByteArray output() { return mOutput += mProcess.readAll(); }
    // Shadows the agent has finished taking since it started: a shadow's folder appears before
    // its content, so a test must wait for this before deleting from the trash.
    int shadowsTaken() { return int(output().count("shadow of ")); }
    bool waitForShadows(int count)
    {
        return QTest::qWaitFor([&] { return shadowsTaken() >= count; }, 10000);
    }

private:
    QString mProgram;
    QStringList mArgs;
    QProcess mProcess;
    QByteArray mOutput;
};

// A suite of one daemon on a private home, with an ear on its "Salvora3Notification"s:
// initTestCase makes the home trash, turns protection on (nothing purged by age), lets prepare()
// add the suite's settings and mounts, and starts the daemon; cleanupTestCase fails when it did
// not end cleanly (a sanitizer finding would).
class DaemonSuite : public QObject
{
    Q_OBJECT
protected:
    TestEnv env;
    const QByteArray home = env.homeBytes(), cache = home + "/.Salvora3Cache",
                     trash = home + "/.local/share/Trash";
    NotificationBus bus;
    QSignalSpy spy{&bus, &NotificationBus::received};
    Daemon daemon;
    // How many notifications with this object were heard.
    int heard(const char *object) const;
    // Waits until the daemon took `count` shadows more than `mark` (shadowsTaken() before the
    // trashing) and `cacheFolder`'s pending area holds `count`.
    bool shadowedSince(int mark, const QByteArray &cacheFolder, int count);
    // `trash-put`, then shadowedSince() for each path.
    bool trashAndShadow(const QByteArray &cacheFolder, const QByteArrayList &paths);
    // Why the suite cannot run here; empty when it can.
    virtual QString missing() { return {}; }
    virtual void prepare() {}

private slots:
    void initTestCase();
    void cleanupTestCase();
};

inline bool run(const QString &program, const QStringList &args, QByteArray *output = nullptr)
{
    return TestEnv::runProgram(program, args, output);
}
// `sh -ec script`, as root for mounts and the like.
inline bool sh(const QByteArray &script)
{
    return run(QStringLiteral("sh"), {QStringLiteral("-ec"), QString::fromLocal8Bit(script)});
}
bool haveProgram(const char *name);
// Another trash of this user on a mounted volume: `gio trash --empty` would empty it too.
bool foreignTrashExists();
// `folders` x `files` small files of distinct content below root (d<i>/f<j>).
bool makeTree(const QByteArray &root, int folders, int files);
inline QString str(const QByteArray &path)
{
    return QFile::decodeName(path);
}
// A day folder's name, `offset` days from today.
inline QByteArray day(int offset = 0)
{
    return QDate::currentDate().addDays(offset).toString(Qt::ISODate).toLatin1();
}
bool trashPut(const QByteArrayList &paths);
bool emptyTrash(const QByteArray &trash);
// Trashes the way every file manager does: the .trashinfo first, then a rename into files/.
// `origin`: the path its .trashinfo records, when it is not `path`.
bool trashByHand(const QByteArray &trash, const QByteArray &path, const QByteArray &trashName,
                 const QByteArray &origin = {});
// Empties one item as KDE and trash-empty do: files/X (a folder recursively), then its .trashinfo.
bool emptyByHand(const QByteArray &trash, const QByteArray &trashName);

// Files below a folder (or a file itself, as ""): relative path -> "f:" + content, "l:" + link
// target, or "d" for a folder; with `owners`, the folder itself too, each value after its mode
// (octal) and owner; with `times` too, after its modification time (but a link's).
QMap<QByteArray, QByteArray> snapshot(const QByteArray &folder, bool owners = false,
                                      bool times = false);
// Names in a folder, sorted, without "." and ".." (nor any starting with '.' unless `hidden`).
QByteArrayList names(const QByteArray &folder, bool hidden = true);
// Items kept in a cache: "<day>/<time>/<name>" for each item of each time folder.
QByteArrayList cachedItems(const QByteArray &cacheFolder);
// The newest kept item of that name, as a full path; empty when none.
QByteArray kept(const QByteArray &cacheFolder, const QByteArray &name);
// Whether today's origins of a cache record an item kept from that path.
bool keptFrom(const QByteArray &cacheFolder, const QByteArray &path);
// Shadows waiting in a cache's pending area for the current user.
int pendingCount(const QByteArray &cacheFolder);
using Removal::removeTree;
// CPU time of a process, all its threads, in nanoseconds; -1 when it is gone.
qint64 cpuNanoseconds(qint64 pid);
// The value of a /proc/PID/status line ("Uid", "State", "VmHWM"…), blanks squeezed; empty when
// gone.
QByteArray statusLine(qint64 pid, const char *key);

} // namespace Harness
