#include "Render/FrameComposer.h"

#include "Model/ZoomTimeline.h"
#include "Render/CanvasCoordinates.h"
#include "Render/KeystrokeArt.h"
#include "Render/RasterKernels.h"
#include "Render/Resampling.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace halvane {

namespace {

constexpr long long captionPixels = 4194304;
constexpr size_t captionCacheLimit = 65;
constexpr size_t keystrokeCacheLimit = 129;

struct RippleLook {
    double base, growth, peak, exponent;
};
constexpr RippleLook circleLook{18, 9, 0.45, 1.5};
constexpr RippleLook rippleLook{12, 34, 0.55, 1.6};

bool insideUnit(Point u) { return u.x >= -0.02 && u.x <= 1.02 && u.y >= -0.02 && u.y <= 1.02; }

// Where `image` scaled by s lands with its lower-left corner at a canvas point (bottom-left).
QRectF scaledTarget(const QImage& image, double s, Point corner, double canvasHeight) {
    return QRectF(corner.x, canvasHeight - (corner.y + image.height() * s), image.width() * s, image.height() * s);
}

// Draws `image` scaled by s with its lower-left corner at canvas point (x, y) (bottom-left).
void drawScaled(QPainter& p, const QImage& image, double s, double x, double y, double canvasHeight) {
    p.drawImage(scaledTarget(image, s, Point{x, y}, canvasHeight), image);
}

}  // namespace

// The part of a source picture that scaling `window` (unit, top left) onto `target` reads: the
// filter taps reach a source pixel past the edge, and the whole-pixel box around the target and
// the halving before strong shrinks a few target pixels more. `sourcePixels` is the expected
// picture size (the reading rounds out further).
Rect FrameComposer::readRegion(const Rect& window, const Rect& target, Size sourcePixels) {
    const double mx = 4 * window.width() / std::max(target.width(), 1.0) + 2 / std::max(sourcePixels.width, 16.0);
    const double my = 4 * window.height() / std::max(target.height(), 1.0) + 2 / std::max(sourcePixels.height, 16.0);
    return Rect{window.minX() - mx, window.minY() - my, window.width() + 2 * mx, window.height() + 2 * my}.intersection(
        Rect{0, 0, 1, 1});
}

namespace {

// picture = layer × coverage + picture × (1 − coverage) over the layer's area at `at`, with the
// coverage the alpha of `mask` (the layer's size).
void layThroughMask(QImage& picture, QPoint at, const QImage& layer, const QImage& mask) {
    const QRect area = QRect(at, layer.size()).intersected(picture.rect());
    for (int y = area.top(); y <= area.bottom(); ++y) {
        auto* d = reinterpret_cast<uint32_t*>(picture.scanLine(y));
        const auto* l = reinterpret_cast<const uint32_t*>(layer.constScanLine(y - at.y())) - at.x();
        const auto* m = reinterpret_cast<const uint32_t*>(mask.constScanLine(y - at.y())) - at.x();
        for (int x = area.left(); x <= area.right(); ++x) {
            const uint32_t coverage = m[x] >> 24;
            if (coverage != 0) d[x] = coverage == 255 ? l[x] : mixPixels(d[x], l[x], coverage + (coverage >> 7));
        }
    }
}

}  // namespace

FrameComposer::FrameComposer(CompositionInput input, std::vector<FrameSource*> screens, FrameSource* camera,
                             double cameraOffset)
    : input_(std::move(input)),
      screens_(std::move(screens)),
      camera_(camera),
      cameraOffset_(cameraOffset),
      model_(input_.meta, input_.events, input_.settings),
      speedMap_(input_.settings.speedMap(input_.meta.duration)),
      crop_(input_.settings.cropRect()),
      multiSource_(input_.meta.sources.size() >= 2 && screens_.size() >= 2) {}

Point FrameComposer::project(Point p, const Rect& visible, const Rect& target) {
    return {target.minX() + target.width() * (p.x - visible.minX()) / std::max(visible.width(), 0.0001),
            target.minY() + target.height() * (1 - (p.y - visible.minY()) / std::max(visible.height(), 0.0001))};
}

Rect FrameComposer::project(const Rect& r, const Rect& visible, const Rect& target) {
    Point a = project(Point{r.minX(), r.minY()}, visible, target);
    Point b = project(Point{r.maxX(), r.maxY()}, visible, target);
    return Rect{std::min(a.x, b.x), std::min(a.y, b.y), std::fabs(b.x - a.x), std::fabs(b.y - a.y)};
}

double FrameComposer::sourceTime(double outputTime) const {
    double t = speedMap_.sourceTime(outputTime);
    const auto& pieces = speedMap_.pieces();
    if (!pieces.empty()) {
        const auto& last = pieces.back();
        // A cut that reaches the end of the trim must not show its first frame at the very end.
        if (last.sourceEnd < speedMap_.sourceRange().upper && last.sourceEnd <= t)
            t = std::max(last.sourceStart, last.sourceEnd - 1.0 / 600.0);
    }
    return t;
}

int FrameComposer::motionBlurSamples(double outputTime) const {
    if (!input_.settings.motionBlur || multiSource_) return 1;
    const double dt = 1.0 / input_.fps;
    const auto& zooms = model_.effectiveZooms();
    Rect a = ZoomTimeline::visibleRect(outputTime, zooms);
    Rect b = ZoomTimeline::visibleRect(outputTime + dt, zooms);
    double travel = (statics_.videoRect.width() / std::max(a.width(), 0.01)) *
                    (std::fabs(b.minX() - a.minX()) + std::fabs(b.minY() - a.minY()) + std::fabs(b.width() - a.width()));
    if (travel <= 1.5) return 1;
    return std::min(int(std::trunc(travel * 0.25)) + 2, 6);
}

QImage FrameComposer::composeOutputFrame(double outputTime) {
    buildStatics();
    // Pictures unused for a couple of seconds of frames go back (motion blur wants seven at once).
    canvases_.trim(uint64_t(std::max(input_.fps, 1.0) * 2));
    const int n = motionBlurSamples(outputTime);
    if (n <= 1) return composeFrame(sourceTime(outputTime));
    return composeBlurredFrame(outputTime, n);
}

QImage FrameComposer::composeBlurredFrame(double outputTime, int n) {
    const double dt = 1.0 / input_.fps;
    std::vector<QImage> samples;
    std::vector<QRect> areas{statics_.videoPixels};
    for (int i = 0; i < n; ++i) {
        Composed sample = composeSingleFrame(sourceTime(outputTime + (dt / 2) * i / (n - 1)));
        samples.push_back(std::move(sample.image));
        areas.insert(areas.end(), sample.drawn.begin(), sample.drawn.end());
    }
    // Away from the video box and the overlays every sample is the plate, and so is their mean.
    const int slot = canvases_.acquire(statics_.plate, statics_.videoPixels);
    if (!averageInto(canvases_.picture(slot), samples, areas)) {
        canvases_.release(slot, {});
        return samples.front();
    }
    return canvases_.release(slot, std::move(areas));
}

QImage FrameComposer::composeFrame(double t) {
    buildStatics();
    return multiSource_ ? composeMultiFrame(t) : composeSingleFrame(t).image;
}

void FrameComposer::willDraw(const QRectF& area) { willDraw(area.toAlignedRect().adjusted(-1, -1, 1, 1)); }

void FrameComposer::willDraw(const QRect& area) {
    if (area.isEmpty()) return;
    drawn_.push_back(area);
    if (planar_) bringIntoWork(area);
}

FrameComposer::ScreenView FrameComposer::screenView(double t) {
    ScreenView view;
    view.visible = ZoomTimeline::visibleRect(speedMap_.outputTime(t), model_.effectiveZooms());
    view.window = Rect{crop_.minX() + view.visible.minX() * crop_.width(),
                       crop_.minY() + view.visible.minY() * crop_.height(), view.visible.width() * crop_.width(),
                       view.visible.height() * crop_.height()};
    view.screen = screens_.empty() ? nullptr : screens_[0];
    if (view.screen)
        view.screen->setRegionOfInterest(readRegion(view.window, statics_.videoRect,
                                                    {double(input_.meta.pixelWidth), double(input_.meta.pixelHeight)}));
    return view;
}

FrameComposer::Composed FrameComposer::composeSingleFrame(double t) {
    const ScreenView view = screenView(t);
    const QImage* frame = view.screen ? view.screen->frame(t) : nullptr;
    if (!frame || frame->isNull()) return {statics_.plate, {}};
    drawn_.clear();
    const int slot = canvases_.acquire(statics_.plate, statics_.videoPixels);
    QImage& picture = canvases_.picture(slot);
    drawVideo(picture, *frame, view.window);
    drawOverVideo(picture, t, view.visible);
    Composed composed{QImage(), drawn_};
    composed.image = canvases_.release(slot, std::move(drawn_));
    drawn_.clear();
    return composed;
}

// Everything after the video: masks, pointer and the canvas overlays.
void FrameComposer::drawOverVideo(QImage& picture, double t, const Rect& visible) {
    const EditSettings& s = input_.settings;
    applyMasks(picture, t, visible, statics_.videoRect, crop_, std::nullopt);
    const RenderState state = model_.state(t, s);
    const double pointsToCanvas = statics_.videoRect.width() / std::max(input_.meta.pointWidth * crop_.width(), 1.0);
    if (s.showCursor) {
        if (s.clickEffect != ClickEffect::none) drawRipples(picture, state, visible, statics_.videoRect, pointsToCanvas, std::nullopt);
        if (s.cursorStyle == CursorStyle::spotlight) drawSpotlight(picture, t, visible, pointsToCanvas);
        if (state.cursor) drawPointer(picture, *state.cursor, state, visible, statics_.videoRect, pointsToCanvas);
    }
    composeCanvasOverlays(picture, t, state);
}

void FrameComposer::drawVideo(QImage& picture, const QImage& frame, const Rect& window) {
    const QRect box = statics_.videoPixels;
    const double ew = frame.width(), eh = frame.height();
    QRectF source(ew * window.minX(), eh * window.minY(), std::max(ew * window.width(), 1.0),
                  std::max(eh * window.height(), 1.0));
    // The whole box is written, so a reused picture needs nothing of its last frame put back here.
    resampleInto(picture, box, frame, source, toTopLeft(statics_.videoRect, height()));
    // Rounded corners and fractional edges: only the thin bands the rounded rectangle covers partly
    // are blended back towards the plate through the video mask, instead of masking the whole video.
    if (statics_.videoMask.isNull()) return;
    for (const QRect& edge : statics_.videoEdges)
        blendTowardsPlate(picture, statics_.plate, statics_.videoMask, edge, box.topLeft());
}

void FrameComposer::applyMasks(QImage& picture, double t, const Rect& visible, const Rect& target, const Rect& crop,
                               std::optional<int> source) {
    const double k = target.width() / std::max(visible.width(), 0.001);
    for (const MaskAnnotation& mask : input_.settings.masks) {
        if (!(mask.start <= t && t <= mask.end)) continue;
        if (source && mask.source && *mask.source != *source) continue;
        Rect unit = mask.rect.standardized();
        Rect relative{(unit.minX() - crop.minX()) / crop.width(), (unit.minY() - crop.minY()) / crop.height(),
                      unit.width() / crop.width(), unit.height() / crop.height()};
        Rect onCanvas = project(relative, visible, target).intersection(target);
        if (onCanvas.width() <= 2 || onCanvas.height() <= 2) continue;
        QRect region = toTopLeftPixels(onCanvas, int(height())).intersected(picture.rect());
        if (region.isEmpty()) continue;
        if (mask.style == MaskStyle::pixelate) {
            const double cell = std::max(k * 0.02, 6.0);
            // Cells crossing the region's edge take their mean over pixels outside it too.
            const int reach = int(std::ceil(cell));
            willDraw(region.adjusted(-reach, -reach, reach, reach));
            // Cells start at the rectangle's lower-left corner.
            pixellate(picture, cell, toTopLeft(Point{onCanvas.minX(), onCanvas.minY()}, height()), region);
        } else {
            double sigma = sigmaForFilterRadius(std::max(k * 0.012, 3.0));
            int margin = int(std::ceil(sigma * 3));
            // A card of several sources is blurred as its own picture, clamped at its own edges.
            const QRect bounds = source ? toTopLeft(target, height()).toAlignedRect() : picture.rect();
            QRect around = region.adjusted(-margin, -margin, margin, margin).intersected(bounds);
            willDraw(around);
            QImage patch = picture.copy(around);
            gaussianBlur(patch, sigma);
            QPainter p(&picture);
            p.setCompositionMode(QPainter::CompositionMode_Source);
            p.drawImage(region.topLeft(), patch, QRect(region.topLeft() - around.topLeft(), region.size()));
        }
    }
}

void FrameComposer::drawRipples(QImage& picture, const RenderState& state, const Rect& visible, const Rect& target,
                                double pointsToCanvas, std::optional<int> source) {
    if (!statics_.clickEffect) return;
    const QImage& art = *statics_.clickEffect;
    const RippleLook look = input_.settings.clickEffect == ClickEffect::circle ? circleLook : rippleLook;
    const double zoom = 1 / std::max(visible.width(), source ? 0.01 : 0.0);
    const QRectF clip = toTopLeft(target, height());
    struct Placed {
        double scale, alpha;
        Point corner;
    };
    std::vector<Placed> placed;
    for (const auto& ripple : state.ripples) {
        if (source && ripple.source != source) continue;
        const double q = 1 - ripple.progress;
        const double radius = look.base + look.growth * (1 - q * q * q);
        const double s = 2 * radius * pointsToCanvas * zoom / 200;
        Point c = project(ripple.center, visible, target);
        placed.push_back({s, look.peak * std::pow(q, look.exponent),
                          Point{c.x - art.width() / 2.0 * s, c.y - art.height() / 2.0 * s}});
        willDraw(scaledTarget(art, s, placed.back().corner, height()).intersected(clip));
    }
    if (placed.empty()) return;
    QPainter p(&picture);
    p.setRenderHint(QPainter::SmoothPixmapTransform, true);
    p.setClipRect(clip);
    for (const Placed& ripple : placed) {
        p.setOpacity(ripple.alpha);
        drawScaled(p, art, ripple.scale, ripple.corner.x, ripple.corner.y, height());
    }
}

void FrameComposer::drawSpotlight(QImage& picture, double t, const Rect& visible, double pointsToCanvas) {
    if (!statics_.spotlightDisc) return;
    auto pointer = RenderModel::pointerWithLoop(model_.cursorTimeline(), t, input_.settings, duration());
    if (!pointer) return;
    Point u = RenderModel::inCrop(*pointer, crop_);
    if (!insideUnit(u)) return;
    const Rect& video = statics_.videoRect;
    Point c = project(u, visible, video);
    const QImage& disc = *statics_.spotlightDisc;
    const double s = 110 * pointsToCanvas * (1 / visible.width()) * 1.3 / 256;
    // The dim over the video with the disc cut out of it.
    QRect box = statics_.videoPixels;
    QImage dim(box.size(), QImage::Format_ARGB32_Premultiplied);
    if (dim.isNull()) return;
    dim.fill(Qt::transparent);
    {
        QPainter p(&dim);
        p.translate(-box.topLeft());
        p.fillRect(toTopLeft(video, height()), QColor(0, 0, 0, int(std::lround(0.45 * 255))));
        p.setCompositionMode(QPainter::CompositionMode_DestinationOut);
        p.setRenderHint(QPainter::SmoothPixmapTransform, true);
        drawScaled(p, disc, s, c.x - disc.width() / 2.0 * s, c.y - disc.height() / 2.0 * s, height());
    }
    willDraw(box);
    QPainter p(&picture);
    p.drawImage(box.topLeft(), dim);
}

void FrameComposer::drawPointer(QImage& picture, Point unit, const RenderState& state, const Rect& visible,
                                const Rect& target, double pointsToCanvas) {
    const EditSettings& s = input_.settings;
    auto it = statics_.cursorImages.find(state.cursorShape);
    if (it == statics_.cursorImages.end()) it = statics_.cursorImages.find(CursorShape::arrow);
    if (it == statics_.cursorImages.end()) return;
    const CursorArt::Cursor& cursor = it->second;
    const double alpha = s.cursorAutoHide ? state.cursorAlpha : 1.0;
    if (alpha <= 0.004) return;
    const double press = s.clickBounce ? state.pressAmount * 0.15 : 0;
    const double zoom = 1 / std::max(visible.width(), 0.01);
    const double w = cursor.image.width(), h = cursor.image.height();
    const double scale = s.cursorScale * pointsToCanvas * (1 - press) * zoom * cursor.pointSize.width / w;
    Point c = project(unit, visible, target);
    const Point corner{c.x - cursor.hotspotUnit.x * w * scale, c.y - (1 - cursor.hotspotUnit.y) * h * scale};
    const QRectF clip = toTopLeft(target, height());
    willDraw(scaledTarget(cursor.image, scale, corner, height()).intersected(clip));
    QPainter p(&picture);
    p.setRenderHint(QPainter::SmoothPixmapTransform, true);
    p.setClipRect(clip);
    p.setOpacity(alpha >= 0.999 ? 1 : alpha);
    drawScaled(p, cursor.image, scale, corner.x, corner.y, height());
}

void FrameComposer::composeCanvasOverlays(QImage& picture, double t, const RenderState& state) {
    if (!statics_.borderImage.isNull() && !statics_.frameBorderTiles.empty()) {
        for (const QRect& tile : statics_.frameBorderTiles)
            willDraw(QRectF(statics_.borderTopLeft + QPointF(tile.topLeft()), QSizeF(tile.size())));
        QPainter p(&picture);
        for (const QRect& tile : statics_.frameBorderTiles)
            p.drawImage(statics_.borderTopLeft + QPointF(tile.topLeft()), statics_.borderImage, tile);
    }
    drawWebcam(picture, t);
    drawAnnotations(picture, t);
    drawCaption(picture, t);
    drawKeystroke(picture, state);
}

void FrameComposer::drawWebcam(QImage& picture, double t) {
    if (!statics_.webcam || !camera_) return;
    const QImage* frame = camera_->frame(t - cameraOffset_);
    if (!frame || frame->isNull()) return;
    const WebcamStatics& webcam = *statics_.webcam;
    const Rect& r = webcam.rect;
    const double ew = frame->width(), eh = frame->height();
    const double s = eh <= 1 ? r.height() : std::max(r.width() / std::max(ew, 1.0), r.height() / eh);
    QRectF target = toTopLeft(Rect{r.midX() - s * ew / 2, r.midY() - s * eh / 2, s * ew, s * eh}, height());
    if (!webcam.shadow.isNull()) {
        willDraw(webcam.shadowArea);
        QPainter(&picture).drawImage(webcam.shadowArea.topLeft(), webcam.shadow, webcam.shadowArea);
    }
    const QRect box = webcam.bubbleBox;
    if (box.isEmpty() || webcam.bubbleMask.isNull()) return;
    if (cameraLayer_.size() != box.size()) cameraLayer_ = QImage(box.size(), QImage::Format_ARGB32_Premultiplied);
    resampleInto(cameraLayer_, cameraLayer_.rect(), *frame, QRectF(frame->rect()), target.translated(-QPointF(box.topLeft())));
    willDraw(box);
    layThroughMask(picture, box.topLeft(), cameraLayer_, webcam.bubbleMask);
}

void FrameComposer::drawAnnotations(QImage& picture, double t) {
    std::vector<CanvasAnnotation> live;
    for (const auto& a : input_.settings.annotations)
        if (a.alpha(t) > 0.004) live.push_back(a);
    annotationBitmaps_.prepare(live, input_.canvasSize, 1);
    if (live.empty()) return;
    const double W = input_.canvasSize.width, H = height();
    struct Placed {
        QRectF target;
        QImage image;
        double alpha;
    };
    std::vector<Placed> placed;
    for (const auto& a : live) {
        auto rendered = annotationBitmaps_.rendered(a, input_.package.value_or(std::filesystem::path()));
        if (!rendered || rendered->image.isNull()) continue;
        // Positions are stored with y from the bottom of the canvas.
        QPointF centre(a.position.x * W, (1 - a.position.y) * H);
        QRectF target(centre.x() - rendered->size.width / 2, centre.y() - rendered->size.height / 2,
                      rendered->size.width, rendered->size.height);
        willDraw(target);
        placed.push_back({target, rendered->image, a.alpha(t)});
    }
    if (placed.empty()) return;
    QPainter p(&picture);
    p.setRenderHint(QPainter::SmoothPixmapTransform, true);
    for (const Placed& a : placed) {
        p.setOpacity(a.alpha >= 0.999 ? 1 : a.alpha);
        p.drawImage(a.target, a.image);
    }
}

void FrameComposer::drawCaption(QImage& picture, double t) {
    if (!input_.transcript) return;
    const TranscriptCue* cue = input_.transcript->cue(t);
    if (!cue || cue->text.empty()) return;
    const AnnotationArt::Rendered* art = captionImage(*cue);
    if (!art) return;
    const double W = input_.canvasSize.width, H = height();
    double x = roundHalfAway((W - art->size.width) / 2);
    double y = roundHalfAway(H * 0.09 - art->size.height / 2);
    const QRectF target(x, H - y - art->size.height, art->size.width, art->size.height);
    willDraw(target);
    QPainter p(&picture);
    p.drawImage(target, art->image);
}

void FrameComposer::drawKeystroke(QImage& picture, const RenderState& state) {
    if (!state.keystroke) return;
    const AnnotationArt::Rendered* art = keystrokeImage(state.keystroke->text);
    if (!art) return;
    const double W = input_.canvasSize.width, H = height();
    double x = roundHalfAway((W - art->size.width) / 2);
    double y = roundHalfAway(H * 0.17 - art->size.height / 2);
    const QRectF target(x, H - y - art->size.height, art->size.width, art->size.height);
    willDraw(target);
    QPainter p(&picture);
    double alpha = state.keystroke->alpha;
    p.setOpacity(alpha >= 0.999 ? 1 : std::max(alpha, 0.0));
    p.drawImage(target, art->image);
}

const AnnotationArt::Rendered* FrameComposer::captionImage(const TranscriptCue& cue) {
    auto it = captionCache_.find(cue.id);
    if (it == captionCache_.end()) {
        if (captionCache_.size() >= captionCacheLimit) captionCache_.clear();
        CanvasAnnotation caption;
        caption.kind = CanvasAnnotationKind::text;
        caption.text = cue.text;
        caption.size = input_.settings.captionSize;
        caption.pill = true;
        caption.start = 0;
        caption.end = 1;
        const double shorter = std::min(input_.canvasSize.width, height());
        it = captionCache_.emplace(cue.id, AnnotationArt::render(caption, shorter, 1, captionPixels)).first;
    }
    return it->second ? &*it->second : nullptr;
}

const AnnotationArt::Rendered* FrameComposer::keystrokeImage(const std::string& text) {
    auto it = keystrokeCache_.find(text);
    if (it == keystrokeCache_.end()) {
        if (keystrokeCache_.size() >= keystrokeCacheLimit) keystrokeCache_.clear();
        const double shorter = std::min(input_.canvasSize.width, height());
        it = keystrokeCache_.emplace(text, KeystrokeArt::render(text, input_.settings.keystrokeSize, shorter, 1)).first;
    }
    return it->second ? &*it->second : nullptr;
}

}  // namespace halvane
