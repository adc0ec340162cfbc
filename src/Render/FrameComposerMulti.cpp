// Frames of takes with several sources: one card per source, placed and stacked by the focus
// timeline, a lifted card crossing over its neighbours while it comes to the front.

#include "Model/FocusTimeline.h"
#include "Model/ZoomTimeline.h"
#include "Render/CanvasCoordinates.h"
#include "Render/FrameComposer.h"
#include "Render/QtColor.h"
#include "Support/Theme.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace halvane {

QImage FrameComposer::composeMultiFrame(double t) {
    const EditSettings& s = input_.settings;
    const double H = height();
    QImage canvas = statics_.plate.copy();
    const std::vector<double> aspects = sourceAspects();
    auto placements = FocusTimeline::placements(t, s.focusSwitches, aspects, input_.canvasSize, s.padding);
    const RenderState state = model_.state(t, s);
    const bool oldWindows = input_.meta.mode == "windows" && input_.meta.version < 2;
    const bool pointerShown = s.showCursor && !oldWindows;

    std::vector<size_t> order(placements.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return placements[a].z < placements[b].z; });

    QImage lifted;
    double liftedAlpha = 0;
    for (size_t i : order) {
        if (i >= statics_.multiCards.size()) continue;
        const auto& place = placements[i];
        const Rect& Q = place.rect;
        if (Q.width() <= 2 || Q.height() <= 2) continue;
        const SourceCardStatics& card = statics_.multiCards[i];
        const double sx = Q.width() / std::max(card.referenceSize.width, 1.0);
        const double sy = Q.height() / std::max(card.referenceSize.height, 1.0);
        const QRectF q = toTopLeft(Q, H);

        // Shadow, fading while the card is lifted (the lifted copy carries its own).
        QImage shadowLayer;
        if (!card.shadow.isNull()) {
            QRectF shadowRect(q.left() - card.shadowMargin * sx, q.top() - card.shadowMargin * sy, card.shadow.width() * sx,
                              card.shadow.height() * sy);
            QPainter p(&canvas);
            p.setRenderHint(QPainter::SmoothPixmapTransform, true);
            p.setOpacity(std::clamp(1 - place.lift, 0.0, 1.0));
            p.drawImage(shadowRect, card.shadow);
            if (place.lift > 0.0001) {
                shadowLayer = QImage(canvas.size(), QImage::Format_ARGB32_Premultiplied);
                shadowLayer.fill(Qt::transparent);
                QPainter sp(&shadowLayer);
                sp.setRenderHint(QPainter::SmoothPixmapTransform, true);
                sp.drawImage(shadowRect, card.shadow);
            }
        }

        // The card: its source frame through its own zoom, or the card fill without a frame.
        Rect visible{0, 0, 1, 1};
        if (i < state.sourceZoomRects.size()) visible = state.sourceZoomRects[i];
        QImage cardImage(canvas.size(), QImage::Format_ARGB32_Premultiplied);
        cardImage.fill(Qt::transparent);
        {
            QPainter p(&cardImage);
            p.setRenderHint(QPainter::SmoothPixmapTransform, true);
            FrameSource* reader = i < screens_.size() ? screens_[i] : nullptr;
            double offset = i < input_.meta.sources.size() ? input_.meta.sources[i].startOffset : 0;
            const QImage* frame = reader ? reader->frame(t - offset) : nullptr;
            if (frame && !frame->isNull()) {
                const double ew = frame->width(), eh = frame->height();
                QRectF window(visible.minX() * ew, visible.minY() * eh, std::max(visible.width() * ew, 1.0),
                              std::max(visible.height() * eh, 1.0));
                p.drawImage(q, *frame, window);
            } else {
                p.fillRect(q, toQColor(Theme::cardFill));
            }
        }
        applyMasks(cardImage, t, visible, Q, Rect{0, 0, 1, 1}, int(i));
        const double pointsToCanvas =
            Q.width() / std::max(i < input_.meta.sources.size() ? input_.meta.sources[i].pointWidth : 0.0, 1.0);
        if (pointerShown) {
            if (s.clickEffect != ClickEffect::none) drawRipples(cardImage, state, visible, Q, pointsToCanvas, int(i));
            if (model_.pointerMap() && state.cursor && state.cursorSource == int(i))
                drawPointer(cardImage, *state.cursor, state, visible, Q, pointsToCanvas);
        }
        {
            QPainter p(&cardImage);
            if (place.dim > 0.001) p.fillRect(q, QColor(0, 0, 0, int(std::lround(std::min(place.dim, 1.0) * 255))));
            // Rounded corners through the card's mask.
            p.setRenderHint(QPainter::SmoothPixmapTransform, true);
            p.setCompositionMode(QPainter::CompositionMode_DestinationIn);
            if (!card.mask.isNull()) {
                QImage coverage(canvas.size(), QImage::Format_ARGB32_Premultiplied);
                coverage.fill(Qt::transparent);
                QPainter mp(&coverage);
                mp.setRenderHint(QPainter::SmoothPixmapTransform, true);
                mp.drawImage(q, card.mask);
                mp.end();
                p.drawImage(0, 0, coverage);
            }
            p.setCompositionMode(QPainter::CompositionMode_SourceOver);
            if (!card.border.isNull()) {
                p.setOpacity(std::max(1 - place.dim, 0.0));
                p.drawImage(QRectF(q.left() - card.borderMargin * sx, q.top() - card.borderMargin * sy,
                                   card.border.width() * sx, card.border.height() * sy),
                            card.border);
            }
        }
        {
            QPainter p(&canvas);
            p.drawImage(0, 0, cardImage);
        }
        if (place.lift > 0.0001) {
            if (shadowLayer.isNull()) {
                lifted = std::move(cardImage);
            } else {
                QPainter p(&shadowLayer);
                p.drawImage(0, 0, cardImage);
                p.end();
                lifted = std::move(shadowLayer);
            }
            liftedAlpha = place.lift;
        }
    }
    if (!lifted.isNull()) {
        QPainter p(&canvas);
        p.setOpacity(std::min(liftedAlpha, 1.0));
        p.drawImage(0, 0, lifted);
    }
    composeCanvasOverlays(canvas, t, state);
    return canvas;
}

}  // namespace halvane
