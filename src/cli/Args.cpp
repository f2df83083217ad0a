#include "cli/Args.h"

Args::Args(int argc, char **argv, int first, const QByteArrayList &withValue,
           const QByteArrayList &flags)
{
    bool options = true;
    for (int i = first; i < argc; ++i) {
        const QByteArray a(argv[i]);
        if (options && a == "--") {
            options = false;
            continue;
        }
        if (!options || !a.startsWith('-') || a == "-") {
            mPositional.append(a);
            continue;
        }
        QByteArray name = a;
        std::optional<QByteArray> inlineValue;
        if (a.startsWith("--") && a.contains('=')) {
            name = a.left(a.indexOf('='));
            inlineValue = a.mid(a.indexOf('=') + 1);
        }
        if (withValue.contains(name)) {
            if (inlineValue) {
                mValues[name].append(*inlineValue);
            } else if (i + 1 < argc) {
                mValues[name].append(QByteArray(argv[++i]));
            } else {
                mError = QStringLiteral("option %1 needs a value").arg(QString::fromUtf8(name));
                return;
            }
        } else if (flags.contains(name) && !inlineValue) {
            mFlags.append(name);
        } else {
            mError = QStringLiteral("unknown option %1").arg(QString::fromUtf8(name));
            return;
        }
    }
}

std::optional<QByteArray> Args::value(const char *name) const
{
    const QByteArrayList v = values(name);
    if (v.isEmpty()) return std::nullopt;
    return v.last();
}

std::optional<qint64> Args::integer(const char *name, qint64 fallback) const
{
    const auto v = value(name);
    if (!v) return fallback;
    bool ok = false;
    const qint64 n = v->toLongLong(&ok);
    return ok ? std::optional<qint64>(n) : std::nullopt;
}
