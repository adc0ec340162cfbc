#include "Model/ImageAsset.h"

namespace halvane {

namespace {

constexpr std::uint8_t opaqueAlpha = 128;

bool rowHasOpaque(const Bitmap& b, int y) {
    for (int x = 0; x < b.width; ++x)
        if (b.alphaAt(x, y) >= opaqueAlpha) return true;
    return false;
}

bool columnHasOpaque(const Bitmap& b, int x, int top, int bottom) {
    for (int y = top; y <= bottom; ++y)
        if (b.alphaAt(x, y) >= opaqueAlpha) return true;
    return false;
}

Rect computeOpaqueBounds(const Bitmap& b) {
    const Rect whole(0, 0, std::max(b.width, 0), std::max(b.height, 0));
    if (b.isNull()) return whole;
    int top = 0;
    while (top < b.height && !rowHasOpaque(b, top)) ++top;
    if (top == b.height) return whole;
    int bottom = b.height - 1;
    while (!rowHasOpaque(b, bottom)) --bottom;
    int left = 0;
    while (!columnHasOpaque(b, left, top, bottom)) ++left;
    int right = b.width - 1;
    while (!columnHasOpaque(b, right, top, bottom)) --right;
    // Rows are stored top first; the extent is told with the origin at the bottom left.
    Rect extent(left, b.height - 1 - bottom, right - left + 1, bottom - top + 1);
    if (extent == whole) return whole;
    return extent.insetBy(-1, -1).intersection(whole);
}

}  // namespace

Rect ImageAsset::opaqueBounds() const {
    std::call_once(opaqueOnce_, [this] { opaqueBounds_ = computeOpaqueBounds(image_); });
    return opaqueBounds_;
}

}  // namespace halvane
