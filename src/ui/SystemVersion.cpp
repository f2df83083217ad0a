#include "ui/SystemVersion.h"

#include <QByteArray>
#include <QFile>
#include <QList>

namespace {

std::function<std::optional<SystemVersion::Parts>()> &source()
{
    static std::function<std::optional<SystemVersion::Parts>()> s;
    return s;
}

std::optional<SystemVersion::Parts> readOsRelease()
{
    for (const char *path : {"/etc/os-release", "/usr/lib/os-release"}) {
        QFile f(QString::fromLatin1(path));
        if (f.open(QIODevice::ReadOnly)) return SystemVersion::parseOsRelease(f.read(64 * 1024));
    }
    return std::nullopt;
}

} // namespace

namespace SystemVersion {

std::optional<Parts> parseOsRelease(const QByteArray &text)
{
    for (const QByteArray &raw : text.split('\n')) {
        const QByteArray line = raw.trimmed();
        if (!line.startsWith("VERSION_ID=")) continue;
        QByteArray v = line.mid(11);
        if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front())
            v = v.mid(1, v.size() - 2);
        const QList<QByteArray> fields = v.split('.');
        int numbers[3] = {0, 0, 0};
        for (qsizetype i = 0; i < fields.size() && i < 3; ++i) {
            bool ok = false;
            numbers[i] = fields[i].toInt(&ok);
            if (!ok || numbers[i] < 0) return std::nullopt;
        }
        return Parts{numbers[0], numbers[1], numbers[2]};
    }
    return std::nullopt;
}

std::optional<Parts> read()
{
    return source() ? source()() : readOsRelease();
}

qint64 packed(const Parts &p)
{
    return qint64(p.major / 10) * 4096 + qint64(p.major % 10) * 256 + qint64(p.minor) * 16 +
           p.bugFix;
}

void setSourceForTesting(std::function<std::optional<Parts>()> s)
{
    source() = std::move(s);
}

} // namespace SystemVersion
