#pragma once

// Scaling a picture into part of another on the calling thread alone. QPainter's smooth image
// drawing spreads large scaled draws over Qt's own thread pool; the video of every exported frame
// goes through here instead, so a frame costs one core and that cost is what the export sees.

#include <QImage>
#include <QRect>
#include <QRectF>

#include <cstdint>
#include <memory>

namespace halvane {

// a × (256 − f) + b × f over 256, rounded, f in 0 ... 256, for premultiplied BGRA pixels packed in
// 32 bits: two components per 32-bit multiply, each lane at most 255 × 256 + 128, so none carries
// into the next.
inline uint32_t mixPixels(uint32_t a, uint32_t b, uint32_t f) {
    const uint32_t g = 256 - f;
    const uint32_t rb = (((a & 0xff00ffu) * g + (b & 0xff00ffu) * f + 0x800080u) >> 8) & 0xff00ffu;
    const uint32_t ag = (((a >> 8) & 0xff00ffu) * g + ((b >> 8) & 0xff00ffu) * f + 0x800080u) & 0xff00ff00u;
    return rb | ag;
}

// Stretches the `sourceRect` part of `source` (pixels, fractional) onto `targetRect` of
// `destination` (pixels, fractional, top-left) and REPLACES every pixel of `clip` with the result:
// no blending, and pixels of the clip outside the target take the nearest edge of the source.
// Sampling is bilinear at pixel centres with the source clamped at its own edges (not at
// `sourceRect`); a shrink by more than 2 first halves the source with a box filter so that no
// source pixel is skipped. Both images are ARGB32 premultiplied (the source is converted if not).
void resampleInto(QImage& destination, const QRect& clip, const QImage& source, const QRectF& sourceRect,
                  const QRectF& targetRect);

// One 8-bit plane of a picture, owned elsewhere.
struct PlaneView {
    const uint8_t* data = nullptr;
    int stride = 0;
    int width = 0, height = 0;
    friend bool operator==(const PlaneView&, const PlaneView&) = default;
};

// resampleInto for one 8-bit plane (luma or chroma of a planar picture): `clip` is in the
// destination plane, which has `destinationStride` bytes per row and must hold the clip.
// Horizontal weights are in 128ths, vertical ones in 256ths.
void resamplePlaneInto(uint8_t* destination, int destinationStride, const QRect& clip, const PlaneView& source,
                       const QRectF& sourceRect, const QRectF& targetRect);

// resamplePlaneInto for a stream of frames: the taps, the byte shuffles and the buffers are kept
// while the placement stays the same, as it does for every frame the camera holds still.
class PlaneScaler {
public:
    PlaneScaler();
    ~PlaneScaler();
    PlaneScaler(PlaneScaler&&) noexcept;
    PlaneScaler& operator=(PlaneScaler&&) noexcept;

    void scale(uint8_t* destination, int destinationStride, const QRect& clip, const PlaneView& source,
               const QRectF& sourceRect, const QRectF& targetRect);

private:
    struct Plan;
    static std::unique_ptr<Plan> makePlan(const QRect& clip, const PlaneView& original, const QRectF& sourceRect,
                                          const QRectF& targetRect, const PlaneView& source, double fromX, double stepX,
                                          double fromY, double stepY, int level);
    std::unique_ptr<Plan> plan_;
};

// The image at half its width and/or height, each pixel the mean of the 2 (or 4) it replaces; an
// odd last column or row is averaged with itself.
QImage halved(const QImage& image, bool halveWidth, bool halveHeight);

}  // namespace halvane
