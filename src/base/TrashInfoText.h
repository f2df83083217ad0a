#pragma once

#include <cstddef>
#include <cstring>

// The original path in the text of a freedesktop.org .trashinfo: the "Path=" key of the
// "[Trash Info]" group, percent-encoded bytes, relative to the volume's top folder in a volume's
// trash. Bounded and without the heap, for the preload library as for the agent.
namespace trashinfo {

inline int hexValue(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Writes the absolute original path (NUL-terminated) to `out` and returns its length; 0 when the
// text names none, when it is malformed (a bad escape, a NUL) or when the path does not fit.
// `topdir` (may be null or empty) is what a relative path is joined to; without it a relative
// path is refused.
inline std::size_t originalPath(const char *text, std::size_t n, const char *topdir, char *out,
                                std::size_t size)
{
    bool inGroup = false;
    for (std::size_t at = 0; at < n;) {
        const char *line = text + at;
        const char *nl = static_cast<const char *>(std::memchr(line, '\n', n - at));
        std::size_t len = nl ? std::size_t(nl - line) : n - at;
        at += len + 1;
        if (len > 0 && line[len - 1] == '\r') --len;
        if (len > 0 && line[0] == '[') {
            inGroup = len == 12 && std::memcmp(line, "[Trash Info]", 12) == 0;
            continue;
        }
        if (!inGroup || len < 5 || std::memcmp(line, "Path=", 5) != 0) continue;
        std::size_t o = 0;
        const bool relative = len > 5 && line[5] != '/';
        if (relative) {
            const std::size_t t = topdir ? std::strlen(topdir) : 0;
            if (t == 0 || t + 1 >= size) return 0;
            std::memcpy(out, topdir, t);
            o = t;
            if (out[o - 1] != '/') out[o++] = '/';
        }
        for (std::size_t i = 5; i < len; ++i) {
            char c = line[i];
            if (c == '%') {
                const int hi = i + 2 < len ? hexValue(line[i + 1]) : -1;
                const int lo = hi >= 0 ? hexValue(line[i + 2]) : -1;
                if (lo < 0) return 0;
                c = char(hi * 16 + lo);
                i += 2;
            }
            if (c == '\0' || o + 1 >= size) return 0;
            out[o++] = c;
        }
        // "Path=" alone names nothing.
        if (len == 5) return 0;
        out[o] = '\0';
        return o;
    }
    return 0;
}

} // namespace trashinfo
