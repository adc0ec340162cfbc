#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace halvane {

// What a snap lookup learns about one candidate line (a column or a row of an edge plane) over
// the span it scans: the sum of its edge bytes, and how many reach the faint and the strong level.
struct ScreenshotBoundaryLineTally {
    static constexpr std::uint8_t softByte = 12;
    static constexpr std::uint8_t hardByte = 28;

    std::uint32_t sum = 0;
    std::uint32_t soft = 0;
    std::uint32_t hard = 0;

    // The mean edge byte when the line counts as an edge over a span of n bytes: mostly strong,
    // or faint but almost unbroken.
    std::optional<float> edgeMean(int n) const;

    // Tallies of `count` neighbouring columns first, first + 1, … of a plane with the given row
    // stride, over rows top … bottom; written to out[0 … count − 1]. Never reads at or past
    // planeBytes.
    static void tallyColumns(const std::uint8_t* plane, std::size_t planeBytes, std::size_t stride, int first,
                             int count, int top, int bottom, ScreenshotBoundaryLineTally* out);
    // The tally of n contiguous bytes.
    static ScreenshotBoundaryLineTally tallyRun(const std::uint8_t* bytes, int n);
};

}  // namespace halvane
