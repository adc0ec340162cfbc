#pragma once

#include "Support/Bitmap.h"

#include <cstdint>
#include <vector>

namespace halvane::test {

// Packed rows of 4-byte B, G, R, A pixels.
struct PixelRows {
    int width = 0;
    int rows = 0;
    std::vector<std::uint8_t> bytes;

    const std::uint8_t* row(int r) const { return bytes.data() + std::size_t(r) * width * 4; }
    std::uint8_t* row(int r) { return bytes.data() + std::size_t(r) * width * 4; }
    void append(const PixelRows& other, int from, int to);
    Bitmap bitmap() const;
};

PixelRows solidRows(int width, int rows, std::uint8_t r, std::uint8_t g, std::uint8_t b);
// Text-like lines of varied length and spacing on white, the same for the same seed.
PixelRows textRows(int width, int rows, std::uint32_t seed);
// Every row different from every other: random grey blocks.
PixelRows noiseRows(int width, int rows, std::uint32_t seed);

// A scrolling region as a browser shows a page: a bar fixed at the top, the page content
// scrolled under it, a bar fixed at the bottom, and optionally a shadow that the bottom bar
// casts on the content just above it.
struct ScrollingScene {
    PixelRows content;
    PixelRows header;
    PixelRows footer;
    int viewportRows = 0;
    int shadowRows = 0;

    int width() const { return content.width; }
    int visibleRows() const { return viewportRows - header.rows - footer.rows; }
    int maxScroll() const { return content.rows - visibleRows(); }
    // What the region shows when the content is scrolled by `scroll` rows.
    PixelRows frameAt(int scroll) const;
    // The whole page in a region tall enough to need no scrolling.
    PixelRows fullPage() const;
};

// A page with a 40-row header, 30-row footer and text content, in a viewport of 470 rows.
ScrollingScene textScene(int width, int contentRows, std::uint32_t seed);

}  // namespace halvane::test
