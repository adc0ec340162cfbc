#include "Media/PixelConversion.h"

#include <cstring>

namespace halvane {

namespace {

// BT.709 scaled to the limited range (219 steps of luma, 224 of chroma) in 8-bit fixed point.
// Every product and sum fits 16 bits, which lets the compiler work on eight or sixteen pixels
// at once; the result is within one step of the exact value.
constexpr int yR = 47, yG = 157, yB = 16;     // 0.2126, 0.7152, 0.0722 × 219/255 × 256
constexpr int uR = -26, uG = -87, uB = 113;   // -0.1146, -0.3854, 0.5 × 224/255 × 256
constexpr int vR = 112, vG = -102, vB = -10;  // 0.5, -0.4542, -0.0458 × 224/255 × 256

inline uint32_t pixelAt(const uint8_t* row, int x) {
    uint32_t p;
    std::memcpy(&p, row + 4 * x, 4);  // little-endian: B in the low byte, then G, R, A
    return p;
}

void lumaRow(const uint8_t* bgra, int width, uint8_t* out) {
    for (int x = 0; x < width; ++x) {
        uint32_t p = pixelAt(bgra, x);
        auto b = static_cast<uint16_t>(p & 0xFF), g = static_cast<uint16_t>((p >> 8) & 0xFF),
             r = static_cast<uint16_t>((p >> 16) & 0xFF);
        auto sum = static_cast<uint16_t>(yR * r + yG * g + yB * b + 128);
        out[x] = static_cast<uint8_t>((sum >> 8) + 16);
    }
}

void chromaRow(const uint8_t* top, const uint8_t* bottom, int width, uint8_t* u, uint8_t* v) {
    for (int x = 0; x < width / 2; ++x) {
        uint32_t a = pixelAt(top, 2 * x), b = pixelAt(top, 2 * x + 1);
        uint32_t c = pixelAt(bottom, 2 * x), d = pixelAt(bottom, 2 * x + 1);
        auto mean = [&](int shift) {
            return static_cast<int16_t>((((a >> shift) & 0xFF) + ((b >> shift) & 0xFF) +
                                         ((c >> shift) & 0xFF) + ((d >> shift) & 0xFF) + 2) >> 2);
        };
        int16_t blue = mean(0), green = mean(8), red = mean(16);
        u[x] = static_cast<uint8_t>(((uR * red + uG * green + uB * blue + 128) >> 8) + 128);
        v[x] = static_cast<uint8_t>(((vR * red + vG * green + vB * blue + 128) >> 8) + 128);
    }
}

}  // namespace

void convertBgraToYuv420(const uint8_t* bgra, int bytesPerRow, int width, int height, uint8_t* y,
                         int yStride, uint8_t* u, int uStride, uint8_t* v, int vStride) {
    for (int row = 0; row + 1 < height; row += 2) {
        const uint8_t* top = bgra + static_cast<long>(row) * bytesPerRow;
        const uint8_t* bottom = top + bytesPerRow;
        lumaRow(top, width, y + static_cast<long>(row) * yStride);
        lumaRow(bottom, width, y + static_cast<long>(row + 1) * yStride);
        chromaRow(top, bottom, width, u + static_cast<long>(row / 2) * uStride,
                  v + static_cast<long>(row / 2) * vStride);
    }
}

}  // namespace halvane
