#include "Capture/Screenshots/ScrollingRowSignature.h"

#include "Support/ConcurrentPerform.h"

#include <algorithm>

namespace halvane {

ScrollingRowSignature::Layout ScrollingRowSignature::layout(int width, int excludedRightColumns) {
    const int excluded = std::min(width / 4, std::max(excludedRightColumns, 0));
    const int usable = width - excluded;
    if (usable < 1) return {1, 1};
    if (usable < 256) return {usable, std::max(usable, 8) / 8};
    return {usable, maximumBlocks};
}

ScrollingRowSignature::ScrollingRowSignature(const std::uint8_t* pixels, int width, int height,
                                             int excludedRightColumns) {
    const Layout shape = layout(width, excludedRightColumns);
    rows = std::max(height, 0);
    blocks = shape.blocks;
    values.assign(std::size_t(rows) * std::size_t(blocks), 0);
    // A frame narrower than one pixel has nothing to read; its signature stays all zero.
    if (width < 1 || rows == 0) return;

    std::vector<int> edges(std::size_t(blocks) + 1);
    for (int i = 0; i <= blocks; ++i) edges[std::size_t(i)] = int(std::int64_t(i) * shape.usable / blocks);

    const std::size_t stride = std::size_t(width) * 4;
    concurrentPerform(std::size_t(rows), [&](std::size_t y) {
        const std::uint8_t* row = pixels + y * stride;
        std::uint8_t* out = values.data() + y * std::size_t(blocks);
        for (int b = 0; b < blocks; ++b) {
            const int from = edges[std::size_t(b)];
            const int to = edges[std::size_t(b) + 1];
            std::uint64_t sum = 0;
            for (int x = from; x < to; ++x) {
                const std::uint8_t* p = row + std::size_t(x) * 4;
                sum += std::uint32_t(p[1]) * 151 + std::uint32_t(p[2]) * 77 + std::uint32_t(p[0]) * 28;
            }
            out[b] = static_cast<std::uint8_t>((sum / std::uint64_t(std::max(to - from, 1))) >> 8);
        }
    });
}

}  // namespace halvane
