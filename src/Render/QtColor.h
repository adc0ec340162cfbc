#pragma once

#include "Support/Color.h"

#include <QColor>

namespace halvane {

// Our sRGB colour as Qt's, keeping its alpha.
inline QColor toQColor(const Color& c) { return QColor::fromRgbF(float(c.red), float(c.green), float(c.blue), float(c.alpha)); }
inline QColor toQColor(const Color& c, double alpha) { return toQColor(c.withAlpha(alpha)); }
inline QColor hexColor(std::string_view hex, double alpha = 1) { return toQColor(Color::fromHex(hex), alpha); }

}  // namespace halvane
