// The cost of the preload library, with and without it in the same run:
//   1. rm -rf of a tree of 100,000 files on a protected volume (target: at most 1.5x), and
//      whether everything was kept, as one item; and the floor of that ratio: the same walk
//      renaming each file instead of unlinking it, with no library;
//   2. 200,000 files created and unlinked in /tmp and in an excluded folder of a protected volume
//      (target: at most 1.05x);
// 2 and 3 run in one process with the library, in rounds that alternate its unlink with the C
// library's own, and take the fastest round of each: the machine may be busy with other work.
//   3. unlink on an unprotected volume, per call (target: at most 0.3 us added).
// Usage: bench_keep [DIR] [RUNS] [PARTS]   DIR on the file system to protect (default
// build/keep-bench); PARTS the measures to make, "123" by default.
#include "BenchUtil.h"

#include "KeepTable.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

std::string gSelf;

double fastest(const std::vector<double> &v)
{
    return v.empty() ? 0 : *std::min_element(v.begin(), v.end());
}

double now()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

void makeDirs(const std::string &path)
{
    for (std::size_t i = 1; i <= path.size(); ++i)
        if (i == path.size() || path[i] == '/') mkdir(path.substr(0, i).c_str(), 0755);
}

// 10 x 10 folders of 1,000 files each, empty: their unlink frees no blocks, which is the plain
// rm's best case and so the library's worst (on a file system mounted with `discard`, freeing
// blocks can make plain rm many times slower than a rename).
void makeTree(const std::string &root, int files)
{
    const int perFolder = 1000;
    int made = 0;
    for (int a = 0; made < files; ++a)
        for (int b = 0; b < 10 && made < files; ++b) {
            const std::string folder = root + "/d" + std::to_string(a) + "/e" + std::to_string(b);
            makeDirs(folder);
            for (int i = 0; i < perFolder && made < files; ++i, ++made) {
                const std::string f = folder + "/file" + std::to_string(i) + ".txt";
                close(open(f.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
            }
        }
}

long countFiles(const std::string &path)
{
    DIR *d = opendir(path.c_str());
    if (!d) return 0;
    long n = 0;
    while (dirent *e = readdir(d)) {
        if (!std::strcmp(e->d_name, ".") || !std::strcmp(e->d_name, "..")) continue;
        if (e->d_type == DT_DIR)
            n += countFiles(path + '/' + e->d_name);
        else
            ++n;
    }
    closedir(d);
    return n;
}

std::string only(const std::string &folder)
{
    DIR *d = opendir(folder.c_str());
    std::string name;
    int n = 0;
    while (dirent *e = d ? readdir(d) : nullptr)
        if (e->d_name[0] != '.') name = e->d_name, ++n;
    if (d) closedir(d);
    return n == 1 ? name : std::string();
}

// The bare work either way, without the library: the depth-first walk of rm, with one unlink per
// file, or with one rename per file into a mirror folder on the same file system (mirrorFd >= 0),
// which is what keeping costs at the least.
void walk(int dirFd, int mirrorFd)
{
    DIR *d = fdopendir(dup(dirFd));
    if (!d) return;
    std::vector<std::pair<std::string, bool>> entries;
    while (dirent *e = readdir(d))
        if (std::strcmp(e->d_name, ".") && std::strcmp(e->d_name, ".."))
            entries.emplace_back(e->d_name, e->d_type == DT_DIR);
    closedir(d);
    for (const auto &[name, isDir] : entries) {
        if (isDir) {
            const int sub = openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            int subMirror = -1;
            if (mirrorFd >= 0) {
                mkdirat(mirrorFd, name.c_str(), 0755);
                subMirror = openat(mirrorFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            }
            walk(sub, subMirror);
            close(sub);
            if (subMirror >= 0) close(subMirror);
            unlinkat(dirFd, name.c_str(), AT_REMOVEDIR);
        } else if (mirrorFd >= 0) {
            renameat(dirFd, name.c_str(), mirrorFd, name.c_str());
        } else {
            unlinkat(dirFd, name.c_str(), 0);
        }
    }
}

double timedWalk(const std::string &tree, const std::string &mirror)
{
    const int fd = open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int mirrorFd = -1;
    if (!mirror.empty()) {
        makeDirs(mirror);
        mirrorFd = open(mirror.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    const double t0 = now();
    walk(fd, mirrorFd);
    const double t = now() - t0;
    close(fd);
    if (mirrorFd >= 0) close(mirrorFd);
    return t;
}

int runWith(bool preload, const std::vector<std::string> &argv, const char *out = "/dev/null")
{
    if (preload) setenv("LD_PRELOAD", KEEP_LIBRARY, 1);
    const int rc = bench::run(argv, out);
    unsetenv("LD_PRELOAD");
    return rc;
}

// Runs this program in a child mode with the library preloaded, and reads the numbers it
// printed.
std::vector<double> childNumbers(const std::vector<std::string> &args)
{
    std::vector<std::string> argv{gSelf};
    argv.insert(argv.end(), args.begin(), args.end());
    char out[] = "/tmp/bench_keep.outXXXXXX";
    close(mkstemp(out));
    runWith(true, argv, out);
    std::vector<double> numbers;
    if (FILE *f = fopen(out, "r")) {
        for (double x; fscanf(f, "%lf", &x) == 1;)
            numbers.push_back(x);
        fclose(f);
    }
    unlink(out);
    return numbers;
}

using Unlink = int (*)(const char *);

// The C library's own unlink, past the preloaded one.
Unlink directUnlink()
{
    void *libc = dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD);
    return reinterpret_cast<Unlink>(libc ? dlsym(libc, "unlink") : nullptr);
}

// Child, with the library preloaded: creates and unlinks `n` files in `dir`, in rounds that
// unlink alternately through the library and straight through the C library, so that both see
// the same machine. Prints the fastest round of each, scaled to `n` files, in seconds.
int churn(const std::string &dir, int n)
{
    const Unlink direct = directUnlink();
    if (!direct) return 1;
    makeDirs(dir);
    const int rounds = 20, perRound = n / rounds;
    double best[2] = {1e9, 1e9};
    for (int r = 0; r < 2 * rounds; ++r) {
        const bool wrapped = r % 2 == 0;
        const double t0 = now();
        for (int i = 0; i < perRound; ++i) {
            const std::string f = dir + "/obj" + std::to_string(i % 64) + ".o";
            const int fd = open(f.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            write(fd, "0123456789", 10);
            close(fd);
            wrapped ? unlink(f.c_str()) : direct(f.c_str());
        }
        best[wrapped ? 0 : 1] = std::min(best[wrapped ? 0 : 1], (now() - t0) * rounds);
    }
    std::printf("%.6f %.6f\n", best[0], best[1]);
    return 0;
}

// Child, with the library preloaded: unlinks files made beforehand in `dir`, by absolute path or
// by name in the working folder, in rounds that go alternately through the library and straight
// to the C library's own unlink, so that both see the same
// machine. Prints the fastest round of each, in seconds per call.
int unlinks(const std::string &dir, int n, bool relative)
{
    const Unlink direct = directUnlink();
    if (!direct) return 1;
    makeDirs(dir);
    chdir(dir.c_str());
    const int rounds = 20, perRound = n / rounds;
    std::vector<std::string> names;
    for (int i = 0; i < perRound; ++i)
        names.push_back(relative ? "u" + std::to_string(i) : dir + "/u" + std::to_string(i));
    double best[2] = {1e9, 1e9};
    for (int r = 0; r < 2 * rounds; ++r) {
        for (const std::string &name : names)
            close(open(name.c_str(), O_WRONLY | O_CREAT, 0644));
        const bool wrapped = r % 2 == 0;
        const double t0 = now();
        for (const std::string &name : names)
            wrapped ? unlink(name.c_str()) : direct(name.c_str());
        best[wrapped ? 0 : 1] = std::min(best[wrapped ? 0 : 1], (now() - t0) / perRound);
    }
    std::printf("%.9f %.9f\n", best[0], best[1]);
    return 0;
}

void publish(const std::string &root, const std::string &home, bool protectHome)
{
    keeptable::Table t = keeptable::Table::withDefaults(home, home + "/.local/share/Trash");
    t.lists[keeptable::ExcludedPlaces].push_back(home + "/excluded");
    struct stat st
    {
    };
    stat(home.c_str(), &st);
    if (protectHome) {
        t.volumes.push_back({std::uint64_t(st.st_dev), home + "/.Salvora3Cache", "/"});
        t.lists[keeptable::ProtectedMounts] = {"/"};
    } else {
        // Only another file system is protected: the bench's is a volume left unticked.
        struct stat shm
        {
        };
        stat("/dev/shm", &shm);
        t.volumes.push_back({std::uint64_t(shm.st_dev), "/dev/shm/.Salvora3Cache", "/dev/shm"});
        t.lists[keeptable::ProtectedMounts] = {"/dev/shm"};
        t.lists[keeptable::OtherMounts] = {"/"};
    }
    t.on = true;
    static std::uint64_t generation = 0;
    t.generation = ++generation;
    if (const int err = keeptable::publish(t, keeptable::defaultPath()))
        std::fprintf(stderr, "cannot publish the table under %s: %s\n", root.c_str(),
                     std::strerror(err));
}

} // namespace

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    gSelf = "/proc/self/exe";
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n > 0) gSelf.assign(self, std::size_t(n));
    if (argc == 4 && !std::strcmp(argv[1], "churn")) return churn(argv[2], std::atoi(argv[3]));
    if (argc == 5 && !std::strcmp(argv[1], "unlinks"))
        return unlinks(argv[2], std::atoi(argv[3]), !std::strcmp(argv[4], "relative"));

    std::string root = argc > 1 ? argv[1] : "build/keep-bench";
    const int runs = argc > 2 ? std::atoi(argv[2]) : 3;
    const std::string parts = argc > 3 ? argv[3] : "123";
    if (root.front() != '/') root = std::string(getcwd(self, sizeof self)) + '/' + root;
    bench::runQuiet({"rm", "-rf", root});
    const std::string home = root + "/home", cache = home + "/.Salvora3Cache";
    makeDirs(home);
    mkdir(cache.c_str(), 0700);
    setenv("XDG_RUNTIME_DIR", (root + "/run").c_str(), 1);
    setenv("HOME", home.c_str(), 1);
    publish(root, home, true);

    // 1. rm -rf of 100,000 files.
    const int files = 100000;
    if (parts.find('1') != std::string::npos) {
        std::vector<double> plain, kept;
        bool allKept = true;
        for (int r = 0; r < runs; ++r) {
            for (int preload = 0; preload < 2; ++preload) {
                const std::string tree = home + "/tree";
                makeTree(tree, files);
                bench::runQuiet({"sync"});
                const double t0 = now();
                runWith(preload, {"rm", "-rf", tree});
                (preload ? kept : plain).push_back(now() - t0);
                if (preload) {
                    // One item, "tree", holding every file.
                    const std::string day = only(cache);
                    const std::string time = day.empty() ? "" : only(cache + '/' + day);
                    const std::string item =
                        time.empty() ? "" : only(cache + '/' + day + '/' + time);
                    const long count = countFiles(cache + '/' + day + '/' + time + "/tree");
                    allKept = allKept && item == "tree" && count == files;
                    bench::runQuiet({"sh", "-c", "rm -rf '" + cache + "'/2*"});
                }
            }
        }
        // The floor: the same walk, a rename per file against an unlink per file.
        std::vector<double> unlinked, renamed;
        for (int r = 0; r < runs; ++r) {
            const std::string tree = home + "/tree";
            makeTree(tree, files);
            bench::runQuiet({"sync"});
            unlinked.push_back(timedWalk(tree, {}));
            rmdir(tree.c_str());
            makeTree(tree, files);
            bench::runQuiet({"sync"});
            renamed.push_back(timedWalk(tree, cache + "/floor"));
            bench::runQuiet({"rm", "-rf", tree, cache + "/floor"});
        }
        // The fastest of the runs: the machine may be busy with other work.
        const double p = fastest(plain), k = fastest(kept);
        const double fu = fastest(unlinked), fr = fastest(renamed);
        std::printf("rm -rf of %d files: %.3f s plain, %.3f s kept (%.2fx, target <= 1.5x); "
                    "everything kept as one item: %s\n",
                    files, p, k, k / p, allKept ? "yes" : "NO");
        std::printf("floor, the same walk without the library: %.3f s unlinking, %.3f s renaming "
                    "each file into a mirror folder (%.2fx); the library is %.2fx its floor\n",
                    fu, fr, fr / fu, (k / p) / (fr / fu));
    }

    // 2. Create and unlink 200,000 files in /tmp and in an excluded folder.
    const int churns = 200000;
    std::vector<std::string> churnPlaces;
    if (parts.find('2') != std::string::npos)
        churnPlaces = {"/tmp/salvora-keep-churn", home + "/excluded/build"};
    for (const std::string &dir : churnPlaces) {
        const std::vector<double> both = childNumbers({"churn", dir, std::to_string(churns)});
        if (both.size() != 2) continue;
        std::printf("create+unlink %d files in %s: %.3f s with the library, %.3f s without "
                    "(%.3fx, target <= 1.05x)\n",
                    churns, dir.c_str(), both[0], both[1], both[0] / both[1]);
    }
    bench::runQuiet({"rm", "-rf", "/tmp/salvora-keep-churn"});

    // 3. unlink on an unprotected volume.
    publish(root, home, false);
    for (const char *how : {"absolute", "relative"}) {
        if (parts.find('3') == std::string::npos) break;
        const std::vector<double> both =
            childNumbers({"unlinks", root + "/unprotected", "200000", how});
        if (both.size() != 2) continue;
        const double wrapped = both[0], direct = both[1];
        std::printf("unlink on an unprotected volume (%s path): %.3f us through the library, "
                    "%.3f us without (+%.3f us, target <= 0.3 us)\n",
                    how, wrapped * 1e6, direct * 1e6, (wrapped - direct) * 1e6);
    }
    bench::runQuiet({"rm", "-rf", root});
    return 0;
}
