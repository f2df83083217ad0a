#include "common/SizeText.h"
#include "volumes/Volumes.h"

#include <QFile>
#include <QTest>

// The core is shared by the daemon's agent and the command-line tool, which must run without a
// display: it may never load Qt Gui or Widgets.
class TstCoreDeps : public QObject
{
    Q_OBJECT
private slots:
    void noGuiLibraries()
    {
        (void)CommonUtils::getSizeStr(1);
        (void)CommonUtils::isEligibleMountPoint(QStringLiteral("/"));
        QFile maps(QStringLiteral("/proc/self/maps"));
        QVERIFY(maps.open(QIODevice::ReadOnly));
        const QByteArray m = maps.readAll();
        QVERIFY(m.contains("libQt6Core"));
        QVERIFY(!m.contains("libQt6Gui"));
        QVERIFY(!m.contains("libQt6Widgets"));
    }
};

QTEST_GUILESS_MAIN(TstCoreDeps)
#include "tst_core_deps.moc"
