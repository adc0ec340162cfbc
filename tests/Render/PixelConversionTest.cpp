#include "Render/PixelConversion.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

using namespace halvane;

namespace {

struct Yuv {
    int y, u, v;
};

// Converts a 2 × 2 block of one colour and gives its luma and chroma.
Yuv convertColour(uint8_t r, uint8_t g, uint8_t b) {
    std::vector<uint8_t> bgra(16, 255);
    for (size_t i = 0; i < 16; i += 4) bgra[i] = b, bgra[i + 1] = g, bgra[i + 2] = r;
    std::array<uint8_t, 4> y{};
    uint8_t u = 0, v = 0;
    convertBgraToYuv420(bgra.data(), 8, 2, 2, y.data(), 2, &u, 1, &v, 1);
    EXPECT_EQ(y[0], y[3]);
    return {y[0], u, v};
}

TEST(PixelConversion, MapsColoursToBt709LimitedRange) {
    auto black = convertColour(0, 0, 0);
    EXPECT_EQ(black.y, 16);
    EXPECT_EQ(black.u, 128);
    EXPECT_EQ(black.v, 128);
    auto white = convertColour(255, 255, 255);
    EXPECT_EQ(white.y, 235);
    EXPECT_EQ(white.u, 128);  // greys carry no colour at all
    EXPECT_EQ(white.v, 128);
    auto grey = convertColour(128, 128, 128);
    EXPECT_EQ(grey.u, 128);
    EXPECT_EQ(grey.v, 128);
    // The BT.709 primaries, within one step of the exact values.
    auto red = convertColour(255, 0, 0);
    EXPECT_NEAR(red.y, 63, 1);
    EXPECT_NEAR(red.u, 102, 1);
    EXPECT_NEAR(red.v, 240, 1);
    auto green = convertColour(0, 255, 0);
    EXPECT_NEAR(green.y, 173, 1);
    EXPECT_NEAR(green.u, 42, 1);
    EXPECT_NEAR(green.v, 26, 1);
    auto blue = convertColour(0, 0, 255);
    EXPECT_NEAR(blue.y, 32, 1);
    EXPECT_NEAR(blue.u, 240, 1);
    EXPECT_NEAR(blue.v, 118, 1);
}

TEST(PixelConversion, ChromaIsTheMeanOfEachBlockAndStridesAreHonoured) {
    // 4 × 2 pixels in rows of 20 bytes: a black and white block, then a blue one.
    std::vector<uint8_t> bgra(40, 0);
    auto set = [&](int x, int y, uint8_t b, uint8_t g, uint8_t r) {
        uint8_t* p = &bgra[y * 20 + x * 4];
        p[0] = b, p[1] = g, p[2] = r, p[3] = 255;
    };
    set(0, 0, 255, 255, 255), set(1, 0, 0, 0, 0), set(0, 1, 0, 0, 0), set(1, 1, 255, 255, 255);
    for (int y = 0; y < 2; ++y) set(2, y, 255, 0, 0), set(3, y, 255, 0, 0);
    std::vector<uint8_t> luma(2 * 6, 0xAA), u(3, 0xAA), v(3, 0xAA);
    convertBgraToYuv420(bgra.data(), 20, 4, 2, luma.data(), 6, u.data(), 3, v.data(), 3);
    EXPECT_EQ(luma[0], 235);
    EXPECT_EQ(luma[1], 16);
    EXPECT_EQ(luma[6], 16);
    EXPECT_EQ(luma[4], 0xAA);  // padding past the width is left alone
    EXPECT_EQ(u[0], 128);
    EXPECT_NEAR(u[1], 240, 1);
    EXPECT_EQ(u[2], 0xAA);
}

TEST(PixelConversion, WideRowsMatchTheExactFormulaInEveryLane) {
    // Widths around the 16-pixel steps of the vector path, so lanes, tails and strides all count.
    std::mt19937 random(7);
    for (int width : {16, 30, 34, 50, 96, 130}) {
        const int height = 6, stride = width * 4 + 12;
        std::vector<uint8_t> bgra(size_t(stride) * height);
        for (auto& byte : bgra) byte = uint8_t(random() & 0xFF);
        std::vector<uint8_t> luma(size_t(width) * height), u(size_t(width / 2) * 3), v(u.size());
        convertBgraToYuv420(bgra.data(), stride, width, height, luma.data(), width, u.data(),
                            width / 2, v.data(), width / 2);
        auto channel = [&](int x, int y, int c) { return double(bgra[size_t(y) * stride + x * 4 + c]); };
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                double exact = 16 + (0.2126 * channel(x, y, 2) + 0.7152 * channel(x, y, 1) +
                                     0.0722 * channel(x, y, 0)) * 219 / 255;
                ASSERT_NEAR(luma[size_t(y) * width + x], exact, 1.0) << width << " " << x << "," << y;
            }
        }
        for (int y = 0; y < height / 2; ++y) {
            for (int x = 0; x < width / 2; ++x) {
                double mean[3];
                for (int c = 0; c < 3; ++c)
                    mean[c] = (channel(2 * x, 2 * y, c) + channel(2 * x + 1, 2 * y, c) +
                               channel(2 * x, 2 * y + 1, c) + channel(2 * x + 1, 2 * y + 1, c)) / 4;
                double cb = 128 + (-0.1146 * mean[2] - 0.3854 * mean[1] + 0.5 * mean[0]) * 224 / 255;
                double cr = 128 + (0.5 * mean[2] - 0.4542 * mean[1] - 0.0458 * mean[0]) * 224 / 255;
                ASSERT_NEAR(u[size_t(y) * (width / 2) + x], cb, 1.5) << width << " " << x << "," << y;
                ASSERT_NEAR(v[size_t(y) * (width / 2) + x], cr, 1.5) << width << " " << x << "," << y;
            }
        }
    }
}

}  // namespace

namespace {

uint32_t backToBgra(int y, int u, int v) {
    const std::array<uint8_t, 4> luma{uint8_t(y), uint8_t(y), uint8_t(y), uint8_t(y)};
    const uint8_t cu = uint8_t(u), cv = uint8_t(v);
    std::array<uint32_t, 4> out{};
    convertYuv420ToBgra(luma.data(), 2, &cu, 1, &cv, 1, 2, 2, reinterpret_cast<uint8_t*>(out.data()), 8);
    EXPECT_EQ(out[0], out[3]);
    return out[0];
}

}  // namespace

TEST(PixelConversion, PlanarBlocksComeBackToTheColoursTheyCameFrom) {
    EXPECT_EQ(backToBgra(16, 128, 128), 0xff000000u);
    EXPECT_EQ(backToBgra(235, 128, 128), 0xffffffffu);
    // Out-of-range values clamp instead of wrapping.
    EXPECT_EQ(backToBgra(255, 128, 128), 0xffffffffu);
    EXPECT_EQ(backToBgra(0, 128, 128), 0xff000000u);
    std::mt19937 random(3);
    for (int i = 0; i < 2000; ++i) {
        const uint8_t r = uint8_t(random()), g = uint8_t(random()), b = uint8_t(random());
        const Yuv yuv = convertColour(r, g, b);
        const uint32_t back = backToBgra(yuv.y, yuv.u, yuv.v);
        // Limited range has fewer steps than full range: a step there is about 1.2 steps here.
        EXPECT_NEAR(int(back >> 16 & 0xff), r, 3) << int(r) << "," << int(g) << "," << int(b);
        EXPECT_NEAR(int(back >> 8 & 0xff), g, 3) << int(r) << "," << int(g) << "," << int(b);
        EXPECT_NEAR(int(back & 0xff), b, 3) << int(r) << "," << int(g) << "," << int(b);
    }
}

TEST(PixelConversion, PlanarRowsKeepTheirStridesAndShareChromaByBlock) {
    // 4 × 2 luma in rows of 6, chroma in rows of 3; the BGRA rows are 20 bytes apart.
    const std::vector<uint8_t> luma{16, 235, 0xAA, 0xAA, 0xAA, 0xAA, 235, 16, 0xAA, 0xAA, 0xAA, 0xAA};
    std::vector<uint8_t> y(12), u{128, 240, 0xAA}, v{128, 118, 0xAA};
    for (size_t i = 0; i < 12; ++i) y[i] = i % 6 < 4 ? (i % 6 < 2 ? luma[i] : 32) : 0xAA;
    std::vector<uint8_t> bgra(40, 0x55);
    convertYuv420ToBgra(y.data(), 6, u.data(), 3, v.data(), 3, 4, 2, bgra.data(), 20);
    auto at = [&](int x, int row) {
        uint32_t p;
        std::memcpy(&p, &bgra[size_t(row * 20 + x * 4)], 4);
        return p;
    };
    EXPECT_EQ(at(0, 0), 0xff000000u);
    EXPECT_EQ(at(1, 0), 0xffffffffu);
    EXPECT_EQ(at(0, 1), 0xffffffffu);
    // The second block is blue (the chroma of pure blue with its luma).
    EXPECT_GT(int(at(2, 1) & 0xff), 245);
    EXPECT_LT(int(at(2, 1) >> 16 & 0xff), 10);
    EXPECT_EQ(bgra[16], 0x55);  // the padding past the width is left alone
}
