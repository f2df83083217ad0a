#include "browser/KeepPolicy.h"

#include "browser/NameMatch.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

KeepPolicy::Exclusions::Exclusions(const QString &names, const QString &extensions)
{
    for (const QString &n : names.split(QLatin1Char(';'), Qt::SkipEmptyParts))
        mNames.append(n.toUtf8());
    for (const QString &e : extensions.split(QLatin1Char(';'), Qt::SkipEmptyParts))
        mExtensions.append(e.toUtf8());
}

bool KeepPolicy::Exclusions::matches(QByteArrayView name) const
{
    for (const QByteArray &n : mNames)
        if (NameMatch::compare(name, n) == 0) return true;
    const qsizetype dot = name.lastIndexOf('.');
    // ".profile" has no extension; "archive." has an empty one, which matches nothing.
    if (dot <= 0 || dot == name.size() - 1) return false;
    const QByteArrayView extension = name.sliced(dot + 1);
    for (const QByteArray &e : mExtensions)
        if (NameMatch::compare(extension, e) == 0) return true;
    return false;
}

KeepPolicy KeepPolicy::read(const Settings::Snapshot &settings)
{
    KeepPolicy p;
    const std::optional<qint64> protection = settings.integer(SettingsKeys::PrefsProtectionEnabled);
    p.protection = !protection || *protection != 0;
    p.exclusions =
        Exclusions(settings.string(SettingsKeys::PrefsExcludeName).value_or(QString()),
                   settings.string(SettingsKeys::PrefsExcludeExtension).value_or(QString()));
    return p;
}

KeepPolicy KeepPolicy::read()
{
    return read(Settings::Snapshot());
}
