#include "Model/AnnotationMetrics.h"
#include "Render/ArrowGeometry.h"
#include "Render/BitmapImage.h"
#include "Render/ImageAnnotationRenderer.h"
#include "support/GuiApplication.h"

#include <gtest/gtest.h>

#include <QPainter>

#include <cmath>

namespace halvane {
namespace {

using Kind = ImageAnnotationKind;

class ImageAnnotationRendererTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { test::ensureGuiApplication(); }
};

QImage solid(int w, int h, QColor c) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(c);
    return image;
}

// Black and white squares of `cell` pixels: as busy a picture as there is.
QImage checker(int w, int h, int cell) {
    QImage image = solid(w, h, Qt::white);
    QPainter p(&image);
    for (int y = 0; y < h; y += cell)
        for (int x = (y / cell) % 2 * cell; x < w; x += 2 * cell) p.fillRect(x, y, cell, cell, Qt::black);
    return image;
}

ImageAnnotation picture(const QImage& image, Rect r, double rotation = 0) {
    ImageAnnotation a;
    a.kind = Kind::image;
    a.rect = r;
    a.asset = std::make_shared<ImageAsset>(Uuid::random(), bitmapOf(image));
    a.rotation = rotation;
    a.style.shadow = false;
    return a;
}

ImageAnnotation mark(Kind kind, Rect r = {}, std::vector<Point> points = {}) {
    ImageAnnotation a;
    a.kind = kind;
    a.rect = r;
    a.points = std::move(points);
    a.style.shadow = false;
    return a;
}

// The pixel under a document point of a flattened `canvas`.
QRgb at(const QImage& image, const Rect& canvas, double x, double y) {
    return image.pixel(static_cast<int>(std::floor(x - canvas.minX())), static_cast<int>(std::floor(canvas.maxY() - y)));
}

QImage flatten(const std::vector<ImageAnnotation>& list, const Rect& canvas, double scale = 1) {
    RedactionCache cache;
    return ImageAnnotationRenderer::flattened(list, canvas, scale, cache);
}

bool inked(QRgb p) { return qAlpha(p) > 128; }

// ---- placement

TEST_F(ImageAnnotationRendererTest, DocumentCoordinatesHaveTheirOriginAtTheBottomLeftOfTheCanvas) {
    const Rect canvas(100, 50, 100, 100);
    ImageAnnotation box = mark(Kind::rectangle, Rect(110, 60, 20, 20));
    box.style.filled = true;
    const QImage out = flatten({box}, canvas);
    ASSERT_EQ(out.size(), QSize(100, 100));
    EXPECT_TRUE(inked(out.pixel(20, 80)));  // bottom-left part of the image
    EXPECT_FALSE(inked(out.pixel(20, 20)));
    EXPECT_EQ(qRed(at(out, canvas, 120, 70)), 255);
}

TEST_F(ImageAnnotationRendererTest, APictureIsDrawnUprightAndTurnedAsItsHitTestSays) {
    // Top half red, bottom half blue.
    QImage image = solid(100, 40, Qt::blue);
    QPainter(&image).fillRect(0, 0, 100, 20, Qt::red);
    const Rect canvas(0, 0, 200, 200);
    const ImageAnnotation upright = picture(image, Rect(50, 80, 100, 40));
    QImage out = flatten({upright}, canvas);
    EXPECT_EQ(qRed(at(out, canvas, 100, 115)), 255);  // the top stays on top
    EXPECT_EQ(qBlue(at(out, canvas, 100, 85)), 255);

    const ImageAnnotation turned = picture(image, Rect(50, 80, 100, 40), 30);
    out = flatten({turned}, canvas);
    int agreements = 0, checked = 0;
    for (double y = 5; y < 200; y += 7)
        for (double x = 5; x < 200; x += 7) {
            const bool hitFirm = turned.hitTest({x, y}, 1, -2);   // well inside
            const bool missFirm = !turned.hitTest({x, y}, 1, 2);  // well outside
            if (!hitFirm && !missFirm) continue;
            ++checked;
            if (inked(at(out, canvas, x, y)) == hitFirm) ++agreements;
        }
    EXPECT_GT(checked, 500);
    EXPECT_EQ(agreements, checked);
    // Clockwise: the right end of the bar went down, so its top-right corner area is now lower right.
    const Point rightEnd = turned.rotated({145, 100});
    EXPECT_LT(rightEnd.y, 100);
    EXPECT_TRUE(inked(at(out, canvas, rightEnd.x, rightEnd.y)));
}

// ---- arrows

TEST_F(ImageAnnotationRendererTest, AnArrowsHeadPointsAlongItsDirectionAndSitsAtItsEnd) {
    const Rect canvas(0, 0, 300, 300);
    for (double degrees : {0.0, 90.0, 200.0, 315.0}) {
        const double r = degrees * M_PI / 180;
        const Point u{std::cos(r), std::sin(r)};
        const Point c{150, 150}, s{c.x - 100 * u.x, c.y - 100 * u.y}, e{c.x + 100 * u.x, c.y + 100 * u.y};
        const ImageAnnotation arrow = mark(Kind::arrow, {}, {s, e});
        const AnnotationMetrics m(arrow.style, 1);
        const QImage out = flatten({arrow}, canvas);
        auto ink = [&](double along, double across) {
            return inked(at(out, canvas, e.x + along * u.x - across * u.y, e.y + along * u.y + across * u.x));
        };
        SCOPED_TRACE(degrees);
        EXPECT_TRUE(ink(-2, 0));                       // just behind the tip
        EXPECT_FALSE(ink(3, 0));                       // nothing beyond it
        EXPECT_TRUE(ink(-0.9 * m.headLength, m.headLength * 0.3));  // the head is wide near its base
        EXPECT_FALSE(ink(-50, m.headLength * 0.3));    // the shaft is not
        EXPECT_TRUE(ink(-50, 0));
    }
}

TEST_F(ImageAnnotationRendererTest, AnArrowShorterThanItsStrokeIsADotAtItsEnd) {
    for (auto style : {ArrowStyle::standard, ArrowStyle::fancy, ArrowStyle::curved, ArrowStyle::doubleHeaded}) {
        const auto p = ArrowGeometry::paths(style, {10, 10}, {12, 10}, {11, 20}, 4, 19.4);
        EXPECT_FALSE(p.stroke);
        ASSERT_TRUE(p.fill);
        EXPECT_EQ(p.fill->boundingRect(), QRectF(10, 8, 4, 4));
    }
}

TEST_F(ImageAnnotationRendererTest, AShortStandardArrowHasAHeadOfPartOfItsLength) {
    const auto p = ArrowGeometry::paths(ArrowStyle::standard, {0, 0}, {20, 0}, {}, 4, 19.4);
    ASSERT_TRUE(p.fill && p.stroke);
    EXPECT_NEAR(p.fill->boundingRect().left(), 20 - 0.55 * 20, 1e-9);
    EXPECT_NEAR(p.fill->boundingRect().right(), 20, 1e-9);
    EXPECT_NEAR(p.stroke->boundingRect().right(), 20 - 0.8 * 11, 1e-9);  // the shaft stops in the notch
}

TEST_F(ImageAnnotationRendererTest, ADoubleArrowHasTwoHeadsOnOneCurve) {
    auto subpaths = [](const QPainterPath& path) {
        int n = 0;
        for (int i = 0; i < path.elementCount(); ++i) n += path.elementAt(i).isMoveTo();
        return n;
    };
    const auto curved = ArrowGeometry::paths(ArrowStyle::curved, {0, 0}, {100, 0}, {50, 22}, 4, 19.4);
    const auto both = ArrowGeometry::paths(ArrowStyle::doubleHeaded, {0, 0}, {100, 0}, {50, 22}, 4, 19.4);
    ASSERT_TRUE(curved.stroke && both.stroke);
    EXPECT_FALSE(both.fill);
    EXPECT_EQ(subpaths(*curved.stroke), 1 + 2);
    EXPECT_EQ(subpaths(*both.stroke), 1 + 4);
    // The extra barbs leave from the start and open back along the curve, toward the control.
    int barbsAtStart = 0;
    for (int i = 0; i + 1 < both.stroke->elementCount(); ++i) {
        const auto from = both.stroke->elementAt(i), to = both.stroke->elementAt(i + 1);
        if (i > 0 && from.isMoveTo() && QPointF(from) == QPointF(0, 0)) {
            ++barbsAtStart;
            EXPECT_GT(to.x, 0);
        }
    }
    EXPECT_EQ(barbsAtStart, 2);
    EXPECT_FALSE(ArrowGeometry::glyph(ArrowStyle::fancy).isNull());
}

// ---- redactions

TEST_F(ImageAnnotationRendererTest, ARedactionHidesThePictureButNotTheMarksBeneathIt) {
    const Rect canvas(0, 0, 200, 200);
    const ImageAnnotation pic = picture(checker(200, 200, 4), canvas);
    ImageAnnotation red = mark(Kind::rectangle, Rect(20, 20, 100, 40));
    red.style.filled = true;
    red.style.colorHex = "#FF0000";
    ImageAnnotation blur = mark(Kind::redact, Rect(60, 10, 100, 100));
    blur.style.redaction = MaskStyle::blur;
    const QImage out = flatten({pic, red, blur}, canvas);

    // Under the redaction the checker is gone: every pixel is near the mean grey.
    int extremes = 0, redTinted = 0;
    for (int y = 25; y < 105; y += 3)
        for (int x = 65; x < 155; x += 3) {
            const QRgb p = at(out, canvas, x, y);
            extremes += qGreen(p) < 60 || qGreen(p) > 195;
            redTinted += qRed(p) - qGreen(p) > 30;
        }
    EXPECT_EQ(extremes, 0);
    EXPECT_EQ(redTinted, 0);  // the red mark was not smeared into the blur
    // Outside it, picture and mark are as they were.
    EXPECT_EQ(at(out, canvas, 40, 40), qRgb(255, 0, 0));
    const QRgb corner = at(out, canvas, 181, 181);
    EXPECT_TRUE(corner == qRgb(0, 0, 0) || corner == qRgb(255, 255, 255));
}

TEST_F(ImageAnnotationRendererTest, PixelationCellsAreFlatAndStartAtTheRegionsCorner) {
    const Rect canvas(0, 0, 200, 200);
    QImage gradient(200, 200, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 200; ++x) gradient.setPixel(x, y, qRgb(x, y, 128));
    const ImageAnnotation pic = picture(gradient, canvas);
    ImageAnnotation pix = mark(Kind::redact, Rect(50, 50, 100, 100));
    pix.style.redaction = MaskStyle::pixelate;
    const double cell = AnnotationMetrics(pix.style, 1).pixelCell;  // 12
    const QImage out = flatten({pic, pix}, canvas);
    // Inside one cell from the region's corner, one colour; across a cell edge, another.
    const QRgb a = at(out, canvas, 50 + 3, 50 + 3), b = at(out, canvas, 50 + cell - 2, 50 + cell - 2);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, at(out, canvas, 50 + cell + 2, 50 + 3));
    EXPECT_NE(a, at(out, canvas, 50 + 3, 50 + cell + 2));
}

TEST_F(ImageAnnotationRendererTest, ARedactionOverNoPictureDrawsNothing) {
    const Rect canvas(0, 0, 100, 100);
    const ImageAnnotation pic = picture(checker(40, 40, 4), Rect(0, 0, 40, 40));
    // Beyond the picture even with the margin the filter reaches into.
    const ImageAnnotation redact = mark(Kind::redact, Rect(80, 80, 15, 15));
    RedactionCache cache;
    const QImage out = ImageAnnotationRenderer::flattened({pic, redact}, canvas, 1, cache);
    EXPECT_EQ(qAlpha(at(out, canvas, 75, 75)), 0);
    EXPECT_EQ(cache.entryCount(), 0u);
}

TEST_F(ImageAnnotationRendererTest, TheCacheServesARedactionThatStaysAndRefreshesOneThatChanges) {
    const Rect canvas(0, 0, 300, 300);
    ImageAnnotation pic = picture(checker(300, 300, 5), canvas);
    ImageAnnotation redact = mark(Kind::redact, Rect(50, 50, 80, 80));
    redact.style.redaction = MaskStyle::blur;
    RedactionCache cache;
    ImageAnnotationRenderer::flattened({pic, redact}, canvas, 1, cache);
    ImageAnnotationRenderer::flattened({pic, redact}, canvas, 1, cache);
    EXPECT_EQ(cache.computeCount(), 1);

    pic.translate({3, 0});  // the picture moves under a fixed redaction
    ImageAnnotationRenderer::flattened({pic, redact}, canvas, 1, cache);
    EXPECT_EQ(cache.computeCount(), 2);
    redact.style.size = AnnotationSize::large;
    ImageAnnotationRenderer::flattened({pic, redact}, canvas, 1, cache);
    EXPECT_EQ(cache.computeCount(), 3);
    redact.translate({10, 10});
    ImageAnnotationRenderer::flattened({pic, redact}, canvas, 1, cache);
    EXPECT_EQ(cache.computeCount(), 4);
    EXPECT_EQ(cache.entryCount(), 1u);

    cache.prune({pic.id});
    EXPECT_EQ(cache.entryCount(), 0u);
}

TEST_F(ImageAnnotationRendererTest, ABlurWorksOnABoundedNumberOfSourcePixels) {
    const Rect canvas(0, 0, 3000, 2000);
    const ImageAnnotation pic = picture(checker(3000, 2000, 16), canvas);
    ImageAnnotation redact = mark(Kind::redact, Rect(100, 100, 2500, 1500));
    redact.style.redaction = MaskStyle::blur;
    RedactionCache cache;
    const auto image = cache.image(redact, {pic}, AnnotationMetrics(redact.style, 2.7));
    ASSERT_TRUE(image);
    EXPECT_LE(double(image->width()) * image->height(), RedactionCache::blurPixelBudget);
    EXPECT_GT(double(image->width()) * image->height(), 0.5 * RedactionCache::blurPixelBudget);
}

// ---- spotlights, highlighter, shadows, text

TEST_F(ImageAnnotationRendererTest, OverlappingSpotlightsShareOneDimming) {
    const Rect canvas(0, 0, 200, 100);
    const ImageAnnotation pic = picture(solid(200, 100, Qt::white), canvas);
    ImageAnnotation box = mark(Kind::rectangle, Rect(150, 10, 20, 20));
    box.style.filled = true;
    box.style.colorHex = "#FFFFFF";
    // The spotlights come first in the list and are still drawn over the box.
    const QImage out = flatten(
        {pic, mark(Kind::spotlight, Rect(20, 20, 80, 60)), mark(Kind::spotlight, Rect(60, 20, 80, 60)), box}, canvas);
    EXPECT_EQ(qRed(at(out, canvas, 30, 50)), 255);   // in one
    EXPECT_EQ(qRed(at(out, canvas, 130, 50)), 255);  // in the other
    // Outside both, one darkening of 60 %, not one for each spotlight.
    EXPECT_NEAR(qRed(at(out, canvas, 180, 50)), 102, 2);
    EXPECT_NEAR(qRed(at(out, canvas, 80, 5)), 102, 2);
    EXPECT_NEAR(qRed(at(out, canvas, 160, 20)), 102, 2);
    // Where they overlap the even-odd rule closes the hole again: dark, and still only once.
    EXPECT_NEAR(qRed(at(out, canvas, 80, 50)), 102, 2);
}

TEST_F(ImageAnnotationRendererTest, AHighlighterMultipliesAndCastsNoShadow) {
    const Rect canvas(0, 0, 200, 100);
    QImage image = solid(200, 100, Qt::white);
    QPainter(&image).fillRect(0, 0, 100, 100, QColor(20, 20, 20));
    const ImageAnnotation pic = picture(image, canvas);
    ImageAnnotation marker = mark(Kind::highlighter, {}, {{20, 50}, {180, 50}});
    marker.style.colorHex = "#FFFF00";
    marker.style.shadow = true;
    const QImage out = flatten({pic, marker}, canvas);
    EXPECT_LE(qRed(at(out, canvas, 50, 50)), 20);  // dark stays dark
    const QRgb lit = at(out, canvas, 150, 50);
    EXPECT_GT(qRed(lit), 200);
    EXPECT_LT(qBlue(lit), 150);  // yellow over white
    const double half = AnnotationMetrics(marker.style, 1).highlighterWidth / 2;
    EXPECT_EQ(at(out, canvas, 150, 50 - half - 3), qRgb(255, 255, 255));  // no shadow beneath
}

TEST_F(ImageAnnotationRendererTest, AShadowFallsBelowTheMark) {
    const Rect canvas(0, 0, 100, 100);
    ImageAnnotation box = mark(Kind::rectangle, Rect(30, 30, 40, 40));
    box.style.shadow = true;
    const QImage out = flatten({box}, canvas, 2);
    EXPECT_GT(qAlpha(at(out, canvas, 50, 27)), qAlpha(at(out, canvas, 50, 73)));
    EXPECT_GT(qAlpha(at(out, canvas, 50, 27)), 0);
}

TEST_F(ImageAnnotationRendererTest, AFilledTextIsAPillWhoseWordsTheEditorMayTakeOver) {
    const Rect canvas(0, 0, 300, 100);
    ImageAnnotation text = mark(Kind::text, Rect(10, 90, 0, 0));
    text.text = "WWWW";
    text.style.filled = true;
    text.style.colorHex = "#0000FF";
    auto whitePixels = [&](const QImage& out) {
        int n = 0;
        for (int y = 0; y < out.height(); ++y)
            for (int x = 0; x < out.width(); ++x) n += out.pixel(x, y) == qRgb(255, 255, 255);
        return n;
    };
    RedactionCache cache;
    const QImage shown = ImageAnnotationRenderer::flattened({text}, canvas, 2, cache);
    ImageAnnotationRenderer::Options editing;
    editing.editingTextID = text.id;
    const QImage edited = ImageAnnotationRenderer::flattened({text}, canvas, 2, cache, editing);
    EXPECT_GT(whitePixels(shown), 20);   // white words on a dark pill
    EXPECT_EQ(whitePixels(edited), 0);
    EXPECT_EQ(at(edited, canvas, 14, 86), qRgb(0, 0, 255));  // the pill stays

    text.style.colorHex = "#FFFF00";  // light: the words turn near black
    const QImage light = ImageAnnotationRenderer::flattened({text}, canvas, 2, cache);
    EXPECT_EQ(whitePixels(light), 0);
}

TEST_F(ImageAnnotationRendererTest, ACounterIsADiscWithItsFigure) {
    const Rect canvas(0, 0, 100, 100);
    ImageAnnotation counter = mark(Kind::counter, Rect(20, 20, 60, 60));
    counter.number = 8;
    const QImage out = flatten({counter}, canvas);
    EXPECT_EQ(at(out, canvas, 25, 50), qRgb(255, 59, 48));  // the disc in the style's colour
    int white = 0;
    for (int y = 30; y < 70; ++y)
        for (int x = 30; x < 70; ++x) white += at(out, canvas, x, y) == qRgb(255, 255, 255);
    EXPECT_GT(white, 30);
    EXPECT_EQ(qAlpha(at(out, canvas, 21, 21)), 0);  // round, not square
}

}  // namespace
}  // namespace halvane
