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

    friend bool operator==(const Color&, const Color&) = default;
};

}  // namespace halvane
