#pragma once

// 8-bit 4:2:0 pictures (BT.709, limited range): the form recordings are decoded to and encoders
// take. An export composes straight into it, so the video, most of each frame, never passes
// through BGRA at all.

#include <QImage>
#include <QRect>

#include <array>
#include <cstdint>

namespace halvane {

// Three planes somebody else owns: luma at full size, the two chroma planes at half size
// (rounded up) in both directions.
struct Yuv420View {
    std::array<const uint8_t*, 3> planes{};
    std::array<int, 3> strides{};
    int width = 0, height = 0;
    friend bool operator==(const Yuv420View&, const Yuv420View&) = default;
};

// A planar picture kept in one grey QImage, so that it is shared, counted and pooled like any
// other: `height` rows of luma, then `height / 2` rows holding the blue-difference plane on the
// left half and the red-difference plane on the right half. Width and height are even.
QImage makePlanarPicture(int width, int height);
// The canvas size of a planar picture.
QSize planarSize(const QImage& picture);
Yuv420View planarView(const QImage& picture);
// Luma, then the two chroma planes, of a planar picture (writable).
std::array<uint8_t*, 3> planarPlanes(QImage& picture);
// Where a canvas area (rounded out to whole 2 × 2 blocks) lies in a planar picture: its luma
// rows and its two chroma rectangles.
std::array<QRect, 3> planarAreas(const QRect& canvasArea, QSize canvasSize);
// The BGRA picture (even size) converted whole.
QImage toPlanarPicture(const QImage& bgra);
// `area` of a BGRA picture (rounded out to 2 × 2 blocks, inside both) converted into the same
// area of a planar picture of the same canvas size, and back.
void convertIntoPlanar(const QImage& bgra, QImage& planar, const QRect& area);
void convertFromPlanar(const QImage& planar, QImage& bgra, const QRect& area);

// The smallest rectangle of whole 2 × 2 blocks holding `area`.
QRect roundedToBlocks(const QRect& area);

}  // namespace halvane
