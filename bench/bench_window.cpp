// Times the main window on a generated cache, offscreen, against find over the same tree:
//   bench_window --cache DIR/.Salvora3Cache [--flat DIR2/.Salvora3Cache] [--runs N]
// - the scan of all days, no search and with the search "report", from the request to the end
//   message (the list complete, sorted, in the model), against find at the items' depth;
// - how soon the first rows are painted after the request;
// - the longest time the event loop did not turn during the scan;
// - on the flat cache, with one origin record per item (written beside it once) and with its
//   records set aside: how soon the first rows come and when the list is complete; memory of
//   the contents list (bytes per item beyond the names);
// - start-up to a shown window.
#include "BenchUtil.h"

#include "browser/CacheItems.h"
#include "cache/CacheCommit.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "controller/AppDelegate.h"
#include "controller/WindowProbe.h"
#include "ui/TableView.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QMainWindow>
#include <QTemporaryDir>
#include <QTimer>
#include <QWindow>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <malloc.h>
#include <string>
#include <sys/resource.h>

namespace {

bool gAllPass = true;

void verdict(const char *what, bool pass)
{
    std::printf("  %-58s %s\n", what, pass ? "PASS" : "FAIL");
    gAllPass = gAllPass && pass;
}

std::int64_t monotonicNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return std::int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

long rssKb()
{
    FILE *f = std::fopen("/proc/self/statm", "r");
    long pages = 0, resident = 0;
    if (f) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// A private home around the cache: HOME is the cache's parent (the start-up volume's cache lives
// in the home folder), settings and log go to a temporary folder.
void pointHomeAt(const QByteArray &cache, const QString &scratch)
{
    QByteArray home = cache;
    while (home.endsWith('/'))
        home.chop(1);
    home = home.left(home.lastIndexOf('/'));
    qputenv("HOME", home);
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(scratch + "/config"));
    qputenv("XDG_DATA_HOME", QFile::encodeName(scratch + "/data"));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(scratch));
    QSettings::setPath(Settings::jsonFormat(), QSettings::UserScope, scratch + "/config");
    Settings::setInteger(SettingsKeys::PrefsRemoveFromCache, 14);
    Settings::setInteger(SettingsKeys::PrefsProtectionEnabled, 1);
    Settings::setInteger(SettingsKeys::PrefsLaunchMenu, 1);
    Settings::setInteger(SettingsKeys::FirstUse, 1);
}

// Waits in the event loop until `signal` fires (or the timeout).
template <typename Signal> bool waitFor(AppDelegate &c, Signal signal, int timeoutMs)
{
    QEventLoop loop;
    QObject::connect(&c, signal, &loop, &QEventLoop::quit);
    QTimer::singleShot(timeoutMs, &loop, [&] { loop.exit(1); });
    return loop.exec() == 0;
}

// One origin record per item of every day of `cache`, as the daemon writes them, from a few
// hundred folders; an existing records file is kept.
void writeOrigins(const QByteArray &cache)
{
    QDir days(QFile::decodeName(cache));
    for (const QString &day : days.entryList({QStringLiteral("20*")}, QDir::Dirs)) {
        const QByteArray file = CacheCommit::originsFileFor(cache, QFile::encodeName(day));
        if (QFile::exists(QFile::decodeName(file))) continue;
        QByteArray out;
        int n = 0;
        QDir times(days.filePath(day));
        for (const QString &time : times.entryList({QStringLiteral("20*")}, QDir::Dirs)) {
            QDir items(times.filePath(time));
            for (const QString &name : items.entryList(QDir::AllEntries | QDir::Hidden |
                                                       QDir::System | QDir::NoDotAndDotDot)) {
                QJsonObject o;
                o.insert(QLatin1String("time"), time);
                o.insert(QLatin1String("name"), name);
                o.insert(
                    QLatin1String("path"),
                    QStringLiteral("/home/user/Documents/project %1/%2").arg(n++ % 300).arg(name));
                o.insert(QLatin1String("uid"), 1000);
                out += QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
            }
        }
        QDir().mkpath(QFile::decodeName(cache) + QLatin1String("/.origins"));
        QFile f(QFile::decodeName(file));
        if (!f.open(QIODevice::WriteOnly) || f.write(out) != out.size())
            std::fprintf(stderr, "cannot write %s\n", file.constData());
    }
}

double cpuSeconds(int who)
{
    rusage r{};
    getrusage(who, &r);
    return double(r.ru_utime.tv_sec + r.ru_stime.tv_sec) +
           double(r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
}

double threadCpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

struct ScanFigures
{
    double cpu = 0;         // processor time of the whole process during the scan, s
    double mainCpu = 0;     // processor time of the main thread during the scan, s
    double longestBusy = 0; // most processor time the main thread spent between two turns, s
    double total = 0;       // request to end message, s
    double firstPaint = 0;  // request to the first paint with rows, s
    double firstRows = 0;   // request to the first hand-over with rows, s
    double filled = 0;      // request to the last origin in the list, s
    double longestGap = 0;  // longest time between two event-loop turns, s
    qsizetype rows = 0;
};

// Paints the contents list shows once it has rows.
class PaintWatch : public QObject
{
public:
    QWidget *viewport;
    const TableModel *model;
    QElapsedTimer *clock;
    double firstPaint = -1;
    PaintWatch(QWidget *v, const TableModel *m, QElapsedTimer *c) : viewport(v), model(m), clock(c)
    {
        viewport->installEventFilter(this);
    }
    bool eventFilter(QObject *o, QEvent *e) override
    {
        if (o == viewport && e->type() == QEvent::Paint && firstPaint < 0 && model->rowCount() > 0)
            firstPaint = double(clock->nsecsElapsed()) / 1e9;
        return false;
    }
};

ScanFigures scanAllDays(AppDelegate &c, const QString &search)
{
    const WindowProbe probe(c);
    probe.ui().mSearchString->setText(search);
    QElapsedTimer clock;
    PaintWatch paint(probe.ui().mTableViewContents->viewport(), probe.ui().mContentsModel, &clock);
    // A timer that should fire every 2 ms: the longest pause between two firings is the longest
    // time the event loop did not turn.
    // The same in the main thread's processor time, which the machine's other load cannot stretch.
    QElapsedTimer turn;
    double longest = 0, longestBusy = 0, lastCpu = threadCpuSeconds();
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(2);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        longest = std::max(longest, double(turn.nsecsElapsed()) / 1e9);
        turn.start();
        const double cpu = threadCpuSeconds();
        longestBusy = std::max(longestBusy, cpu - lastCpu);
        lastCpu = cpu;
    });

    const double cpu0 = cpuSeconds(RUSAGE_SELF);
    const double mainCpu0 = threadCpuSeconds();
    lastCpu = mainCpu0;
    double firstRows = -1;
    QMetaObject::Connection rowsSeen = QObject::connect(&c, &AppDelegate::contentsListChanged, [&] {
        if (firstRows < 0 && probe.contents().size() > 0)
            firstRows = double(clock.nsecsElapsed()) / 1e9;
    });
    clock.start();
    turn.start();
    ticker.start();
    // No day selected: every day is scanned.
    {
        const QSignalBlocker block(probe.ui().mTableViewDate->selectionModel());
        probe.ui().mTableViewDate->clearSelection();
    }
    c.updateListOfContentsInCache();
    double filled = -1;
    QMetaObject::Connection filledSeen =
        QObject::connect(&c, &AppDelegate::contentsOriginsFilled,
                         [&] { filled = double(clock.nsecsElapsed()) / 1e9; });
    const bool ended = waitFor(c, qOverload<>(&AppDelegate::contentsScanEnded), 600000);
    ScanFigures f;
    f.total = double(clock.nsecsElapsed()) / 1e9;
    // The origins follow the rows; the next scan waits for them, so that it starts alone.
    if (filled < 0) waitFor(c, qOverload<>(&AppDelegate::contentsOriginsFilled), 600000);
    QObject::disconnect(filledSeen);
    f.filled = filled;
    f.cpu = cpuSeconds(RUSAGE_SELF) - cpu0;
    f.mainCpu = threadCpuSeconds() - mainCpu0;
    f.longestBusy = longestBusy;
    ticker.stop();
    f.longestGap = longest;
    // The first paint may follow the last hand-over of a short scan.
    if (paint.firstPaint < 0 && probe.contents().size() > 0) QCoreApplication::processEvents();
    f.firstPaint = paint.firstPaint;
    f.firstRows = firstRows;
    QObject::disconnect(rowsSeen);
    f.rows = probe.contents().size();
    if (!ended) std::printf("  scan did not end!\n");
    return f;
}

std::unique_ptr<AppDelegate> launch()
{
    auto c = std::make_unique<AppDelegate>();
    c->applicationDidFinishLaunching();
    // The volume list comes 0.15 s after launch and scans the newest day.
    waitFor(*c, qOverload<>(&AppDelegate::contentsScanEnded), 120000);
    return c;
}

// One run of find at the items' depth: wall time, and its processor time in *cpu.
double findOnce(const std::string &cache, const std::vector<std::string> &extra, double *cpu)
{
    std::vector<std::string> argv{"find", cache, "-mindepth", "3", "-maxdepth", "3"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    const double before = cpuSeconds(RUSAGE_CHILDREN);
    const double wall = bench::seconds([&] { bench::runQuiet(argv); });
    *cpu = cpuSeconds(RUSAGE_CHILDREN) - before;
    return wall;
}

int startupChild(const char *startNs)
{
    // Started by the parent at `startNs`; reports when the main window is first exposed.
    const std::int64_t t0 = std::strtoll(startNs, nullptr, 10);
    int argc = 1;
    char name[] = "salvora3";
    char *argv[] = {name, nullptr};
    QApplication app(argc, argv);
    Texts::install(app);
    AppDelegate c;
    std::int64_t shown = 0;
    QTimer poll;
    poll.setInterval(0);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (QWindow *w = WindowProbe(c).ui().window->windowHandle(); w && w->isExposed()) {
            shown = monotonicNs();
            app.quit();
        }
    });
    c.applicationDidFinishLaunching();
    poll.start();
    QTimer::singleShot(10000, &app, &QCoreApplication::quit);
    app.exec();
    std::printf("%lld\n", (long long)(shown ? (shown - t0) / 1000 : -1));
    return 0;
}

double startupSeconds(const char *self, int runs)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const std::string cmd =
            std::string("'") + self + "' --startup-child " + std::to_string(monotonicNs());
        FILE *p = popen(cmd.c_str(), "r");
        long long us = -1;
        if (p) {
            if (std::fscanf(p, "%lld", &us) != 1) us = -1;
            pclose(p);
        }
        times.push_back(us < 0 ? 1e9 : double(us) / 1e6);
    }
    return bench::median(times);
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    if (argc == 3 && std::string(argv[1]) == "--startup-child") return startupChild(argv[2]);

    QByteArray cache, flat;
    int runs = 3;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string a = argv[i];
        if (a == "--cache")
            cache = argv[i + 1];
        else if (a == "--flat")
            flat = argv[i + 1];
        else if (a == "--runs")
            runs = std::max(1, std::atoi(argv[i + 1]));
    }
    if (cache.isEmpty()) {
        std::fprintf(stderr, "usage: bench_window --cache DIR/.Salvora3Cache [--flat "
                             "DIR/.Salvora3Cache] [--runs N]\n");
        return 2;
    }
    QTemporaryDir scratch;
    pointHomeAt(cache, scratch.path());
    QApplication app(argc, argv);
    Texts::install(app);

    std::printf("cache: %s\n", cache.constData());
    bench::runQuiet({"find", cache.toStdString()}); // warm the page cache
    // find and the window take turns, so that a change in the machine's load hits both alike.
    auto c = launch();
    std::vector<ScanFigures> all, report;
    std::vector<double> finds, findCpus, findReports, findReportCpus;
    for (int i = 0; i < runs; ++i) {
        double cpu = 0;
        finds.push_back(findOnce(cache.toStdString(), {}, &cpu));
        findCpus.push_back(cpu);
        all.push_back(scanAllDays(*c, QString()));
        findReports.push_back(findOnce(cache.toStdString(), {"-iname", "*report*"}, &cpu));
        findReportCpus.push_back(cpu);
        report.push_back(scanAllDays(*c, QStringLiteral("report")));
    }
    const double find = bench::median(finds), findCpu = bench::median(findCpus);
    const double findReport = bench::median(findReports),
                 findReportCpu = bench::median(findReportCpus);
    auto med = [](const std::vector<ScanFigures> &v, double ScanFigures::*field) {
        std::vector<double> x;
        for (const ScanFigures &f : v)
            x.push_back(f.*field);
        return bench::median(x);
    };
    auto worst = [](const std::vector<ScanFigures> &v, double ScanFigures::*field) {
        double m = 0;
        for (const ScanFigures &f : v)
            m = std::max(m, f.*field);
        return m;
    };
    const double scanAll = med(all, &ScanFigures::total);
    const double scanReport = med(report, &ScanFigures::total);
    std::printf("items: %lld, matching \"report\": %lld, days: %lld\n", (long long)all.back().rows,
                (long long)report.back().rows, (long long)WindowProbe(*c).days().size());
    std::printf("scan all days, request to end message : %8.3f s   find -mindepth 3 -maxdepth 3 : "
                "%8.3f s   ratio %.2f\n",
                scanAll, find, scanAll / find);
    std::printf("scan with search \"report\"             : %8.3f s   find ... -iname '*report*'  : "
                "%8.3f s   ratio %.2f\n",
                scanReport, findReport, scanReport / findReport);
    std::printf("processor time (median)                : scan all %.3f s vs find %.3f s; with "
                "search %.3f s vs find %.3f s\n",
                med(all, &ScanFigures::cpu), findCpu, med(report, &ScanFigures::cpu),
                findReportCpu);
    // Per scan the first paint and the longest gap; over the runs the median decides (the
    // machine's other load can stall any single run), the worst is shown beside it.
    std::vector<ScanFigures> both = all;
    both.insert(both.end(), report.begin(), report.end());
    const double firstPaint = med(all, &ScanFigures::firstPaint);
    const double gap = med(both, &ScanFigures::longestGap);
    std::printf("first rows painted after the request        : %.1f ms median, %.1f ms worst "
                "(handed over after %.1f ms median)\n",
                firstPaint * 1000, worst(all, &ScanFigures::firstPaint) * 1000,
                med(all, &ScanFigures::firstRows) * 1000);
    std::printf("longest event-loop gap in a scan             : %.1f ms median, %.1f ms worst; the "
                "main thread was busy at most"
                " %.1f ms of a gap and %.3f s in a whole scan\n",
                gap * 1000, worst(both, &ScanFigures::longestGap) * 1000,
                worst(both, &ScanFigures::longestBusy) * 1000, med(all, &ScanFigures::mainCpu));
    verdict("scan all days <= 1.0 x find", scanAll <= find);
    verdict("scan with search <= 1.0 x find -iname", scanReport <= findReport);
    verdict("first rows visible within 100 ms", firstPaint >= 0 && firstPaint <= 0.100);
    verdict("event loop never blocked more than 50 ms", gap <= 0.050);
    c.reset();

    const double startup = startupSeconds(argv[0], std::max(3, runs));
    std::printf("start-up to a shown window (median): %.1f ms\n", startup * 1000);
    verdict("start-up < 300 ms", startup < 0.300);

    if (!flat.isEmpty()) {
        QTemporaryDir flatScratch;
        pointHomeAt(flat, flatScratch.path());
        writeOrigins(flat);
        bench::runQuiet({"find", flat.toStdString()});
        const QString records = QFile::decodeName(flat) + QLatin1String("/.origins");
        const QString recordsAside = records + QLatin1String("-aside");
        auto f = launch();
        // Listed with the records set aside, then with them, in turns.
        std::vector<ScanFigures> without, with;
        for (int i = 0; i < runs; ++i) {
            QDir().rename(records, recordsAside);
            without.push_back(scanAllDays(*f, QString()));
            QDir().rename(recordsAside, records);
            with.push_back(scanAllDays(*f, QString()));
        }
        std::printf("flat cache, without origin records: first rows painted after %.1f ms, listed "
                    "in %.3f s (medians)\n",
                    med(without, &ScanFigures::firstPaint) * 1000,
                    med(without, &ScanFigures::total));
        std::printf("flat cache, one origin record per item: first rows painted after %.1f ms, "
                    "listed in %.3f s, "
                    "origins filled after %.3f s (medians)\n",
                    med(with, &ScanFigures::firstPaint) * 1000, med(with, &ScanFigures::total),
                    med(with, &ScanFigures::filled));
        verdict("flat, with records: first rows visible within 100 ms",
                med(with, &ScanFigures::firstPaint) <= 0.100);
        // The process's growth from an empty list to the full one, freed memory given back first.
        WindowProbe(*f).ui().mSearchString->setText(QStringLiteral("\x01 matches nothing"));
        scanAllDays(*f, WindowProbe(*f).ui().mSearchString->text());
        malloc_trim(0);
        const long before = rssKb();
        const ScanFigures s = scanAllDays(*f, QString());
        malloc_trim(0);
        const long after = rssKb();
        const double n = double(std::max<qsizetype>(1, WindowProbe(*f).contents().size()));
        const double overhead = double(WindowProbe(*f).contents().overheadBytes()) / n;
        const double rssBeyondNames =
            (double(after - before) * 1024.0 - double(WindowProbe(*f).contents().nameBytes())) / n;
        std::printf(
            "flat cache: %lld items in one time folder, %.1f MB of names, listed in %.3f s\n",
            (long long)s.rows, double(WindowProbe(*f).contents().nameBytes()) / 1e6, s.total);
        std::printf("contents list, bytes per item beyond the names: %.1f (the list), %.1f (the "
                    "process's growth, view included)\n",
                    overhead, rssBeyondNames);
        verdict("contents list <= 64 bytes per item beyond the names", overhead <= 64.0);
    }
    std::printf("%s\n", gAllPass ? "ALL PASS" : "SOME FAIL");
    return gAllPass ? 0 : 1;
}
