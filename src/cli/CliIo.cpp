#include "cli/CliIo.h"

#include <QStringDecoder>

#include <array>

namespace {

// Length of the valid UTF-8 sequence at p (1-4), or 0 when it is not valid.
int validSequence(const unsigned char *p, std::size_t left)
{
    const unsigned char c = p[0];
    if (c < 0x80) return 1;
    int len = 0;
    unsigned min = 0;
    unsigned cp = 0;
    if (c >= 0xc2 && c <= 0xdf) {
        len = 2;
        cp = c & 0x1f;
        min = 0x80;
    } else if (c >= 0xe0 && c <= 0xef) {
        len = 3;
        cp = c & 0x0f;
        min = 0x800;
    } else if (c >= 0xf0 && c <= 0xf4) {
        len = 4;
        cp = c & 0x07;
        min = 0x10000;
    } else {
        return 0;
    }
    if (std::size_t(len) > left) return 0;
    for (int i = 1; i < len; ++i) {
        if ((p[i] & 0xc0) != 0x80) return 0;
        cp = (cp << 6) | (p[i] & 0x3f);
    }
    if (cp < min || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) return 0;
    return len;
}

const char kHex[] = "0123456789abcdef";

} // namespace

namespace CliIo {

Out &Out::raw(const char *p, std::size_t n)
{
    mBuf.append(p, n);
    if (mBuf.size() >= (1 << 20)) flush();
    return *this;
}

Out &Out::operator<<(long long n)
{
    char buf[32];
    const int len = std::snprintf(buf, sizeof buf, "%lld", n);
    return raw(buf, std::size_t(len));
}

void Out::flush()
{
    if (!mBuf.empty()) std::fwrite(mBuf.data(), 1, mBuf.size(), mFile);
    mBuf.clear();
    std::fflush(mFile);
}

void appendJsonString(std::string &out, QByteArrayView bytes)
{
    out += '"';
    appendJsonChars(out, bytes);
    out += '"';
}

namespace {

// Bytes a JSON string holds as they are: printable ASCII but the quote and the backslash.
constexpr std::array<bool, 256> kPlainJson = [] {
    std::array<bool, 256> plain{};
    for (int c = 0x20; c < 0x80; ++c)
        plain[std::size_t(c)] = c != '"' && c != '\\';
    return plain;
}();

} // namespace

void appendJsonChars(std::string &out, QByteArrayView bytes)
{
    const auto *p = reinterpret_cast<const unsigned char *>(bytes.data());
    const std::size_t n = std::size_t(bytes.size());
    for (std::size_t i = 0; i < n;) {
        // Runs of plain characters, the usual case, are copied in one piece.
        std::size_t plain = i;
        while (plain < n && kPlainJson[p[plain]])
            ++plain;
        if (plain > i) {
            out.append(reinterpret_cast<const char *>(p + i), plain - i);
            i = plain;
            if (i == n) break;
        }
        const unsigned char c = p[i];
        if (c < 0x80) {
            switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                out += "\\u00";
                out += kHex[c >> 4];
                out += kHex[c & 15];
            }
            ++i;
            continue;
        }
        const int len = validSequence(p + i, n - i);
        if (len > 0) {
            out.append(reinterpret_cast<const char *>(p + i), std::size_t(len));
            i += std::size_t(len);
        } else {
            out += "\\udc";
            out += kHex[c >> 4];
            out += kHex[c & 15];
            ++i;
        }
    }
}

QByteArray jsonString(QByteArrayView bytes)
{
    std::string s;
    appendJsonString(s, bytes);
    return QByteArray(s.data(), qsizetype(s.size()));
}

QByteArray jsonText(const QString &text)
{
    return jsonString(text.toUtf8());
}

QByteArray decodeSurrogateEscapes(const QString &text)
{
    QByteArray out;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t u = text[i].unicode();
        if (u >= 0xdc80 && u <= 0xdcff) {
            out.append(char(u - 0xdc00));
            continue;
        }
        qsizetype len = 1;
        if (text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
            len = 2;
        out.append(text.mid(i, len).toUtf8());
        i += len - 1;
    }
    return out;
}

QByteArray terminalText(QByteArrayView bytes)
{
    std::string out;
    appendTerminalText(out, bytes);
    return QByteArray(out.data(), qsizetype(out.size()));
}

void appendTerminalText(std::string &out, QByteArrayView bytes)
{
    const auto *p = reinterpret_cast<const unsigned char *>(bytes.data());
    const std::size_t n = std::size_t(bytes.size());
    for (std::size_t i = 0; i < n;) {
        const unsigned char c = p[i];
        if (c == '\n') {
            out += "\\n";
            ++i;
        } else if (c == '\t') {
            out += "\\t";
            ++i;
        } else if (c == '\\') {
            out += "\\\\";
            ++i;
        } else if (c < 0x20 || c == 0x7f) {
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 15];
            ++i;
        } else if (c < 0x80) {
            out += char(c);
            ++i;
        } else if (const int len = validSequence(p + i, n - i); len > 0) {
            out.append(reinterpret_cast<const char *>(p + i), std::size_t(len));
            i += std::size_t(len);
        } else {
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 15];
            ++i;
        }
    }
}

void appendShellText(std::string &out, QByteArrayView bytes)
{
    std::string escaped;
    appendTerminalText(escaped, bytes);
    if (escaped.size() == std::size_t(bytes.size()) && !bytes.contains('\'')) {
        out += escaped;
        return;
    }
    out += "$'";
    for (const char c : escaped) {
        if (c == '\'') out += '\\';
        out += c;
    }
    out += '\'';
}

QByteArray shellText(QByteArrayView bytes)
{
    std::string out;
    appendShellText(out, bytes);
    return QByteArray(out.data(), qsizetype(out.size()));
}

int fail(const QString &message, int status)
{
    std::fprintf(stderr, "salvora: %s\n", message.toLocal8Bit().constData());
    return status;
}

} // namespace CliIo
