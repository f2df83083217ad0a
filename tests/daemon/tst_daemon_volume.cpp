#include "DaemonHarness.h"

#include "browser/Deletion.h"
#include "cache/CacheCommit.h"
#include "cache/DayEntry.h"
#include "cache/SpaceGuard.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QTest>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace Harness;

// A protected volume other than "/": a real ext4 image loop-mounted under /mnt in a private mount
// namespace, its per-volume trashes, the user's private cache in the volume's shared cache folder,
// its days remembered in ProtectedVolumesData once it is unplugged, and the space guard.
class TstDaemonVolume : public DaemonSuite
{
    Q_OBJECT
    QTemporaryDir images;
    const QString uuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-0123456789AC");
    const QByteArray mount = "/mnt/sv3 vol";
    const QByteArray shared = mount + "/.Salvora3Cache";
    const QByteArray volumeCache = shared + '/' + QByteArray::number(getuid());

    QString image() const { return images.filePath(QStringLiteral("vol.img")); }
    QByteArray kept(const QByteArray &name) const { return Harness::kept(volumeCache, name); }
    // The snapshot entry of our volume, as the window reads it.
    QVariantMap snapshotEntry() const
    {
        return Settings::dictionary(SettingsKeys::ProtectedVolumesData)
            .value_or(QVariantMap())
            .value(uuid)
            .toMap();
    }
    qint64 todaysCountInSnapshot() const
    {
        for (const QVariant &d : snapshotEntry().value(QStringLiteral("days")).toList()) {
            const auto entry = DayEntry::fromVariantMap(d.toMap());
            if (entry && entry->name == day()) return entry->count;
        }
        return -1;
    }
    QString missing() override
    {
        QString why;
        return canMountPrivately(&why) ? QString() : why;
    }
    void prepare() override
    {
        QVERIFY(sh("mount -t tmpfs sv3test /mnt"));
        QVERIFY(TestEnv::mountExt4Image(image(), uuid, str(mount), 16));
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, {{uuid, str(mount)}});
    }

private slots:
    void volumeTrashGoesToTheVolumesCache()
    {
        QVERIFY(TestEnv::writeFile(mount + "/docs/a.txt", "on the volume"));
        QVERIFY(TestEnv::writeFile(mount + "/docs/folder/x.bin", QByteArray(5000, 'x')));
        const auto folder = snapshot(mount + "/docs/folder");
        QVERIFY(trashAndShadow(volumeCache, {mount + "/docs/a.txt", mount + "/docs/folder"}));
        QCOMPARE(TestEnv::modeOf(shared), mode_t(0711));
        QCOMPARE(TestEnv::modeOf(volumeCache), mode_t(0700));

        QVERIFY(emptyTrash(mount + "/.Trash-0"));
        QTRY_VERIFY_WITH_TIMEOUT(!kept("a.txt").isEmpty() && !kept("folder").isEmpty(), 10000);
        QCOMPARE(TestEnv::readFile(kept("a.txt")), QByteArray("on the volume"));
        QCOMPARE(snapshot(kept("folder")), folder);
        QVERIFY(keptFrom(volumeCache, mount + "/docs/a.txt"));
        QTRY_COMPARE_WITH_TIMEOUT(todaysCountInSnapshot(), qint64(2), 10000);
        QCOMPARE(snapshotEntry().value(QStringLiteral("path")).toString(), str(mount));
    }

    void stickySharedTrash()
    {
        // <top>/.Trash/<uid> is used once .Trash is a sticky folder.
        QVERIFY(::mkdir((mount + "/.Trash").constData(), 0777) == 0);
        QVERIFY(::chmod((mount + "/.Trash").constData(), 01777) == 0);
        QVERIFY(TestEnv::writeFile(mount + "/docs/b.txt", "shared trash"));
        QVERIFY(trashAndShadow(volumeCache, {mount + "/docs/b.txt"}));
        QVERIFY(emptyByHand(mount + "/.Trash/0", "b.txt"));
        QTRY_VERIFY_WITH_TIMEOUT(!kept("b.txt").isEmpty(), 10000);
    }

    void directDeletionOnTheVolume()
    {
        // `salvora rm`: straight into the volume's cache; the daemon hears of it and refreshes
        // the volume's snapshot.
        QVERIFY(TestEnv::writeFile(mount + "/docs/direct.txt", "deleted from a terminal"));
        const auto results = Deletion::deleteIntoCache({mount + "/docs/direct.txt"});
        QVERIFY2(results.first().ok(), qPrintable(results.first().message()));
        QVERIFY(results.first().cachedPath.startsWith(volumeCache + '/'));
        QCOMPARE(TestEnv::readFile(results.first().cachedPath),
                 QByteArray("deleted from a terminal"));
        QTRY_COMPARE_WITH_TIMEOUT(todaysCountInSnapshot(), qint64(4), 10000);
    }

    void unpluggedVolumeKeepsItsDays()
    {
        QVERIFY(TestEnv::writeFile(mount + "/docs/c.txt", "trashed before unplugging"));
        QVERIFY(trashAndShadow(volumeCache, {mount + "/docs/c.txt"}));
        const QByteArrayList before = cachedItems(volumeCache);
        struct stat first = {}, now = {};
        QVERIFY(::stat(mount.constData(), &first) == 0);

        QVERIFY(sh("umount '" + mount + '\''));
        QTest::qWait(800);
        // Still offered with its days; unplugging deleted nothing, so nothing was committed.
        QCOMPARE(snapshotEntry().value(QStringLiteral("path")).toString(), str(mount));
        QCOMPARE(todaysCountInSnapshot(), qint64(4));

        // Plugged again on another loop device, so under another device number.
        QVERIFY(sh("cd " + QFile::encodeName(images.path()) +
                   "; truncate -s 1M other.img; loop=$(losetup --find --show other.img);"
                   "mount -o loop vol.img '" +
                   mount + "'; losetup --detach $loop"));
        QVERIFY(::stat(mount.constData(), &now) == 0);
        QVERIFY(now.st_dev != first.st_dev);
        QTest::qWait(800);
        QCOMPARE(cachedItems(volumeCache), before);
        QCOMPARE(pendingCount(volumeCache), 1);
        QVERIFY(emptyTrash(mount + "/.Trash/0"));
        QTRY_VERIFY_WITH_TIMEOUT(!kept("c.txt").isEmpty(), 10000);
        QCOMPARE(TestEnv::readFile(kept("c.txt")), QByteArray("trashed before unplugging"));
        // Nothing of the daemon holds the volume.
        QVERIFY(sh("umount '" + mount + "'; mount -o loop " + QFile::encodeName(image()) + " '" +
                   mount + '\''));
    }

    void oldestDaysGoForSpaceTodayStays()
    {
        // Half of the volume wanted free: today's item leaves a megabyte less than that; two
        // older days take two more.
        Settings::setInteger(SettingsKeys::PrefsKeepFreePercent, 50);
        Settings::setInteger(SettingsKeys::PrefsKeepFreeBytes, 1'000'000'000);
        struct statvfs v = {};
        QVERIFY(::statvfs(mount.constData(), &v) == 0);
        const auto available = [&] {
            return ::statvfs(mount.constData(), &v) == 0 ? qint64(v.f_bavail) * qint64(v.f_frsize)
                                                         : -1;
        };
        const qint64 mb = 1 << 20, wanted = qint64(v.f_blocks) * qint64(v.f_frsize) / 2;
        const QByteArray big = volumeCache + '/' + day(0) + '/' + day(0) + " 09_00_00/big.bin";
        QVERIFY(available() - wanted + mb > 0);
        QVERIFY(TestEnv::writeFile(big, QByteArray(available() - wanted + mb, 't')));
        for (int d : {-9, -2}) {
            const QByteArray time = day(d) + " 10_00_00";
            QVERIFY(TestEnv::writeFile(volumeCache + '/' + day(d) + '/' + time + "/old.bin",
                                       QByteArray(mb, 'o')));
            QVERIFY(TestEnv::writeOrigin(volumeCache, day(d), time, "old.bin", mount + "/old.bin"));
        }
        QVERIFY(available() < wanted);
        // As `salvora rm` tells of what it kept.
        NotificationBus::post(QLatin1String(Notifications::Salvora3Notification),
                              QLatin1String(Notifications::Salvora3DataMovedToCache));

        QTRY_VERIFY_WITH_TIMEOUT(!TestEnv::exists(volumeCache + '/' + day(-2)), 10000);
        QVERIFY(!TestEnv::exists(volumeCache + '/' + day(-9)));
        QVERIFY(!TestEnv::exists(volumeCache + "/.origins/" + day(-9) + ".jsonl"));
        QVERIFY(TestEnv::exists(big));
        QVERIFY(available() < wanted);
        // Told once there is nothing older left to remove.
        QTRY_VERIFY_WITH_TIMEOUT(TestEnv::logText().contains("no day older than today is left"),
                                 5000);
        const auto action = SpaceGuard::lastAction();
        QVERIFY(action);
        QCOMPARE(action->volume, mount);
        QCOMPARE(action->days, 2);
        QCOMPARE(action->wantedFree, wanted);
        // The agent's status says so too.
        NotificationBus::post(QLatin1String(Notifications::Salvora3DaemonNotification),
                              QLatin1String(Notifications::Salvora3GetStatus));
        QTRY_VERIFY_WITH_TIMEOUT(TestEnv::logText().contains(
                                     "last days removed for space: 2 day(s) on /mnt/sv3 vol at "),
                                 5000);
    }
};

QTEST_GUILESS_MAIN(TstDaemonVolume)
#include "tst_daemon_volume.moc"
