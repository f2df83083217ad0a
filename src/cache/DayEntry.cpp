#include "cache/DayEntry.h"

#include "common/Settings.h"

#include <QFile>

QVariantMap DayEntry::toVariantMap() const
{
    return {{QStringLiteral("name"), QFile::decodeName(name)},
            {QStringLiteral("path"), QFile::decodeName(path)},
            {QStringLiteral("size"), QVariant::fromValue<qint64>(size)},
            {QStringLiteral("count"), QVariant::fromValue<qint64>(count)}};
}

std::optional<DayEntry> DayEntry::fromVariantMap(const QVariantMap &map)
{
    const auto name = map.constFind(QStringLiteral("name"));
    const auto size = map.constFind(QStringLiteral("size"));
    if (name == map.cend() || size == map.cend()) return std::nullopt;
    DayEntry d;
    d.name = QFile::encodeName(name->toString());
    d.path = QFile::encodeName(map.value(QStringLiteral("path")).toString());
    d.size = Settings::toInteger(*size).value_or(0);
    d.count = Settings::toInteger(map.value(QStringLiteral("count"))).value_or(0);
    return d;
}
