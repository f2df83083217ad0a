#include "WindowFixture.h"

#include "common/Log.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QComboBox>
#include <QElapsedTimer>

namespace Fixture {

void setLaterLaunch()
{
    Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 14);
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
    Settings::setInteger(SettingsKeys::PrefsLaunchMenu, 1);
    Settings::setInteger(SettingsKeys::FirstUse, 700000000);
}

QByteArray cachePath(const TestEnv &env)
{
    return env.homeBytes() + "/.Salvora3Cache";
}

QByteArray addItem(const TestEnv &env, const char *day, const char *time, const QByteArray &name,
                   qint64 size)
{
    const QByteArray path = cachePath(env) + '/' + day + '/' + day + ' ' + time + '/' + name;
    if (!TestEnv::writeFile(path, QByteArray(size, 'x'))) return {};
    return path;
}

bool launchAndSettle(TestDelegate &c, int timeoutMs)
{
    QSignalSpy started(&c, &AppDelegate::contentsScanStarted);
    QSignalSpy ended(&c, &AppDelegate::contentsScanEnded);
    // A cache without days starts no scan.
    return c.applicationDidFinishLaunching() &&
           QTest::qWaitFor([&] { return c.ui.mSelectedVolumeMenu->count() > 0; }, timeoutMs) &&
           waitForScans(ended, started.size(), timeoutMs);
}

bool waitForScans(QSignalSpy &spy, qsizetype count, int timeoutMs)
{
    return QTest::qWaitFor([&] { return spy.size() >= count; }, timeoutMs);
}

bool settle(const TestDelegate &c, int timeoutMs)
{
    QElapsedTimer idle;
    idle.start();
    return QTest::qWaitFor(
        [&] {
            if (c.probe.scanning()) idle.restart();
            return idle.elapsed() > AppDelegate::kScanRetryMs + 100;
        },
        timeoutMs);
}

QList<QByteArray> names(const TestDelegate &c)
{
    QList<QByteArray> out;
    for (qsizetype i = 0; i < c.probe.contents().size(); ++i)
        out.append(c.probe.contents().name(i).toByteArray());
    return out;
}

} // namespace Fixture
