#include "volumes/DiskDescription.h"

QVariantMap DiskDescription::toVariantMap() const
{
    QVariantMap m{{QStringLiteral("path"), path},
                  {QStringLiteral("device"), device},
                  {QStringLiteral("fsType"), fsType}};
    if (!label.isEmpty()) m.insert(QStringLiteral("label"), label);
    if (!uuid.isEmpty()) m.insert(QLatin1String(kUuidKey), uuid);
    return m;
}

namespace CommonUtils {

QString canonicalUuid(QByteArrayView raw)
{
    const QString text = QString::fromUtf8(raw).trimmed().toUpper();
    QString hex;
    for (QChar c : text) {
        if (c == QLatin1Char('-')) continue;
        if (!((c >= QLatin1Char('0') && c <= QLatin1Char('9')) ||
              (c >= QLatin1Char('A') && c <= QLatin1Char('F'))))
            return text;
        hex.append(c);
    }
    if (hex.size() != 32) return text;
    return hex.left(8) + QLatin1Char('-') + hex.mid(8, 4) + QLatin1Char('-') + hex.mid(12, 4) +
           QLatin1Char('-') + hex.mid(16, 4) + QLatin1Char('-') + hex.mid(20);
}

} // namespace CommonUtils
