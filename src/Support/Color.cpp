#include "Support/Color.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace halvane {

Color Color::fromHex(std::string_view hex) {
    auto isSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!hex.empty() && isSpace(hex.front())) hex.remove_prefix(1);
    while (!hex.empty() && isSpace(hex.back())) hex.remove_suffix(1);
    if (!hex.empty() && hex.front() == '#') hex.remove_prefix(1);
    const Color grey{0.5, 0.5, 0.5, 1};
    if (hex.size() != 6) return grey;
    unsigned value = 0;
    for (char c : hex) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return grey;
        value = value * 16 + static_cast<unsigned>(d);
    }
    return {((value >> 16) & 0xFF) / 255.0, ((value >> 8) & 0xFF) / 255.0, (value & 0xFF) / 255.0, 1};
}

std::string Color::hexString() const {
    auto byte = [](double c) { return static_cast<int>(std::lround(std::clamp(c, 0.0, 1.0) * 255)); };
    char buf[8];
    std::snprintf(buf, sizeof buf, "#%02X%02X%02X", byte(red), byte(green), byte(blue));
    return buf;
}

}  // namespace halvane
