#include "Printable.h"

std::string printable(std::string_view bytes)
{
    static const char hex[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size());
    for (const char c : bytes) {
        const auto u = static_cast<unsigned char>(c);
        if (u >= 0x20 && u < 0x7f && u != '\\') {
            out.push_back(c);
        } else {
            out += "\\x";
            out.push_back(hex[u >> 4]);
            out.push_back(hex[u & 0xf]);
        }
    }
    return out;
}
