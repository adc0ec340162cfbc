#include "Render/CanvasAnnotationArt.h"

#include "Model/AnnotationMetrics.h"
#include "Render/AnnotationFont.h"
#include "Render/BitmapImage.h"
#include "Render/CanvasCoordinates.h"
#include "Render/ImageAnnotationRenderer.h"

#include <QImageReader>
#include <QPainter>

#include <cmath>

namespace halvane {

namespace {

using Kind = ImageAnnotationKind;

// The annotation's mark is told in top-left canvas pixels; the renderer wants y upward.
ImageAnnotation upwardMark(const CanvasAnnotation& annotation, Size canvasSize) {
    ImageAnnotation mark = annotation.mark(canvasSize);
    const double H = canvasSize.height;
    mark.rect = fromTopLeft(QRectF(mark.rect.x(), mark.rect.y(), mark.rect.width(), mark.rect.height()), H);
    for (Point& p : mark.points) p = fromTopLeft(QPointF(p.x, p.y), H);
    return mark;
}

double padding(const ImageAnnotation& mark, const AnnotationMetrics& m) {
    double pad;
    switch (mark.kind) {
        case Kind::arrow: pad = m.headLength; break;
        case Kind::highlighter: pad = m.highlighterWidth; break;
        case Kind::text:
        case Kind::counter:
        case Kind::redact:
        case Kind::spotlight:
        case Kind::image: pad = 2 * m.scale; break;
        default: pad = m.strokeWidth; break;
    }
    if (mark.style.shadow) pad += 2 * m.shadowBlur + m.shadowOffset;
    return pad;
}

// The package's picture, oriented, no larger than `maxSide` on its longer side.
ImageAssetPointer loadPicture(const std::filesystem::path& file, int maxSide) {
    QImageReader reader(QString::fromStdString(file.string()));
    reader.setAutoTransform(true);
    QSize size = reader.size();
    if (size.isValid() && std::max(size.width(), size.height()) > maxSide) {
        size.scale(maxSide, maxSide, Qt::KeepAspectRatio);
        reader.setScaledSize(size.expandedTo(QSize(1, 1)));
    }
    const QImage image = reader.read();
    if (image.isNull()) return nullptr;
    return std::make_shared<ImageAsset>(Uuid::random(), bitmapOf(image), file);
}

}  // namespace

std::optional<AnnotationArt::Rendered> CanvasAnnotationArt::render(const CanvasAnnotation& annotation,
                                                                   Size canvasSize, double scale,
                                                                   long long maximumPixels,
                                                                   const std::filesystem::path& package) {
    const double W = canvasSize.width, H = canvasSize.height;
    if (W <= 1 || H <= 1 || maximumPixels < 1) return std::nullopt;
    if (annotation.kind == CanvasAnnotationKind::text)
        return AnnotationArt::render(annotation, std::min(W, H), scale, maximumPixels);

    const double s = std::min(W, H) / referenceShortSide;
    ImageAnnotation mark = upwardMark(annotation, canvasSize);
    const AnnotationMetrics metrics(mark.style, s);
    const double pad = padding(mark, metrics);
    const Rect bounds = mark.bounds(s, annotationTextMeasurer()).insetBy(-pad, -pad);

    // Symmetric about the position, so the composition may centre the bitmap there.
    const double cx = W * annotation.position.x, cy = H * annotation.position.y;
    const double hw = std::max({std::fabs(bounds.minX() - cx), std::fabs(bounds.maxX() - cx), 1.0});
    const double hh = std::max({std::fabs(bounds.minY() - cy), std::fabs(bounds.maxY() - cy), 1.0});
    const double k = std::min(scale, std::sqrt(double(maximumPixels) / (2 * hw * 2 * hh)) * 0.98);
    const double w = std::max(std::ceil(2 * hw * k), 1.0), h = std::max(std::ceil(2 * hh * k), 1.0);
    if (w >= AnnotationArt::maximumSide || h >= AnnotationArt::maximumSide || !(k > 0)) return std::nullopt;

    std::vector<ImageAnnotation> pictures;
    if (mark.kind == Kind::image) {
        const auto file = annotation.imageURL(package);
        if (!file) return std::nullopt;
        mark.asset = loadPicture(*file, static_cast<int>(std::max(w, h)));
        if (!mark.asset) return std::nullopt;
        pictures.push_back(mark);
    }

    QImage image(static_cast<int>(w), static_cast<int>(h), QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return std::nullopt;
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.setTransform(QTransform::fromTranslate(hw - cx, hh - cy) * QTransform::fromScale(k, k) *
                             bottomLeftTransform(h));
        RedactionCache redactions;
        ImageAnnotationRenderer::draw(mark, painter, pictures, s, redactions, {});
    }
    return AnnotationArt::Rendered{image, {w / k, h / k}};
}

Rect CanvasAnnotationArt::canvasRect(const CanvasAnnotation& annotation, Size canvasSize,
                                     const AnnotationArt::Rendered& rendered) {
    const double cx = canvasSize.width * annotation.position.x, cy = canvasSize.height * annotation.position.y;
    return {cx - rendered.size.width / 2, cy - rendered.size.height / 2, rendered.size.width, rendered.size.height};
}

}  // namespace halvane
