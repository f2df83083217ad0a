#pragma once

#include "cache/CacheCommit.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <sys/types.h>

// A private home for one test: HOME and the XDG folders point into a temporary folder, so no
// test reads or writes the real user's settings, log or caches.
class TestEnv
{
public:
    TestEnv();
    ~TestEnv();
    TestEnv(const TestEnv &) = delete;
    TestEnv &operator=(const TestEnv &) = delete;

    QString home() const { return mDir.path(); }
    QByteArray homeBytes() const;
    // Forgets every setting (the domain file is removed).
    void clearSettings();

    // Creates a folder and its parents (byte path).
    static bool makeFolders(const QByteArray &path);
    // Writes bytes to a file, creating its folders.
    static bool writeFile(const QByteArray &path, QByteArrayView content);
    static QByteArray readFile(const QByteArray &path);
    // Keeps a new file in `cache` as the daemon does (with its origin record), under day
    // "yyyy-MM-dd" and time "yyyy-MM-dd HH_mm_ss"; an incomplete one takes the marked name.
    // Returns where it lies, empty on failure.
    QByteArray keep(const QByteArray &cache, const QByteArray &day, const QByteArray &time,
                    const QByteArray &name, const CacheCommit::Completeness &completeness = {});
    // Appends an origin record for <cache>/<day>/<time>/<name>, as a deletion into the cache
    // writes it: the item came from `originalPath`.
    static bool writeOrigin(const QByteArray &cache, const QByteArray &day, const QByteArray &time,
                            const QByteArray &name, const QByteArray &originalPath);
    static bool exists(const QByteArray &path);
    // The user's log, whole, and its messages without their time stamps.
    static QByteArray logText();
    static QByteArrayList logMessages();
    // Permission bits (with set-user-id and sticky) of a path, links not followed; 0 when absent.
    static mode_t modeOf(const QByteArray &path);
    // Runs a program to its end with its output shown, or kept in `output`; true when it exited 0.
    static bool runProgram(const QString &program, const QStringList &args,
                           QByteArray *output = nullptr);
    // Root in a private mount namespace only: a new ext4 image of that UUID, loop-mounted at
    // mountPoint (created).
    static bool mountExt4Image(const QString &image, const QString &uuid, const QString &mountPoint,
                               int megabytes = 8);

private:
    QTemporaryDir mDir;
    QByteArray mOldHome;
};

// True when the test may mount file systems (root, in a private mount namespace).
bool canMountPrivately(QString *why);
