#include "Render/CanvasLayout.h"

#include "Render/CanvasCoordinates.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace halvane {
namespace {

double floorToEven(double v) { return std::floor(v / 2) * 2; }

Rect centred(Point centre, double width, double height) {
    return {centre.x - width / 2, centre.y - height / 2, width, height};
}

}  // namespace

CropRegion CropRegion::from(const EditSettings& settings) {
    const Rect r = settings.cropRect();
    return {r.x(), r.y(), r.width(), r.height()};
}

std::optional<double> aspectRatio(CanvasAspect aspect) {
    switch (aspect) {
    case CanvasAspect::autoAspect: return std::nullopt;
    case CanvasAspect::wide16x9: return 16.0 / 9;
    case CanvasAspect::vertical9x16: return 9.0 / 16;
    case CanvasAspect::square: return 1.0;
    case CanvasAspect::classic4x3: return 4.0 / 3;
    case CanvasAspect::portrait3x4: return 3.0 / 4;
    case CanvasAspect::social4x5: return 4.0 / 5;
    }
    return std::nullopt;
}

Size canvasSize(const RecordingMeta& meta, const EditSettings& settings, double shortSide) {
    const CropRegion crop = CropRegion::from(settings);
    const double W = crop.width * meta.pixelWidth;
    const double H = crop.height * meta.pixelHeight;
    const auto ratio = aspectRatio(settings.canvasAspect);
    Size size;
    if (!ratio) {
        if (shortSide <= 0) {
            size = {W, H};
        } else {
            const double a = H > 1 ? W / H : W;
            size = a >= 1 ? Size{shortSide * a, shortSide} : Size{shortSide, shortSide / a};
        }
    } else if (shortSide > 0) {
        size = *ratio >= 1 ? Size{shortSide * *ratio, shortSide} : Size{shortSide, shortSide / *ratio};
    } else {
        const double width = std::max(W, H * *ratio);
        size = {width, width / *ratio};
    }
    return {floorToEven(size.width), floorToEven(size.height)};
}

Rect CanvasLayout::contentRect(Size canvasSize, double videoAspect, double padding) {
    const Rect canvas{0, 0, canvasSize.width, canvasSize.height};
    const double margin = std::min(canvasSize.width, canvasSize.height) * std::clamp(padding, 0.0, 0.35);
    const Rect inner = canvas.insetBy(margin, margin);
    if (inner.width() > 8 && inner.height() > 8) return aspectFit(videoAspect, inner);
    return canvas;
}

double CanvasLayout::videoAspect(const RecordingMeta& meta, const CropRegion& crop) {
    double aspect = meta.pixelHeight < 1 ? 16.0 / 9 : static_cast<double>(meta.pixelWidth) / meta.pixelHeight;
    if (crop.height > 0.0001) aspect *= crop.width / crop.height;
    return aspect;
}

CardLayout CanvasLayout::cardLayout(Size canvasSize, double videoAspect, double padding, double inset,
                                    double cornerRadiusFraction) {
    CardLayout layout;
    layout.content = contentRect(canvasSize, videoAspect, padding);
    layout.card = layout.video = layout.content;
    if (inset > 0) {
        const double i = std::min(inset, 0.2);
        if (i > 0.0005) {
            const Rect& content = layout.content;
            const double base = std::min(content.width(), content.height()) / (2 * i + 1);
            const double gap = i * base;
            const Size video = videoAspect >= 1 ? Size{videoAspect * base, base} : Size{base, base / videoAspect};
            layout.video = roundToQuarterPixel(centred(content.center(), video.width, video.height));
            layout.card = roundToQuarterPixel(centred(content.center(), video.width + 2 * gap, video.height + 2 * gap));
        }
    }
    const double fraction = std::clamp(cornerRadiusFraction, 0.0, 0.5);
    layout.cardRadius = fraction * std::min(layout.card.width(), layout.card.height());
    const double g = layout.video.minX() - layout.card.minX();
    layout.innerRadius = g > 0.5 ? std::max(2.0, layout.cardRadius - g) : layout.cardRadius;
    return layout;
}

CardLayout CanvasLayout::cardLayout(Size canvasSize, const RecordingMeta& meta, const EditSettings& settings) {
    return cardLayout(canvasSize, videoAspect(meta, CropRegion::from(settings)), settings.padding, settings.inset,
                      settings.cornerRadiusFraction);
}

double CanvasLayout::portraitRatio(WebcamPortraitRatio ratio) {
    switch (ratio) {
    case WebcamPortraitRatio::fourFive: return 0.8;
    case WebcamPortraitRatio::threeFour: return 0.75;
    case WebcamPortraitRatio::twoThree: return 2.0 / 3;
    case WebcamPortraitRatio::nineSixteen: return 0.5625;
    }
    return 1;
}

Size CanvasLayout::webcamBubbleSize(WebcamFrame frame, double side) {
    if (frame.shape != WebcamShape::portrait) return {side, side};
    const double root = std::sqrt(portraitRatio(frame.portraitRatio));
    return {side * root, side / root};
}

std::vector<Point> CanvasLayout::squirclePoints(const Rect& rect) {
    std::vector<Point> points;
    points.reserve(squirclePointCount);
    const double halfW = rect.width() / 2, halfH = rect.height() / 2;
    for (int k = 0; k < squirclePointCount; ++k) {
        const double theta = 2 * std::numbers::pi * k / squirclePointCount;
        const double c = std::cos(theta), s = std::sin(theta);
        const double f = std::pow(std::pow(std::abs(c), 4) + std::pow(std::abs(s), 4), -0.25);
        points.push_back({rect.midX() + halfW * f * c, rect.midY() + halfH * f * s});
    }
    return points;
}

QPainterPath CanvasLayout::squirclePath(const Rect& rect, double canvasHeight) {
    QPainterPath path;
    const auto points = squirclePoints(rect);
    path.moveTo(toTopLeft(points.front(), canvasHeight));
    for (size_t i = 1; i < points.size(); ++i) path.lineTo(toTopLeft(points[i], canvasHeight));
    path.closeSubpath();
    return path;
}

}  // namespace halvane
