#include "Render/AnnotationArt.h"

#include "Render/AnnotationFont.h"
#include "Render/RasterKernels.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace halvane {

namespace {

constexpr double layoutLimit = 4096;
constexpr int centred = Qt::AlignCenter | Qt::TextWordWrap;

QImage transparentImage(int w, int h) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    if (!image.isNull()) image.fill(Qt::transparent);
    return image;
}

// The text's own soft shadow: black at 0.65, blurred, a little below the glyphs.
void drawShadowedText(QImage& image, const AnnotationFont& font, const QRectF& box, const QString& text, double f) {
    QImage glyphs = transparentImage(image.width(), image.height());
    {
        QPainter p(&glyphs);
        p.setPen(Qt::black);
        font.draw(p, box, centred, text);
    }
    ShadowLook shadow{QColor(0, 0, 0, int(std::lround(0.65 * 255))), f * 0.14, QPointF(0, f * 0.045)};
    drawImageShadow(image, glyphs, QPointF(0, 0), shadow);
}

}  // namespace

std::optional<AnnotationArt::Rendered> AnnotationArt::render(const CanvasAnnotation& annotation, double minCanvasDim,
                                                             double scale, long long maximumPixels) {
    QString text = annotation.text.empty() ? QStringLiteral(" ") : QString::fromStdString(annotation.text);
    double f = scale * minCanvasDim * std::clamp(annotation.size, 0.015, 0.14);
    if (!(f >= 4)) return std::nullopt;

    AnnotationFont font(f, QFont::DemiBold);
    Size textSize = font.measure(text, layoutLimit);
    double vertical = annotation.pill ? f * 0.38 : f * 0.3;
    double horizontal = annotation.pill ? f * 0.72 : f * 0.3;
    double w = std::ceil(2 * horizontal + textSize.width);
    double h = std::ceil(2 * vertical + textSize.height);
    if (w < 1 || h < 1) return std::nullopt;
    if (w * h > double(maximumPixels)) {
        double smaller = scale * std::sqrt(double(maximumPixels) / (w * h)) * 0.98;
        return render(annotation, minCanvasDim, smaller, maximumPixels);
    }
    if (w >= maximumSide || h >= maximumSide) return std::nullopt;

    QImage image = transparentImage(int(w), int(h));
    if (image.isNull()) return std::nullopt;
    QRectF box(0, 0, w, h);
    if (annotation.pill) {
        QPainter p(&image);
        p.setRenderHint(QPainter::Antialiasing, true);
        double radius = std::min(f * 0.85, h / 2);
        QPainterPath pill;
        pill.addRoundedRect(box, radius, radius);
        p.fillPath(pill, QColor(0, 0, 0, int(std::lround(0.6 * 255))));
    } else {
        drawShadowedText(image, font, box, text, f);
    }
    {
        QPainter p(&image);
        p.setRenderHint(QPainter::TextAntialiasing, true);
        p.setPen(Qt::white);
        font.draw(p, box, centred, text);
    }
    return Rendered{std::move(image), Size{w / scale, h / scale}};
}

}  // namespace halvane
