// Building the layers of an export that don't change over time.

#include "Model/FocusTimeline.h"
#include "Render/CanvasCoordinates.h"
#include "Render/CanvasLayout.h"
#include "Render/FrameComposer.h"
#include "Render/PlanarPicture.h"
#include "Render/QtColor.h"
#include "Render/RasterKernels.h"
#include "Render/ShadowProfile.h"
#include "Support/Theme.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <set>

namespace halvane {

namespace {

QImage canvasImage(Size size, Qt::GlobalColor fill) {
    QImage image(int(size.width), int(size.height), QImage::Format_ARGB32_Premultiplied);
    if (!image.isNull()) image.fill(fill);
    return image;
}

QPainterPath roundedRect(const QRectF& r, double radius) {
    QPainterPath path;
    double rr = std::clamp(radius, 0.0, std::min(r.width(), r.height()) / 2);
    path.addRoundedRect(r, rr, rr);
    return path;
}

QColor cardFillColor() { return toQColor(Theme::cardFill); }

// The smallest whole-pixel box (top-left) holding a canvas rectangle.
QRect pixelBox(const Rect& r, double canvasHeight) {
    QRectF f = toTopLeft(r, canvasHeight);
    int x0 = int(std::floor(f.left())), y0 = int(std::floor(f.top()));
    int x1 = int(std::ceil(f.right())), y1 = int(std::ceil(f.bottom()));
    return QRect(x0, y0, std::max(1, x1 - x0), std::max(1, y1 - y0));
}

// The tiles of an image that hold any non-transparent pixel.
std::vector<QRect> paintedTiles(const QImage& image, int tile) {
    std::vector<QRect> tiles;
    for (int top = 0; top < image.height(); top += tile)
        for (int left = 0; left < image.width(); left += tile) {
            const QRect r = QRect(left, top, tile, tile).intersected(image.rect());
            bool painted = false;
            for (int y = r.top(); y <= r.bottom() && !painted; ++y) {
                const auto* row = reinterpret_cast<const uint32_t*>(image.constScanLine(y));
                for (int x = r.left(); x <= r.right() && !painted; ++x) painted = row[x] != 0;
            }
            if (painted) tiles.push_back(r);
        }
    return tiles;
}

}  // namespace

std::vector<double> FrameComposer::sourceAspects() const {
    std::vector<double> aspects;
    for (const auto& s : input_.meta.sources)
        aspects.push_back(s.pixelHeight < 1 ? 16.0 / 9.0 : double(s.pixelWidth) / double(s.pixelHeight));
    return aspects;
}

const FrameComposer::Statics& FrameComposer::buildStatics() {
    if (built_) return statics_;
    built_ = true;
    const EditSettings& s = input_.settings;
    statics_.canvasRect = Rect{0, 0, input_.canvasSize.width, input_.canvasSize.height};

    std::optional<QImage> background;
    if (s.showBackground)
        background = backgrounds_.image(s.background, input_.canvasSize, input_.package, s.backgroundBlur);
    const QImage* bg = background ? &*background : nullptr;

    buildPlateAndMask(bg);
    buildPointerArt();
    buildWebcam();
    if (multiSource_) buildMultiCards(bg);
    return statics_;
}

void FrameComposer::buildPlateAndMask(const QImage* background) {
    const EditSettings& s = input_.settings;
    const double H = height();
    CardLayout layout = CanvasLayout::cardLayout(input_.canvasSize, input_.meta, s);
    statics_.videoRect = layout.video;

    std::optional<CardBorder::Band> band;
    if (!multiSource_)
        band = CardBorder::band(s.borderStyle, s.borderWidth, layout.card, layout.cardRadius, input_.canvasSize);

    statics_.plate = canvasImage(input_.canvasSize, Qt::black);
    if (statics_.plate.isNull()) {
        statics_.plate = QImage(1, 1, QImage::Format_ARGB32_Premultiplied);
        statics_.plate.fill(Qt::black);
    } else {
        QPainter p(&statics_.plate);
        if (background) p.drawImage(QRectF(statics_.plate.rect()), *background);
        p.end();
        if (!multiSource_) {
            QPainterPath shadowPath = band ? roundedRect(toTopLeft(band->outerRect, H), band->outerRadius)
                                           : roundedRect(toTopLeft(layout.card, H), layout.cardRadius);
            double unit = std::min(layout.card.width(), layout.card.height());
            ShadowProfile(s.shadow).draw(statics_.plate, shadowPath, unit);
            QPainter fill(&statics_.plate);
            fill.setRenderHint(QPainter::Antialiasing, true);
            fill.fillPath(roundedRect(toTopLeft(layout.card, H), layout.cardRadius), cardFillColor());
        }
    }

    // The video's rounded rectangle as coverage over the whole-pixel box that holds it.
    // Whole 2 × 2 blocks, so that a planar frame's chroma under the box belongs to the box alone.
    statics_.videoPixels = roundedToBlocks(pixelBox(layout.video, H)).intersected(statics_.plate.rect());
    statics_.videoMask = QImage(statics_.videoPixels.size(), QImage::Format_ARGB32_Premultiplied);
    if (!statics_.videoMask.isNull()) {
        statics_.videoMask.fill(Qt::transparent);
        QPainter p(&statics_.videoMask);
        p.setRenderHint(QPainter::Antialiasing, true);
        p.translate(-statics_.videoPixels.topLeft());
        p.fillPath(roundedRect(toTopLeft(layout.video, H), layout.innerRadius), Qt::white);
    }
    const QRect box = statics_.videoPixels;
    // The box reaches up to two pixels past the rectangle's edges, so the bands and columns are
    // that much deeper than the corners and the fractional edges alone would need.
    const int rows = std::min(int(std::ceil(layout.innerRadius)) + 3, (box.height() + 1) / 2);
    statics_.videoEdges = {QRect(box.left(), box.top(), box.width(), rows),
                           QRect(box.left(), box.bottom() - rows + 1, box.width(), rows)};
    if (box.height() > 2 * rows) {
        statics_.videoEdges.push_back(QRect(box.left(), box.top() + rows, 2, box.height() - 2 * rows));
        statics_.videoEdges.push_back(QRect(box.right() - 1, box.top() + rows, 2, box.height() - 2 * rows));
    }
    buildBorder(band, background);
}

void FrameComposer::buildBorder(const std::optional<CardBorder::Band>& band, const QImage* background) {
    if (!band) return;
    const double H = height();
    Rect target = CardBorder::rasterTarget(*band);
    if (band->style == CardBorderStyle::liquid) {
        auto lens = liquid_.image(*band, background ? *background : QImage(), statics_.canvasRect, 1);
        if (!lens) return;
        statics_.borderImage = lens->convertToFormat(QImage::Format_ARGB32_Premultiplied);
        statics_.borderTopLeft = toTopLeft(target, H).topLeft();
        statics_.borderTiles = paintedTiles(statics_.borderImage, 64);
        settleBorderTiles();
        return;
    }
    // Drawn on the canvas pixel grid so the strokes stay as sharp as drawing them in place.
    QRect box = pixelBox(target, H);
    QImage image(box.size(), QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return;
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.translate(-box.topLeft());
    p.setTransform(bottomLeftTransform(H), true);
    CardBorder::draw(*band, p);
    p.end();
    statics_.borderImage = std::move(image);
    statics_.borderTopLeft = box.topLeft();
    statics_.borderTiles = paintedTiles(statics_.borderImage, 64);
    settleBorderTiles();
}

// Tiles clear of the video box look the same on every frame: they go into the plate once.
void FrameComposer::settleBorderTiles() {
    statics_.frameBorderTiles.clear();
    QPainter p(&statics_.plate);
    for (const QRect& tile : statics_.borderTiles) {
        const QPointF at = statics_.borderTopLeft + QPointF(tile.topLeft());
        if (QRectF(at, QSizeF(tile.size())).toAlignedRect().adjusted(-1, -1, 1, 1).intersects(statics_.videoPixels))
            statics_.frameBorderTiles.push_back(tile);
        else
            p.drawImage(at, statics_.borderImage, tile);
    }
}

void FrameComposer::buildPointerArt() {
    const EditSettings& s = input_.settings;
    statics_.clickEffect = s.clickEffect == ClickEffect::circle ? CursorArt::circleDisc() : CursorArt::rippleRing();
    if (s.cursorStyle == CursorStyle::spotlight) statics_.spotlightDisc = CursorArt::spotlightDisc();
    if (!s.showCursor) return;
    std::set<CursorShape> shapes{CursorShape::arrow};
    if (s.cursorSyncShape && s.cursorStyle != CursorStyle::dot)
        for (CursorShape shape : model_.cursorTimeline().shapeValues()) shapes.insert(shape);
    for (CursorShape shape : shapes) {
        std::optional<CursorArt::Cursor> cursor;
        if (s.cursorStyle == CursorStyle::dot) {
            cursor = CursorArt::dot();
        } else {
            const auto& system = CursorArt::systemCursors();
            auto it = system.find(shape);
            cursor = it != system.end() ? std::optional(it->second) : CursorArt::arrow();
        }
        if (cursor && !cursor->image.isNull()) statics_.cursorImages[shape] = *cursor;
    }
}

void FrameComposer::buildWebcam() {
    if (!camera_) return;
    const EditSettings& s = input_.settings;
    const double W = input_.canvasSize.width, H = height();
    const double shorter = std::min(W, H);
    Size bubble = CanvasLayout::webcamBubbleSize(s.webcamFrame(), shorter * std::clamp(s.webcamSize, 0.1, 0.5));
    const double margin = shorter * 0.035;
    bool left = s.webcamCorner == WebcamCorner::topLeft || s.webcamCorner == WebcamCorner::bottomLeft;
    bool bottom = s.webcamCorner == WebcamCorner::bottomLeft || s.webcamCorner == WebcamCorner::bottomRight;
    Rect rect{left ? margin : W - margin - bubble.width, bottom ? margin : H - margin - bubble.height, bubble.width,
              bubble.height};
    rect = roundToQuarterPixel(rect);

    WebcamStatics webcam;
    webcam.rect = rect;
    QRectF tl = toTopLeft(rect, H);
    switch (s.webcamShape) {
    case WebcamShape::circle:
        webcam.path.addEllipse(tl);
        break;
    case WebcamShape::squircle:
        webcam.path = CanvasLayout::squirclePath(rect, H);
        break;
    case WebcamShape::rounded:
    case WebcamShape::portrait:
        webcam.path = roundedRect(tl, 0.22 * std::min(rect.width(), rect.height()));
        break;
    }
    // Blur reach (three sigmas of half the blur length) plus the offset, with a pixel to spare.
    const int reach = int(std::ceil(3 * 0.05 * rect.width() + 0.05 * rect.width())) + 3;
    webcam.shadowArea = webcam.path.boundingRect().toAlignedRect().adjusted(-reach, -reach, reach, reach);
    webcam.shadow = canvasImage(input_.canvasSize, Qt::transparent);
    webcam.shadowArea = webcam.shadowArea.intersected(webcam.shadow.rect());
    if (!webcam.shadow.isNull()) {
        ShadowLook look{QColor(0, 0, 0, int(std::lround(0.4 * 255))), 0.1 * rect.width(),
                        QPointF(0, 0.05 * rect.width())};
        drawPathShadow(webcam.shadow, webcam.path, look);
        QPainter p(&webcam.shadow);
        p.setRenderHint(QPainter::Antialiasing, true);
        p.setCompositionMode(QPainter::CompositionMode_Clear);
        p.fillPath(webcam.path, Qt::black);
    }
    webcam.bubbleBox = webcam.path.boundingRect().toAlignedRect().intersected(QRect(QPoint(0, 0), webcam.shadow.size()));
    if (!webcam.bubbleBox.isEmpty()) {
        webcam.bubbleMask = QImage(webcam.bubbleBox.size(), QImage::Format_ARGB32_Premultiplied);
        webcam.bubbleMask.fill(Qt::transparent);
        QPainter p(&webcam.bubbleMask);
        p.setRenderHint(QPainter::Antialiasing, true);
        p.translate(-webcam.bubbleBox.topLeft());
        p.fillPath(webcam.path, Qt::white);
    }
    statics_.webcam = std::move(webcam);
}

void FrameComposer::buildMultiCards(const QImage* background) {
    const EditSettings& s = input_.settings;
    const std::vector<double> aspects = sourceAspects();
    const int n = int(aspects.size());
    const double frac = std::clamp(s.cornerRadiusFraction, 0.0, 0.5);
    for (int i = 0; i < n; ++i) {
        std::vector<int> order{i};
        for (int k = 0; k < n; ++k)
            if (k != i) order.push_back(k);
        auto rects = FocusTimeline::layout(order, aspects, input_.canvasSize, s.padding);
        Rect r = i < int(rects.size()) ? rects[size_t(i)] : Rect{};
        SourceCardStatics card;
        card.referenceSize = {std::max(8.0, std::round(r.width())), std::max(8.0, std::round(r.height()))};
        const Size ref = card.referenceSize;
        const double radius = frac * std::min(ref.width, ref.height);
        auto band = CardBorder::band(s.borderStyle, s.borderWidth, Rect{0, 0, ref.width, ref.height}, radius,
                                     input_.canvasSize);
        if (band) {
            card.border = CardBorder::rasterizedImage(*band, background ? *background : QImage(), statics_.canvasRect, 1,
                                                      &liquid_);
            card.borderMargin = 0 - CardBorder::rasterTarget(*band).minX();
        }
        card.mask = QImage(int(ref.width), int(ref.height), QImage::Format_ARGB32_Premultiplied);
        if (!card.mask.isNull()) {
            card.mask.fill(Qt::transparent);
            QPainter p(&card.mask);
            p.setRenderHint(QPainter::Antialiasing, true);
            p.fillPath(roundedRect(QRectF(0, 0, ref.width, ref.height), radius), Qt::white);
        }
        const double bandWidth = band ? band->width : 0;
        card.shadowMargin = std::ceil(ref.width * 0.12 + bandWidth);
        const double m = card.shadowMargin;
        card.shadow = QImage(int(ref.width + 2 * m), int(ref.height + 2 * m), QImage::Format_ARGB32_Premultiplied);
        if (!card.shadow.isNull()) {
            card.shadow.fill(Qt::transparent);
            QPainterPath path = roundedRect(QRectF(m - bandWidth, m - bandWidth, ref.width + 2 * bandWidth,
                                                   ref.height + 2 * bandWidth),
                                            radius + bandWidth);
            double alpha = s.shadow <= 0 ? 0.2 : 0.2 + 0.4 * std::min(s.shadow, 1.0);
            ShadowLook look{QColor(0, 0, 0, int(std::lround(alpha * 255))), 0.05 * ref.width,
                            QPointF(0, 0.02 * ref.width)};
            drawPathShadow(card.shadow, path, look);
            QPainter p(&card.shadow);
            p.setRenderHint(QPainter::Antialiasing, true);
            p.setCompositionMode(QPainter::CompositionMode_Clear);
            p.fillPath(path, Qt::black);
        }
        statics_.multiCards.push_back(std::move(card));
    }
}

}  // namespace halvane
