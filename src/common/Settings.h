#pragma once

#include <QSettings>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>

// The settings domain shared by the window, the companion and the daemon: organisation "Salvora",
// application "Salvora 3", stored as JSON (~/.config/Salvora/Salvora 3.json).
//
// Every accessor re-reads the file when another process changed it, so nothing is cached in
// memory; every setter writes through at once, so a notification posted after it is never
// ahead of the file. Absent keys read as std::nullopt, never as zero.
namespace Settings {

QSettings::Format jsonFormat();
// A fresh handle on the domain, already synchronised with the file.
std::unique_ptr<QSettings> open();

// One reading of the domain, for a reader of several keys that must agree with each other. The
// typed getters below are the only place where a stored value's type is judged.
class Snapshot
{
public:
    Snapshot();
    ~Snapshot();
    bool contains(const char *key) const;
    std::optional<QVariant> value(const char *key) const;
    std::optional<qint64> integer(const char *key) const;
    std::optional<QString> string(const char *key) const;
    std::optional<QVariantMap> dictionary(const char *key) const;

private:
    std::unique_ptr<QSettings> mSettings;
};

// The same, each from a fresh reading.
bool contains(const char *key);
std::optional<QVariant> value(const char *key);
std::optional<qint64> integer(const char *key);
std::optional<QString> string(const char *key);
std::optional<QVariantMap> dictionary(const char *key);

void setInteger(const char *key, qint64 value);
void setString(const char *key, const QString &value);
void setDictionary(const char *key, const QVariantMap &value);
void remove(const char *key);
// Writes pending changes and re-reads what other processes wrote.
void sync();

// The file behind the domain (for diagnostics and tests).
QString fileName();

// Integer value of a stored setting the way a number's integer value reads: numbers, booleans and
// numeric strings; anything else is nullopt.
std::optional<qint64> toInteger(const QVariant &v);

} // namespace Settings
