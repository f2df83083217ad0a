#include "TestEnv.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/MountWatcher.h"
#include "volumes/Volumes.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTest>

// A real ext4 volume with a known UUID, loop-mounted under a mount root in a private mount
// namespace (see in-private-mount-ns.sh).
class TstVolumesLoop : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QTemporaryDir images;
    const QString uuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-0123456789AB");
    const QString mountPoint = QStringLiteral("/mnt/sv3 test vol");

private slots:
    void initTestCase()
    {
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        env = new TestEnv;
        // Our own /mnt, so nothing we create shows outside this namespace.
        QVERIFY(TestEnv::runProgram(QStringLiteral("mount"), {"-t", "tmpfs", "sv3test", "/mnt"}));
    }
    void cleanupTestCase() { delete env; }

    void mountIsDiscoveredAndProtected()
    {
        MountWatcher watcher;
        QVERIFY(watcher.isWatching());
        QSignalSpy mounted(&watcher, &MountWatcher::deviceDidMount);
        QSignalSpy unmounted(&watcher, &MountWatcher::deviceDidUnmount);

        QVERIFY(
            TestEnv::mountExt4Image(images.filePath(QStringLiteral("vol.img")), uuid, mountPoint));
        QTRY_COMPARE_WITH_TIMEOUT(mounted.size(), 1, 5000);
        QCOMPARE(mounted.at(0).at(0).toString(), mountPoint);

        CommonUtils::resetVolumesLists();
        QVERIFY(CommonUtils::getAllMountedVolumes().contains(mountPoint));
        const auto d = CommonUtils::getVolumeInfosForPath(mountPoint);
        QVERIFY(d);
        QCOMPARE(d->uuid, uuid);
        QCOMPARE(d->fsType, QStringLiteral("ext4"));
        QVERIFY(!CommonUtils::isVolumeProtected(mountPoint));
        QVERIFY(!CommonUtils::getAllProtectedVolumes().contains(mountPoint));

        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, {{uuid, mountPoint}});
        CommonUtils::updateAllProtectedVolumesList();
        QVERIFY(CommonUtils::isVolumeProtected(mountPoint));
        QVERIFY(CommonUtils::getAllProtectedVolumes().contains(mountPoint));

        QVERIFY(TestEnv::runProgram(QStringLiteral("umount"), {mountPoint}));
        QTRY_COMPARE_WITH_TIMEOUT(unmounted.size(), 1, 5000);
        QCOMPARE(unmounted.at(0).at(0).toString(), mountPoint);
        QCOMPARE(mounted.size(), 1);
        // Once it is gone from the table it is no longer protected: identity needs the mount.
        CommonUtils::resetVolumesLists();
        QVERIFY(!CommonUtils::isVolumeProtected(mountPoint));
    }
};

QTEST_GUILESS_MAIN(TstVolumesLoop)
#include "tst_volumes_loop.moc"
