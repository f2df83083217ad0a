// Times `salvora ls --json` over generated caches against find over the same trees, and reports
// the tool's memory per listed item, for each cache given (one per shape).
//   bench_cli SALVORA_BINARY RUNS HOME_WITH_CACHE...
#include "BenchUtil.h"

#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

struct Measure
{
    double seconds = 0;
    long maxRssKiB = 0;
    std::size_t outputBytes = 0;
};

// Runs the command with its output to a file; wall time and peak memory from wait4.
Measure runMeasured(const std::vector<std::string> &argv, const char *outFile)
{
    Measure m;
    struct rusage ru
    {
    };
    m.seconds = bench::seconds([&] { bench::run(argv, outFile, &ru); });
    m.maxRssKiB = ru.ru_maxrss;
    if (FILE *f = std::fopen(outFile, "rb")) {
        std::fseek(f, 0, SEEK_END);
        m.outputBytes = std::size_t(std::ftell(f));
        std::fclose(f);
    }
    return m;
}

Measure medianOf(int runs, const std::vector<std::string> &argv, const char *outFile)
{
    std::vector<double> times;
    Measure last;
    for (int i = 0; i < runs; ++i) {
        last = runMeasured(argv, outFile);
        times.push_back(last.seconds);
    }
    last.seconds = bench::median(times);
    return last;
}

long countLines(const char *file)
{
    long n = 0;
    if (FILE *f = std::fopen(file, "rb")) {
        for (int c; (c = std::fgetc(f)) != EOF;)
            n += c == '\n';
        std::fclose(f);
    }
    return n;
}

// The least any listing with sizes can cost: every time folder read once and one size-only statx
// per item that is not a folder, on every core, with nothing sorted, formatted or written.
long walkFloor(const std::string &cache)
{
    std::vector<std::string> days;
    if (DIR *d = opendir(cache.c_str())) {
        while (const dirent *e = readdir(d))
            if (e->d_type == DT_DIR && std::strncmp(e->d_name, "20", 2) == 0)
                days.push_back(cache + '/' + e->d_name);
        closedir(d);
    }
    std::atomic<std::size_t> next{0};
    std::atomic<long> items{0};
    // Calls fn(dirfd, name, type) for each entry of the folder at dirfd.
    auto entries = [](int fd, auto &&fn) {
        alignas(8) char buf[32768];
        for (long n; (n = syscall(SYS_getdents64, fd, buf, sizeof buf)) > 0;)
            for (long p = 0; p < n;) {
                const auto *e = reinterpret_cast<const dirent64 *>(buf + p);
                p += e->d_reclen;
                if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
                    fn(e->d_name, e->d_type);
            }
    };
    auto worker = [&] {
        long mine = 0;
        for (std::size_t i; (i = next++) < days.size();) {
            const int day = open(days[i].c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (day < 0) continue;
            entries(day, [&](const char *timeName, unsigned char type) {
                if (type != DT_DIR || std::strncmp(timeName, "20", 2) != 0) return;
                const int time =
                    openat(day, timeName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                if (time < 0) return;
                entries(time, [&](const char *name, unsigned char t) {
                    struct statx sx;
                    if (t != DT_DIR)
                        statx(time, name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC, STATX_SIZE,
                              &sx);
                    ++mine;
                });
                close(time);
            });
            close(day);
        }
        items += mine;
    };
    std::vector<std::thread> threads;
    for (unsigned c = 1; c < std::max(1u, std::thread::hardware_concurrency()); ++c)
        threads.emplace_back(worker);
    worker();
    for (std::thread &t : threads)
        t.join();
    return items;
}

// Times one cache; true when the listing's targets hold on it.
bool benchCache(const std::string &salvora, const std::string &home, int runs)
{
    const std::string cache = home + "/.Salvora3Cache";
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
    setenv("XDG_DATA_HOME", (home + "/.local/share").c_str(), 1);
    const char *out = "/tmp/salvora-bench-out.json";

    // Warm the page cache and the day records.
    runMeasured({"find", cache, "-mindepth", "3", "-maxdepth", "3"}, "/dev/null");
    runMeasured({salvora, "days"}, "/dev/null");

    const Measure find =
        medianOf(runs, {"find", cache, "-mindepth", "3", "-maxdepth", "3"}, "/dev/null");
    const Measure ls = medianOf(runs, {salvora, "ls", "--json"}, out);
    const long items = countLines(out) - 1;
    const Measure lsNoSizes = medianOf(runs, {salvora, "ls", "--json", "--no-sizes"}, "/dev/null");
    const Measure findReport =
        medianOf(runs, {"find", cache, "-mindepth", "3", "-maxdepth", "3", "-iname", "*report*"},
                 "/dev/null");
    const Measure lsReport = medianOf(runs, {salvora, "ls", "--json", "-s", "report"}, out);
    const long reportItems = countLines(out) - 1;
    const Measure empty =
        runMeasured({salvora, "ls", "--json", "-s", "no such name anywhere"}, "/dev/null");

    // Peak memory beyond a run that lists nothing, per listed item, less the names themselves.
    runMeasured({"find", cache, "-mindepth", "3", "-maxdepth", "3", "-printf", "%f\n"}, out);
    FILE *names = std::fopen(out, "rb");
    std::fseek(names, 0, SEEK_END);
    const double nameBytes =
        double(std::ftell(names) - countLines(out)) / double(std::max(1L, items));
    std::fclose(names);
    const Measure findSizes =
        medianOf(runs, {"find", cache, "-mindepth", "3", "-maxdepth", "3", "-printf", "%s %p\n"},
                 "/dev/null");
    long floorItems = 0;
    const double floorTime = bench::medianSeconds(runs, [&] { floorItems = walkFloor(cache); });
    const double perItem =
        items > 0 ? double(ls.maxRssKiB - empty.maxRssKiB) * 1024.0 / double(items) - nameBytes : 0;
    const double overFloor = ls.seconds / floorTime;
    const double overFindSizes = ls.seconds / findSizes.seconds;
    const double searchOverFind = lsReport.seconds / findReport.seconds;
    std::printf("== %s\n", cache.c_str());
    std::printf("items listed: %ld (report: %ld)\n", items, reportItems);
    std::printf("find -mindepth 3 -maxdepth 3            : %7.3f s\n", find.seconds);
    std::printf("salvora ls --json                       : %7.3f s  ratio %.2f\n", ls.seconds,
                ls.seconds / find.seconds);
    std::printf("salvora ls --json --no-sizes            : %7.3f s  ratio %.2f\n",
                lsNoSizes.seconds, lsNoSizes.seconds / find.seconds);
    std::printf(
        "floor: read + size statx only, all cores: %7.3f s  (%ld items; no sort, no output)\n",
        floorTime, floorItems);
    std::printf("  ls / floor                            : %7.2f    (target <= 1.30)\n", overFloor);
    std::printf("find ... -printf '%%s %%p' (stats too)    : %7.3f s\n", findSizes.seconds);
    std::printf("  ls / that find                        : %7.2f    (target <= 0.80)\n",
                overFindSizes);
    std::printf("find ... -iname '*report*'              : %7.3f s\n", findReport.seconds);
    std::printf("salvora ls --json -s report             : %7.3f s\n", lsReport.seconds);
    std::printf("  search / that find                    : %7.2f    (target <= 0.60)\n",
                searchOverFind);
    std::printf("peak memory per item beyond its name    : %.1f bytes (names average %.1f bytes; "
                "target <= 64)\n",
                perItem, nameBytes);
    const bool met =
        overFloor <= 1.30 && overFindSizes <= 0.80 && searchOverFind <= 0.60 && perItem <= 64;
    std::printf("targets: %s\n", met ? "met" : "MISSED");
    return met;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: bench_cli SALVORA_BINARY RUNS HOME_WITH_CACHE...\n");
        return 2;
    }
    const std::string salvora = argv[1];
    const int runs = std::max(1, std::atoi(argv[2]));
    bool met = true;
    for (int i = 3; i < argc; ++i)
        met = benchCache(salvora, argv[i], runs) && met;
    std::printf("listing targets on every cache: %s\n", met ? "met" : "MISSED");
    return met ? 0 : 1;
}
