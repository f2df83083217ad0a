#include "common/Settings.h"

#include "common/Folders.h"

#include <QFile>
#include <QIODevice>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <cmath>
#include <cstdio>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QVariant fromJson(const QJsonValue &v)
{
    switch (v.type()) {
    case QJsonValue::Bool:
        return v.toBool();
    case QJsonValue::Double: {
        // Integers must come back as 64-bit integers, not doubles, whatever the JSON parser keeps.
        const double d = v.toDouble();
        const qint64 i = v.toInteger(std::numeric_limits<qint64>::min());
        if (i != std::numeric_limits<qint64>::min() ||
            d == double(std::numeric_limits<qint64>::min()))
            return QVariant::fromValue<qint64>(i);
        return d;
    }
    case QJsonValue::String:
        return v.toString();
    case QJsonValue::Array: {
        QVariantList list;
        for (const QJsonValue &e : v.toArray())
            list.append(fromJson(e));
        return list;
    }
    case QJsonValue::Object: {
        QVariantMap map;
        const QJsonObject o = v.toObject();
        for (auto it = o.begin(); it != o.end(); ++it)
            map.insert(it.key(), fromJson(it.value()));
        return map;
    }
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    return {};
}

QJsonValue toJson(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::Bool:
        return v.toBool();
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return QJsonValue(v.toLongLong());
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return QJsonValue(qint64(v.toULongLong()));
    case QMetaType::Double:
    case QMetaType::Float:
        return v.toDouble();
    case QMetaType::QString:
        return v.toString();
    case QMetaType::QByteArray:
        return QString::fromUtf8(v.toByteArray());
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        QJsonArray a;
        for (const QVariant &e : v.toList())
            a.append(toJson(e));
        return a;
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        QJsonObject o;
        const QVariantMap m = v.toMap();
        for (auto it = m.begin(); it != m.end(); ++it)
            o.insert(it.key(), toJson(it.value()));
        return o;
    }
    default:
        break;
    }
    return QJsonValue::fromVariant(v);
}

bool readJson(QIODevice &device, QSettings::SettingsMap &map)
{
    const QByteArray data = device.readAll();
    if (data.trimmed().isEmpty()) return true;
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) return false;
    const QJsonObject o = doc.object();
    for (auto it = o.begin(); it != o.end(); ++it)
        map.insert(it.key(), fromJson(it.value()));
    return true;
}

bool writeJson(QIODevice &device, const QSettings::SettingsMap &map)
{
    QJsonObject o;
    for (auto it = map.begin(); it != map.end(); ++it)
        o.insert(it.key(), toJson(it.value()));
    return device.write(QJsonDocument(o).toJson(QJsonDocument::Indented)) >= 0;
}

} // namespace

namespace Settings {

QSettings::Format jsonFormat()
{
    static const QSettings::Format format = QSettings::registerFormat("json", readJson, writeJson);
    return format;
}

// QSettings reads and replaces its file through paths: a link or a FIFO at the settings' name
// would be followed or waited on forever. Such a thing is moved aside (and so replaced by the
// next save); the folder is made private when missing.
static void guardFile(const QString &path)
{
    const QByteArray file = QFile::encodeName(path);
    const QByteArray folder = file.left(file.lastIndexOf('/'));
    struct stat st
    {
    };
    if (lstat(folder.constData(), &st) != 0) CommonUtils::createFolder(folder);
    if (lstat(file.constData(), &st) != 0 || S_ISREG(st.st_mode)) return;
    const QByteArray aside = file + ".not-a-file";
    if (rename(file.constData(), aside.constData()) != 0) unlink(file.constData());
    std::fprintf(stderr,
                 "Salvora 3: the settings file was not a regular file; it was moved aside to %s\n",
                 aside.constData());
}

std::unique_ptr<QSettings> open()
{
    // Constructing the settings reads them already (and the organisation's file, as a fallback):
    // their folder is learnt from settings that exist nowhere.
    const QString probe =
        QSettings(jsonFormat(), QSettings::UserScope, QStringLiteral("Salvora 3 path probe"))
            .fileName();
    const QString folder = probe.left(probe.lastIndexOf(QLatin1Char('/')) + 1);
    guardFile(folder + QLatin1String("Salvora.json"));
    guardFile(folder + QLatin1String("Salvora/Salvora 3.json"));
    auto s = std::make_unique<QSettings>(jsonFormat(), QSettings::UserScope,
                                         QStringLiteral("Salvora"), QStringLiteral("Salvora 3"));
    s->sync();
    return s;
}

Snapshot::Snapshot() : mSettings(open()) {}

Snapshot::~Snapshot() = default;

bool Snapshot::contains(const char *key) const
{
    return mSettings->contains(QLatin1String(key));
}

std::optional<QVariant> Snapshot::value(const char *key) const
{
    const QString k = QLatin1String(key);
    if (!mSettings->contains(k)) return std::nullopt;
    return mSettings->value(k);
}

std::optional<qint64> Snapshot::integer(const char *key) const
{
    const auto v = value(key);
    return v ? toInteger(*v) : std::nullopt;
}

std::optional<QString> Snapshot::string(const char *key) const
{
    const auto v = value(key);
    if (!v || v->typeId() != QMetaType::QString) return std::nullopt;
    return v->toString();
}

std::optional<QVariantMap> Snapshot::dictionary(const char *key) const
{
    const auto v = value(key);
    if (!v || v->typeId() != QMetaType::QVariantMap) return std::nullopt;
    return v->toMap();
}

bool contains(const char *key)
{
    return Snapshot().contains(key);
}

std::optional<QVariant> value(const char *key)
{
    return Snapshot().value(key);
}

std::optional<qint64> toInteger(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return v.toLongLong();
    case QMetaType::Double: {
        const double d = v.toDouble();
        if (!std::isfinite(d) || d >= 9.2233720368547758e18 || d < -9.2233720368547758e18)
            return std::nullopt;
        return qint64(d);
    }
    case QMetaType::QString: {
        // A number stored as text reads as its leading integer, like a number's integer value.
        bool ok = false;
        const qint64 i = v.toString().trimmed().toLongLong(&ok);
        return ok ? std::optional<qint64>(i) : std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

std::optional<qint64> integer(const char *key)
{
    return Snapshot().integer(key);
}

std::optional<QString> string(const char *key)
{
    return Snapshot().string(key);
}

std::optional<QVariantMap> dictionary(const char *key)
{
    return Snapshot().dictionary(key);
}

static void write(const char *key, const QVariant &v)
{
    auto s = open();
    s->setValue(QLatin1String(key), v);
    s->sync();
}

void setInteger(const char *key, qint64 value)
{
    write(key, QVariant::fromValue<qint64>(value));
}

void setString(const char *key, const QString &value)
{
    write(key, value);
}

void setDictionary(const char *key, const QVariantMap &value)
{
    write(key, value);
}

void remove(const char *key)
{
    auto s = open();
    s->remove(QLatin1String(key));
    s->sync();
}

void sync()
{
    open();
}

QString fileName()
{
    return open()->fileName();
}

} // namespace Settings
