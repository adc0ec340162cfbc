#pragma once

#include <QImage>

#include <optional>
#include <string>
#include <vector>

namespace halvane {

// One pointer image from an X cursor theme, read from the theme's files (no display needed).
struct XcursorThemeImage {
    QImage image;      // ARGB32 premultiplied
    int hotX = 0;
    int hotY = 0;
    int nominalSize = 0;  // the size the theme files it under (24 is the desktop's 1×)
};

// The first of `names` the theme has (nullptr: XCURSOR_THEME, else the theme "default" and what it
// inherits), at the largest size the theme offers; the first frame if it is animated.
std::optional<XcursorThemeImage> loadLargestXcursor(const std::vector<std::string>& names, const char* theme);

}  // namespace halvane
