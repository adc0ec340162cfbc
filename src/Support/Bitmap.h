#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace halvane {

// A picture's pixels for layers that may not see Qt: 8-bit sRGB, premultiplied alpha, stored as
// 32-bit words 0xAARRGGBB in native (little-endian) order, so bytes run B, G, R, A. That is the
// layout of QImage::Format_ARGB32_Premultiplied, so Render wraps the buffer without a copy.
// Copies share the buffer; nobody writes into a buffer once a Bitmap holds it.
struct Bitmap {
    int width = 0;
    int height = 0;
    int bytesPerRow = 0;
    std::shared_ptr<const std::vector<std::uint8_t>> pixels;

    bool isNull() const { return width <= 0 || height <= 0 || !pixels; }
    const std::uint8_t* row(int y) const { return pixels->data() + static_cast<size_t>(y) * bytesPerRow; }
    std::uint8_t alphaAt(int x, int y) const { return row(y)[x * 4 + 3]; }

    friend bool operator==(const Bitmap& a, const Bitmap& b) {
        return a.width == b.width && a.height == b.height && a.bytesPerRow == b.bytesPerRow && a.pixels == b.pixels;
    }
};

}  // namespace halvane
