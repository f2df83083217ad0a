#pragma once

#include <QColor>

#include <functional>

// Text colours of the window. With an application palette (a Linux desktop always has one) every
// getter derives its colour from the palette, so it follows the desktop's light or dark theme;
// without one it falls back to a fixed colour.
namespace ZEL_Colors {

// Packed system version, cached once known (a failed look-up gives 0 and is tried again).
qint64 getOSVersion_Colors();
// Whether the adaptive colours are available: true wherever an application palette exists.
bool isOSVersionMojaveOrMore();

QColor getBlackColor_Adaptable();
QColor getDarkGrayColor_Adaptable();
QColor getGrayColor_Adaptable();
QColor getLightGrayColor_Adaptable();
QColor getRedColor_Adaptable();
QColor getBrownColor_Adaptable();
QColor getOrangeColor_Adaptable();
QColor getBlueColor_Adaptable();
QColor getGreenColor_Adaptable();
// Also the text colour on a selection highlight.
QColor getControlBackground_Adaptable();

// Test seams: forget the cached version; decide whether the palette counts as available
// (nullptr restores the real test).
void resetVersionCacheForTesting();
void setPaletteAvailableForTesting(std::function<bool()> available);

} // namespace ZEL_Colors
