#include "MountTable.h"

#include "UniqueFd.h"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <unistd.h>

namespace mounttable {

std::string unescape(std::string_view field)
{
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const char a = field[i + 1], b = field[i + 2], c = field[i + 3];
            if (a >= '0' && a <= '3' && b >= '0' && b <= '7' && c >= '0' && c <= '7') {
                out.push_back(char((a - '0') * 64 + (b - '0') * 8 + (c - '0')));
                i += 3;
                continue;
            }
        }
        out.push_back(field[i]);
    }
    return out;
}

namespace {

std::vector<std::string_view> split(std::string_view line)
{
    std::vector<std::string_view> fields;
    std::size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && line[i] == ' ')
            ++i;
        const std::size_t start = i;
        while (i < line.size() && line[i] != ' ')
            ++i;
        if (i > start) fields.push_back(line.substr(start, i - start));
    }
    return fields;
}

template <typename T> bool number(std::string_view s, T &v)
{
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    return r.ec == std::errc() && r.ptr == s.data() + s.size();
}

bool validUtf8(std::string_view s)
{
    std::size_t i = 0;
    while (i < s.size()) {
        const auto c = static_cast<unsigned char>(s[i]);
        std::size_t n = 0;
        unsigned cp = 0;
        if (c < 0x80) {
            ++i;
            continue;
        } else if (c >= 0xc2 && c <= 0xdf) {
            n = 1;
            cp = c & 0x1f;
        } else if (c >= 0xe0 && c <= 0xef) {
            n = 2;
            cp = c & 0x0f;
        } else if (c >= 0xf0 && c <= 0xf4) {
            n = 3;
            cp = c & 0x07;
        } else {
            return false;
        }
        if (i + n >= s.size()) return false;
        for (std::size_t k = 1; k <= n; ++k) {
            const auto cc = static_cast<unsigned char>(s[i + k]);
            if ((cc & 0xc0) != 0x80) return false;
            cp = (cp << 6) | (cc & 0x3f);
        }
        if ((n == 2 && (cp < 0x800 || (cp >= 0xd800 && cp <= 0xdfff))) ||
            (n == 3 && (cp < 0x10000 || cp > 0x10ffff)))
            return false;
        i += n + 1;
    }
    return true;
}

bool startsWith(std::string_view s, std::string_view prefix)
{
    return s.substr(0, prefix.size()) == prefix;
}

} // namespace

std::vector<Entry> parse(std::string_view text)
{
    std::vector<Entry> entries;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        const auto fields = split(line);
        // id parent major:minor root mountpoint options [optional...] - fstype source superoptions
        std::size_t sep = 0;
        for (std::size_t i = 6; i < fields.size(); ++i)
            if (fields[i] == "-") {
                sep = i;
                break;
            }
        if (sep == 0 || sep + 2 >= fields.size()) continue;
        Entry e;
        const std::string_view dev = fields[2];
        const std::size_t colon = dev.find(':');
        if (!number(fields[0], e.mountId) || !number(fields[1], e.parentId) ||
            colon == std::string_view::npos || !number(dev.substr(0, colon), e.major) ||
            !number(dev.substr(colon + 1), e.minor))
            continue;
        e.root = unescape(fields[3]);
        e.mountPoint = unescape(fields[4]);
        e.options = std::string(fields[5]);
        e.fsType = unescape(fields[sep + 1]);
        e.source = unescape(fields[sep + 2]);
        entries.push_back(std::move(e));
    }
    return entries;
}

std::string readAll(int fd)
{
    std::string text;
    if (lseek(fd, 0, SEEK_SET) < 0) return text;
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        text.append(buf, std::size_t(n));
        if (text.size() > (64u << 20)) break;
    }
    return text;
}

std::string readText(const char *path)
{
    const UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    return fd.fd < 0 ? std::string() : readAll(fd.fd);
}

std::vector<Entry> read(const char *path)
{
    return parse(readText(path));
}

bool isEligible(std::string_view p)
{
    if (!validUtf8(p)) return false;
    if (p == "/") return true;
    if (startsWith(p, "/Volumes/"))
        return !startsWith(p, "/Volumes/com.apple") && !startsWith(p, "/Volumes/Preboot");
    return startsWith(p, "/media/") || startsWith(p, "/run/media/") || startsWith(p, "/mnt/");
}

} // namespace mounttable
