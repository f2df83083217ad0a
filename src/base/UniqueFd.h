#pragma once

#include <unistd.h>

// A file descriptor that is closed when it goes out of scope. Both halves of the daemon work
// relative to descriptors everywhere, so that no path is resolved twice.
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
};
