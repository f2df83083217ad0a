#include "common/SizeText.h"
#include "common/Texts.h"

#include <QCoreApplication>
#include <QTest>

class TstTexts : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }

    void sizeText_data()
    {
        QTest::addColumn<qint64>("n");
        QTest::addColumn<QString>("text");
        QTest::newRow("0") << qint64(0) << "0";
        QTest::newRow("99") << qint64(99) << "99";
        QTest::newRow("-1") << qint64(-1) << "-1";
        QTest::newRow("100") << qint64(100) << "0.1 KB";
        QTest::newRow("9949") << qint64(9949) << "9.9 KB";
        QTest::newRow("9999") << qint64(9999) << "10.0 KB";
        QTest::newRow("10000") << qint64(10000) << "10 KB";
        QTest::newRow("999999") << qint64(999999) << "1000 KB";
        QTest::newRow("1000000") << qint64(1000000) << "1.0 MB";
        QTest::newRow("12500000") << qint64(12500000) << "13 MB";
        QTest::newRow("999999999") << qint64(999999999) << "1000 MB";
        QTest::newRow("1000000000") << qint64(1000000000) << "1.0 GB";
        QTest::newRow("15500000000") << qint64(15500000000) << "16 GB";
        QTest::newRow("max") << std::numeric_limits<qint64>::max() << "9223372037 GB";
    }
    void sizeText()
    {
        QFETCH(qint64, n);
        QFETCH(QString, text);
        QCOMPARE(CommonUtils::getSizeStr(n), text);
    }

    void countText_data()
    {
        QTest::addColumn<qint64>("n");
        QTest::addColumn<QString>("text");
        QTest::newRow("0") << qint64(0) << "0";
        QTest::newRow("9999") << qint64(9999) << "9999";
        QTest::newRow("10000") << qint64(10000) << "10 K";
        QTest::newRow("999999") << qint64(999999) << "999 K";
        QTest::newRow("1000000") << qint64(1000000) << "1000 M";
        QTest::newRow("2500000") << qint64(2500000) << "2500 M";
    }
    void countText()
    {
        QFETCH(qint64, n);
        QFETCH(QString, text);
        QCOMPARE(CommonUtils::getQtyStr(n), text);
    }
};

QTEST_GUILESS_MAIN(TstTexts)
#include "tst_texts.moc"
