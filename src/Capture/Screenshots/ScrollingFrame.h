#pragma once

#include "Capture/Screenshots/ScrollingRowSignature.h"
#include "Support/Bitmap.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace halvane {

// One grab of the scrolling region in the stitcher's layout: 4 bytes a pixel, B, G, R, A,
// premultiplied, rows packed top first, together with its row signature.
struct ScrollingFrame {
    int width = 0;
    int height = 0;
    std::shared_ptr<const std::vector<std::uint8_t>> pixels;  // width × height × 4; shared, never written
    ScrollingRowSignature signature;

    // Nothing when the picture has a side below 1 or its buffer is smaller than its stated size.
    static std::optional<ScrollingFrame> make(const Bitmap& image, int excludedRightColumns);

    std::size_t bytesPerRow() const { return std::size_t(width) * 4; }
    const std::uint8_t* row(int r) const { return pixels->data() + std::size_t(r) * bytesPerRow(); }
    // The bytes of rows lo ..< hi, the range clamped to the frame; empty when that leaves nothing.
    std::vector<std::uint8_t> rowData(int lo, int hi) const;
};

}  // namespace halvane
