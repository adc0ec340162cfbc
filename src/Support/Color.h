#pragma once

#include <string>
#include <string_view>

namespace halvane {

// An sRGB colour with straight (not premultiplied) components from 0 to 1.
struct Color {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;

    // Six hex digits with an optional "#", whitespace trimmed; anything else is mid grey.
    static Color fromHex(std::string_view hex);
    // "#RRGGBB", each component rounded from c × 255.
    std::string hexString() const;
    Color withAlpha(double a) const { return {red, green, blue, a}; }
    // Dark text reads better on it: the luma of the sRGB components is above 0.6.
    bool isLight() const { return 0.299 * red + 0.587 * green + 0.114 * blue > 0.6; }

    friend bool operator==(const Color&, const Color&) = default;
};

}  // namespace halvane
