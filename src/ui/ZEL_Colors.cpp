#include "ui/ZEL_Colors.h"

#include "ui/SystemVersion.h"

#include <QGuiApplication>
#include <QPalette>

namespace {

qint64 sOSVersion_Colors = 0;
std::function<bool()> sPaletteAvailable;

QPalette palette()
{
    return QGuiApplication::palette();
}

// A colour between two others: 0 gives `a`, 1 gives `b`.
QColor mix(const QColor &a, const QColor &b, double t)
{
    return QColor::fromRgbF(float(a.redF() + (b.redF() - a.redF()) * t),
                            float(a.greenF() + (b.greenF() - a.greenF()) * t),
                            float(a.blueF() + (b.blueF() - a.blueF()) * t));
}

bool darkTheme()
{
    const QPalette p = palette();
    return p.color(QPalette::Base).lightnessF() < p.color(QPalette::Text).lightnessF();
}

// A signal hue (red, green...) that reads on the theme's background: lighter on dark themes.
QColor signalColor(double hueDegrees, double saturation, double lightOnLight, double lightOnDark)
{
    return QColor::fromHslF(float(hueDegrees / 360.0), float(saturation),
                            float(darkTheme() ? lightOnDark : lightOnLight));
}

} // namespace

namespace ZEL_Colors {

qint64 getOSVersion_Colors()
{
    if (sOSVersion_Colors != 0) return sOSVersion_Colors;
    const std::optional<SystemVersion::Parts> parts = SystemVersion::read();
    sOSVersion_Colors = parts ? SystemVersion::packed(*parts) : 0;
    return sOSVersion_Colors;
}

bool isOSVersionMojaveOrMore()
{
    if (sPaletteAvailable) return sPaletteAvailable();
    return qobject_cast<QGuiApplication *>(QCoreApplication::instance()) != nullptr;
}

QColor getBlackColor_Adaptable()
{
    return isOSVersionMojaveOrMore() ? palette().color(QPalette::Text) : QColor(Qt::black);
}

QColor getDarkGrayColor_Adaptable()
{
    if (!isOSVersionMojaveOrMore()) return QColor(Qt::darkGray);
    const QPalette p = palette();
    return mix(p.color(QPalette::Text), p.color(QPalette::Base), 0.3);
}

QColor getGrayColor_Adaptable()
{
    if (!isOSVersionMojaveOrMore()) return QColor(Qt::gray);
    const QPalette p = palette();
    return mix(p.color(QPalette::Text), p.color(QPalette::Base), 0.5);
}

QColor getLightGrayColor_Adaptable()
{
    if (!isOSVersionMojaveOrMore()) return QColor(Qt::lightGray);
    const QPalette p = palette();
    return mix(p.color(QPalette::Text), p.color(QPalette::Base), 0.75);
}

QColor getRedColor_Adaptable()
{
    return isOSVersionMojaveOrMore() ? signalColor(2, 0.80, 0.45, 0.65) : QColor(Qt::red);
}

QColor getBrownColor_Adaptable()
{
    return isOSVersionMojaveOrMore() ? signalColor(30, 0.35, 0.40, 0.60) : QColor(153, 102, 51);
}

QColor getOrangeColor_Adaptable()
{
    return isOSVersionMojaveOrMore() ? signalColor(30, 0.95, 0.48, 0.60) : QColor(255, 128, 0);
}

QColor getBlueColor_Adaptable()
{
    return isOSVersionMojaveOrMore() ? palette().color(QPalette::Highlight) : QColor(Qt::blue);
}

QColor getGreenColor_Adaptable()
{
    return isOSVersionMojaveOrMore() ? signalColor(130, 0.60, 0.33, 0.55) : QColor(Qt::green);
}

QColor getControlBackground_Adaptable()
{
    return isOSVersionMojaveOrMore() ? palette().color(QPalette::HighlightedText)
                                     : QColor(Qt::white);
}

void resetVersionCacheForTesting()
{
    sOSVersion_Colors = 0;
}

void setPaletteAvailableForTesting(std::function<bool()> available)
{
    sPaletteAvailable = std::move(available);
}

} // namespace ZEL_Colors
