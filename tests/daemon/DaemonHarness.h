#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>

// Helpers for the end-to-end tests of sv3daemon: starting the real programs, driving real trash
// tools, and looking at the caches they fill.
namespace Harness {

// A program of the build tree (SALVORA_BIN_DIR).
QString binary(const char *name);

// The daemon as the session starts it: `sv3daemon`, which becomes the agent.
class Daemon
{
public:
    explicit Daemon(QString program = binary("sv3daemon"));
    ~Daemon();
    // Starts it and waits until the agent says it is watching.
    bool start(int timeoutMs = 15000);
    // SIGTERM and wait; true when it ended by itself.
    bool stop(int timeoutMs = 10000);
    qint64 pid() const { return mProcess.processId(); }
    bool isRunning() const { return mProcess.state() != QProcess::NotRunning; }
    QProcess &process() { return mProcess; }
    // Everything it printed so far (stdout and stderr).
    QByteArray output();
    bool waitForOutput(const QByteArray &needle, int timeoutMs = 10000);
    // Shadows the agent has finished taking since it started: a shadow's folder appears before
    // its content, so a test must wait for this before deleting from the trash.
    int shadowsTaken();
    bool waitForShadows(int count, int timeoutMs = 10000);

private:
    QString mProgram;
    QProcess mProcess;
    QByteArray mOutput;
};

// Runs a program to its end; true when it exited with 0.
bool run(const QString &program, const QStringList &args, QByteArray *output = nullptr,
         int timeoutMs = 30000);
bool haveProgram(const char *name);

// Makes the bus start services (gvfsd, which empties the trash for `gio trash --empty`) with the
// test's home, never the real one.
bool pointBusActivationAtTestHome();

// Files below a folder: relative path -> "f:" + content, "l:" + link target, or "d" for a folder.
QMap<QByteArray, QByteArray> snapshot(const QByteArray &folder);
// Items kept in a cache: "<day>/<time>/<name>" for each item of each time folder.
QByteArrayList cachedItems(const QByteArray &cacheFolder);
// Shadows waiting in a cache's pending area for the current user.
int pendingCount(const QByteArray &cacheFolder);
// Recursive removal without following links, for byte names that QDir cannot remove.
bool removeTree(const QByteArray &path);
QByteArray logContent();
// utime + stime of a process, in clock ticks.
qint64 cpuTicks(qint64 pid);

} // namespace Harness
