#include "volumes/MountInfo.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace MountInfo {

QByteArray unescape(QByteArrayView field)
{
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        const char c = field[i];
        if (c == '\\' && i + 3 < field.size()) {
            const char a = field[i + 1], b = field[i + 2], d = field[i + 3];
            if (a >= '0' && a <= '3' && b >= '0' && b <= '7' && d >= '0' && d <= '7') {
                out.append(char(((a - '0') << 6) | ((b - '0') << 3) | (d - '0')));
                i += 3;
                continue;
            }
        }
        out.append(c);
    }
    return out;
}

static bool parseUnsigned(QByteArrayView s, unsigned &out)
{
    if (s.isEmpty() || s.size() > 10)
        return false;
    unsigned long long v = 0;
    for (char c : s) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + unsigned(c - '0');
    }
    if (v > 0xffffffffULL)
        return false;
    out = unsigned(v);
    return true;
}

static bool parseLine(QByteArrayView line, MountEntry &e)
{
    QList<QByteArrayView> fields;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= line.size(); ++i) {
        if (i == line.size() || line[i] == ' ') {
            if (i > start)
                fields.append(line.sliced(start, i - start));
            start = i + 1;
        }
    }
    // The optional fields end at a lone "-"; the file-system part follows it.
    qsizetype sep = -1;
    for (qsizetype i = 6; i < fields.size(); ++i) {
        if (fields[i] == "-") {
            sep = i;
            break;
        }
    }
    if (sep < 0 || sep + 2 >= fields.size())
        return false;
    unsigned id = 0, parent = 0;
    if (!parseUnsigned(fields[0], id) || !parseUnsigned(fields[1], parent))
        return false;
    const QByteArrayView dev = fields[2];
    const qsizetype colon = dev.indexOf(':');
    if (colon < 0 || !parseUnsigned(dev.first(colon), e.major) || !parseUnsigned(dev.sliced(colon + 1), e.minor))
        return false;
    e.mountId = int(id);
    e.parentId = int(parent);
    e.root = unescape(fields[3]);
    e.mountPoint = unescape(fields[4]);
    e.options = fields[5].toByteArray();
    e.fsType = unescape(fields[sep + 1]);
    e.source = unescape(fields[sep + 2]);
    return !e.mountPoint.isEmpty();
}

QList<MountEntry> parse(QByteArrayView text)
{
    QList<MountEntry> entries;
    qsizetype start = 0;
    while (start < text.size()) {
        qsizetype end = text.indexOf('\n', start);
        if (end < 0)
            end = text.size();
        MountEntry e;
        if (parseLine(text.sliced(start, end - start), e))
            entries.append(std::move(e));
        start = end + 1;
    }
    return entries;
}

QByteArray readAll(int fd)
{
    QByteArray data;
    if (lseek(fd, 0, SEEK_SET) < 0)
        return data;
    char buf[16384];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        data.append(buf, n);
    }
    return data;
}

QByteArray readFile(const char *path)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return {};
    QByteArray data = readAll(fd);
    ::close(fd);
    return data;
}

} // namespace MountInfo
