#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

// The origin record of a kept item and the numbered names of a clash, without the heap, for the
// preload library: one line of <cache>/.origins/<day>.jsonl, as CacheCommit writes and reads it,
// and CacheCommit::numberedName's names, byte for byte.
namespace origin {

inline constexpr std::size_t kMaxNameBytes = 255;
// time, name and path (base64 when not UTF-8) with their keys, escapes and numbers.
inline constexpr std::size_t kMaxRecordBytes = 64 + 6 * (PATH_MAX + 2 * kMaxNameBytes + 64);

inline bool isUtf8(const unsigned char *s, std::size_t n)
{
    std::size_t i = 0;
    while (i < n) {
        const unsigned c = s[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        std::size_t len = 0;
        std::uint32_t cp = 0;
        if ((c & 0xE0) == 0xC0)
            len = 2, cp = c & 0x1F;
        else if ((c & 0xF0) == 0xE0)
            len = 3, cp = c & 0x0F;
        else if ((c & 0xF8) == 0xF0)
            len = 4, cp = c & 0x07;
        else
            return false;
        if (i + len > n) return false;
        for (std::size_t k = 1; k < len; ++k) {
            if ((s[i + k] & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (s[i + k] & 0x3F);
        }
        // Overlong forms, surrogates and what lies past Unicode are not UTF-8.
        if ((len == 2 && cp < 0x80) || (len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000) ||
            (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF)
            return false;
        i += len;
    }
    return true;
}

// Appends to out[*at], never past `size`; false when it does not fit.
struct Writer
{
    char *out;
    std::size_t size;
    std::size_t at = 0;
    bool ok = true;

    void put(const char *s, std::size_t n)
    {
        if (!ok || at + n >= size) {
            ok = false;
            return;
        }
        std::memcpy(out + at, s, n);
        at += n;
    }
    void put(const char *s) { put(s, std::strlen(s)); }
    void escaped(const unsigned char *s, std::size_t n)
    {
        static const char hex[] = "0123456789abcdef";
        for (std::size_t i = 0; i < n; ++i) {
            const unsigned char c = s[i];
            if (c == '"' || c == '\\') {
                const char e[2] = {'\\', char(c)};
                put(e, 2);
            } else if (c < 0x20) {
                const char e[6] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 15]};
                put(e, 6);
            } else {
                put(reinterpret_cast<const char *>(&c), 1);
            }
        }
    }
    void base64(const unsigned char *s, std::size_t n)
    {
        static const char a[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (std::size_t i = 0; i < n; i += 3) {
            const std::uint32_t v = (std::uint32_t(s[i]) << 16) |
                                    (i + 1 < n ? std::uint32_t(s[i + 1]) << 8 : 0) |
                                    (i + 2 < n ? std::uint32_t(s[i + 2]) : 0);
            const char q[4] = {a[(v >> 18) & 63], a[(v >> 12) & 63],
                               i + 1 < n ? a[(v >> 6) & 63] : '=', i + 2 < n ? a[v & 63] : '='};
            put(q, 4);
        }
    }
    // "key":"text", or "key64":"base64" when the bytes are not UTF-8; the bytes are the
    // concatenation of up to three pieces.
    void bytes(const char *key, const char *p0, std::size_t n0, const char *p1 = nullptr,
               std::size_t n1 = 0, const char *p2 = nullptr, std::size_t n2 = 0)
    {
        unsigned char joined[PATH_MAX + 2 * kMaxNameBytes + 8];
        if (n0 + n1 + n2 > sizeof joined) {
            ok = false;
            return;
        }
        std::memcpy(joined, p0, n0);
        if (n1) std::memcpy(joined + n0, p1, n1);
        if (n2) std::memcpy(joined + n0 + n1, p2, n2);
        const std::size_t n = n0 + n1 + n2;
        put("\"");
        put(key);
        if (isUtf8(joined, n)) {
            put("\":\"");
            escaped(joined, n);
        } else {
            put("64\":\"");
            base64(joined, n);
        }
        put("\"");
    }
};

// One record, ending with a newline, into `out`; its length, or 0 when it does not fit. The path
// is `folder` + "/" + `leaf`. `trashIno`: the inode of an item emptied from the trash (0: none).
inline std::size_t format(char *out, std::size_t size, const char *time, const char *name,
                          const char *folder, const char *leaf, unsigned uid, std::uint64_t ino,
                          std::uint64_t trashIno = 0)
{
    Writer w{out, size};
    w.put("{\"time\":\"");
    w.put(time);
    w.put("\",");
    w.bytes("name", name, std::strlen(name));
    w.put(",");
    const std::size_t fl = std::strlen(folder);
    const bool root = fl == 1 && folder[0] == '/';
    w.bytes("path", folder, root ? 0 : fl, "/", 1, leaf, std::strlen(leaf));
    // No inode (0) is left out, as CacheCommit leaves it out.
    char numbers[96];
    int at = std::snprintf(numbers, sizeof numbers, ",\"uid\":%u", uid);
    if (ino)
        at += std::snprintf(numbers + at, sizeof numbers - std::size_t(at), ",\"ino\":\"%llu\"",
                            static_cast<unsigned long long>(ino));
    if (trashIno)
        at += std::snprintf(numbers + at, sizeof numbers - std::size_t(at),
                            ",\"trashIno\":\"%llu\"", static_cast<unsigned long long>(trashIno));
    std::snprintf(numbers + at, sizeof numbers - std::size_t(at), "}\n");
    w.put(numbers);
    return w.ok ? w.at : 0;
}

// "report 2.txt", "photos 3": the name with " n" before its last extension, at most 255 bytes;
// the stem gives way, whole UTF-8 characters at a time, and an extension too long to leave room
// for any stem goes before the stem does. `out` holds at least kMaxNameBytes + 1 bytes.
inline void numberedName(const char *name, int n, char *out)
{
    char words[16];
    const std::size_t wl = std::size_t(std::snprintf(words, sizeof words, " %d", n));
    const std::size_t len = std::strlen(name);
    const char *dot = static_cast<const char *>(memrchr(name, '.', len));
    const bool hasExtension = dot && dot > name && dot < name + len - 1;
    std::size_t stem = hasExtension ? std::size_t(dot - name) : len;
    std::size_t ext = hasExtension ? len - stem : 0;
    if (ext + wl >= kMaxNameBytes) ext = 0;
    const std::size_t room = kMaxNameBytes - wl - ext;
    if (stem > room) {
        std::size_t cut = room;
        while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80)
            --cut;
        stem = cut;
    }
    std::memcpy(out, name, stem);
    std::memcpy(out + stem, words, wl);
    if (ext) std::memcpy(out + stem + wl, name + len - ext, ext);
    out[stem + wl + ext] = '\0';
}

} // namespace origin
