#include "DaemonHarness.h"

#include "browser/Deletion.h"
#include "cache/CacheCommit.h"
#include "cache/CacheLayout.h"
#include "cache/DayEntry.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Harness;

// A protected volume other than "/": a real ext4 image loop-mounted under /mnt in a private mount
// namespace, its per-volume trashes, the user's private cache in the volume's shared cache folder,
// and its days remembered in ProtectedVolumesData once it is unplugged.
class TstDaemonVolume : public QObject
{
    Q_OBJECT
    Session *s = nullptr;
    QTemporaryDir images;
    const QString uuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-0123456789AC");
    const QByteArray mount = "/mnt/sv3 vol";
    const QByteArray shared = mount + "/.Salvora3Cache";
    const QByteArray cache = shared + '/' + QByteArray::number(getuid());

    QString image() const { return images.filePath(QStringLiteral("vol.img")); }
    QByteArray kept(const QByteArray &name) const { return Harness::kept(cache, name); }
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
        const QString today = CommonUtils::nameForCacheFolderForToday();
        for (const QVariant &d : snapshotEntry().value(QStringLiteral("days")).toList()) {
            const auto day = DayEntry::fromVariantMap(d.toMap());
            if (day && day->name == today.toLatin1()) return day->count;
        }
        return -1;
    }

private slots:
    void initTestCase()
    {
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        if (!haveProgram("trash-put") || !haveProgram("trash-empty"))
            QSKIP("needs trash-cli; see scripts/deps.sh");
        s = new Session;
        QVERIFY(run(QStringLiteral("mount"), {"-t", "tmpfs", "sv3test", "/mnt"}));
        QVERIFY(TestEnv::mountExt4Image(image(), uuid, str(mount), 16));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, {{uuid, str(mount)}});
        QVERIFY2(s->daemon.start(), s->daemon.output().constData());
    }

    void cleanupTestCase()
    {
        const bool clean = !s || s->daemon.stop();
        delete s;
        QVERIFY(clean);
    }

    void volumeTrashGoesToTheVolumesCache()
    {
        QVERIFY(TestEnv::writeFile(mount + "/docs/a.txt", "on the volume"));
        QVERIFY(TestEnv::writeFile(mount + "/docs/folder/x.bin", QByteArray(5000, 'x')));
        const auto folder = snapshot(mount + "/docs/folder");
        QVERIFY(s->trashAndShadow(cache, {mount + "/docs/a.txt", mount + "/docs/folder"}));
        // trash-cli writes paths relative to the volume's top folder there.
        QVERIFY(TestEnv::readFile(mount + "/.Trash-0/info/a.txt.trashinfo")
                    .contains("Path=docs/a.txt"));
        QCOMPARE(TestEnv::modeOf(shared), mode_t(0711));
        QCOMPARE(TestEnv::modeOf(cache), mode_t(0700));

        QVERIFY(emptyTrash(mount + "/.Trash-0"));
        QTRY_VERIFY_WITH_TIMEOUT(!kept("a.txt").isEmpty() && !kept("folder").isEmpty(), 10000);
        QCOMPARE(TestEnv::readFile(kept("a.txt")), QByteArray("on the volume"));
        QCOMPARE(snapshot(kept("folder")), folder);
        QVERIFY(keptFrom(cache, mount + "/docs/a.txt"));
        QTRY_VERIFY(!s->spy.isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(todaysCountInSnapshot(), qint64(2), 10000);
        QCOMPARE(snapshotEntry().value(QStringLiteral("path")).toString(), str(mount));
    }

    void stickySharedTrash()
    {
        // <top>/.Trash/<uid> is used once .Trash is a sticky folder.
        QVERIFY(::mkdir((mount + "/.Trash").constData(), 0777) == 0);
        QVERIFY(::chmod((mount + "/.Trash").constData(), 01777) == 0);
        QVERIFY(TestEnv::writeFile(mount + "/docs/b.txt", "shared trash"));
        QVERIFY(s->trashAndShadow(cache, {mount + "/docs/b.txt"}));
        const QByteArray trash = mount + "/.Trash/0";
        QVERIFY(TestEnv::exists(trash + "/files/b.txt"));
        QVERIFY(removeTree(trash + "/files/b.txt"));
        QVERIFY(::unlink((trash + "/info/b.txt.trashinfo").constData()) == 0);
        QTRY_VERIFY_WITH_TIMEOUT(!kept("b.txt").isEmpty(), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(todaysCountInSnapshot(), qint64(3), 10000);
    }

    void directDeletionOnTheVolume()
    {
        // `salvora rm`: straight into the volume's cache; the daemon hears of it and refreshes
        // the volume's snapshot.
        QVERIFY(TestEnv::writeFile(mount + "/docs/direct.txt", "deleted from a terminal"));
        const auto results = Deletion::deleteIntoCache({mount + "/docs/direct.txt"});
        QVERIFY2(results.first().ok(), qPrintable(results.first().message()));
        QVERIFY(results.first().cachedPath.startsWith(cache + '/'));
        QCOMPARE(TestEnv::readFile(results.first().cachedPath),
                 QByteArray("deleted from a terminal"));
        QTRY_COMPARE_WITH_TIMEOUT(todaysCountInSnapshot(), qint64(4), 10000);
    }

    void unpluggedVolumeKeepsItsDays()
    {
        QVERIFY(TestEnv::writeFile(mount + "/docs/c.txt", "trashed before unplugging"));
        QVERIFY(s->trashAndShadow(cache, {mount + "/docs/c.txt"}));
        const QByteArrayList before = cachedItems(cache);
        struct stat first{}, now{};
        QVERIFY(::stat(mount.constData(), &first) == 0);

        QVERIFY(run(QStringLiteral("umount"), {str(mount)}));
        QTest::qWait(800);
        // Still offered with its days; unplugging deleted nothing, so nothing was committed.
        QCOMPARE(snapshotEntry().value(QStringLiteral("path")).toString(), str(mount));
        QCOMPARE(todaysCountInSnapshot(), qint64(4));
        QVERIFY(s->daemon.isRunning());

        // Plugged again on another loop device, so under another device number.
        const QString other = images.filePath(QStringLiteral("other.img"));
        QVERIFY(run(QStringLiteral("truncate"), {"-s", "1M", other}));
        QByteArray loop;
        QVERIFY(run(QStringLiteral("losetup"), {"--find", "--show", other}, &loop));
        QVERIFY(run(QStringLiteral("mount"), {"-o", "loop", image(), str(mount)}));
        QVERIFY(
            run(QStringLiteral("losetup"), {"--detach", QString::fromLocal8Bit(loop.trimmed())}));
        QVERIFY(::stat(mount.constData(), &now) == 0);
        QVERIFY(now.st_dev != first.st_dev);
        QTest::qWait(800);
        QCOMPARE(cachedItems(cache), before);
        QCOMPARE(pendingCount(cache), 1);
        QVERIFY(emptyTrash(mount + "/.Trash/0"));
        QTRY_VERIFY_WITH_TIMEOUT(!kept("c.txt").isEmpty(), 10000);
        QCOMPARE(TestEnv::readFile(kept("c.txt")), QByteArray("trashed before unplugging"));
        QTRY_COMPARE_WITH_TIMEOUT(todaysCountInSnapshot(), qint64(5), 10000);
        QVERIFY(run(QStringLiteral("umount"), {str(mount)}));
    }
};

QTEST_GUILESS_MAIN(TstDaemonVolume)
#include "tst_daemon_volume.moc"
