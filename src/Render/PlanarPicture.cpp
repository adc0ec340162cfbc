#include "Render/PlanarPicture.h"

#include "Render/PixelConversion.h"

namespace halvane {

QImage makePlanarPicture(int width, int height) {
    QImage picture(width, height + height / 2, QImage::Format_Grayscale8);
    return picture;
}

QSize planarSize(const QImage& picture) { return QSize(picture.width(), picture.height() * 2 / 3); }

Yuv420View planarView(const QImage& picture) {
    const QSize size = planarSize(picture);
    const int stride = int(picture.bytesPerLine());
    const uint8_t* luma = picture.constBits();
    const uint8_t* chroma = luma + size_t(stride) * size_t(size.height());
    return {{luma, chroma, chroma + size.width() / 2}, {stride, stride, stride}, size.width(), size.height()};
}

std::array<uint8_t*, 3> planarPlanes(QImage& picture) {
    const QSize size = planarSize(picture);
    uint8_t* luma = picture.bits();
    uint8_t* chroma = luma + size_t(picture.bytesPerLine()) * size_t(size.height());
    return {luma, chroma, chroma + size.width() / 2};
}

QRect roundedToBlocks(const QRect& area) {
    if (area.isEmpty()) return {};
    const int left = area.left() & ~1, top = area.top() & ~1;
    const int right = area.right() | 1, bottom = area.bottom() | 1;
    return QRect(QPoint(left, top), QPoint(right, bottom));
}

std::array<QRect, 3> planarAreas(const QRect& canvasArea, QSize canvasSize) {
    const QRect r = roundedToBlocks(canvasArea).intersected(QRect(QPoint(0, 0), canvasSize));
    if (r.isEmpty()) return {};
    const QRect chroma(r.left() / 2, canvasSize.height() + r.top() / 2, r.width() / 2, r.height() / 2);
    return {r, chroma, chroma.translated(canvasSize.width() / 2, 0)};
}

QImage toPlanarPicture(const QImage& bgra) {
    QImage planar = makePlanarPicture(bgra.width() & ~1, bgra.height() & ~1);
    if (planar.isNull()) return planar;
    convertIntoPlanar(bgra, planar, QRect(QPoint(0, 0), planarSize(planar)));
    return planar;
}

namespace {

// The part of `area`, in whole blocks, that both pictures hold.
QRect commonBlocks(const QImage& bgra, const QImage& planar, const QRect& area) {
    const QRect bounds = bgra.rect().intersected(QRect(QPoint(0, 0), planarSize(planar)));
    const QRect even(bounds.topLeft(), QSize(bounds.width() & ~1, bounds.height() & ~1));
    return roundedToBlocks(area).intersected(even);
}

}  // namespace

void convertIntoPlanar(const QImage& bgra, QImage& planar, const QRect& area) {
    const QRect r = commonBlocks(bgra, planar, area);
    if (r.isEmpty()) return;
    const auto planes = planarPlanes(planar);
    const int stride = int(planar.bytesPerLine());
    const size_t chromaOffset = size_t(r.top() / 2) * size_t(stride) + size_t(r.left() / 2);
    convertBgraToYuv420(bgra.constScanLine(r.top()) + r.left() * 4, int(bgra.bytesPerLine()), r.width(), r.height(),
                        planes[0] + size_t(r.top()) * size_t(stride) + size_t(r.left()), stride,
                        planes[1] + chromaOffset, stride, planes[2] + chromaOffset, stride);
}

void convertFromPlanar(const QImage& planar, QImage& bgra, const QRect& area) {
    const QRect r = commonBlocks(bgra, planar, area);
    if (r.isEmpty()) return;
    const Yuv420View view = planarView(planar);
    const int stride = view.strides[0];
    const size_t chromaOffset = size_t(r.top() / 2) * size_t(stride) + size_t(r.left() / 2);
    convertYuv420ToBgra(view.planes[0] + size_t(r.top()) * size_t(stride) + size_t(r.left()), stride,
                        view.planes[1] + chromaOffset, stride, view.planes[2] + chromaOffset, stride, r.width(),
                        r.height(), bgra.scanLine(r.top()) + r.left() * 4, int(bgra.bytesPerLine()));
}

}  // namespace halvane
