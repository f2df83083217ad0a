#pragma once

#include <QByteArrayView>
#include <QString>

// Case-insensitive comparison and search of file names, which are bytes.
//
// Names compare by Unicode case folding of the decoded text, without diacritic folding. Bytes that
// are not valid UTF-8 decode as U+DC80 + byte (after every letter), so every name has one place
// in one consistent order; such a name is searched by its raw bytes with ASCII letters folded.
// Pure-ASCII names (nearly all) take a fast byte path that gives the same result.
namespace NameMatch {

int compare(QByteArrayView a, QByteArrayView b);
QString decodedForOrder(QByteArrayView name);

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
