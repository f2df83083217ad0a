#include "TestEnv.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "volumes/MountWatcher.h"
#include "volumes/Volumes.h"

#include <QTest>

namespace {

// A mountinfo line: "ID PARENT MAJ:MIN ROOT MOUNTPOINT OPTIONS [OPTIONAL...] - FSTYPE SOURCE
// SUPER".
QByteArray line(int id, const char *dev, const char *mountPoint, const char *fs = "ext4",
                const char *source = "/dev/sda1", const char *optional = "shared:1")
{
    return QByteArray::number(id) + " 1 " + dev + " / " + mountPoint + " rw,relatime " + optional +
           " - " + fs + ' ' + source + " rw\n";
}

} // namespace

class TstVolumes : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray table;
    QHash<QByteArray, QString> uuids; // "maj:min" -> uuid

private slots:
    void init()
    {
        env = new TestEnv;
        table.clear();
        uuids.clear();
        CommonUtils::setMountTableSourceForTesting([this] { return table; });
        CommonUtils::setIdentityResolverForTesting([this](const MountEntry &e) {
            return VolumeIdentity{
                uuids.value(QByteArray::number(e.major) + ':' + QByteArray::number(e.minor)), {}};
        });
    }
    void cleanup()
    {
        CommonUtils::setMountTableSourceForTesting({});
        CommonUtils::setIdentityResolverForTesting({});
        delete env;
    }

    void parsing()
    {
        const QByteArray text =
            "36 35 98:0 /mnt1 /media/u/My\\040Disk\\011tab\\012lf\\134 rw,noatime master:1 "
            "shared:2 - ext4 /dev/sd\\040b1 rw,errors=continue\n"
            "garbage line without separator\n"
            "38 35 8:1 / /media/u/dash rw - - fuse.x /dev/fuse rw\n"
            "39 35 8:2 / /media/u/short rw -\n"
            "40 35 8:3 / /media/u/\\018\\777bad\\04 rw - ext4 /dev/x rw\n"
            "41 35 99999999999:1 / /media/u/big rw - ext4 /dev/y rw\n";
        QByteArrayList got;
        for (const MountEntry &e : MountInfo::parse(text))
            got << QByteArray::number(e.mountId) + ' ' + QByteArray::number(e.parentId) + ' ' +
                       QByteArray::number(e.major) + ':' + QByteArray::number(e.minor) + '|' +
                       e.root + '|' + e.mountPoint + '|' + e.options + '|' + e.fsType + '|' +
                       e.source;
        QCOMPARE(got, QByteArrayList({
                          "36 35 98:0|/mnt1|/media/u/My Disk\ttab\nlf\\|rw,noatime|ext4|/dev/sd b1",
                          // The first lone "-" ends the optional fields, even when the type is "-".
                          "38 35 8:1|/|/media/u/dash|rw|-|fuse.x",
                          // Escapes that are not octal bytes stay as they are; a device number
                          // out of range drops the line.
                          "40 35 8:3|/|/media/u/\\018\\777bad\\04|rw|ext4|/dev/x",
                      }));
    }

    void eligibility_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("eligible");
        QTest::addColumn<bool>("valid");
        QTest::newRow("root") << "/" << true << true;
        QTest::newRow("media") << "/media/u/USB" << true << true;
        QTest::newRow("mnt child") << "/mnt/data" << true << true;
        QTest::newRow("mnt itself") << "/mnt" << false << true;
        QTest::newRow("Volumes") << "/Volumes/Data" << true << true;
        QTest::newRow("PrebootX") << "/Volumes/PrebootX" << false << true; // a prefix
        QTest::newRow("com.apple")
            << "/Volumes/com.apple.TimeMachine.localsnapshots/x" << false << false;
        // Invalid devices are exact names, not prefixes.
        QTest::newRow("Recovery") << "/Volumes/Recovery" << true << false;
        QTest::newRow("Recovery 2") << "/Volumes/Recovery 2" << true << true;
        QTest::newRow("Network") << "/Network" << false << false;
        QTest::newRow("home") << "/home" << false << true;
    }
    void eligibility()
    {
        QFETCH(QString, path);
        QFETCH(bool, eligible);
        QFETCH(bool, valid);
        QCOMPARE(CommonUtils::isEligibleMountPoint(path), eligible);
        QCOMPARE(CommonUtils::deviceIsValid(path), valid);
        QVERIFY(!CommonUtils::deviceIsValid(QString()));
    }

    void canonicalUuids()
    {
        const QString uuid = QStringLiteral("12345678-9ABC-DEF0-1234-56789ABCDEF0");
        QCOMPARE(CommonUtils::canonicalUuid("12345678-9abc-def0-1234-56789abcdef0"), uuid);
        QCOMPARE(CommonUtils::canonicalUuid("123456789abcdef0123456789abcdef0"), uuid);
        QCOMPARE(CommonUtils::canonicalUuid("abcd-1234"), QStringLiteral("ABCD-1234")); // FAT
        QCOMPARE(CommonUtils::canonicalUuid("0123456789abcdef"),
                 QStringLiteral("0123456789ABCDEF"));
        QCOMPARE(CommonUtils::canonicalUuid(""), QString());
    }

    void discoveryAndProtection()
    {
        using namespace CommonUtils;
        table = line(20, "8:1", "/", "ext4", "/dev/sda1") +
                line(21, "0:30", "/run/user/0", "tmpfs", "tmpfs") +
                line(22, "8:17", "/media/u/Zeta") + line(23, "8:33", "/media/u/alpha") +
                line(24, "0:45", "/media/u/ram", "tmpfs", "tmpfs") +
                line(25, "8:49", "/Volumes/Preboot") + line(26, "8:65", "/mnt/b\\040c");
        uuids = {{"8:1", "AAAAAAAA-0000-0000-0000-000000000000"},
                 {"8:17", "11111111-1111-1111-1111-111111111111"},
                 {"8:33", "22222222-2222-2222-2222-222222222222"},
                 {"8:65", "33333333-3333-3333-3333-333333333333"}};
        QCOMPARE(getAllMountedVolumes(),
                 QStringList({"/", "/media/u/alpha", "/media/u/ram", "/media/u/Zeta", "/mnt/b c"}));
        QVERIFY(!getVolumeInfosForPath("/run/user/0"));
        QCOMPARE(getVolumeInfosForPath("/media/u/ram")->uuid, QString());

        // Nothing chosen: "/" alone.
        QCOMPARE(getAllProtectedVolumes(), QStringList({"/"}));

        // Chosen by UUID; an unmounted choice is not listed; the stored path is only a label.
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks,
                                {{"11111111-1111-1111-1111-111111111111", "/media/u/OldName"},
                                 {"99999999-9999-9999-9999-999999999999", "/media/u/Gone"},
                                 {"", "/media/u/ram"}}); // no UUID is no identity
        updateAllProtectedVolumesList();
        QCOMPARE(getAllProtectedVolumes(), QStringList({"/", "/media/u/Zeta"}));
        QVERIFY(isVolumeProtected("/media/u/Zeta"));
        QVERIFY(!isVolumeProtected("/media/u/Gone"));

        // The same volume moved to another mount path stays protected; a lookalike path does not.
        table = line(20, "8:1", "/", "ext4", "/dev/sda1") + line(30, "8:17", "/mnt/elsewhere") +
                line(31, "8:99", "/media/u/Zeta");
        resetVolumesLists();
        QCOMPARE(getAllProtectedVolumes(), QStringList({"/", "/mnt/elsewhere"}));
        QVERIFY(!isVolumeProtected("/media/u/Zeta"));

        // Two volumes with one UUID (a cloned disk) are both protected.
        table += line(32, "8:17", "/media/u/Clone");
        resetVolumesLists();
        QCOMPARE(getAllProtectedVolumes(), QStringList({"/", "/media/u/Clone", "/mnt/elsewhere"}));

        // An empty table (unreadable mountinfo) lists nothing, not even "/".
        table.clear();
        resetVolumesLists();
        QCOMPARE(getAllProtectedVolumes(), QStringList());
        QVERIFY(isVolumeProtected("/"));
    }

    void tableIsASnapshotUntilReset()
    {
        using namespace CommonUtils;
        table = line(20, "8:1", "/");
        QCOMPARE(getAllMountedVolumes(), QStringList({"/"}));
        table += line(21, "8:2", "/media/u/New");
        QCOMPARE(getAllMountedVolumes(), QStringList({"/"}));
        resetVolumesLists();
        QCOMPARE(getAllMountedVolumes(), QStringList({"/", "/media/u/New"}));
        // The topmost of two mounts on one path describes it.
        table += line(22, "8:3", "/media/u/New", "vfat", "/dev/sdc1");
        QCOMPARE(getDADesciptionForVolumePath("/media/u/New")->fsType, "vfat");
        QVERIFY(!getDADesciptionForVolumePath("/media/u/none"));
    }

    void watcherDiff()
    {
        QList<QByteArray> mounted, unmounted;
        MountWatcher::diff({"/", "/a", "/b", "/b"}, {"/", "/b", "/c", "/c"}, mounted, unmounted);
        QCOMPARE(mounted, QList<QByteArray>({"/c", "/c"}));
        QCOMPARE(unmounted, QList<QByteArray>({"/a", "/b"}));
    }
};

QTEST_GUILESS_MAIN(TstVolumes)
#include "tst_volumes.moc"
