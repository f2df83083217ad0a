#include "TestEnv.h"

#include "browser/ContentsScan.h"
#include "browser/ContentsSort.h"
#include "browser/NameMatch.h"
#include "browser/Removal.h"
#include "browser/Restore.h"
#include "browser/SizeCalculation.h"
#include "cache/CacheCommit.h"
#include "cache/SizeRecords.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace ContentsSort;
using Roots = QList<ContentsScan::Root>;
using enum Restore::Outcome;
using enum Restore::Clash;

namespace {

QList<QByteArray> names(const CacheItems &items)
{
    QList<QByteArray> out;
    for (qsizetype i = 0; i < items.size(); ++i)
        out.append(items.name(i).toByteArray());
    return out;
}

QList<QByteArray> sorted(QList<QByteArray> list)
{
    std::sort(list.begin(), list.end());
    return list;
}

// Every neighbour in order under `code`.
bool inOrder(const CacheItems &items, SortOrder code)
{
    for (qsizetype i = 1; i < items.size(); ++i)
        if (compare(items, items.row(i - 1), items.row(i), code) > 0) return false;
    return true;
}

CacheItems listOf(const QList<QByteArray> &names,
                  const QByteArray &folder = "/c/2024-05-01/2024-05-01 09_00_00")
{
    CacheItems items;
    const std::uint32_t f = items.addFolder(folder);
    for (const QByteArray &n : names)
        items.addItem(f, n.constData(), std::size_t(n.size()), CacheItems::Kind::File);
    return items;
}

// Gives the rows origin folders from `table`, a few of them none: "/f0".."/f3", by row.
void giveOrigins(CacheItems &items, const std::shared_ptr<OriginFolders> &table)
{
    items.setOrigins(table);
    for (qsizetype i = 0; i < items.size(); ++i)
        items.rows()[std::size_t(i)].origin =
            i % 5 == 4 ? 0 : table->intern("/f" + QByteArray::number(i % 4));
}

// Name and origin folder of each row, sorted: what a merge must keep whatever it moves.
QList<QByteArray> namesWithOrigins(const CacheItems &items)
{
    QList<QByteArray> out;
    for (qsizetype i = 0; i < items.size(); ++i)
        out.append(items.name(i).toByteArray() + '|' + items.originFolder(items.row(i)));
    return sorted(out);
}

// Names that meet at the sort key's edges: equal prefixes, exactly 16 bytes, case, non-ASCII
// bytes at every position, letters that fold onto ASCII (Kelvin sign, long s), undecodable bytes.
const QList<QByteArray> kTricky =
    QByteArray("a|A|ab|aB|abc|b|_|Z|z|0|~|report|Report 2|report_2|report 10|REPORT 1|"
               "0123456789abcdef|0123456789ABCDEF|0123456789abcdefg|0123456789abcde|"
               "0123456789abcdef\xc3\xa9|r\xc3\xa9sum\xc3\xa9|R\xc3\x89SUM\xc3\x89|resume|"
               "\xe2\x84\xaa"
               "elvin|kelvin|Kelvin|l|j|\xc5\xbft|st|ss|\xc3\x9f|caf\xe9|caf\xc3\xa9|cafe|caf|"
               "\xff|\xfe\xff|a\xff|A\xfe|\xd0\xa4\xd0\xbe\xd1\x82\xd0\xbe|"
               "\xd1\x84\xd0\xbe\xd1\x82\xd0\xbe.pdf|x\xf0\x9f\x98\x80|x\xef\xbf\xbd|xy")
        .split('|');

int sign(int v)
{
    return v < 0 ? -1 : (v > 0 ? 1 : 0);
}

QByteArrayList entries(const QByteArray &folder)
{
    QByteArrayList names;
    if (DIR *d = opendir(folder.constData())) {
        while (dirent *e = readdir(d))
            if (strcmp(e->d_name, ".") && strcmp(e->d_name, "..")) names.append(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool makeSocket(const QByteArray &path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (fd < 0 || std::size_t(path.size()) >= sizeof addr.sun_path) return false;
    std::memcpy(addr.sun_path, path.constData(), std::size_t(path.size()));
    const bool ok = bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0;
    close(fd);
    return ok;
}

} // namespace

// The browser's logic: the contents list (scanning the time folders, searching, sorting and
// merging its rows, their origin folders), the size walk of a selected folder, restoring and
// removing items. Listed items lie in `cache`; those restored or removed in `time`.
class TstBrowser : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray cache, tree, kept, time, out;
    Roots days;

    void file(const QByteArray &rel, qint64 size = 1)
    {
        QVERIFY(TestEnv::writeFile(cache + '/' + rel, QByteArray(size, 'x')));
    }

    // Every row of a scan; with `origins`, the rows learn their origin folders afterwards, as
    // the window does it.
    static CacheItems scanAll(const Roots &roots, const QString &search = {}, bool sizes = false,
                              bool origins = false, int *batches = nullptr)
    {
        ContentsScan::Options o;
        o.pattern = NameMatch::Pattern(search);
        o.readSizes = sizes;
        o.threads = sizes ? 1 : 2;
        if (origins) o.originFill = std::make_shared<ContentsScan::OriginFill>();
        std::atomic<bool> stop{false};
        CacheItems all;
        ContentsScan::scan(roots, o, stop, [&](CacheItems &&b) { all.append(std::move(b)); });
        if (origins)
            o.originFill->run([] { return false; },
                              [&](ContentsScan::OriginFill::Batch &&b) {
                                  all.fillOrigins(o.originFill->table(), b.first, b.ids);
                                  if (batches) ++*batches;
                              });
        return all;
    }

private slots:
    void init()
    {
        env = new TestEnv;
        cache = env->homeBytes() + "/listed";
        days = {{cache + "/2024-05-01", false}, {cache + "/2024-05-03", false}};
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

        tree = env->homeBytes() + "/tree";
        for (const auto &[rel, size] : {std::pair{"b.bin", 100},
                                        {"A/one", 10},
                                        {"A/deep/two", 20},
                                        {"c/three", 3},
                                        {".hidden", 1000}})
            QVERIFY(TestEnv::writeFile(tree + '/' + rel, QByteArray(size, 'x')));
        QVERIFY(TestEnv::makeFolders(tree + "/empty"));
        // A link counts with its own size, whatever it points to.
        QVERIFY(symlink(tree + "/b.bin", tree + "/link") == 0);
        QVERIFY(symlink("/", tree + "/A/to-root") == 0);

        kept = env->homeBytes() + "/.Salvora3Cache";
        time = kept + "/2024-05-03/2024-05-03 10_00_00";
        out = env->homeBytes() + "/out";
        QVERIFY(TestEnv::makeFolders(out));
        QVERIFY(TestEnv::writeFile(time + "/a.txt", "cache a"));
        QVERIFY(TestEnv::writeFile(time + "/b\xff\xfe.bin", QByteArray(300000, 'b')));
        QVERIFY(TestEnv::writeFile(time + "/tree/sub/deep.txt", "deep"));
        QVERIFY(TestEnv::writeFile(time + "/tree/x.sh", "#!/bin/sh"));
        QVERIFY(chmod(time + "/tree/x.sh", 0751) == 0);
        QVERIFY(symlink("../elsewhere", time + "/tree/link") == 0);
        const struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
        QVERIFY(utimensat(AT_FDCWD, time + "/a.txt", old, 0) == 0);
    }
    void cleanup() { delete env; }

    // Each row learns the folder its item came from, from its day's records, whatever bytes or
    // escapes the names hold; the last record of a name wins, and lines that are no record are
    // passed over.
    void originsOfTheRows_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("folder"); // empty: no record
        QTest::newRow("not UTF-8") << QByteArray("bad\xff report") << QByteArray("/home/u/caf\xe9");
        QTest::newRow("line feed")
            << QByteArray("line\nfeed") << QByteArray("/home/u/a \"quoted\" \\ folder");
        QTest::newRow("beyond ASCII") << QByteArray("\xc3\x89t\xc3\xa9 Report.odt")
                                      << QByteArray("/home/u/\xf0\x9f\x98\x80 smile");
        QTest::newRow("last record wins") << QByteArray("Alpha.txt") << QByteArray("/home/u/later");
        QTest::newRow("no record") << QByteArray(251, 'n') + ".txt" << QByteArray();
    }
    void originsOfTheRows()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, folder);
        const QByteArray day = "2024-05-03", time = "2024-05-03 08_00_00";
        const QByteArray records = CacheCommit::originsFileFor(cache, day);
        QVERIFY(TestEnv::writeFile(records, "not a record\n{\"time\": 3}\n"));
        for (const auto &[item, from] :
             {std::pair<QByteArray, QByteArray>{"Alpha.txt", "/home/u/earlier/Alpha.txt"},
              {"zeta.txt", "/home/u/Docs/zeta.txt"},
              {"bad\xff report", "/home/u/caf\xe9/bad\xff report"},
              {"line\nfeed", "/home/u/a \"quoted\" \\ folder/line\nfeed"}})
            QVERIFY(TestEnv::writeOrigin(cache, day, time, item, from));
        // Escaped as other writers may: \u escapes, a surrogate pair among them.
        QVERIFY(TestEnv::writeFile(records, TestEnv::readFile(records) +
                                                "{\"time\":\"2024-05-03 08_00_00\",\"name\":"
                                                "\"\\u00c9t\\u00e9 Report.odt\",\"path\":"
                                                "\"/home/u/\\ud83d\\ude00 smile/x\",\"uid\":0}\n"));
        QVERIFY(TestEnv::writeOrigin(cache, day, time, "Alpha.txt", "/home/u/later/Alpha.txt"));
        CacheItems all = scanAll({{cache + "/2024-05-03", false}}, {}, false, true);
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
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-01", time, "rep_ort.txt",
                                     "/home/u/B/rep_ort.txt"));
        QVERIFY(TestEnv::writeOrigin(cache, "2024-05-01", time, "Annual report.pdf",
                                     "/home/u/A/Annual report.pdf"));
        ContentsScan::Options o;
        o.originFill = std::make_shared<ContentsScan::OriginFill>();
        std::atomic<bool> stop{false};
        CacheItems all;
        ContentsScan::scan(days, o, stop, [&](CacheItems &&b) {
            for (const CacheItems::Row &r : b.rows()) {
                QVERIFY(CacheItems::originWaiting(r));
                QVERIFY(b.originFolder(r).isEmpty());
            }
            all.append(std::move(b));
        });
        sortCompact(all, ByOrigin); // all equal: by name
        QCOMPARE(names(all).first(), QByteArray(".DS_Store"));
        QVERIFY(CacheItems::originWaiting(all.row(0)));

        int batches = 0;
        QVERIFY(!o.originFill->run([] { return true; },
                                   [&](ContentsScan::OriginFill::Batch &&) { ++batches; }));
        QCOMPARE(batches, 0);
        // A stopped fill gave its rows up; a fresh scan fills them all, in one batch here.
        all = scanAll(days, {}, false, true, &batches);
        QFile::remove(QFile::decodeName(records));
        QCOMPARE(batches, 1);
        sortCompact(all, ByOrigin);
        QCOMPARE(names(all).mid(all.size() - 2),
                 QList<QByteArray>({"Annual report.pdf", "rep_ort.txt"}));
        QCOMPARE(all.originFolder(all.row(all.size() - 1)), QByteArray("/home/u/B"));
        for (const CacheItems::Row &r : all.rows())
            QVERIFY(!CacheItems::originWaiting(r));
    }

    void searchMatchesOwnNameOnly()
    {
        CacheItems found = scanAll(days, QStringLiteral("RePoRt"));
        sort(found, ByName);
        QCOMPARE(names(found), QList<QByteArray>({"Annual report.pdf", "bad\xff report",
                                                  "\xc3\x89t\xc3\xa9 Report.odt"}));
        QCOMPARE(found.fullPath(0), cache + "/2024-05-01/2024-05-01 09_00_00/Annual report.pdf");

        // An empty search lists every entry of the time folders, hidden ones included.
        const QList<QByteArray> all = names(scanAll(days));
        QCOMPARE(all.size(), 10);
        QVERIFY(all.contains("line\nfeed"));
        QVERIFY(all.contains(QByteArray(251, 'n') + ".txt"));
        QVERIFY(!all.contains("REPORT deep.txt")); // a deleted folder is one item

        // Non-ASCII search text against a decoded name.
        QCOMPARE(names(scanAll(days, QStringLiteral("\u00c9T\u00c9"))),
                 QList<QByteArray>({"\xc3\x89t\xc3\xa9 Report.odt"}));
    }

    void oneTimeFolderAndSizes()
    {
        CacheItems items = scanAll({{cache + "/2024-05-01/2024-05-01 09_00_00", true}}, {}, true);
        sort(items, ByName);
        QCOMPARE(names(items),
                 QList<QByteArray>({".DS_Store", "Annual report.pdf", "rep_ort.txt"}));
        QCOMPARE(items.row(1).size, 10);
        const CacheItems folder =
            scanAll({{cache + "/2024-05-01/2024-05-01 10_00_00", true}}, {}, true);
        QCOMPARE(folder.row(0).kind, CacheItems::Kind::Folder);
        QCOMPARE(folder.row(0).size, -1); // folders are sized by the size walk, not the scan
        QVERIFY(scanAll({{cache + "/missing", true}}).isEmpty());
    }

    // The compact sort by time, on folders added out of order.
    void sortCodes()
    {
        CacheItems t;
        const auto late = t.addFolder("/c/2024-05-01/2024-05-01 18_00_00");
        const auto early = t.addFolder("/c/2024-05-01/2024-05-01 08_00_00");
        const auto other = t.addFolder("/c/2024-04-30/2024-04-30 23_59_59");
        for (auto f : {late, early, other, late, early})
            t.addItem(f, "x", 1, CacheItems::Kind::File);
        QList<QByteArray> times;
        for (const SortOrder code : {ByTime, ByTimeDescending})
            for (sortCompact(t, code); const CacheItems::Row &r : t.rows())
                times.append(t.timeFolderName(r.folder).toByteArray());
        QCOMPARE(times.mid(0, 5), QList<QByteArray>({"2024-04-30 23_59_59", "2024-05-01 08_00_00",
                                                     "2024-05-01 08_00_00", "2024-05-01 18_00_00",
                                                     "2024-05-01 18_00_00"}));
        QCOMPARE(times.at(5), QByteArray("2024-05-01 18_00_00"));
        QCOMPARE(times.at(9), QByteArray("2024-04-30 23_59_59"));
    }

    void parallelSortEqualsSort()
    {
        // Large enough for the two-thread path; many equal names and times, as in real caches.
        CacheItems a;
        quint32 x = 12345;
        for (int f = 0; f < 40; ++f) {
            const auto folder =
                a.addFolder("/c/2024-05-01/2024-05-01 10_00_" + QByteArray::number(10 + f));
            for (int i = 0; i < 800; ++i) {
                x = x * 1103515245u + 12345u;
                const QByteArray name =
                    "Item " + QByteArray::number((x >> 8) % 5000) + ((x & 1) ? ".TXT" : ".txt");
                a.addItem(folder, name.constData(), std::size_t(name.size()),
                          CacheItems::Kind::File);
            }
        }
        for (SortOrder code : {ByName, ByTime, ByNameDescending, ByTimeDescending}) {
            CacheItems q = a;
            sortParallel(q, code);
            QVERIFY(inOrder(q, code));
            QCOMPARE(q.size(), a.size());
        }
    }

    void nameRules()
    {
        QVERIFY(NameMatch::compare("abc", "ABD") < 0);
        QCOMPARE(NameMatch::compare("R\xc3\xa9sum\xc3\xa9", "R\xc3\x89SUM\xc3\x89"), 0);
        QVERIFY(NameMatch::compare("e", "\xc3\xa9") < 0);  // no diacritic folding
        QVERIFY(NameMatch::compare("a\xff", "A\xfe") > 0); // undecodable bytes order by value
        QVERIFY(NameMatch::compare("_", "b") < 0);         // folding goes to lower case
        // One consistent order across ASCII, decodable and undecodable names (std::sort needs it).
        const QList<QByteArray> n{"\xc3\x89", "\xc3\xa9", "e\xff",        "E",
                                  "\xff",     "z",        "\xc3\xa9\xff", "_"};
        for (const QByteArray &a : n)
            for (const QByteArray &b : n)
                for (const QByteArray &c : n)
                    if (NameMatch::compare(a, b) < 0 && NameMatch::compare(b, c) < 0)
                        QVERIFY(NameMatch::compare(a, c) < 0);
        QVERIFY(NameMatch::Pattern(QStringLiteral("ORT")).matches("rep_ort"));
        QVERIFY(!NameMatch::Pattern(QStringLiteral("report")).matches("rep_ort"));
        QVERIFY(NameMatch::Pattern(QStringLiteral("\u212a")).matches("kilo")); // Kelvin sign: k
        QVERIFY(NameMatch::Pattern(QStringLiteral("*")).matches("a*b"));       // no wildcards
        QVERIFY(!NameMatch::Pattern(QStringLiteral("*")).matches("ab"));
    }

    // The rows' name keys must order exactly as the full name comparison does.
    void keysAgreeWithFullComparison()
    {
        QList<QByteArray> list = kTricky;
        // Random names from a small alphabet, so that long shared prefixes are common.
        QRandomGenerator rng(7);
        const char alphabet[] = "aAbB _.1\xc3\xa9\xffz";
        for (int i = 0; i < 400; ++i) {
            QByteArray n;
            for (int k = 1 + int(rng.bounded(20)); k > 0; --k)
                n.append(alphabet[rng.bounded(int(sizeof alphabet - 1))]);
            list.append(n);
        }
        const CacheItems items = listOf(list);
        int decided = 0;
        for (qsizetype i = 0; i < items.size(); ++i) {
            for (qsizetype j = 0; j < items.size(); ++j) {
                const auto a = items.row(i), b = items.row(j);
                const int full = sign(NameMatch::compare(items.name(i), items.name(j)));
                const int keys = compareKeys(a, b);
                if (keys != kKeysUndecided) {
                    ++decided;
                    QCOMPARE(keys, full);
                }
                QCOMPARE(sign(compare(items, a, b, ByName)), full);
                QCOMPARE(sign(compare(items, a, b, ByNameDescending)), -full);
            }
        }
        QVERIFY(decided > items.size() * items.size() * 3 / 4); // the keys do most of the work
    }

    // Merging sorted lists gives what sorting everything gives, rows keeping their own names,
    // time folders and origins.
    void mergedEqualsSorted_data()
    {
        QTest::addColumn<int>("sortCode");
        for (int code : {0, 1, 2, 3, 4, 6})
            QTest::addRow("%d", code) << code;
    }
    void mergedEqualsSorted()
    {
        QFETCH(int, sortCode);
        const SortOrder code = SortOrder::fromCode(sortCode);
        // Three lists from different time folders, each with some equal names; two share a table
        // of origin folders, the third has its own.
        CacheItems a = listOf(kTricky.mid(0, 20), "/c/2024-05-02/2024-05-02 10_00_00");
        CacheItems b = listOf(kTricky.mid(20), "/c/2024-05-01/2024-05-01 09_00_00");
        CacheItems c = listOf({"report", "zz", "a"}, "/c/2024-05-03/2024-05-03 08_00_00");
        const auto shared = std::make_shared<OriginFolders>();
        giveOrigins(a, shared);
        giveOrigins(b, shared);
        giveOrigins(c, std::make_shared<OriginFolders>());
        const QList<QByteArray> before =
            sorted(namesWithOrigins(a) + namesWithOrigins(b) + namesWithOrigins(c));
        for (CacheItems *list : {&a, &b, &c})
            sortCompact(*list, code);
        CacheItems abc = a;
        mergeSortedInto(abc, CacheItems(b), code);
        mergeSortedInto(abc, CacheItems(c), code);
        QVERIFY(inOrder(abc, code));
        QCOMPARE(sorted(names(abc)), sorted(kTricky + QList<QByteArray>{"report", "zz", "a"}));
        QCOMPARE(namesWithOrigins(abc), before);
        for (qsizetype i = 0; i < abc.size(); ++i)
            if (abc.name(i) == QByteArrayView("zz"))
                QCOMPARE(abc.timeFolderName(abc.row(i).folder),
                         QByteArrayView("2024-05-03 08_00_00"));
        // Merging with nothing changes nothing; into nothing, it is a copy.
        CacheItems copy = abc;
        mergeSortedInto(copy, CacheItems(), code);
        QCOMPARE(names(copy), names(abc));
        copy = CacheItems();
        mergeSortedInto(copy, CacheItems(c), code);
        QCOMPARE(copy.size(), 3);

        // As a scan delivers them: one sorted run per time folder, runs one after another.
        const auto table = std::make_shared<OriginFolders>();
        CacheItems runs;
        for (int f = 0; f < 4; ++f) {
            CacheItems folder =
                listOf(kTricky.mid(f * 13, 13),
                       "/c/2024-05-0" + QByteArray::number(4 - f) + "/t " + QByteArray::number(f));
            giveOrigins(folder, table);
            sort(folder, code);
            runs.append(std::move(folder));
        }
        const QList<QByteArray> unmerged = namesWithOrigins(runs);
        mergeRuns(runs, code);
        QVERIFY(inOrder(runs, code));
        QCOMPARE(namesWithOrigins(runs), unmerged);
    }

    void unorderedScanWithPreparedFolders()
    {
        const QByteArray day = env->homeBytes() + "/unordered/2024-05-01";
        for (int t = 0; t < 6; ++t)
            for (int i = 0; i < 20; ++i)
                QVERIFY(TestEnv::writeFile(day + "/2024-05-01 0" + QByteArray::number(t) +
                                               "_00_00/n" + QByteArray::number((i * 7) % 20),
                                           "x"));
        ContentsScan::Options o;
        o.inOrder = false;
        o.threads = 3;
        o.prepare = [](CacheItems &folder) { sort(folder, ByNameDescending); };
        std::atomic<bool> stop{false};
        int calls = 0;
        CacheItems all;
        QVERIFY(ContentsScan::scan({{day, false}}, o, stop, [&](CacheItems &&batch) {
            ++calls;
            QCOMPARE(batch.size(), 20); // one folder a call
            QVERIFY(inOrder(batch, ByNameDescending));
            all.append(std::move(batch));
        }));
        QCOMPARE(calls, 6);
        mergeRuns(all, ByNameDescending);
        QCOMPARE(all.name(0), QByteArrayView("n9"));
        QCOMPARE(all.name(119), QByteArrayView("n0"));
    }

    // The size walk behind a selected folder: every entry counted once, links by their own size
    // and never followed; folders report when finished, children before parents, names in
    // case-insensitive order (A/deep, A, c, empty, then the tree itself); a stop ends it.
    void sizeWalk()
    {
        const auto linkSize = [](const QByteArray &path) {
            struct stat st = {};
            return lstat(path.constData(), &st) == 0 ? qint64(st.st_size) : -1;
        };
        const qint64 toRoot = linkSize(tree + "/A/to-root");
        std::atomic<bool> stop{false};
        std::atomic<double> next{0}; // due at once: every finished folder reports
        QList<qint64> progress;
        const std::int64_t total =
            SizeCalculation::calcSizeContentsFor(tree, stop, next, [&](std::int64_t sub) {
                progress.append(sub);
                next = 0; // keep every report for the test
            });
        QCOMPARE(total, 1000 + 100 + 10 + 20 + 3 + linkSize(tree + "/link") + toRoot);
        QCOMPARE(progress, QList<qint64>({20, 30 + toRoot, 3, 0, total}));

        // Not a folder, missing, a link, nothing: 0. Stopped: only the first entry (".hidden").
        for (const QByteArray &none :
             QByteArrayList{tree + "/missing", tree + "/b.bin", tree + "/link", {}})
            QCOMPARE(SizeCalculation::calcSizeContentsFor(none, stop, next), 0);
        stop = true;
        QCOMPARE(SizeCalculation::calcSizeContentsFor(tree, stop, next), 1000);
    }

    void unreadableFolderCountsAsEmpty()
    {
        if (geteuid() == 0) QSKIP("root reads every folder");
        QVERIFY(TestEnv::writeFile(env->homeBytes() + "/locked/secret", QByteArray(50, 'x')));
        QVERIFY(chmod(env->homeBytes() + "/locked", 0) == 0);
        std::atomic<bool> stop{false};
        std::atomic<double> next{0};
        const std::int64_t total =
            SizeCalculation::calcSizeContentsFor(env->homeBytes() + "/locked", stop, next);
        chmod(env->homeBytes() + "/locked", 0755);
        QCOMPARE(total, 0);
    }

    void restoreSkipsExistingAndCopiesTheRest()
    {
        QVERIFY(TestEnv::writeFile(out + "/a.txt", "mine"));
        // The same name deleted on another day.
        const QByteArray otherDay = kept + "/2024-05-04/2024-05-04 09_00_00";
        QVERIFY(TestEnv::writeFile(otherDay + "/tree", "a file named like the folder"));
        const auto results = Restore::copyItems(
            out, {time + "/a.txt", time + "/b\xff\xfe.bin", time + "/tree", otherDay + "/tree"});
        QCOMPARE(results.size(), 4);
        QCOMPARE(results[0].outcome, SkippedExisting);
        QCOMPARE(TestEnv::readFile(out + "/a.txt"), QByteArray("mine"));
        QCOMPARE(results[1].outcome, Copied);
        // Byte-exact name and data.
        QCOMPARE(TestEnv::readFile(out + "/b\xff\xfe.bin"), QByteArray(300000, 'b'));
        QCOMPARE(results[2].outcome, Copied);
        QCOMPARE(TestEnv::readFile(out + "/tree/sub/deep.txt"), QByteArray("deep"));
        QCOMPARE(TestEnv::modeOf(out + "/tree/x.sh"), mode_t(0751));
        char target[64] = {};
        QCOMPARE(readlink(out + "/tree/link", target, sizeof target), ssize_t(12));
        QCOMPARE(QByteArray(target), QByteArray("../elsewhere"));
        QCOMPARE(results[3].outcome, SkippedExisting); // same name as an earlier item
        // Nothing half-done is left behind, and the cache keeps its items.
        QCOMPARE(entries(out), QByteArrayList({"a.txt", "b\xff\xfe.bin", "tree"}));
        QVERIFY(TestEnv::exists(time + "/a.txt"));

        // Times are kept.
        const auto again = Restore::copyItem(time + "/a.txt", out + "/a copy.txt");
        QCOMPARE(again.outcome, Copied);
        struct stat st = {};
        QVERIFY(lstat(out + "/a copy.txt", &st) == 0);
        QCOMPARE(st.st_mtim.tv_sec, time_t(1000000000));
    }

    // Stopped or failed, a copy leaves nothing; a folder with pieces that cannot be copied is
    // copied without them, and says which.
    void partialFolderCopiesTheRest()
    {
        std::atomic<bool> stop{true};
        QCOMPARE(Restore::copyItem(time + "/tree", out + "/tree", &stop).outcome, Stopped);
        QCOMPARE(entries(out), QByteArrayList());
        // A source that vanished: a clear failure, nothing written.
        const auto gone = Restore::copyItem(time + "/missing", out + "/missing");
        QCOMPARE(gone.outcome, Failed);
        QVERIFY(!gone.error.isEmpty());
        QCOMPARE(entries(out), QByteArrayList());
        QVERIFY(makeSocket(time + "/tree/sub/sock"));
        const auto r = Restore::copyItem(time + "/tree", out + "/tree");
        QCOMPARE(r.outcome, Copied);
        QCOMPARE(r.leftOut.size(), 1);
        QCOMPARE(r.leftOut[0].path, QByteArray("sub/sock"));
        QVERIFY(!r.leftOut[0].reason.isEmpty());
        QCOMPARE(entries(out + "/tree/sub"), QByteArrayList{"deep.txt"});
        QCOMPARE(entries(out), QByteArrayList{"tree"}); // no temporary left
        // A socket alone is no partial success.
        const auto alone = Restore::copyItem(time + "/tree/sub/sock", out + "/sock");
        QCOMPARE(alone.outcome, Failed);
        QCOMPARE(entries(out), QByteArrayList{"tree"});
    }

    // Put Back: the item leaves the cache for where it was deleted from; a taken name is
    // skipped or numbered; missing parents are made with the usual modes.
    void putBack_data()
    {
        QTest::addColumn<QByteArray>("original"); // below the home folder
        QTest::addColumn<bool>("taken");
        QTest::addColumn<int>("clash");
        QTest::addColumn<int>("outcome");
        QTest::addColumn<QByteArray>("landed"); // below the home folder; empty: stays in the cache
        const auto row = [](const char *name, const char *original, bool taken,
                            Restore::Clash clash, Restore::Outcome outcome, const char *landed) {
            QTest::newRow(name) << QByteArray(original) << taken << int(clash) << int(outcome)
                                << QByteArray(landed);
        };
        row("into its folder", "docs/a.txt", false, Skip, Copied, "docs/a.txt");
        row("parents deleted", "gone/deeper/a.txt", false, Skip, Copied, "gone/deeper/a.txt");
        row("taken, skip", "docs/a.txt", true, Skip, SkippedExisting, "");
        row("taken, keep both", "docs/a.txt", true, KeepBoth, Copied, "docs/a 2.txt");
    }
    void putBack()
    {
        QFETCH(QByteArray, original);
        QFETCH(bool, taken);
        QFETCH(int, clash);
        QFETCH(int, outcome);
        QFETCH(QByteArray, landed);
        const QByteArray home = env->homeBytes();
        QVERIFY(TestEnv::makeFolders(home + "/docs"));
        if (taken) QVERIFY(TestEnv::writeFile(home + "/docs/a.txt", "mine"));
        for (const auto &[t, from] : {std::pair<const char *, QByteArray>{"10_00_00", "elsewhere"},
                                      {"10_00_00", original},
                                      {"09_00_00", "other"}})
            QVERIFY(TestEnv::writeOrigin(kept, "2024-05-03", QByteArray("2024-05-03 ") + t, "a.txt",
                                         home + '/' + from));
        // The latest record of the name in its time folder.
        QCOMPARE(Restore::originalPathOf(time + "/a.txt"), home + '/' + original);
        QVERIFY(Restore::originalPathOf(time + "/tree").isEmpty());
        qint64 n = 0;
        CommonUtils::saveSizeOfCache(kept + "/2024-05-03", &n);

        const mode_t oldMask = umask(022);
        const auto r =
            Restore::putBack(time + "/a.txt", home + '/' + original, Restore::Clash(clash));
        umask(oldMask);
        QCOMPARE(int(r.outcome), outcome);
        if (landed.isEmpty()) {
            QVERIFY(!r.moved);
            QVERIFY(TestEnv::exists(time + "/a.txt"));
            QCOMPARE(TestEnv::readFile(home + "/docs/a.txt"), QByteArray("mine"));
            QVERIFY(TestEnv::exists(kept + "/2024-05-03/.Salvora3_CacheInformation"));
            return;
        }
        QVERIFY(r.moved);
        QCOMPARE(r.target, home + '/' + landed);
        QCOMPARE(TestEnv::readFile(home + '/' + landed), QByteArray("cache a"));
        QVERIFY(!TestEnv::exists(time + "/a.txt"));
        if (taken) QCOMPARE(TestEnv::readFile(home + "/docs/a.txt"), QByteArray("mine"));
        // The day is counted again next time.
        QVERIFY(!TestEnv::exists(kept + "/2024-05-03/.Salvora3_CacheInformation"));
        if (original.startsWith("gone/")) {
            QCOMPARE(TestEnv::modeOf(home + "/gone"), mode_t(0755));
            QCOMPARE(TestEnv::modeOf(home + "/gone/deeper"), mode_t(0755));
        }
    }

    // To another file system the item is copied, and leaves the cache only when copied whole;
    // its emptied time folder goes.
    void putBackAcrossFileSystems()
    {
        QTemporaryDir other(QStringLiteral("/dev/shm/salvora-test-XXXXXX"));
        struct stat a = {}, b = {};
        if (!other.isValid() || stat("/dev/shm", &a) != 0 || stat(time.constData(), &b) != 0 ||
            a.st_dev == b.st_dev)
            QSKIP("no second file system at /dev/shm");
        const QByteArray there = QFile::encodeName(other.path());
        QVERIFY(makeSocket(time + "/tree/sock"));
        const auto partial = Restore::putBack(time + "/tree", there + "/back/tree", Skip);
        QCOMPARE(partial.outcome, Copied);
        QCOMPARE(partial.leftOut.size(), 1);
        QVERIFY(!partial.moved);
        QVERIFY(TestEnv::exists(time + "/tree/sock"));
        QCOMPARE(TestEnv::readFile(there + "/back/tree/sub/deep.txt"), QByteArray("deep"));
        QCOMPARE(entries(there + "/back"), QByteArrayList{"tree"});
        const auto whole =
            Restore::putBack(time + "/b\xff\xfe.bin", there + "/b\xff\xfe.bin", Skip);
        QCOMPARE(whole.outcome, Copied);
        QVERIFY(whole.moved);
        QVERIFY(!TestEnv::exists(time + "/b\xff\xfe.bin"));
        QVERIFY(TestEnv::exists(time)); // the tree is still in it
    }

    // The last item of a time folder takes it along and the day is recounted; links are removed,
    // never followed; removing every cache turns protection off.
    void removal()
    {
        const QByteArray day = kept + "/2024-05-03";
        qint64 n = 0;
        CommonUtils::saveSizeOfCache(day, &n);
        Removal::removeItems({time + "/a.txt"});
        // The day is recounted next time.
        QVERIFY(!TestEnv::exists(day + "/.Salvora3_CacheInformation"));
        QVERIFY(TestEnv::exists(time));
        // A link, as the item or inside it, goes itself, not what it points to.
        const QByteArray outside = env->homeBytes() + "/precious";
        QVERIFY(TestEnv::writeFile(outside + "/keep.txt", "keep"));
        QVERIFY(symlink(outside, time + "/tree/sub/to-precious") == 0);
        QVERIFY(symlink(outside, time + "/to-precious") == 0);
        QVERIFY(Removal::removeTree(time + "/to-precious"));
        QVERIFY(Removal::removeTree(time + "/missing"));
        Removal::removeItems({time + "/b\xff\xfe.bin", time + "/tree"});
        QVERIFY(!TestEnv::exists(time));
        QVERIFY(TestEnv::exists(day));
        QCOMPARE(TestEnv::readFile(outside + "/keep.txt"), QByteArray("keep"));
        Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
        Removal::removeAllCaches();
        QCOMPARE(Settings::integer(SettingsKeys::PrefsProtectionEnabled), std::optional<qint64>(0));
        QVERIFY(!TestEnv::exists(kept));
    }
};

QTEST_GUILESS_MAIN(TstBrowser)
#include "tst_browser.moc"
