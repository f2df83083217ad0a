// Times the day listing of a generated cache against du and find over the same tree, in one run.
//   bench_cache CACHE_DIR [RUNS]
#include "BenchUtil.h"

#include "cache/CacheLayout.h"
#include "cache/DayList.h"
#include "cache/SizeRecords.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_cache CACHE_DIR [RUNS]\n");
        return 2;
    }
    const QByteArray cache = argv[1];
    const int runs = argc > 2 ? std::atoi(argv[2]) : 3;
    const std::string dir = cache.toStdString();

    auto dropRecords = [&] {
        for (const DayEntry &d :
             CommonUtils::getListOfDaysInCache(cache)) // cheap once records exist
            unlink((d.path + '/' + CommonUtils::kCacheInformationName).constData());
    };
    // Warm the page cache and make sure every day has a record to drop.
    bench::runQuiet({"du", "-sb", dir});
    CommonUtils::getListOfDaysInCache(cache);

    QList<DayEntry> days;
    const double recount = bench::medianSeconds(
        runs, [&] { days = CommonUtils::getListOfDaysInCache(cache); }, dropRecords);
    qint64 files = 0;
    const qint64 bytes = CommonUtils::getSizeOfCacheInDays(days, &files);
    const double du = bench::medianSeconds(runs, [&] { bench::runQuiet({"du", "-sb", dir}); });
    const double find = bench::medianSeconds(runs, [&] {
        bench::runQuiet({"find", dir, "-type", "f"});
    });
    const double recorded = bench::medianSeconds(
        std::max(runs, 20), [&] { days = CommonUtils::getListOfDaysInCache(cache); });

    std::printf("cache: %s, %lld days, %lld files, %lld bytes\n", dir.c_str(),
                (long long)days.size(), (long long)files, (long long)bytes);
    std::printf("list days, no records (recount all): %8.3f s\n", recount);
    std::printf("du -sb                              : %8.3f s\n", du);
    std::printf("find -type f                        : %8.3f s\n", find);
    std::printf("list days, records present          : %8.2f ms\n", recorded * 1000);
    std::printf("ratio recount / du   = %.2f (target <= 0.60)\n", recount / du);
    std::printf("ratio recount / find = %.2f\n", recount / find);
    std::printf("records present: %s (target < 20 ms)\n", recorded * 1000 < 20 ? "PASS" : "FAIL");
    return 0;
}
