#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace bench {

inline double seconds(const std::function<void()> &fn)
{
    const auto t0 = std::chrono::steady_clock::now();
    fn();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

inline double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

// Median wall time of `runs` runs; `before` runs untimed before each run.
inline double medianSeconds(int runs, const std::function<void()> &fn,
                            const std::function<void()> &before = {})
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        if (before) before();
        times.push_back(seconds(fn));
    }
    return median(times);
}

// Runs a command with its standard output into `outFile` (replaced); returns its exit status, or
// -1 when it could not start. `usage`, when given, receives the child's resource usage.
inline int run(const std::vector<std::string> &argv, const char *outFile = "/dev/null",
               struct rusage *usage = nullptr)
{
    std::vector<char *> args;
    for (const std::string &a : argv)
        args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, outFile, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, args[0], &fa, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    if (rc != 0) return -1;
    int status = 0;
    struct rusage ru
    {
    };
    wait4(pid, &status, 0, usage ? usage : &ru);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs a command with its output thrown away; returns its exit status.
inline int runQuiet(const std::vector<std::string> &argv)
{
    return run(argv);
}

} // namespace bench
