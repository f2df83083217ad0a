#pragma once

#include <QByteArrayList>
#include <QMap>
#include <QString>

#include <optional>

// Command-line arguments as bytes (paths need not be UTF-8).
class Args
{
public:
    // `withValue` lists the options that take a value ("-v", "--to", ...); everything else that
    // begins with "-" is a flag. "--" ends the options.
    Args(int argc, char **argv, int first, const QByteArrayList &withValue,
         const QByteArrayList &flags);

    bool ok() const { return mError.isEmpty(); }
    const QString &error() const { return mError; }
    bool flag(const char *name) const { return mFlags.contains(QByteArray(name)); }
    QByteArrayList values(const char *name) const { return mValues.value(QByteArray(name)); }
    std::optional<QByteArray> value(const char *name) const;
    // An integer option, or `fallback` when absent; nullopt when present but not an integer.
    std::optional<qint64> integer(const char *name, qint64 fallback) const;
    const QByteArrayList &positional() const { return mPositional; }

private:
    QByteArrayList mPositional;
    QByteArrayList mFlags;
    QMap<QByteArray, QByteArrayList> mValues;
    QString mError;
};
