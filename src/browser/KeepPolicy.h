#pragma once

#include <QByteArrayList>
#include <QString>

namespace Settings {
class Snapshot;
}

// What is kept, as the shared settings say: whether protection is on, and the names and
// extensions that are never kept. The daemon applies it to what is trashed and `salvora rm` to
// what it deletes; how an item is then kept is the cache's business (cache/CacheCommit.h).
struct KeepPolicy
{
    // The exclusion filters: whole names and last extensions, ";"-separated, compared without
    // case (NameMatch). Empty pieces are ignored; blanks are part of a piece, as the preferences
    // store it.
    class Exclusions
    {
    public:
        Exclusions() = default;
        Exclusions(const QString &names, const QString &extensions);
        bool matches(QByteArrayView name) const;
        bool isEmpty() const { return mNames.isEmpty() && mExtensions.isEmpty(); }
        // The pieces, for the preload library's table, which matches them itself.
        const QByteArrayList &names() const { return mNames; }
        const QByteArrayList &extensions() const { return mExtensions; }
        bool operator==(const Exclusions &) const = default;

    private:
        QByteArrayList mNames;
        QByteArrayList mExtensions;
    };

    bool protection = true; // absent counts as on: nothing is lost before a first launch
    Exclusions exclusions;

    // Read from one reading of the settings, or from a fresh one.
    static KeepPolicy read(const Settings::Snapshot &settings);
    static KeepPolicy read();
    bool operator==(const KeepPolicy &) const = default;
};
