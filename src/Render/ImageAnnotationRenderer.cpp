#include "Render/ImageAnnotationRenderer.h"

#include "Model/AnnotationMetrics.h"
#include "Model/AnnotationTypography.h"
#include "Render/AnnotationFont.h"
#include "Render/ArrowGeometry.h"
#include "Render/CanvasCoordinates.h"
#include "Render/PictureDrawing.h"
#include "Render/QtColor.h"
#include "Render/RasterKernels.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <functional>

namespace halvane {

namespace {

using Kind = ImageAnnotationKind;
using Paint = std::function<void(QPainter&)>;

constexpr double spotlightDim = 0.6;
constexpr double highlighterAlpha = 0.55;
constexpr double sigmaPerPixel = 2.5;

QColor styleColor(const AnnotationStyle& s, double alpha = 1) { return hexColor(s.colorHex, alpha); }
QPointF q(Point p) { return {p.x, p.y}; }
QRectF q(const Rect& r) {
    const Rect s = r.standardized();
    return {s.minX(), s.minY(), s.width(), s.height()};
}

// A drop shadow in document units: blur length and an offset, y upward.
struct Shadow {
    QColor color;
    double blur = 0;
    Point offset;
};

Shadow markShadow(const AnnotationMetrics& m) { return {QColor(0, 0, 0, qRound(0.35 * 255)), m.shadowBlur, {0, -m.shadowOffset}}; }

Shadow textShadow(double fontSize) {
    return {QColor(0, 0, 0, qRound(0.55 * 255)), 0.12 * fontSize, {0, -0.05 * fontSize}};
}

// Casts the shadow of what `paint` draws, then draws it. The shadow is cast from a copy drawn at
// about `sigmaPerPixel` pixels a sigma, since a soft shadow has no finer detail, and stretched
// back: a fraction of the cost of a full-size layer. Marks are opaque, so drawing them straight
// onto the target looks as one layer would. `extent` (document units) holds all that is drawn.
void paintWithShadow(QPainter& painter, const Rect& extent, const Shadow& shadow, const Paint& paint) {
    const QTransform toDevice = painter.combinedTransform();
    const double deviceScale = std::sqrt(std::fabs(toDevice.determinant()));
    const double sigma = sigmaForShadowBlur(shadow.blur * deviceScale);
    const double spread = 1.5 * shadow.blur + 2;
    QRect castRect = toDevice.mapRect(q(extent.insetBy(-spread, -spread))).toAlignedRect();
    if (const QPaintDevice* device = painter.device()) {
        const int reach = static_cast<int>(std::ceil((spread + std::hypot(shadow.offset.x, shadow.offset.y)) * deviceScale));
        castRect &= QRect(-reach, -reach, device->width() + 2 * reach, device->height() + 2 * reach);
    }
    const double reduction = sigma > sigmaPerPixel ? sigmaPerPixel / sigma : 1;
    const QSize castSize(std::max(1, static_cast<int>(std::ceil(castRect.width() * reduction))),
                         std::max(1, static_cast<int>(std::ceil(castRect.height() * reduction))));
    QImage layer(castSize, QImage::Format_ARGB32_Premultiplied);
    if (!castRect.isEmpty() && !layer.isNull()) {
        layer.fill(Qt::transparent);
        {
            QPainter layerPainter(&layer);
            layerPainter.setRenderHints(painter.renderHints());
            layerPainter.setTransform(toDevice * QTransform::fromTranslate(-castRect.x(), -castRect.y()) *
                                      QTransform::fromScale(reduction, reduction));
            paint(layerPainter);
        }
        const QImage cast = tintedShadow(layer, sigma * reduction, shadow.color);
        const QPointF offset = toDevice.map(q(shadow.offset)) - toDevice.map(QPointF(0, 0));
        painter.save();
        painter.resetTransform();
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(QRectF(QPointF(castRect.topLeft()) + offset, QSizeF(castSize) / reduction), cast);
        painter.restore();
    }
    paint(painter);
}

void paintMaybeShadowed(QPainter& painter, bool shadowed, const Rect& extent, const AnnotationMetrics& m,
                        const Paint& paint) {
    if (shadowed) paintWithShadow(painter, extent, markShadow(m), paint);
    else paint(painter);
}

Rect boxOf(const std::vector<Point>& points) {
    ImageAnnotation probe;
    probe.kind = Kind::line;
    probe.points = points;
    return probe.bounds(1);
}

QPen strokePen(const QColor& color, double width, Qt::PenCapStyle cap, Qt::PenJoinStyle join = Qt::RoundJoin) {
    return QPen(color, width, Qt::SolidLine, cap, join);
}

// Through each middle sample with a quadratic whose control is the sample, ending at the midpoints.
QPainterPath smoothedPath(const std::vector<Point>& points) {
    QPainterPath path(q(points.front()));
    const size_t n = points.size();
    if (n <= 2) {
        path.lineTo(q(points.back()));
        return path;
    }
    for (size_t i = 1; i + 1 < n; ++i) {
        const Point mid{(points[i].x + points[i + 1].x) / 2, (points[i].y + points[i + 1].y) / 2};
        path.quadTo(q(points[i]), q(mid));
    }
    path.lineTo(q(points.back()));
    return path;
}

QPainterPath roundedRect(const Rect& r, double radius) {
    QPainterPath path;
    path.addRoundedRect(q(r), radius, radius);
    return path;
}

double halfShorter(const Rect& r) { return std::min(std::fabs(r.width()), std::fabs(r.height())) / 2; }

// ---- the kinds

void drawArrow(QPainter& painter, const ImageAnnotation& a, const AnnotationMetrics& m) {
    if (a.points.size() < 2) return;
    const auto paths = ArrowGeometry::paths(a.style.arrow, a.points[0], a.points[1], a.curveControl(), m.strokeWidth,
                                            m.headLength);
    const QColor color = styleColor(a.style);
    const Rect extent = a.bounds(m.scale).insetBy(-m.headLength - m.strokeWidth, -m.headLength - m.strokeWidth);
    paintMaybeShadowed(painter, a.style.shadow, extent, m, [&](QPainter& p) {
        if (paths.stroke) p.strokePath(*paths.stroke, strokePen(color, m.strokeWidth, Qt::RoundCap));
        if (paths.fill) p.fillPath(*paths.fill, color);
    });
}

void drawLine(QPainter& painter, const ImageAnnotation& a, const AnnotationMetrics& m) {
    if (a.points.size() < 2) return;
    const Rect extent = a.bounds(m.scale).insetBy(-m.strokeWidth, -m.strokeWidth);
    paintMaybeShadowed(painter, a.style.shadow, extent, m, [&](QPainter& p) {
        p.setPen(strokePen(styleColor(a.style), m.strokeWidth, Qt::RoundCap));
        p.drawLine(q(a.points[0]), q(a.points[1]));
    });
}

// Rectangles and ellipses: a filled shape, or the outline stroked inside the box.
void drawBox(QPainter& painter, const ImageAnnotation& a, const AnnotationMetrics& m, bool ellipse) {
    const Rect r = a.rect.standardized();
    const QColor color = styleColor(a.style);
    QPainterPath shape;
    if (a.style.filled) {
        if (ellipse) shape.addEllipse(q(r));
        else shape = roundedRect(r, std::min(m.cornerRadius, halfShorter(r)));
    } else {
        const Rect inner = r.insetBy(m.strokeWidth / 2, m.strokeWidth / 2);
        if (inner.width() <= 0 || inner.height() <= 0) return;
        if (ellipse) shape.addEllipse(q(inner));
        else shape = roundedRect(inner, std::min(halfShorter(inner), m.cornerRadius));
    }
    paintMaybeShadowed(painter, a.style.shadow, r, m, [&](QPainter& p) {
        if (a.style.filled) p.fillPath(shape, color);
        else p.strokePath(shape, strokePen(color, m.strokeWidth, Qt::FlatCap, Qt::MiterJoin));
    });
}

void drawPen(QPainter& painter, const ImageAnnotation& a, const AnnotationMetrics& m) {
    if (a.points.empty()) return;
    const QPainterPath path = smoothedPath(a.points);
    const Rect extent = boxOf(a.points).insetBy(-m.strokeWidth, -m.strokeWidth);
    paintMaybeShadowed(painter, a.style.shadow, extent, m, [&](QPainter& p) {
        p.strokePath(path, strokePen(styleColor(a.style), m.strokeWidth, Qt::RoundCap));
    });
}

void drawHighlighter(QPainter& painter, const ImageAnnotation& a, const AnnotationMetrics& m) {
    if (a.points.empty()) return;
    painter.setCompositionMode(QPainter::CompositionMode_Multiply);
    painter.strokePath(smoothedPath(a.points),
                       strokePen(styleColor(a.style, highlighterAlpha), m.highlighterWidth, Qt::SquareCap));
}

void drawText(QPainter& painter, const ImageAnnotation& a, const AnnotationMetrics& m,
              const ImageAnnotationRenderer::Options& options) {
    const Rect box = AnnotationTypography::box(a, m.scale, annotationTextMeasurer());
    const auto inset = AnnotationTypography::insets(a.style, m.fontSize);
    if (a.style.filled) {
        const QPainterPath pill = roundedRect(box, std::min(box.height() / 2, 0.3 * m.fontSize));
        paintMaybeShadowed(painter, a.style.shadow, box, m, [&](QPainter& p) { p.fillPath(pill, styleColor(a.style)); });
    }
    if (a.text.empty() || (options.editingTextID && *options.editingTextID == a.id)) return;
    const AnnotationFont font(m.fontSize, QFont::DemiBold);
    const QString words = QString::fromStdString(a.text);
    const QColor color = toQColor(AnnotationTypography::foregroundColor(a.style));
    const Paint paintWords = [&](QPainter& p) {
        p.save();
        enterTopDown(p, box);
        p.setPen(color);
        font.draw(p, QRectF(inset.horizontal, inset.vertical, box.width() - 2 * inset.horizontal,
                            box.height() - 2 * inset.vertical),
                  Qt::TextWordWrap | Qt::AlignLeft | Qt::AlignTop, words);
        p.restore();
    };
    if (AnnotationTypography::wordsCastShadow(a.style)) paintWithShadow(painter, box, textShadow(m.fontSize), paintWords);
    else paintWords(painter);
}

void drawCounter(QPainter& painter, const ImageAnnotation& a, const AnnotationMetrics& m) {
    const Rect r = a.rect.standardized();
    if (r.width() <= 0) return;
    const QColor disc = styleColor(a.style);
    paintMaybeShadowed(painter, a.style.shadow, r, m, [&](QPainter& p) {
        p.setPen(Qt::NoPen);
        p.setBrush(disc);
        p.drawEllipse(q(r));
    });
    if (r.height() <= 0) return;
    const bool light = Color::fromHex(a.style.colorHex).isLight();
    painter.save();
    enterTopDown(painter, r);
    painter.setPen(light ? QColor::fromRgbF(0.08, 0.08, 0.08) : QColor(Qt::white));
    AnnotationFont(0.52 * r.height(), QFont::Bold)
        .draw(painter, QRectF(0, 0, r.width(), r.height()), Qt::AlignCenter, QString::number(a.number));
    painter.restore();
}

void drawRedaction(QPainter& painter, const ImageAnnotation& a, const std::vector<ImageAnnotation>& pictures,
                   const AnnotationMetrics& m, RedactionCache& redactions) {
    const Rect r = a.rect.standardized();
    if (r.width() < 1 || r.height() < 1) return;
    const auto image = redactions.image(a, pictures, m);
    if (!image) return;
    painter.setClipPath(roundedRect(r, std::min(halfShorter(r), m.cornerRadius)), Qt::IntersectClip);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, a.style.redaction == MaskStyle::blur);
    enterTopDown(painter, r);
    painter.drawImage(QRectF(0, 0, r.width(), r.height()), *image);
}

// One even-odd path: the canvas with a rounded hole for each spotlight, so overlaps dim once.
void drawSpotlights(QPainter& painter, const Rect& canvas, const std::vector<const ImageAnnotation*>& spotlights,
                    double scale) {
    if (spotlights.empty()) return;
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    path.addRect(q(canvas));
    for (const ImageAnnotation* s : spotlights) {
        const Rect r = s->rect.standardized();
        if (r.width() <= 0 || r.height() <= 0) continue;
        const double radius = std::min(halfShorter(r), 8 * scale);
        path.addRoundedRect(q(r), radius, radius);
    }
    painter.fillPath(path, QColor(0, 0, 0, qRound(spotlightDim * 255)));
}

Rect unionOfPictures(const std::vector<ImageAnnotation>& pictures) {
    std::optional<Rect> all;
    for (const auto& p : pictures) {
        const Rect r = p.rect.standardized();
        all = all ? all->united(r) : r;
    }
    return all.value_or(Rect{});
}

}  // namespace

void ImageAnnotationRenderer::draw(const ImageAnnotation& a, QPainter& painter,
                                   const std::vector<ImageAnnotation>& pictures, double scale,
                                   RedactionCache& redactions, const Options& options) {
    const AnnotationMetrics m(a.style, scale);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    switch (a.kind) {
        case Kind::arrow: drawArrow(painter, a, m); break;
        case Kind::line: drawLine(painter, a, m); break;
        case Kind::rectangle: drawBox(painter, a, m, false); break;
        case Kind::ellipse: drawBox(painter, a, m, true); break;
        case Kind::pen: drawPen(painter, a, m); break;
        case Kind::highlighter: drawHighlighter(painter, a, m); break;
        case Kind::text: drawText(painter, a, m, options); break;
        case Kind::counter: drawCounter(painter, a, m); break;
        case Kind::redact: drawRedaction(painter, a, pictures, m, redactions); break;
        case Kind::spotlight: {
            const Rect canvas = pictures.empty() ? a.rect.standardized() : unionOfPictures(pictures);
            drawSpotlights(painter, canvas, {&a}, scale);
            break;
        }
        case Kind::image: {
            const Rect extent = a.bounds(scale);
            paintMaybeShadowed(painter, a.style.shadow, extent, m, [&](QPainter& p) { paintPicture(p, a); });
            break;
        }
    }
    painter.restore();
}

void ImageAnnotationRenderer::draw(const std::vector<ImageAnnotation>& annotations, QPainter& painter,
                                   const Rect& canvas, double scale, RedactionCache& redactions,
                                   const Options& options) {
    std::vector<ImageAnnotation> pictures;
    std::vector<const ImageAnnotation*> spotlights;
    for (const auto& a : annotations) {
        if (a.kind == Kind::image) pictures.push_back(a);
        if (a.kind == Kind::spotlight) spotlights.push_back(&a);
    }
    if (options.drawsPictures)
        for (const auto& p : pictures) draw(p, painter, pictures, scale, redactions, options);
    for (const auto& a : annotations)
        if (a.kind != Kind::image && a.kind != Kind::spotlight) draw(a, painter, pictures, scale, redactions, options);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    drawSpotlights(painter, canvas, spotlights, scale);
    painter.restore();
}

QImage ImageAnnotationRenderer::flattened(const std::vector<ImageAnnotation>& annotations, const Rect& canvas,
                                          double scale, RedactionCache& redactions, const Options& options) {
    const Rect c = canvas.standardized();
    const int w = static_cast<int>(std::ceil(c.width())), h = static_cast<int>(std::ceil(c.height()));
    if (w < 1 || h < 1) return {};
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return image;
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setTransform(QTransform::fromTranslate(-c.minX(), -c.minY()) * bottomLeftTransform(h));
    draw(annotations, painter, c, scale, redactions, options);
    return image;
}

}  // namespace halvane
