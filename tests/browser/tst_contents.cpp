#include "TestEnv.h"

#include "browser/ContentsScan.h"
#include "browser/ContentsSort.h"
#include "browser/NameMatch.h"
#include "cache/CacheCommit.h"

#include <QFile>
#include <QTest>

#include <sys/stat.h>

class TstContents : public QObject
{
    Q_OBJECT
    TestEnv env;
    QByteArray cache;

    void file(const QByteArray &rel, qint64 size = 1)
    {
        QVERIFY(TestEnv::writeFile(cache + '/' + rel, QByteArray(size, 'x')));
    }

    CacheItems scanAll(const QList<ContentsScan::Root> &roots, const QString &search, bool sizes = false, int threads = 2)
    {
        ContentsScan::Options o;
        o.pattern = NameMatch::Pattern(search);
        o.readSizes = sizes;
        o.threads = threads;
        std::atomic<bool> stop{false};
        CacheItems all;
        ContentsScan::scan(roots, o, stop, [&](CacheItems &&b) { all.append(std::move(b)); });
        return all;
    }

    // A scan whose rows learn their origins afterwards, as the window does it.
    CacheItems scanWithOrigins(const QList<ContentsScan::Root> &roots, int *batches = nullptr)
    {
        ContentsScan::Options o;
        o.originFill = std::make_shared<ContentsScan::OriginFill>();
        std::atomic<bool> stop{false};
        CacheItems all;
        ContentsScan::scan(roots, o, stop, [&](CacheItems &&b) { all.append(std::move(b)); });
        o.originFill->run([] { return false; }, [&](ContentsScan::OriginFill::Batch &&b) {
            all.fillOrigins(o.originFill->table(), b.first, b.ids);
            if (batches) ++*batches;
        });
        return all;
    }

    static QList<QByteArray> names(const CacheItems &items)
    {
        QList<QByteArray> out;
        for (qsizetype i = 0; i < items.size(); ++i)
            out.append(items.name(i).toByteArray());
        return out;
    }

private slots:
    void initTestCase()
    {
        cache = env.homeBytes() + "/.Salvora3Cache";
        file("2024-05-01/2024-05-01 09_00_00/Annual report.pdf", 10);
        file("2024-05-01/2024-05-01 09_00_00/rep_ort.txt");
        file("2024-05-01/2024-05-01 09_00_00/.DS_Store");
        file("2024-05-01/2024-05-01 10_00_00/tree/inner/REPORT deep.txt");
        file("2024-05-01/.Salvora3_CacheInformation");
        file("2024-05-01/notes/ignored report.txt");
        file("2024-05-03/2024-05-03 08_00_00/zeta.txt");
        file("2024-05-03/2024-05-03 08_00_00/Alpha.txt");
        file("2024-05-03/2024-05-03 08_00_00/bad\xff report");
        file("2024-05-03/2024-05-03 08_00_00/line\nfeed");
        file("2024-05-03/2024-05-03 08_00_00/" + QByteArray(251, 'n') + ".txt");
        file("2024-05-03/2024-05-03 08_00_00/\xc3\x89t\xc3\xa9 Report.odt"); // "Été Report.odt"
    }

    // Each row learns the folder its item came from, from its day's records, whatever bytes or
    // escapes the names hold; the last record of a name wins, and lines that are no record are
    // passed over.
    void originsOfTheRows_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("folder"); // empty: no record
        QTest::newRow("plain") << QByteArray("zeta.txt") << QByteArray("/home/u/Docs");
        QTest::newRow("not UTF-8") << QByteArray("bad\xff report") << QByteArray("/home/u/caf\xe9");
        QTest::newRow("line feed") << QByteArray("line\nfeed") << QByteArray("/home/u/a \"quoted\" \\ folder");
        QTest::newRow("beyond ASCII") << QByteArray("\xc3\x89t\xc3\xa9 Report.odt") << QByteArray("/home/u/\xf0\x9f\x98\x80 smile");
        QTest::newRow("last record wins") << QByteArray("Alpha.txt") << QByteArray("/home/u/later");
        QTest::newRow("no record") << QByteArray(251, 'n') + ".txt" << QByteArray();
    }
    void originsOfTheRows()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, folder);
        const QByteArray time = "2024-05-03 08_00_00";
        const QByteArray records = CacheCommit::originsFileFor(cache, "2024-05-03");
        QVERIFY(TestEnv::writeFile(records, "not a record\n{\"time\": 3}\n"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-03", time, "Alpha.txt", "/home/u/earlier/Alpha.txt"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-03", time, "zeta.txt", "/home/u/Docs/zeta.txt"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-03", time, "bad\xff report", "/home/u/caf\xe9/bad\xff report"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-03", time, "line\nfeed", "/home/u/a \"quoted\" \\ folder/line\nfeed"));
        // Escaped as other writers may: \u escapes, a surrogate pair among them.
        QVERIFY(TestEnv::writeFile(records, TestEnv::readFile(records) +
                                                "{\"time\":\"2024-05-03 08_00_00\",\"name\":\"\\u00c9t\\u00e9 Report.odt\","
                                                "\"path\":\"/home/u/\\ud83d\\ude00 smile/x\",\"uid\":0}\n"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-03", time, "Alpha.txt", "/home/u/later/Alpha.txt"));
        CacheItems all = scanWithOrigins({{cache + "/2024-05-03", false}});
        QFile::remove(QFile::decodeName(records));
        const qsizetype row = names(all).indexOf(name);
        QVERIFY(row >= 0);
        QCOMPARE(all.originFolder(all.row(row)), folder);
    }

    // The rows are handed on before any origin record is read: each waits with its ticket,
    // shows and sorts as none recorded, keeps it through merges, and gets its folder from the
    // pass after the scan, which gives every waiting row an answer and stops when told to.
    void rowsComeBeforeTheirOrigins()
    {
        const QByteArray time = "2024-05-01 09_00_00";
        const QByteArray records = CacheCommit::originsFileFor(cache, "2024-05-01");
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-01", time, "rep_ort.txt", "/home/u/B/rep_ort.txt"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-01", time, "Annual report.pdf", "/home/u/A/Annual report.pdf"));
        ContentsScan::Options o;
        o.originFill = std::make_shared<ContentsScan::OriginFill>();
        std::atomic<bool> stop{false};
        CacheItems all;
        const QList<ContentsScan::Root> days{{cache + "/2024-05-01", false}, {cache + "/2024-05-03", false}};
        ContentsScan::scan(days, o, stop, [&](CacheItems &&b) {
            for (const CacheItems::Row &r : b.rows()) {
                QVERIFY(CacheItems::originWaiting(r));
                QVERIFY(b.originFolder(r).isEmpty());
            }
            all.append(std::move(b));
        });
        ContentsSort::sortCompact(all, ContentsSort::ByOrigin); // all equal: by name
        QCOMPARE(names(all).first(), QByteArray(".DS_Store"));
        QVERIFY(CacheItems::originWaiting(all.row(0)));

        std::atomic<bool> told{true};
        int batches = 0;
        QVERIFY(!o.originFill->run([&] { return told.load(); }, [&](ContentsScan::OriginFill::Batch &&) { ++batches; }));
        QCOMPARE(batches, 0);
        // A stopped fill gave its rows up; a fresh scan fills them all, in one batch here.
        all = scanWithOrigins(days, &batches);
        QFile::remove(QFile::decodeName(records));
        QCOMPARE(batches, 1);
        ContentsSort::sortCompact(all, ContentsSort::ByOrigin);
        QCOMPARE(names(all).mid(all.size() - 2), QList<QByteArray>({"Annual report.pdf", "rep_ort.txt"}));
        QCOMPARE(all.originFolder(all.row(all.size() - 1)), QByteArray("/home/u/B"));
        for (const CacheItems::Row &r : all.rows())
            QVERIFY(!CacheItems::originWaiting(r));
    }

    void searchMatchesOwnNameOnly()
    {
        const QList<ContentsScan::Root> days{{cache + "/2024-05-01", false}, {cache + "/2024-05-03", false}};
        CacheItems found = scanAll(days, QStringLiteral("RePoRt"));
        ContentsSort::sort(found, ContentsSort::ByName);
        QCOMPARE(names(found), QList<QByteArray>({"Annual report.pdf", "bad\xff report", "\xc3\x89t\xc3\xa9 Report.odt"}));
        QCOMPARE(found.fullPath(0), cache + "/2024-05-01/2024-05-01 09_00_00/Annual report.pdf");
        QCOMPARE(found.timeFolderName(found.row(0).folder), QByteArrayView("2024-05-01 09_00_00"));

        // An empty search lists every entry of the time folders, hidden ones included.
        const CacheItems all = scanAll(days, QString());
        QCOMPARE(all.size(), 10);
        QVERIFY(names(all).contains(".DS_Store"));
        QVERIFY(names(all).contains("line\nfeed"));
        QVERIFY(names(all).contains(QByteArray(251, 'n') + ".txt"));
        QVERIFY(!names(all).contains("REPORT deep.txt")); // a deleted folder is one item

        // Non-ASCII search text against a decoded name.
        QCOMPARE(names(scanAll(days, QStringLiteral("\u00c9T\u00c9"))), QList<QByteArray>({"\xc3\x89t\xc3\xa9 Report.odt"}));
    }

    void oneTimeFolderAndSizes()
    {
        CacheItems items = scanAll({{cache + "/2024-05-01/2024-05-01 09_00_00", true}}, QString(), true, 1);
        ContentsSort::sort(items, ContentsSort::ByName);
        QCOMPARE(names(items), QList<QByteArray>({".DS_Store", "Annual report.pdf", "rep_ort.txt"}));
        QCOMPARE(items.row(1).size, 10);
        QCOMPARE(items.row(1).kind, CacheItems::Kind::File);
        const CacheItems tree = scanAll({{cache + "/2024-05-01/2024-05-01 10_00_00", true}}, QString(), true, 1);
        QCOMPARE(tree.row(0).kind, CacheItems::Kind::Folder);
        QCOMPARE(tree.row(0).size, -1); // folders are sized by the size calculation, not the scan
        QVERIFY(scanAll({{cache + "/missing", true}}, QString()).isEmpty());
    }

    void sortCodes()
    {
        CacheItems items = scanAll({{cache + "/2024-05-01", false}, {cache + "/2024-05-03", false}}, QString());
        ContentsSort::sort(items, ContentsSort::ByNameDescending);
        // Folded code points: "É" comes after "z".
        QCOMPARE(names(items).mid(0, 3), QList<QByteArray>({"\xc3\x89t\xc3\xa9 Report.odt", "zeta.txt", "tree"}));
        ContentsSort::sort(items, ContentsSort::ByTimeDescending);
        QCOMPARE(items.timeFolderName(items.row(0).folder), QByteArrayView("2024-05-03 08_00_00"));
        QCOMPARE(items.timeFolderName(items.row(items.size() - 1).folder), QByteArrayView("2024-05-01 09_00_00"));
        ContentsSort::sort(items, ContentsSort::ByTime);
        QCOMPARE(items.timeFolderName(items.row(0).folder), QByteArrayView("2024-05-01 09_00_00"));
        ContentsSort::sort(items, ContentsSort::ByName);
        // Case-insensitive: "Alpha" before "Annual" before "bad".
        QCOMPARE(names(items).mid(1, 3), QList<QByteArray>({"Alpha.txt", "Annual report.pdf", "bad\xff report"}));
    }

    void mergingBatchesEqualsSortingAll()
    {
        CacheItems merged;
        std::atomic<bool> stop{false};
        ContentsScan::Options o;
        ContentsScan::scan({{cache + "/2024-05-03", false}, {cache + "/2024-05-01", false}}, o, stop,
                           [&](CacheItems &&b) {
                               ContentsSort::sort(b, ContentsSort::ByName);
                               ContentsSort::mergeSortedInto(merged, std::move(b), ContentsSort::ByName);
                           });
        CacheItems sorted = scanAll({{cache + "/2024-05-01", false}, {cache + "/2024-05-03", false}}, QString());
        ContentsSort::sort(sorted, ContentsSort::ByName);
        QCOMPARE(names(merged), names(sorted));
    }

    void parallelSortEqualsSort()
    {
        // Large enough for the two-thread path; many equal names and times, as in real caches.
        CacheItems a;
        quint32 x = 12345;
        for (int f = 0; f < 40; ++f) {
            const std::uint32_t folder = a.addFolder("/c/2024-05-01/2024-05-01 10_00_" + QByteArray::number(10 + f));
            for (int i = 0; i < 800; ++i) {
                x = x * 1103515245u + 12345u;
                const QByteArray name = "Item " + QByteArray::number((x >> 8) % 5000) + ((x & 1) ? ".TXT" : ".txt");
                a.addItem(folder, name.constData(), std::size_t(name.size()), CacheItems::Kind::File);
            }
        }
        for (SortOrder order : {ContentsSort::ByName, ContentsSort::ByTime, ContentsSort::ByNameDescending,
                                ContentsSort::ByTimeDescending}) {
            CacheItems p = a, q = a;
            ContentsSort::sort(p, order);
            ContentsSort::sortParallel(q, order);
            for (qsizetype i = 0; i + 1 < q.size(); ++i)
                QVERIFY(ContentsSort::compare(q, q.row(i), q.row(i + 1), order) <= 0);
            QCOMPARE(q.size(), p.size());
        }
    }

    void stopEndsTheScan()
    {
        std::atomic<bool> stop{true};
        int calls = 0;
        ContentsScan::Options o;
        QVERIFY(!ContentsScan::scan({{cache + "/2024-05-01", false}}, o, stop, [&](CacheItems &&) { ++calls; }));
        QCOMPARE(calls, 0);
    }

    void nameRules()
    {
        QVERIFY(NameMatch::compare("abc", "ABD") < 0);
        QCOMPARE(NameMatch::compare("R\xc3\xa9sum\xc3\xa9", "R\xc3\x89SUM\xc3\x89"), 0);
        QVERIFY(NameMatch::compare("e", "\xc3\xa9") < 0); // no diacritic folding
        QVERIFY(NameMatch::compare("a\xff", "A\xfe") > 0); // undecodable bytes order by value
        QVERIFY(NameMatch::compare("_", "b") < 0);            // folding goes to lower case
        // One consistent order across ASCII, decodable and undecodable names (std::sort needs it).
        QList<QByteArray> names{"\xc3\x89", "\xc3\xa9", "e\xff", "E", "\xff", "z", "\xc3\xa9\xff", "_"};
        for (const QByteArray &a : names)
            for (const QByteArray &b : names)
                for (const QByteArray &c : names)
                    if (NameMatch::compare(a, b) < 0 && NameMatch::compare(b, c) < 0)
                        QVERIFY(NameMatch::compare(a, c) < 0);
        QVERIFY(NameMatch::Pattern(QStringLiteral("ORT")).matches("rep_ort"));
        QVERIFY(!NameMatch::Pattern(QStringLiteral("report")).matches("rep_ort"));
        QVERIFY(NameMatch::Pattern(QStringLiteral("\u212a")).matches("kilo")); // Kelvin sign folds to k
        QVERIFY(NameMatch::Pattern(QStringLiteral("*")).matches("a*b"));        // no wildcards
        QVERIFY(!NameMatch::Pattern(QStringLiteral("*")).matches("ab"));
        QVERIFY(NameMatch::Pattern().matches("anything"));
    }
};

QTEST_GUILESS_MAIN(TstContents)
#include "tst_contents.moc"
