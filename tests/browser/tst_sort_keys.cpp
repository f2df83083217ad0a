#include "TestEnv.h"

#include "browser/CacheItems.h"
#include "browser/ContentsScan.h"
#include "browser/ContentsSort.h"
#include "browser/NameMatch.h"

#include <QRandomGenerator>
#include <QTest>

// The rows' name keys must order exactly as the full name comparison does, and merging sorted
// lists must give what sorting everything gives.
class TstSortKeys : public QObject
{
    Q_OBJECT
    TestEnv env;

    static CacheItems listOf(const QList<QByteArray> &names,
                             const QByteArray &folder = "/c/2024-05-01/2024-05-01 09_00_00")
    {
        CacheItems items;
        const std::uint32_t f = items.addFolder(folder);
        for (const QByteArray &n : names)
            items.addItem(f, n.constData(), std::size_t(n.size()), CacheItems::Kind::File);
        return items;
    }

    // Gives the rows origin folders from `table`, a few of them none: "/f0".."/f3", by row.
    static void giveOrigins(CacheItems &items, const std::shared_ptr<OriginFolders> &table)
    {
        items.setOrigins(table);
        for (qsizetype i = 0; i < items.size(); ++i)
            items.rows()[std::size_t(i)].origin = i % 5 == 4 ? 0 : table->intern("/f" + QByteArray::number(i % 4));
    }

    // Name and origin folder of each row, sorted: what a merge must keep whatever it moves.
    static QList<QByteArray> namesWithOrigins(const CacheItems &items)
    {
        QList<QByteArray> out;
        for (qsizetype i = 0; i < items.size(); ++i)
            out.append(items.name(i).toByteArray() + '|' + items.originFolder(items.row(i)));
        std::sort(out.begin(), out.end());
        return out;
    }

    static QList<QByteArray> namesOf(const CacheItems &items)
    {
        QList<QByteArray> out;
        for (qsizetype i = 0; i < items.size(); ++i)
            out.append(items.name(i).toByteArray());
        return out;
    }

    // Names that meet at the key's edges: equal prefixes, exactly 16 bytes, case, non-ASCII
    // bytes at every position, letters that fold onto ASCII, undecodable bytes.
    static QList<QByteArray> trickyNames()
    {
        QList<QByteArray> names{"a",
                                "A",
                                "ab",
                                "aB",
                                "abc",
                                "b",
                                "_",
                                "Z",
                                "z",
                                "0",
                                "~",
                                "report",
                                "Report 2",
                                "report_2",
                                "report 10",
                                "REPORT 1",
                                "0123456789abcdef",
                                "0123456789ABCDEF",
                                "0123456789abcdefg",
                                "0123456789abcde",
                                "0123456789abcdef\xc3\xa9",
                                "r\xc3\xa9sum\xc3\xa9",
                                "R\xc3\x89SUM\xc3\x89",
                                "resume",
                                "\xe2\x84\xaa"
                                "elvin",
                                "kelvin",
                                "Kelvin",
                                "l",
                                "j",
                                "\xc5\xbf"
                                "t",
                                "st",
                                "ss",
                                "\xc3\x9f",
                                "caf\xe9",
                                "caf\xc3\xa9",
                                "cafe",
                                "caf",
                                "\xff",
                                "\xfe\xff",
                                "a\xff",
                                "A\xfe",
                                "\xd0\xa4\xd0\xbe\xd1\x82\xd0\xbe",
                                "\xd1\x84\xd0\xbe\xd1\x82\xd0\xbe.pdf",
                                "x\xf0\x9f\x98\x80",
                                "x\xef\xbf\xbd",
                                "xy"};
        return names;
    }

    static int sign(int v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

private slots:
    void keysAgreeWithFullComparison()
    {
        QList<QByteArray> names = trickyNames();
        // Random names from a small alphabet, so that long shared prefixes are common.
        QRandomGenerator rng(7);
        const char alphabet[] = {'a', 'A', 'b',    'B',    ' ',    '_',
                                 '.', '1', '\xc3', '\xa9', '\xff', 'z'};
        for (int i = 0; i < 400; ++i) {
            QByteArray n;
            const int len = 1 + int(rng.bounded(20));
            for (int k = 0; k < len; ++k)
                n.append(alphabet[rng.bounded(int(sizeof alphabet))]);
            names.append(n);
        }
        const CacheItems items = listOf(names);
        int decided = 0;
        for (qsizetype i = 0; i < items.size(); ++i) {
            for (qsizetype j = 0; j < items.size(); ++j) {
                const int full = sign(NameMatch::compare(items.name(i), items.name(j)));
                const int keys = ContentsSort::compareKeys(items.row(i), items.row(j));
                if (keys != ContentsSort::kKeysUndecided) {
                    ++decided;
                    QVERIFY2(keys == full, (items.name(i).toByteArray().toHex() + " vs " +
                                            items.name(j).toByteArray().toHex())
                                               .constData());
                }
                QCOMPARE(sign(ContentsSort::compare(items, items.row(i), items.row(j),
                                                    ContentsSort::ByName)),
                         full);
                QCOMPARE(sign(ContentsSort::compare(items, items.row(i), items.row(j),
                                                    ContentsSort::ByNameDescending)),
                         -full);
            }
        }
        QVERIFY(decided > items.size() * items.size() * 3 / 4); // the keys do most of the work
    }

    void keyOfAName()
    {
        const CacheItems items =
            listOf({"ABCdefGHIJKLMNOPqrs", "Ab\xc3\xa9", "short", "a\xe2\x84\xaa", "\xc5\xbf"});
        QCOMPARE(items.row(0).keyLength, std::uint8_t(16 | CacheItems::kKeyAsciiBytes));
        QCOMPARE(items.row(0).key[0], 0x6162636465666768ull); // "abcdefgh"
        // A character beyond ASCII ends the key with a mark above ASCII...
        QCOMPARE(items.row(1).keyLength, std::uint8_t(3));
        QCOMPARE(items.row(1).key[0], 0x6162ff0000000000ull);
        QCOMPARE(items.row(2).keyLength,
                 std::uint8_t(5 | CacheItems::kKeyComplete | CacheItems::kKeyAsciiBytes));
        // ...but the Kelvin sign and the long s fold onto ASCII letters, and are keyed so.
        QCOMPARE(items.row(3).keyLength, std::uint8_t(2 | CacheItems::kKeyComplete));
        QCOMPARE(items.row(3).key[0], 0x616b000000000000ull); // "ak"
        QCOMPARE(items.row(4).keyLength, std::uint8_t(1 | CacheItems::kKeyComplete));
        QCOMPARE(items.row(4).key[0], 0x7300000000000000ull); // "s"
        // A lead byte of those two that starts anything else is above ASCII, as is a bad byte.
        const CacheItems odd = listOf({"\xc5\x81", "\xe2\x80\x93x", "\xc5", "x\xff"});
        QCOMPARE(odd.row(0).key[0] >> 56, 0xffull);
        QCOMPARE(odd.row(1).key[0] >> 56, 0xffull);
        QCOMPARE(odd.row(2).key[0] >> 56, 0xffull);
        QCOMPARE(odd.row(3).keyLength, std::uint8_t(2));
        QCOMPARE(odd.row(3).key[0], 0x78ff000000000000ull);
    }

    void mergedEqualsSorted_data()
    {
        QTest::addColumn<int>("code");
        for (int code : {0, 1, 2, 3, 4, 6})
            QTest::newRow(qPrintable(QString::number(code))) << code;
    }
    void mergedEqualsSorted()
    {
        QFETCH(int, code);
        const SortOrder order = SortOrder::fromCode(code);
        // Three lists from different time folders, each with some equal names.
        QList<QByteArray> all = trickyNames();
        CacheItems a = listOf(all.mid(0, 20), "/c/2024-05-02/2024-05-02 10_00_00");
        CacheItems b = listOf(all.mid(20), "/c/2024-05-01/2024-05-01 09_00_00");
        CacheItems c = listOf({"report", "zz", "a"}, "/c/2024-05-03/2024-05-03 08_00_00");
        // Two lists share a table of origin folders, the third has its own.
        const auto shared = std::make_shared<OriginFolders>();
        giveOrigins(a, shared);
        giveOrigins(b, shared);
        giveOrigins(c, std::make_shared<OriginFolders>());
        const QList<QByteArray> before = namesWithOrigins(a) + namesWithOrigins(b) + namesWithOrigins(c);
        ContentsSort::sortCompact(a, order);
        ContentsSort::sortCompact(b, order);
        ContentsSort::sortCompact(c, order);
        ContentsSort::mergeSortedInto(a, std::move(b), order);
        ContentsSort::mergeSortedInto(a, std::move(c), order);
        QCOMPARE(a.size(), all.size() + 3);
        for (qsizetype i = 1; i < a.size(); ++i)
            QVERIFY2(ContentsSort::compare(a, a.row(i - 1), a.row(i), order) <= 0,
                     qPrintable(QString::number(i)));
        // The rows still point at their own names, origins and time folders.
        QList<QByteArray> kept = before;
        std::sort(kept.begin(), kept.end());
        QCOMPARE(namesWithOrigins(a), kept);
        for (qsizetype i = 0; i < a.size(); ++i)
            if (a.name(i) == QByteArrayView("zz"))
                QCOMPARE(a.timeFolderName(a.row(i).folder), QByteArrayView("2024-05-03 08_00_00"));
    }

    void foldersSortedThenMerged_data() { mergedEqualsSorted_data(); }
    void foldersSortedThenMerged()
    {
        QFETCH(int, code);
        const SortOrder order = SortOrder::fromCode(code);
        // As a scan delivers them: one sorted run per time folder, runs one after another.
        const QList<QByteArray> all = trickyNames();
        const auto table = std::make_shared<OriginFolders>();
        CacheItems runs;
        for (int f = 0; f < 4; ++f) {
            CacheItems folder =
                listOf(all.mid(f * 13, 13),
                       "/c/2024-05-0" + QByteArray::number(4 - f) + "/t " + QByteArray::number(f));
            giveOrigins(folder, table);
            ContentsSort::sort(folder, order);
            runs.append(std::move(folder));
        }
        CacheItems expected = runs;
        ContentsSort::sortCompact(expected, order);
        ContentsSort::mergeRuns(runs, order);
        QCOMPARE(runs.size(), expected.size());
        for (qsizetype i = 1; i < runs.size(); ++i)
            QVERIFY(ContentsSort::compare(runs, runs.row(i - 1), runs.row(i), order) <= 0);
        QList<QByteArray> a = namesOf(runs), b = namesOf(expected);
        std::sort(a.begin(), a.end());
        std::sort(b.begin(), b.end());
        QCOMPARE(a, b);
        // A copied row keeps what it knows.
        CacheItems copy;
        const auto f = copy.addFolder("/x");
        copy.copyItem(runs, runs.row(0), f);
        QCOMPARE(copy.name(0), runs.name(0));
        QCOMPARE(copy.row(0).key[0], runs.row(0).key[0]);
        QCOMPARE(copy.row(0).keyLength, runs.row(0).keyLength);
    }

    void unorderedScanWithPreparedFolders()
    {
        const QByteArray cache = env.homeBytes() + "/.Salvora3Cache";
        for (int t = 0; t < 6; ++t)
            for (int i = 0; i < 20; ++i)
                QVERIFY(TestEnv::writeFile(cache + "/2024-05-01/2024-05-01 0" +
                                               QByteArray::number(t) + "_00_00/n" +
                                               QByteArray::number((i * 7) % 20),
                                           "x"));
        ContentsScan::Options o;
        o.inOrder = false;
        o.threads = 3;
        o.prepare = [](CacheItems &folder) {
            ContentsSort::sort(folder, ContentsSort::ByNameDescending);
        };
        std::atomic<bool> stop{false};
        int calls = 0;
        CacheItems all;
        QVERIFY(
            ContentsScan::scan({{cache + "/2024-05-01", false}}, o, stop, [&](CacheItems &&batch) {
                ++calls;
                QCOMPARE(batch.size(), 20); // one folder a call
                for (qsizetype i = 1; i < batch.size(); ++i)
                    QVERIFY(ContentsSort::compare(batch, batch.row(i - 1), batch.row(i),
                                                  ContentsSort::ByNameDescending) <= 0);
                all.append(std::move(batch));
            }));
        QCOMPARE(calls, 6);
        ContentsSort::mergeRuns(all, ContentsSort::ByNameDescending);
        QCOMPARE(all.size(), 120);
        QCOMPARE(all.name(0), QByteArrayView("n9"));
        QCOMPARE(all.name(119), QByteArrayView("n0"));
    }

    void timeSortOrdersFolders()
    {
        CacheItems items;
        const auto late = items.addFolder("/c/2024-05-01/2024-05-01 18_00_00");
        const auto early = items.addFolder("/c/2024-05-01/2024-05-01 08_00_00");
        const auto other = items.addFolder("/c/2024-04-30/2024-04-30 23_59_59");
        for (auto f : {late, early, other, late, early})
            items.addItem(f, "x", 1, CacheItems::Kind::File);
        ContentsSort::sortCompact(items, ContentsSort::ByTime);
        QList<QByteArray> times;
        for (qsizetype i = 0; i < items.size(); ++i)
            times.append(items.timeFolderName(items.row(i).folder).toByteArray());
        QCOMPARE(times, QList<QByteArray>({"2024-04-30 23_59_59", "2024-05-01 08_00_00",
                                           "2024-05-01 08_00_00", "2024-05-01 18_00_00",
                                           "2024-05-01 18_00_00"}));
        ContentsSort::sortCompact(items, ContentsSort::ByTimeDescending);
        QCOMPARE(items.timeFolderName(items.row(0).folder), QByteArrayView("2024-05-01 18_00_00"));
        QCOMPARE(items.timeFolderName(items.row(4).folder), QByteArrayView("2024-04-30 23_59_59"));
    }
};

QTEST_GUILESS_MAIN(TstSortKeys)
#include "tst_sort_keys.moc"
