// Frames of takes with several sources: one card per source, placed and stacked by the focus
// timeline, a lifted card crossing over its neighbours while it comes to the front.

#include "Model/FocusTimeline.h"
#include "Model/ZoomTimeline.h"
#include "Render/CanvasCoordinates.h"
#include "Render/FrameComposer.h"
#include "Render/QtColor.h"
#include "Render/Resampling.h"
#include "Support/Theme.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace halvane {

namespace {

void fillArea(QImage& image, const QRect& area, uint32_t premultiplied) {
    const QRect r = area.intersected(image.rect());
    for (int y = r.top(); y <= r.bottom(); ++y)
        std::fill_n(reinterpret_cast<uint32_t*>(image.scanLine(y)) + r.left(), r.width(), premultiplied);
}

// Scales the pixels along the edges of the image by how much of each lies inside `inside` (image
// pixels, fractional): a picture scaled onto a fractional rectangle covers its edge pixels partly.
void fadeOutside(QImage& image, const QRectF& inside) {
    auto coverage = [](int i, double from, double to) {
        return uint32_t(std::lround(256 * std::clamp(std::min(i + 1.0, to) - std::max(double(i), from), 0.0, 1.0)));
    };
    std::vector<uint32_t> column(size_t(image.width()));
    std::vector<int> partColumns;  // the few columns not wholly inside
    for (int x = 0; x < image.width(); ++x) {
        column[size_t(x)] = coverage(x, inside.left(), inside.right());
        if (column[size_t(x)] < 256) partColumns.push_back(x);
    }
    for (int y = 0; y < image.height(); ++y) {
        const uint32_t row = coverage(y, inside.top(), inside.bottom());
        auto* pixels = reinterpret_cast<uint32_t*>(image.scanLine(y));
        auto fade = [&](int x) {
            const uint32_t f = (row * column[size_t(x)] + 128) >> 8;
            if (f < 256) pixels[x] = mixPixels(0, pixels[x], f);
        };
        if (row < 256) {
            for (int x = 0; x < image.width(); ++x) fade(x);
        } else {
            for (int x : partColumns) fade(x);
        }
    }
}

// The area outside `keep` set to `premultiplied`.
void fillOutside(QImage& image, const QRect& area, const QRect& keep, uint32_t premultiplied) {
    const QRect inside = area.intersected(keep);
    if (inside.isEmpty()) return fillArea(image, area, premultiplied);
    fillArea(image, QRect(area.left(), area.top(), area.width(), inside.top() - area.top()), premultiplied);
    fillArea(image, QRect(area.left(), inside.bottom() + 1, area.width(), area.bottom() - inside.bottom()), premultiplied);
    fillArea(image, QRect(area.left(), inside.top(), inside.left() - area.left(), inside.height()), premultiplied);
    fillArea(image, QRect(inside.right() + 1, inside.top(), area.right() - inside.right(), inside.height()), premultiplied);
}

void findOpaqueRuns(std::vector<int>& from, std::vector<int>& to, const QImage& image) {
    const int w = image.width();
    from.assign(size_t(image.height()), w);
    to.assign(size_t(image.height()), -1);
    for (int y = 0; y < image.height(); ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(image.constScanLine(y));
        int a = w / 2, b = w / 2;
        if (w == 0 || row[a] >> 24 != 255) continue;
        while (a > 0 && row[a - 1] >> 24 == 255) --a;
        while (b + 1 < w && row[b + 1] >> 24 == 255) ++b;
        from[size_t(y)] = a;
        to[size_t(y)] = b;
    }
}

// Destination-in with the placed mask: pixels multiplied by the mask's alpha where it lies,
// skipping each row's wholly opaque run.
void cutToMask(QImage& layer, const FrameComposer::PlacedArt& mask) {
    const QRect target = QRect(mask.topLeft, mask.image.size()).intersected(layer.rect());
    for (int y = target.top(); y <= target.bottom(); ++y) {
        const int my = y - mask.topLeft.y();
        auto* d = reinterpret_cast<uint32_t*>(layer.scanLine(y));
        const auto* m = reinterpret_cast<const uint32_t*>(mask.image.constScanLine(my)) - mask.topLeft.x();
        const int skipFrom = mask.opaqueFrom[size_t(my)] + mask.topLeft.x();
        const int skipTo = mask.opaqueTo[size_t(my)] + mask.topLeft.x();
        for (int x = target.left(); x <= target.right(); ++x) {
            if (x == skipFrom && skipTo >= skipFrom) x = skipTo + 1;
            if (x > target.right()) break;
            const uint32_t a = m[x] >> 24;
            if (a != 255) d[x] = mixPixels(0, d[x], a + (a >> 7));
        }
    }
}

void ensureLayer(QImage& layer, QSize size) {
    // Never cleared as a whole: each card clears the area it is about to use.
    if (layer.size() != size) layer = QImage(size, QImage::Format_ARGB32_Premultiplied);
}

}  // namespace

const FrameComposer::PlacedArt& FrameComposer::placedArt(PlacedArt& cached, const QImage& art, const QRectF& target) {
    if (!cached.image.isNull() && cached.target == target) return cached;
    const QRect box = target.toAlignedRect();
    cached.target = target;
    cached.topLeft = box.topLeft();
    cached.image = QImage(box.size(), QImage::Format_ARGB32_Premultiplied);
    if (cached.image.isNull()) return cached;
    const QRectF local = target.translated(-QPointF(box.topLeft()));
    resampleInto(cached.image, cached.image.rect(), art, QRectF(art.rect()), local);
    fadeOutside(cached.image, local);
    return cached;
}

QImage FrameComposer::composeMultiFrame(double t) {
    const EditSettings& s = input_.settings;
    const double H = height();
    drawn_.clear();
    const int slot = canvases_.acquire(statics_.plate, QRect());
    QImage& canvas = canvases_.picture(slot);
    const QRect canvasBox = canvas.rect();
    const std::vector<double> aspects = sourceAspects();
    auto placements = FocusTimeline::placements(t, s.focusSwitches, aspects, input_.canvasSize, s.padding);
    const RenderState state = model_.state(t, s);
    const bool oldWindows = input_.meta.mode == "windows" && input_.meta.version < 2;
    const bool pointerShown = s.showCursor && !oldWindows;

    std::vector<size_t> order(placements.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return placements[a].z < placements[b].z; });
    if (cardArt_.size() < statics_.multiCards.size()) cardArt_.resize(statics_.multiCards.size());
    ensureLayer(cardLayer_, canvas.size());
    ensureLayer(liftedLayer_, canvas.size());

    QRect liftedArea;
    double liftedAlpha = 0;
    for (size_t i : order) {
        if (i >= statics_.multiCards.size()) continue;
        const auto& place = placements[i];
        const Rect& Q = place.rect;
        if (Q.width() <= 2 || Q.height() <= 2) continue;
        const SourceCardStatics& card = statics_.multiCards[i];
        CardArt& art = cardArt_[i];
        const double sx = Q.width() / std::max(card.referenceSize.width, 1.0);
        const double sy = Q.height() / std::max(card.referenceSize.height, 1.0);
        const QRectF q = toTopLeft(Q, H);
        const QRect cardBox = q.toAlignedRect().intersected(canvasBox);

        // Shadow, fading while the card is lifted (the lifted copy carries its own).
        const PlacedArt* shadow = nullptr;
        if (!card.shadow.isNull()) {
            shadow = &placedArt(art.shadow, card.shadow,
                                QRectF(q.left() - card.shadowMargin * sx, q.top() - card.shadowMargin * sy,
                                       card.shadow.width() * sx, card.shadow.height() * sy));
            willDraw(QRectF(shadow->topLeft, QSizeF(shadow->image.size())));
            QPainter p(&canvas);
            p.setOpacity(std::clamp(1 - place.lift, 0.0, 1.0));
            p.drawImage(shadow->topLeft, shadow->image);
        }
        const PlacedArt* border = nullptr;
        if (!card.border.isNull())
            border = &placedArt(art.border, card.border,
                                QRectF(q.left() - card.borderMargin * sx, q.top() - card.borderMargin * sy,
                                       card.border.width() * sx, card.border.height() * sy));
        QRect layerBox = cardBox;
        if (border) layerBox |= QRect(border->topLeft, border->image.size());
        layerBox &= canvasBox;
        fillOutside(cardLayer_, layerBox, cardBox, 0);  // the card box itself is written whole below

        // The card: its source frame through its own zoom, or the card fill without a frame.
        Rect visible{0, 0, 1, 1};
        if (i < state.sourceZoomRects.size()) visible = state.sourceZoomRects[i];
        FrameSource* reader = i < screens_.size() ? screens_[i] : nullptr;
        const double offset = i < input_.meta.sources.size() ? input_.meta.sources[i].startOffset : 0;
        if (reader && i < input_.meta.sources.size()) {
            const auto& source = input_.meta.sources[i];
            reader->setRegionOfInterest(readRegion(visible, Q, {double(source.pixelWidth), double(source.pixelHeight)}));
        }
        const QImage* frame = reader ? reader->frame(t - offset) : nullptr;
        if (frame && !frame->isNull()) {
            const double ew = frame->width(), eh = frame->height();
            const QRectF window(visible.minX() * ew, visible.minY() * eh, std::max(visible.width() * ew, 1.0),
                                std::max(visible.height() * eh, 1.0));
            resampleInto(cardLayer_, cardBox, *frame, window, q);
        } else {
            fillArea(cardLayer_, cardBox, qPremultiply(toQColor(Theme::cardFill).rgba()));
        }
        applyMasks(cardLayer_, t, visible, Q, Rect{0, 0, 1, 1}, int(i));
        const double pointsToCanvas =
            Q.width() / std::max(i < input_.meta.sources.size() ? input_.meta.sources[i].pointWidth : 0.0, 1.0);
        if (pointerShown) {
            if (s.clickEffect != ClickEffect::none) drawRipples(cardLayer_, state, visible, Q, pointsToCanvas, int(i));
            if (model_.pointerMap() && state.cursor && state.cursorSource == int(i))
                drawPointer(cardLayer_, *state.cursor, state, visible, Q, pointsToCanvas);
        }
        if (place.dim > 0.001)
            QPainter(&cardLayer_).fillRect(q, QColor(0, 0, 0, int(std::lround(std::min(place.dim, 1.0) * 255))));
        // Rounded corners (and the partly covered edge pixels) through the card's mask.
        if (!card.mask.isNull()) {
            PlacedArt& mask = art.mask;
            if (mask.image.isNull() || mask.target != q) {
                placedArt(mask, card.mask, q);
                findOpaqueRuns(mask.opaqueFrom, mask.opaqueTo, mask.image);
            }
            cutToMask(cardLayer_, mask);
        }
        if (border) {
            QPainter p(&cardLayer_);
            p.setOpacity(std::max(1 - place.dim, 0.0));
            p.drawImage(border->topLeft, border->image);
        }
        willDraw(layerBox);
        QPainter(&canvas).drawImage(layerBox.topLeft(), cardLayer_, layerBox);
        if (place.lift > 0.0001) {
            // The card over its unfaded shadow, laid over everything once all cards stand.
            QRect area = layerBox;
            if (shadow) area |= QRect(shadow->topLeft, shadow->image.size());
            area &= canvasBox;
            fillArea(liftedLayer_, area, 0);
            QPainter p(&liftedLayer_);
            if (shadow) p.drawImage(shadow->topLeft, shadow->image);
            p.drawImage(layerBox.topLeft(), cardLayer_, layerBox);
            liftedArea = area;
            liftedAlpha = place.lift;
        }
    }
    if (!liftedArea.isEmpty()) {
        willDraw(liftedArea);
        QPainter p(&canvas);
        p.setOpacity(std::min(liftedAlpha, 1.0));
        p.drawImage(liftedArea.topLeft(), liftedLayer_, liftedArea);
    }
    composeCanvasOverlays(canvas, t, state);
    QImage picture = canvases_.release(slot, drawn_);
    drawn_.clear();
    return picture;
}

}  // namespace halvane
