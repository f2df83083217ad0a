#pragma once

#include "TestEnv.h"

#include "controller/AppDelegate.h"
#include "controller/WindowProbe.h"
#include "ui/PreferencesSheet.h"

#include <QSignalSpy>
#include <QTest>

// The real window over a private home, with the hooks that reach outside the process recorded
// instead of carried out, and its state in reach through the probe.
class TestDelegate : public AppDelegate
{
public:
    bool allowPrivileges = true;
    int terminated = 0;
    int daemonStarts = 0;
    QStringList openedFiles;
    int menuInstalls = 0;
    QString helpPath;
    // What the "Restore To" chooser answers (nullopt: cancelled), and how often it was asked.
    std::optional<QByteArray> restoreFolder;
    int restoreFolderAsked = 0;
    // The window's state, read through the probe.
    WindowProbe probe{*this};
    const ::MainWindowOutlets &ui = probe.ui();

    bool runPrivilegeChecks() override { return allowPrivileges; }
    void installSalvoraMenu() override { ++menuInstalls; }
    void startDaemonIfNeeded() override { ++daemonStarts; }
    void openFile(const QString &path) override { openedFiles.append(path); }
    QString helpDocumentPath() const override { return helpPath; }
    void terminate() override { ++terminated; }
    std::optional<QByteArray> chooseRestoreFolder() override
    {
        ++restoreFolderAsked;
        return restoreFolder;
    }
};

namespace Fixture {

// Settings of a launch that is not the first one.
void setLaterLaunch();
// An item file (with `size` bytes) in the home cache: day "yyyy-MM-dd", time "HH_mm_ss".
QByteArray addItem(const TestEnv &env, const char *day, const char *time, const QByteArray &name,
                   qint64 size = 1);
QByteArray cachePath(const TestEnv &env);
// Launches and waits until the volume list has filled the day list and its scan has ended.
bool launchAndSettle(TestDelegate &c, int timeoutMs = 10000);
// Waits for the end of a scan that `spy` watches (contentsScanEnded), counting from `before`.
bool waitForScans(QSignalSpy &spy, qsizetype count, int timeoutMs = 10000);
// Waits until no scan has run for longer than a retry takes to come (false on timeout).
bool settle(const TestDelegate &c, int timeoutMs = 10000);
// Names of the contents list, in display order.
QList<QByteArray> names(const TestDelegate &c);

} // namespace Fixture
