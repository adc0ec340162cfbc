#include "Capture/Screenshots/ScrollingFrame.h"

#include <algorithm>
#include <cstring>

namespace halvane {

std::optional<ScrollingFrame> ScrollingFrame::make(const Bitmap& image, int excludedRightColumns) {
    if (image.isNull() || image.bytesPerRow < image.width * 4) return std::nullopt;
    const std::size_t packedRow = std::size_t(image.width) * 4;
    const std::size_t needed = std::size_t(image.bytesPerRow) * std::size_t(image.height - 1) + packedRow;
    if (image.pixels->size() < needed) return std::nullopt;

    ScrollingFrame frame;
    frame.width = image.width;
    frame.height = image.height;
    if (std::size_t(image.bytesPerRow) == packedRow) {
        // Already packed: the buffer is immutable, so the frame can share it.
        frame.pixels = image.pixels;
    } else {
        auto packed = std::make_shared<std::vector<std::uint8_t>>(packedRow * std::size_t(image.height));
        for (int y = 0; y < image.height; ++y)
            std::memcpy(packed->data() + std::size_t(y) * packedRow, image.row(y), packedRow);
        frame.pixels = std::move(packed);
    }
    frame.signature = ScrollingRowSignature(frame.pixels->data(), frame.width, frame.height, excludedRightColumns);
    return frame;
}

std::vector<std::uint8_t> ScrollingFrame::rowData(int lo, int hi) const {
    lo = std::clamp(lo, 0, height);
    hi = std::clamp(hi, 0, height);
    if (hi <= lo) return {};
    return std::vector<std::uint8_t>(row(lo), row(lo) + std::size_t(hi - lo) * bytesPerRow());
}

}  // namespace halvane
