#pragma once

#include <unistd.h>

// A file descriptor that is closed when it goes out of scope: the one owner of descriptors in the
// core, both halves of the daemon and the launcher, which work relative to descriptors
// everywhere so that no path is resolved twice.
struct UniqueFd
{
    int fd = -1;

    UniqueFd() = default;
    explicit UniqueFd(int f) : fd(f) {}
    ~UniqueFd()
    {
        if (fd >= 0) ::close(fd);
    }
    UniqueFd(UniqueFd &&o) noexcept : fd(o.fd) { o.fd = -1; }
    UniqueFd &operator=(UniqueFd &&o) noexcept
    {
        if (this != &o) {
            if (fd >= 0) ::close(fd);
            fd = o.fd;
            o.fd = -1;
        }
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    // Gives the descriptor up without closing it.
    int release()
    {
        const int f = fd;
        fd = -1;
        return f;
    }
    void reset(int f = -1)
    {
        if (fd >= 0) ::close(fd);
        fd = f;
    }
};
