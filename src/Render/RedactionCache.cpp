#include "Render/RedactionCache.h"

#include "Render/CanvasCoordinates.h"
#include "Render/PictureDrawing.h"
#include "Render/RasterKernels.h"

#include <QPainter>

#include <charconv>
#include <cmath>

namespace halvane {

namespace {

Rect integral(const Rect& r) {
    const Rect s = r.standardized();
    const double x0 = std::floor(s.minX()), y0 = std::floor(s.minY());
    return {x0, y0, std::ceil(s.maxX()) - x0, std::ceil(s.maxY()) - y0};
}

std::string integers(const Rect& r) {
    auto i = [](double v) { return std::to_string(static_cast<long long>(v)); };
    return i(r.minX()) + "," + i(r.minY()) + "," + i(r.width()) + "," + i(r.height());
}

std::string decimal(double v) {
    char buffer[32];
    auto end = std::to_chars(buffer, buffer + sizeof buffer, v).ptr;
    return std::string(buffer, end);
}

std::string signature(const ImageAnnotation& picture) {
    return picture.asset->id().string() + "@" + integers(picture.rect.standardized()) + "r" + decimal(picture.rotation);
}

double margin(const AnnotationMetrics& m) { return std::ceil(std::max(m.pixelCell, 2 * m.blurRadius)); }

std::vector<const ImageAnnotation*> sourcesUnder(const Rect& padded, const std::vector<ImageAnnotation>& pictures,
                                                 double scale) {
    std::vector<const ImageAnnotation*> sources;
    for (const auto& p : pictures)
        if (p.asset && p.bounds(scale).intersects(padded)) sources.push_back(&p);
    return sources;
}

// The sources painted into an image of `padded` at `factor` pixels a document pixel.
QImage composite(const std::vector<const ImageAnnotation*>& sources, const Rect& padded, double factor) {
    const int w = std::max(1, static_cast<int>(std::ceil(padded.width() * factor)));
    const int h = std::max(1, static_cast<int>(std::ceil(padded.height() * factor)));
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return image;
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setTransform(QTransform::fromTranslate(-padded.minX(), -padded.minY()) *
                         bottomLeftTransform(padded.height()) * QTransform::fromScale(factor, factor));
    for (const ImageAnnotation* source : sources) paintPicture(painter, *source);
    return image;
}

// The region inside the padded image, top-left pixels, at `factor`.
QRect regionInPadded(const Rect& region, const Rect& padded, double factor) {
    const QRectF r((region.minX() - padded.minX()) * factor, (padded.maxY() - region.maxY()) * factor,
                   region.width() * factor, region.height() * factor);
    return r.toAlignedRect();
}

QImage blurred(const std::vector<const ImageAnnotation*>& sources, const Rect& region, const Rect& padded,
               double radius) {
    const double area = padded.width() * padded.height();
    const double k = std::min(1.0, std::sqrt(RedactionCache::blurPixelBudget / area));
    QImage image = composite(sources, padded, k);
    if (image.isNull()) return image;
    gaussianBlur(image, sigmaForFilterRadius(radius * k));
    return image.copy(regionInPadded(region, padded, k).intersected(image.rect()));
}

QImage pixelated(const std::vector<const ImageAnnotation*>& sources, const Rect& region, const Rect& padded,
                 double cell) {
    QImage image = composite(sources, padded, 1);
    if (image.isNull()) return image;
    const QRect box = regionInPadded(region, padded, 1);
    // Cells start at the region's bottom-left corner, as the grid does in document space.
    pixellate(image, cell, QPointF(box.left(), box.top() + box.height()), box);
    return image.copy(box);
}

}  // namespace

std::optional<Rect> RedactionCache::region(const ImageAnnotation& redact) {
    const Rect r = integral(redact.rect);
    if (r.width() < 1 || r.height() < 1) return std::nullopt;
    return r;
}

std::optional<std::string> RedactionCache::key(const ImageAnnotation& redact,
                                               const std::vector<ImageAnnotation>& pictures,
                                               const AnnotationMetrics& metrics) {
    const auto box = region(redact);
    if (!box) return std::nullopt;
    const double reach = margin(metrics);
    const auto sources = sourcesUnder(box->insetBy(-reach, -reach), pictures, metrics.scale);
    if (sources.empty()) return std::nullopt;
    std::string key;
    for (const ImageAnnotation* s : sources) key += (key.empty() ? "" : ";") + signature(*s);
    key += "|" + integers(*box) + "|" + std::string(redact.style.redaction == MaskStyle::pixelate ? "pixelate" : "blur");
    key += "|" + std::to_string(static_cast<int>(redact.style.size));
    return key;
}

std::optional<QImage> RedactionCache::image(const ImageAnnotation& redact,
                                            const std::vector<ImageAnnotation>& pictures,
                                            const AnnotationMetrics& metrics) {
    const auto currentKey = key(redact, pictures, metrics);
    if (!currentKey) return std::nullopt;
    auto found = entries_.find(redact.id);
    if (found != entries_.end() && found->second.key == *currentKey) return found->second.image;

    const Rect box = *region(redact);
    const double reach = margin(metrics);
    const Rect padded = box.insetBy(-reach, -reach);
    const auto sources = sourcesUnder(padded, pictures, metrics.scale);
    ++computeCount_;
    QImage finished = redact.style.redaction == MaskStyle::pixelate
                          ? pixelated(sources, box, padded, metrics.pixelCell)
                          : blurred(sources, box, padded, metrics.blurRadius);
    if (finished.isNull()) return std::nullopt;
    entries_[redact.id] = Entry{*currentKey, finished};
    return finished;
}

void RedactionCache::prune(const std::set<Uuid>& keeping) {
    std::erase_if(entries_, [&](const auto& entry) { return !keeping.contains(entry.first); });
}

}  // namespace halvane
