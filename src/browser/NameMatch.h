#pragma once

#include <QByteArrayView>
#include <QString>

// Case-insensitive comparison and search of file names, which are bytes.
//
// Names that are valid UTF-8 compare by Unicode case folding of the decoded text, without
// diacritic folding. A name that is not valid UTF-8 has no text to fold: it compares and matches
// by its raw bytes with ASCII letters folded, so it still sorts stably and can be found by its
// readable part. Pure-ASCII names (nearly all) take a fast byte path that gives the same result.
namespace NameMatch {

int compare(QByteArrayView a, QByteArrayView b);

class Pattern
{
public:
    explicit Pattern(const QString &text = QString());
    bool isEmpty() const { return mText.isEmpty(); }
    // True when the name contains the text as a substring, ignoring case.
    bool matches(QByteArrayView name) const;

private:
    QString mText;
    QByteArray mUtf8Lower; // ASCII-lowered UTF-8 of the text, for the byte paths
    bool mAscii = true;
};

} // namespace NameMatch
