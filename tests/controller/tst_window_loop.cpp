#include "WindowFixture.h"

#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"

#include <QApplication>
#include <QComboBox>

#include <unistd.h>

// A real protected ext4 volume, loop-mounted in a private mount namespace, seen by the window.
class TstWindowLoop : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QTemporaryDir images;
    const QString uuid = QStringLiteral("5A1F0A3E-0C1D-4E2F-8A9B-0123456789AC");
    const QString mountPoint = QStringLiteral("/mnt/sv3 window vol");

private slots:
    void initTestCase()
    {
        QString why;
        if (!canMountPrivately(&why)) QSKIP(qPrintable(why));
        Texts::install(*QCoreApplication::instance());
        env = new TestEnv;
        QVERIFY(
            TestEnv::runProgram(QStringLiteral("mount"), {"-t", "tmpfs", "sv3wintest", "/mnt"}));
        const QString image = images.filePath(QStringLiteral("vol.img"));
        QVERIFY(TestEnv::runProgram(QStringLiteral("truncate"), {"-s", "8M", image}));
        QVERIFY(TestEnv::runProgram(QStringLiteral("mkfs.ext4"),
                                    {"-q", "-F", "-U", uuid.toLower(), "-L", "SV3WIN", image}));
        QVERIFY(QDir().mkpath(mountPoint));
    }
    void cleanupTestCase() { delete env; }

    void mountRefreshesUnmountDoesNot()
    {
        Fixture::setLaterLaunch();
        Settings::setDictionary(SettingsKeys::PrefsProtectedDisks, {{uuid, mountPoint}});
        TestDelegate c;
        QVERIFY(Fixture::launchAndSettle(c));
        QCOMPARE(c.ui.mSelectedVolumeMenu->count(), 1);

        QVERIFY(TestEnv::runProgram(
            QStringLiteral("mount"),
            {"-o", "loop", images.filePath(QStringLiteral("vol.img")), mountPoint}));
        QTRY_COMPARE_WITH_TIMEOUT(c.ui.mSelectedVolumeMenu->count(), 2, 5000);
        QCOMPARE(c.ui.mSelectedVolumeMenu->itemText(1), QStringLiteral("sv3 window vol"));
        QVERIFY(TestEnv::logText().contains(
            ("Salvora 3 notified that device did Mount: " + mountPoint).toUtf8()));
        // The user's own cache on the volume is browsed once chosen.
        QVERIFY(TestEnv::writeFile(QFile::encodeName(mountPoint) + "/.Salvora3Cache/" +
                                       QByteArray::number(getuid()) +
                                       "/2024-05-01/2024-05-01 09_00_00/on the volume",
                                   "x"));
        c.ui.mSelectedVolumeMenu->setCurrentIndex(1);
        emit c.ui.mSelectedVolumeMenu->activated(1);
        QVERIFY(Fixture::settle(c));
        QCOMPARE(Fixture::names(c), QList<QByteArray>{"on the volume"});

        // After the unmount the volume is no longer in the table, so it does not count as
        // protected: no log line and no refresh, on purpose.
        QVERIFY(TestEnv::runProgram(QStringLiteral("umount"), {mountPoint}));
        QTest::qWait(1000);
        QCOMPARE(c.ui.mSelectedVolumeMenu->count(), 2);
        QVERIFY(!TestEnv::logText().contains("did Unmount"));
    }
};

QTEST_MAIN(TstWindowLoop)
#include "tst_window_loop.moc"
