#pragma once

#include <QByteArray>
#include <QString>

#include <cstdio>
#include <cstring>
#include <string>

// Output of the command-line tool: buffered, and JSON that keeps every byte of a path.
namespace CliIo {

// Buffered writer to a stdio stream; flushed on destruction.
class Out
{
public:
    explicit Out(FILE *f = stdout) : mFile(f) { mBuf.reserve(1 << 20); }
    ~Out() { flush(); }
    Out(const Out &) = delete;
    Out &operator=(const Out &) = delete;

    Out &operator<<(const char *s) { return raw(s, std::strlen(s)); }
    Out &operator<<(char c) { return raw(&c, 1); }
    Out &operator<<(const QByteArray &b) { return raw(b.constData(), std::size_t(b.size())); }
    Out &operator<<(QByteArrayView b) { return raw(b.data(), std::size_t(b.size())); }
    Out &operator<<(const QString &s) { return *this << s.toUtf8(); }
    Out &operator<<(long long n);
    Out &raw(const char *p, std::size_t n);
    void flush();

private:
    FILE *mFile;
    std::string mBuf;
};

// A JSON string for bytes. Valid UTF-8 is kept; every byte of an invalid sequence becomes the
// escape \udcXX (XX the byte), as Python's surrogateescape does, so that a script gets the exact
// bytes back (os.fsencode) and nothing is lost.
void appendJsonString(std::string &out, QByteArrayView bytes);
// The same without the quotes, to build one string from several pieces.
void appendJsonChars(std::string &out, QByteArrayView bytes);
QByteArray jsonString(QByteArrayView bytes);
QByteArray jsonText(const QString &text);
// Inverse of the above for \udcXX escapes (used by tests and for arguments copied from JSON).
QByteArray decodeSurrogateEscapes(const QString &text);

// A name for a terminal: control characters and invalid bytes as C escapes (\n, \t, \xFF).
QByteArray terminalText(QByteArrayView bytes);
void appendTerminalText(std::string &out, QByteArrayView bytes);

// A name as a shell reads it back: as it is when it needs no escape, else in $'…' quotes with
// the escapes above (and \' for a quote), which bash, zsh and ksh turn back into the same bytes.
QByteArray shellText(QByteArrayView bytes);
void appendShellText(std::string &out, QByteArrayView bytes);

// One line on stderr: "salvora: message".
int fail(const QString &message, int status = 1);

} // namespace CliIo
