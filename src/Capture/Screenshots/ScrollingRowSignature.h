#pragma once

#include <cstdint>
#include <vector>

namespace halvane {

// One brightness byte per horizontal block of each row: at most 32 bytes stand for a row, so
// matching scrolled frames never has to touch pixels.
struct ScrollingRowSignature {
    static constexpr int maximumBlocks = 32;

    int rows = 0;
    int blocks = 0;
    std::vector<std::uint8_t> values;  // rows × blocks, row-major

    ScrollingRowSignature() = default;
    // pixels: width × height, 4 bytes a pixel in B, G, R, A order, rows packed. The rightmost
    // excludedRightColumns (at most a quarter of the width) are left out, to ignore a scroll bar.
    ScrollingRowSignature(const std::uint8_t* pixels, int width, int height, int excludedRightColumns);

    const std::uint8_t* row(int r) const { return values.data() + std::size_t(r) * std::size_t(blocks); }

    // How many blocks a row of this width is cut into, and how many columns they cover.
    struct Layout {
        int usable = 1;
        int blocks = 1;
        friend bool operator==(const Layout&, const Layout&) = default;
    };
    static Layout layout(int width, int excludedRightColumns);

    friend bool operator==(const ScrollingRowSignature&, const ScrollingRowSignature&) = default;
};

}  // namespace halvane
