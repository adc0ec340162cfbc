#pragma once

#include <cstdint>

namespace halvane {

// BGRA (alpha ignored) to 8-bit 4:2:0 BT.709 limited range, the form every encoder here takes.
// A 2 × 2 block shares its chroma, from the mean of its four pixels; widths and heights must be
// even. Several times cheaper than the general-purpose scaler for this one case, which matters
// because every exported and captured frame passes through it.
void convertBgraToYuv420(const uint8_t* bgra, int bytesPerRow, int width, int height, uint8_t* y,
                         int yStride, uint8_t* u, int uStride, uint8_t* v, int vStride);

// The way back, for the few parts of a 4:2:0 frame that are drawn on as BGRA: each 2 × 2 block
// takes its chroma sample as it is, so a block converted there and back keeps its values within
// one step. Opaque pixels out; width and height must be even.
void convertYuv420ToBgra(const uint8_t* y, int yStride, const uint8_t* u, int uStride, const uint8_t* v,
                         int vStride, int width, int height, uint8_t* bgra, int bytesPerRow);

}  // namespace halvane
