// Times the main window on a generated cache, offscreen, against find over the same tree:
//   bench_window --cache DIR/.Salvora3Cache [--flat DIR2/.Salvora3Cache] [--runs N]
// - the scan of all days, no search and with the search "report", from the request to the end
//   message (the list complete, sorted, in the model), against find at the items' depth;
// - how soon the first rows are painted after the request;
// - the longest time the event loop did not turn during the scan;
// - memory of the contents list on the flat cache (bytes per item beyond the names);
// - start-up to a shown window.
#include "BenchUtil.h"

#include "browser/CacheItems.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"
#include "common/Texts.h"
#include "controller/AppDelegate.h"
#include "ui/TableView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QLineEdit>
#include <QMainWindow>
#include <QTemporaryDir>
#include <QTimer>
#include <QWindow>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

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

struct ScanFigures
{
    double total = 0;      // request to end message, s
    double firstPaint = 0; // request to the first paint with rows, s
    double longestGap = 0; // longest time between two event-loop turns, s
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
    c.mSearchString->setText(search);
    QElapsedTimer clock;
    PaintWatch paint(c.mTableViewContents->viewport(), c.mContentsModel, &clock);
    // A timer that should fire every 2 ms: the longest pause between two firings is the longest
    // time the event loop did not turn.
    QElapsedTimer turn;
    double longest = 0;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(2);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        longest = std::max(longest, double(turn.nsecsElapsed()) / 1e9);
        turn.start();
    });

    clock.start();
    turn.start();
    ticker.start();
    // No day selected: every day is scanned.
    {
        const QSignalBlocker block(c.mTableViewDate->selectionModel());
        c.mTableViewDate->clearSelection();
    }
    c.updateListOfContentsInCache();
    const bool ended = waitFor(c, qOverload<>(&AppDelegate::contentsScanEnded), 600000);
    ScanFigures f;
    f.total = double(clock.nsecsElapsed()) / 1e9;
    ticker.stop();
    f.longestGap = longest;
    // The first paint may follow the last hand-over of a short scan.
    if (paint.firstPaint < 0 && c.mContents.size() > 0) QCoreApplication::processEvents();
    f.firstPaint = paint.firstPaint;
    f.rows = c.mContents.size();
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

double findSeconds(const std::string &cache, int runs, const std::vector<std::string> &extra)
{
    std::vector<std::string> argv{"find", cache, "-mindepth", "3", "-maxdepth", "3"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    return bench::medianSeconds(runs, [&] { bench::runQuiet(argv); });
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
        if (c.window->windowHandle() && c.window->windowHandle()->isExposed()) {
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
    const double find = findSeconds(cache.toStdString(), runs, {});
    const double findReport = findSeconds(cache.toStdString(), runs, {"-iname", "*report*"});

    auto c = launch();
    std::vector<ScanFigures> all, report;
    for (int i = 0; i < runs; ++i) {
        all.push_back(scanAllDays(*c, QString()));
        report.push_back(scanAllDays(*c, QStringLiteral("report")));
    }
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
                (long long)report.back().rows, (long long)c->mDates.size());
    std::printf("scan all days, request to end message : %8.3f s   find -mindepth 3 -maxdepth 3 : "
                "%8.3f s   ratio %.2f\n",
                scanAll, find, scanAll / find);
    std::printf("scan with search \"report\"             : %8.3f s   find ... -iname '*report*'  : "
                "%8.3f s   ratio %.2f\n",
                scanReport, findReport, scanReport / findReport);
    const double firstPaint = worst(all, &ScanFigures::firstPaint);
    const double gap =
        std::max(worst(all, &ScanFigures::longestGap), worst(report, &ScanFigures::longestGap));
    std::printf("first rows painted after the request (worst): %.1f ms\n", firstPaint * 1000);
    std::printf("longest event-loop gap during the scans      : %.1f ms\n", gap * 1000);
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
        bench::runQuiet({"find", flat.toStdString()});
        auto f = launch();
        f->mSearchString->clear();
        const long before = rssKb();
        const ScanFigures s = scanAllDays(*f, QString());
        const long after = rssKb();
        const double n = double(std::max<qsizetype>(1, f->mContents.size()));
        const double overhead = double(f->mContents.overheadBytes()) / n;
        const double rssBeyondNames =
            (double(after - before) * 1024.0 - double(f->mContents.nameBytes())) / n;
        std::printf("flat cache: %lld items, %.1f MB of names\n", (long long)s.rows,
                    double(f->mContents.nameBytes()) / 1e6);
        std::printf(
            "contents list, bytes per item beyond the names: %.1f (list), %.1f (process growth)\n",
            overhead, rssBeyondNames);
        verdict("contents list <= 64 bytes per item beyond the names", overhead <= 64.0);
    }
    std::printf("%s\n", gAllPass ? "ALL PASS" : "SOME FAIL");
    return gAllPass ? 0 : 1;
}
