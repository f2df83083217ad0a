#include "common/SizeText.h"

#include <QCoreApplication>

#include <charconv>

namespace CommonUtils {

SizeUnits SizeUnits::current()
{
    //% "KB"
    const QString kb = qtTrId("KB");
    //% "MB"
    const QString mb = qtTrId("MB");
    //% "GB"
    const QString gb = qtTrId("GB");
    return {kb.toUtf8(), mb.toUtf8(), gb.toUtf8()};
}

void appendSizeStr(std::string &out, qint64 size, const SizeUnits &units)
{
    char buf[40];
    if (size <= 99) {
        out.append(buf, std::size_t(std::to_chars(buf, buf + sizeof buf, size).ptr - buf));
        return;
    }
    double divisor = 1000.0;
    const QByteArray *unit = &units.kb;
    if (size > 999999999) {
        divisor = 1000000000.0;
        unit = &units.gb;
    } else if (size > 999999) {
        divisor = 1000000.0;
        unit = &units.mb;
    }
    const double q = double(size) / divisor;
    // Below 10 one decimal (printf rounding); above, round half up. 64-bit, so that no size can
    // overflow the conversion.
    const auto step = qint64(divisor) / 10;
    if (q < 10.0 && 2 * (size % step) != step) {
        // Tenths in integers: away from a tie the double's rounding cannot cross a tenth, and
        // that is where to_chars on a double costs most of a listing's formatting.
        const qint64 tenths = size / step + (2 * (size % step) > step ? 1 : 0);
        auto *end = std::to_chars(buf, buf + sizeof buf - 2, tenths / 10).ptr;
        *end++ = '.';
        *end++ = char('0' + tenths % 10);
        out.append(buf, std::size_t(end - buf));
    } else if (q < 10.0) {
        // Like printf's "%1.1f", but with a point whatever the user's locale.
        const auto r = std::to_chars(buf, buf + sizeof buf, q, std::chars_format::fixed, 1);
        out.append(buf, std::size_t(r.ptr - buf));
    } else {
        const auto r = std::to_chars(buf, buf + sizeof buf, static_cast<long long>(q + 0.5));
        out.append(buf, std::size_t(r.ptr - buf));
    }
    out.push_back(' ');
    out.append(unit->constData(), std::size_t(unit->size()));
}

QString getSizeStr(qint64 size)
{
    std::string text;
    appendSizeStr(text, size, SizeUnits::current());
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

QString getQtyStr(qint64 count)
{
    if (count <= 9999) return QString::number(count);
    if (count <= 999999) return QString::number(count / 1000) + QLatin1String(" K");
    return QString::number(count / 1000) + QLatin1String(" M");
}

} // namespace CommonUtils
