#include "common/SizeText.h"
#include "common/Texts.h"
#include "volumes/Volumes.h"

#include <QCoreApplication>
#include <QFile>
#include <QTest>

class TstTexts : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }

    // Sizes in decimal units; counts divide millions by 1000 too, on purpose.
    void sizeAndCount_data()
    {
        QTest::addColumn<bool>("count");
        QTest::addColumn<qint64>("n");
        QTest::addColumn<QString>("text");
        const auto row = [](bool count, qint64 n, const char *text) {
            QTest::addRow("%s %lld", count ? "count" : "size", n) << count << n << text;
        };
        for (qint64 n : {0, 99, -1})
            row(false, n, QByteArray::number(n));
        row(false, 100, "0.1 KB");
        row(false, 9949, "9.9 KB");
        row(false, 9999, "10.0 KB");
        row(false, 10000, "10 KB");
        row(false, 999999, "1000 KB");
        row(false, 1000000, "1.0 MB");
        row(false, 12500000, "13 MB");
        row(false, 999999999, "1000 MB");
        row(false, 1000000000, "1.0 GB");
        row(false, 15500000000, "16 GB");
        row(false, std::numeric_limits<qint64>::max(), "9223372037 GB");
        row(true, 0, "0");
        row(true, 9999, "9999");
        row(true, 10000, "10 K");
        row(true, 999999, "999 K");
        row(true, 1000000, "1000 M");
        row(true, 2500000, "2500 M");
    }
    void sizeAndCount()
    {
        QFETCH(bool, count);
        QFETCH(qint64, n);
        QFETCH(QString, text);
        QCOMPARE(count ? CommonUtils::getQtyStr(n) : CommonUtils::getSizeStr(n), text);
    }

    // The core is shared by the daemon's agent and the command-line tool, which must run without
    // a display: it may never load Qt Gui or Widgets.
    void coreLoadsNoGuiLibraries()
    {
        (void)CommonUtils::isEligibleMountPoint(QStringLiteral("/"));
        QFile maps(QStringLiteral("/proc/self/maps"));
        QVERIFY(maps.open(QIODevice::ReadOnly));
        const QByteArray m = maps.readAll();
        QVERIFY(m.contains("libQt6Core"));
        QVERIFY(!m.contains("libQt6Gui"));
        QVERIFY(!m.contains("libQt6Widgets"));
    }
};

QTEST_GUILESS_MAIN(TstTexts)
#include "tst_texts.moc"
