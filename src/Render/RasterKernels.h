#pragma once

// The pixel operations every picture in the program is made of: blur, pixellate, mask blend,
// fade, dissolve and shadows. Each lives here once; composition, the image editor and the
// backgrounds all call these.
//
// Images are QImage::Format_ARGB32_Premultiplied (sRGB, BGRA in memory) unless a function says
// otherwise; other formats are converted on entry. Coordinates are the image's own pixels with the
// origin at the top left (see CanvasCoordinates.h for the conversion from canvas rectangles).
//
// Blur sizes. The drawing interfaces this program was designed against speak of two kinds of blur
// size, and they are converted to a Gaussian standard deviation (sigma, in pixels) here only:
//  - a filter blur "radius" (the blur of backgrounds, masks and redactions) is the sigma itself;
//  - a shadow "blur" (drop shadows of the card, the pointer dot, annotations) is twice the sigma,
//    the convention of shadow blur lengths in 2-D drawing libraries.

#include <QColor>
#include <QImage>
#include <QPainterPath>
#include <QPointF>
#include <QRect>
#include <QTransform>

#include <vector>

namespace halvane {

inline double sigmaForFilterRadius(double radius) { return radius; }
inline double sigmaForShadowBlur(double blur) { return blur / 2; }

// Gaussian blur in place, clamp-to-edge: pixels beyond the border repeat the edge, so edges neither
// darken nor turn transparent. Accepts ARGB32 premultiplied, Grayscale8 and Alpha8 images (others
// are converted to ARGB32 premultiplied). Sigma ≤ 0 leaves the image as it is. A wide blur costs no
// more than a narrow one (running boxes on a reduced copy); small ones use the exact kernel.
void gaussianBlur(QImage& image, double sigma);
QImage gaussianBlurred(const QImage& image, double sigma);

// Replaces each square cell of `cell` pixels with the mean of its pixels. Cell edges lie on
// `origin` + k × cell on both axes, so the grid starts at a chosen corner. Only pixels inside
// `region` change (the whole image when it is empty), but every cell takes its mean over all of
// its pixels inside the image, as though the filter ran on the whole clamped picture and was then
// cut to the region. A cell below 1 pixel does nothing.
void pixellate(QImage& image, double cell, QPointF origin, QRect region = {});

// destination = source × m + destination × (1 − m), per pixel, with m the mask's grey level
// (Grayscale8, or the luminance of another format). All three must share one size; otherwise
// nothing happens and the result is false.
bool maskBlend(QImage& destination, const QImage& source, const QImage& mask);

// Multiplies every premultiplied component by alpha clamped to 0 ... 1.
void alphaFade(QImage& image, double alpha);

// mean = mean × (1 − weight) + sample × weight; a running mean of n samples uses weight 1 / n.
// Sizes must agree; otherwise nothing happens and the result is false.
bool dissolve(QImage& mean, const QImage& sample, double weight);

// Sets `out` to the per-component mean of `samples` (rounded) over `areas`, leaving it as it is
// elsewhere: on each row, from the leftmost to the rightmost area that row crosses. Every image
// must have the size of `out`, and `out` must not share its pixels with a sample; otherwise
// nothing happens and the result is false. At most 257 samples. Unlike a chain of dissolves,
// which rounds at every step, every sample weighs the same.
bool averageInto(QImage& out, const std::vector<QImage>& samples, const std::vector<QRect>& areas);

// A drop shadow as the shadow of a 2-D drawing library casts it: the shape's alpha, blurred, tinted
// with `color` (its alpha included) and moved by `offset`.
struct ShadowLook {
    QColor color = QColor(0, 0, 0, 255);
    double blur = 0;   // shadow blur length; sigma = blur / 2
    QPointF offset;    // in target pixels, top-left origin: positive y moves the shadow down
    friend bool operator==(const ShadowLook&, const ShadowLook&) = default;
};

// The shadow of `shapeAlpha`'s alpha channel, same size: blurred with sigma, tinted. The caller
// leaves room around the shape for the blur to spread into.
QImage tintedShadow(const QImage& shapeAlpha, double sigma, const QColor& color);

// Paints onto `target` the shadow cast by `path` filled (winding rule) under `transform` in target
// pixels, without painting the shape itself.
void drawPathShadow(QImage& target, const QPainterPath& path, const ShadowLook& shadow,
                    const QTransform& transform = {});

// Paints onto `target` the shadow cast by `shape` when drawn with its top-left corner at `topLeft`.
void drawImageShadow(QImage& target, const QImage& shape, QPointF topLeft, const ShadowLook& shadow);

// Inside `area`: picture = picture × coverage + plate × (1 − coverage), with the coverage the alpha
// of `mask`, whose top-left corner lies at `maskOrigin`. Wholly covered pixels are not touched.
void blendTowardsPlate(QImage& picture, const QImage& plate, const QImage& mask, QRect area, QPoint maskOrigin);

}  // namespace halvane
