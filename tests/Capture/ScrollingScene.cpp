#include "ScrollingScene.h"

#include <algorithm>
#include <memory>
#include <random>

namespace halvane::test {

namespace {

void fill(PixelRows& rows, int x, int y, int w, int h, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    for (int row = std::max(y, 0); row < std::min(y + h, rows.rows); ++row)
        for (int col = std::max(x, 0); col < std::min(x + w, rows.width); ++col) {
            std::uint8_t* p = rows.row(row) + std::size_t(col) * 4;
            p[0] = b, p[1] = g, p[2] = r, p[3] = 255;
        }
}

PixelRows bar(int width, int rows, std::uint8_t r, std::uint8_t g, std::uint8_t b, std::uint32_t seed) {
    PixelRows out = solidRows(width, rows, r, g, b);
    std::mt19937 random(seed);
    // A title of light marks, so the bar is not featureless.
    for (int x = 12; x < width / 3; x += 6 + int(random() % 5))
        fill(out, x, rows / 3, 3 + int(random() % 3), rows / 3, 230, 230, 230);
    return out;
}

}  // namespace

void PixelRows::append(const PixelRows& other, int from, int to) {
    bytes.insert(bytes.end(), other.row(from), other.row(from) + std::size_t(to - from) * width * 4);
    rows += to - from;
}

Bitmap PixelRows::bitmap() const {
    return {width, rows, width * 4, std::make_shared<const std::vector<std::uint8_t>>(bytes)};
}

PixelRows solidRows(int width, int rows, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    PixelRows out{width, rows, std::vector<std::uint8_t>(std::size_t(width) * rows * 4)};
    fill(out, 0, 0, width, rows, r, g, b);
    return out;
}

PixelRows textRows(int width, int rows, std::uint32_t seed) {
    PixelRows out = solidRows(width, rows, 255, 255, 255);
    std::mt19937 random(seed);
    int y = 6;
    while (y < rows) {
        const int lineHeight = 10 + int(random() % 9);
        int x = 10 + int(random() % 30);
        const int lineEnd = width / 3 + int(random() % std::uint32_t(width * 2 / 3));
        while (x < lineEnd) {
            const int word = 8 + int(random() % 50);
            // Glyph-like strokes: each row of the word has its own pattern of dark pixels.
            for (int row = y; row < std::min(y + lineHeight, rows); ++row)
                for (int col = x; col < std::min(x + word, width); ++col)
                    if (random() % 3 == 0) {
                        const auto ink = std::uint8_t(random() % 90);
                        fill(out, col, row, 1, 1, ink, ink, std::uint8_t(ink + 20));
                    }
            x += word + 5 + int(random() % 8);
        }
        y += lineHeight + 3 + int(random() % 18);
    }
    return out;
}

PixelRows noiseRows(int width, int rows, std::uint32_t seed) {
    PixelRows out = solidRows(width, rows, 0, 0, 0);
    std::mt19937 random(seed);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < width; x += 4) {
            const auto v = std::uint8_t(random() % 256);
            fill(out, x, y, 4, 1, v, v, v);
        }
    return out;
}

PixelRows ScrollingScene::frameAt(int scroll) const {
    PixelRows frame{width(), 0, {}};
    frame.append(header, 0, header.rows);
    frame.append(content, scroll, scroll + visibleRows());
    frame.append(footer, 0, footer.rows);
    // The bottom bar's shadow darkens whatever content lies just above it.
    for (int i = 0; i < shadowRows; ++i) {
        std::uint8_t* row = frame.row(viewportRows - footer.rows - 1 - i);
        for (int x = 0; x < width() * 4; ++x)
            if (x % 4 != 3) row[x] = std::uint8_t(row[x] * (50 + 8 * i) / 100);
    }
    return frame;
}

PixelRows ScrollingScene::fullPage() const {
    ScrollingScene tall = *this;
    tall.viewportRows = header.rows + content.rows + footer.rows;
    return tall.frameAt(0);
}

ScrollingScene textScene(int width, int contentRows, std::uint32_t seed) {
    ScrollingScene scene;
    scene.content = textRows(width, contentRows, seed);
    scene.header = bar(width, 40, 30, 50, 80, seed + 1);
    scene.footer = bar(width, 30, 90, 60, 30, seed + 2);
    scene.viewportRows = 470;
    return scene;
}

}  // namespace halvane::test
