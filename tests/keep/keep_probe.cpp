// Calls the wrapped functions the way programs do and prints what they returned, so that a test
// can compare the results with and without the preload library:
// - `keep_probe CALL PATH` (unlink, rmdir, remove, unlinkat, unlinkat-dir): prints "rc errno";
// - `keep_probe threads DIR N` unlinks DIR/f0 .. DIR/f<N-1> from 8 threads at once through one
//   descriptor of DIR; prints how many calls failed, and fails if any did.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <thread>
#include <unistd.h>
#include <vector>

int main(int argc, char **argv)
{
    if (argc == 4 && std::strcmp(argv[1], "threads") == 0) {
        const int dir = open(argv[2], O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const int n = std::atoi(argv[3]);
        std::atomic<int> next{0}, failed{0}, ready{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([&] {
                // All start together, so that the calls really overlap.
                ready.fetch_add(1);
                while (ready.load() < 8) {
                }
                for (int i; (i = next.fetch_add(1)) < n;) {
                    char name[32];
                    std::snprintf(name, sizeof name, "f%d", i);
                    if (unlinkat(dir, name, 0) != 0) failed.fetch_add(1);
                }
            });
        for (std::thread &t : threads)
            t.join();
        std::printf("%d\n", failed.load());
        return failed.load() == 0 ? 0 : 1;
    }
    if (argc != 3) return 2;
    const char *call = argv[1], *path = argv[2];
    errno = 0;
    int rc = -2;
    if (!std::strcmp(call, "unlink"))
        rc = unlink(path);
    else if (!std::strcmp(call, "rmdir"))
        rc = rmdir(path);
    else if (!std::strcmp(call, "remove"))
        rc = remove(path);
    else if (!std::strcmp(call, "unlinkat"))
        rc = unlinkat(AT_FDCWD, path, 0);
    else if (!std::strcmp(call, "unlinkat-dir"))
        rc = unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
    std::printf("%d %d\n", rc, rc == 0 ? 0 : errno);
    return 0;
}
