#include "browser/NameMatch.h"

#include <QStringDecoder>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

inline unsigned char lower(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c | 0x20) : c;
}

bool isAscii(QByteArrayView s)
{
    for (char c : s)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

// The decoded text, or a null string when the bytes are not valid UTF-8.
QString decoded(QByteArrayView s)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(s);
    if (decoder.hasError()) return QString();
    return text.isNull() ? QString(QLatin1String("")) : text;
}

bool containsFolded(QByteArrayView hay, const QByteArray &needleLower)
{
    const qsizetype n = needleLower.size();
    if (n == 0) return true;
    if (hay.size() < n) return false;
    const auto first = static_cast<unsigned char>(needleLower[0]);
    const auto firstUpper =
        static_cast<unsigned char>((first >= 'a' && first <= 'z') ? first - 0x20 : first);
    const char *p = hay.data();
    const char *end = hay.data() + hay.size() - n + 1;
    while (p < end) {
        // Skip to the next byte that may start a match.
        const char *a = static_cast<const char *>(std::memchr(p, first, std::size_t(end - p)));
        const char *b =
            first == firstUpper
                ? nullptr
                : static_cast<const char *>(std::memchr(p, firstUpper, std::size_t(end - p)));
        const char *q = !a ? b : (!b ? a : std::min(a, b));
        if (!q) return false;
        qsizetype i = 1;
        while (i < n && lower(static_cast<unsigned char>(q[i])) ==
                            static_cast<unsigned char>(needleLower[i]))
            ++i;
        if (i == n) return true;
        p = q + 1;
    }
    return false;
}

} // namespace

namespace NameMatch {

QString decodedForOrder(QByteArrayView s)
{
    QString text = decoded(s);
    if (!text.isNull()) return text;
    // Each byte of a bad sequence stands for itself as U+DC80 + byte (as Python's surrogateescape
    // does), so that every name has one place in one order.
    text.reserve(s.size());
    for (qsizetype i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        qsizetype len = c < 0x80                   ? 1
                        : (c >= 0xc2 && c <= 0xdf) ? 2
                        : (c >= 0xe0 && c <= 0xef) ? 3
                        : (c >= 0xf0 && c <= 0xf4) ? 4
                                                   : 0;
        if (len > 1 && i + len <= s.size()) {
            const QString part = decoded(s.sliced(i, len));
            if (!part.isNull()) {
                text += part;
                i += len;
                continue;
            }
        }
        if (len == 1) {
            text += QChar(c);
        } else {
            text += QChar(ushort(0xdc00 + c));
        }
        ++i;
    }
    return text;
}

int compare(QByteArrayView a, QByteArrayView b)
{
    // Folded ASCII bytes order exactly as the folded text would, and bytes equal in both names
    // fold alike: the first difference decides when both bytes there are ASCII, and so does one
    // name ending inside an all-ASCII common part. Otherwise the texts are compared from just
    // after the last ASCII byte they share: a character always starts there, so what comes
    // before folds alike and cannot decide.
    const qsizetype n = std::min(a.size(), b.size());
    qsizetype from = 0; // just after the last ASCII byte both names share
    qsizetype i = 0;
    // Long shared ASCII beginnings (numbered photos, dated reports) eight bytes at a time.
    for (std::uint64_t x, y; i + 8 <= n; i += 8) {
        std::memcpy(&x, a.data() + i, 8);
        std::memcpy(&y, b.data() + i, 8);
        if (x != y || (x & 0x8080808080808080ull) != 0) break;
        from = i + 8;
    }
    for (; i < n; ++i) {
        const auto x = static_cast<unsigned char>(a[i]);
        const auto y = static_cast<unsigned char>(b[i]);
        if (x == y) {
            if (x < 0x80) from = i + 1;
            continue;
        }
        if ((x | y) >= 0x80) break;
        const unsigned char fx = lower(x), fy = lower(y);
        if (fx != fy) return fx < fy ? -1 : 1;
        from = i + 1;
    }
    if (i == n && from == n) return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
    const int c = QString::compare(decodedForOrder(a.sliced(from)), decodedForOrder(b.sliced(from)),
                                   Qt::CaseInsensitive);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

Pattern::Pattern(const QString &text) : mText(text)
{
    const QByteArray utf8 = text.toUtf8();
    mUtf8Lower.resize(utf8.size());
    for (qsizetype i = 0; i < utf8.size(); ++i)
        mUtf8Lower[i] = char(lower(static_cast<unsigned char>(utf8[i])));
    mAscii = isAscii(utf8);
}

bool Pattern::matches(QByteArrayView name) const
{
    if (mText.isEmpty()) return true;
    if (isAscii(name)) {
        if (mAscii) return containsFolded(name, mUtf8Lower);
        // A non-ASCII text can still fold onto ASCII letters (the Kelvin sign and "k").
        return QString::fromLatin1(name).contains(mText, Qt::CaseInsensitive);
    }
    const QString text = decoded(name);
    if (text.isNull()) return containsFolded(name, mUtf8Lower);
    return text.contains(mText, Qt::CaseInsensitive);
}

} // namespace NameMatch
