#include "Render/XcursorTheme.h"

#include <cstdlib>
#include <cstring>
#include <memory>

// Xlib's macros (CursorShape, None, Bool ...) stay inside this file.
#include <X11/Xcursor/Xcursor.h>

namespace halvane {
namespace {

struct ImagesDeleter {
    void operator()(XcursorImages* images) const { XcursorImagesDestroy(images); }
};

std::optional<XcursorThemeImage> convert(const XcursorImage& source) {
    if (source.width == 0 || source.height == 0 || source.size == 0) return std::nullopt;
    QImage image(static_cast<int>(source.width), static_cast<int>(source.height), QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return std::nullopt;
    // Xcursor pixels are premultiplied ARGB words, the layout of the QImage format.
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(image.scanLine(y), source.pixels + static_cast<size_t>(y) * source.width, source.width * 4);
    return XcursorThemeImage{image, static_cast<int>(source.xhot), static_cast<int>(source.yhot),
                             static_cast<int>(source.size)};
}

}  // namespace

std::optional<XcursorThemeImage> loadLargestXcursor(const std::vector<std::string>& names, const char* theme) {
    if (!theme) theme = std::getenv("XCURSOR_THEME");
    // The nearest size to a very large request is the largest the theme has.
    constexpr int largestRequest = 1024;
    for (const auto& name : names) {
        std::unique_ptr<XcursorImages, ImagesDeleter> images(XcursorLibraryLoadImages(name.c_str(), theme, largestRequest));
        if (!images || images->nimage < 1 || !images->images[0]) continue;
        return convert(*images->images[0]);
    }
    return std::nullopt;
}

}  // namespace halvane
