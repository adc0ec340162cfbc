#include "Render/CardBorder.h"
#include "Render/LiquidGlass.h"

#include <gtest/gtest.h>

#include <QColor>
#include <QImage>
#include <QPainter>

using namespace halvane;

namespace {

const Rect card{100, 100, 400, 300};
const Size canvas{600, 500};

// Pixel of a rasterized band image at a point given in canvas points (y upward).
QColor pixelAt(const QImage& image, const CardBorder::Band& band, double scale, double x, double y) {
    Rect t = CardBorder::rasterTarget(band);
    int px = int((x - t.minX()) * scale);
    int py = int((t.maxY() - y) * scale);
    return QColor::fromRgba(image.pixel(px, py));
}

QImage solidImage(int w, int h, QColor c) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(c);
    return image;
}

}  // namespace

TEST(CardBorderBand, NoBandWithoutStrengthRoomOrWidth) {
    EXPECT_FALSE(CardBorder::band(CardBorderStyle::glass, 0, card, 10, canvas));
    // A card touching the canvas edge leaves no margin.
    EXPECT_FALSE(CardBorder::band(CardBorderStyle::glass, 1, Rect{0, 100, 400, 300}, 10, canvas));
    // 0.4 points is too thin to draw.
    EXPECT_FALSE(CardBorder::bandWithWidth(CardBorderStyle::glass, 0.4, card, 10));
}

TEST(CardBorderBand, WidthFollowsStrengthHeldToOneAndTheMargin) {
    auto full = CardBorder::band(CardBorderStyle::glass, 1, card, 10, canvas);
    auto over = CardBorder::band(CardBorderStyle::glass, 5, card, 10, canvas);
    ASSERT_TRUE(full && over);
    EXPECT_DOUBLE_EQ(full->width, 300 * 0.03);
    EXPECT_EQ(*full, *over);
    // A margin of 4 points caps the band.
    auto tight = CardBorder::band(CardBorderStyle::glass, 1, Rect{4, 100, 400, 300}, 10, canvas);
    ASSERT_TRUE(tight);
    EXPECT_DOUBLE_EQ(tight->width, 4);
    EXPECT_EQ(tight->outerRect, (Rect{0, 96, 408, 308}));
    EXPECT_DOUBLE_EQ(tight->outerRadius, 14);
}

TEST(CardBorderBand, StrokesPerStyle) {
    auto glass = CardBorder::bandWithWidth(CardBorderStyle::glass, 10, card, 12);
    auto dark = CardBorder::bandWithWidth(CardBorderStyle::glassDark, 10, card, 12);
    auto liquid = CardBorder::bandWithWidth(CardBorderStyle::liquid, 10, card, 12);
    ASSERT_TRUE(glass && dark && liquid);
    ASSERT_EQ(glass->strokes.size(), 2u);
    ASSERT_EQ(dark->strokes.size(), 3u);
    EXPECT_TRUE(liquid->strokes.empty());
    // The body stroke runs along the middle of the band.
    EXPECT_EQ(glass->strokes[0].rect, (Rect{95, 95, 410, 310}));
    EXPECT_DOUBLE_EQ(glass->strokes[0].radius, 17);
    // The hairline is 0.9 points (10 × 0.09) and hugs the card.
    EXPECT_DOUBLE_EQ(glass->strokes[1].width, 0.9);
    EXPECT_FALSE(glass->strokes[1].endColor);
    // The dark sheen is 1.4 points wide at the outer edge, ramped diagonally.
    const auto& sheen = dark->strokes[1];
    EXPECT_DOUBLE_EQ(sheen.width, 1.4);
    EXPECT_DOUBLE_EQ(sheen.rect.minX(), 100 - (10 - 1.4 + 0.7));
    EXPECT_EQ(sheen.rampStart, (Point{0, 1}));
    EXPECT_EQ(sheen.rampEnd, (Point{1, 0}));
}

TEST(CardBorderRaster, GlassIsBrighterAtTheTopAndEmptyInside) {
    auto band = CardBorder::bandWithWidth(CardBorderStyle::glass, 10, card, 12);
    ASSERT_TRUE(band);
    QImage image = CardBorder::rasterizedImage(*band, QImage(), Rect{}, 1);
    EXPECT_EQ(image.width(), 422);
    EXPECT_EQ(image.height(), 322);
    QColor top = pixelAt(image, *band, 1, 300, 405);
    QColor bottom = pixelAt(image, *band, 1, 300, 95);
    EXPECT_GT(top.alpha(), bottom.alpha());
    EXPECT_GT(top.alpha(), 150);
    EXPECT_EQ(pixelAt(image, *band, 1, 300, 250).alpha(), 0);
    EXPECT_EQ(pixelAt(image, *band, 1, 300, 414).alpha(), 0);
}

TEST(LiquidGlassRender, BlackBackgroundShowsOnlyTheLight) {
    auto band = CardBorder::bandWithWidth(CardBorderStyle::liquid, 12, card, 20);
    ASSERT_TRUE(band);
    LiquidGlass glass;
    auto image = glass.image(*band, QImage(), Rect{0, 0, 600, 500}, 1);
    ASSERT_TRUE(image);
    // Middle of the left band: fully covered, a light grey with the slight cool cast.
    QColor c = pixelAt(*image, *band, 1, 94, 250);
    EXPECT_EQ(c.alpha(), 255);
    EXPECT_GE(c.blue(), c.red());
    EXPECT_GT(c.red(), 0);
    // Inside the card and outside the band nothing is drawn.
    EXPECT_EQ(pixelAt(*image, *band, 1, 300, 250).alpha(), 0);
    EXPECT_EQ(pixelAt(*image, *band, 1, 87.5, 250).alpha(), 0);
}

TEST(LiquidGlassRender, BendsAtTheEdgesAndNotInTheMiddle) {
    // A red strip under the middle of the left band, blue elsewhere.
    QImage background(600, 500, QImage::Format_ARGB32_Premultiplied);
    background.fill(Qt::blue);
    {
        QPainter p(&background);
        p.fillRect(91, 0, 6, 500, Qt::red);
    }
    auto band = CardBorder::bandWithWidth(CardBorderStyle::liquid, 12, card, 20);
    ASSERT_TRUE(band);
    LiquidGlass glass;
    auto image = glass.image(*band, background, Rect{0, 0, 600, 500}, 1);
    ASSERT_TRUE(image);
    // Half way across the band the sample is (almost) straight below: red.
    QColor middle = pixelAt(*image, *band, 1, 93.5, 250);
    EXPECT_GT(middle.red(), middle.blue());
    // Next to the card the lens throws the sample about ten points outward, past the strip.
    QColor nearCard = pixelAt(*image, *band, 1, 99.5, 250);
    EXPECT_GT(nearCard.blue(), nearCard.red());
}

TEST(LiquidGlassRender, DoubleScaleDoublesThePicture) {
    auto band = CardBorder::bandWithWidth(CardBorderStyle::liquid, 12, card, 20);
    ASSERT_TRUE(band);
    LiquidGlass glass;
    QImage bg = solidImage(600, 500, QColor(40, 120, 200));
    auto one = glass.image(*band, bg, Rect{0, 0, 600, 500}, 1);
    auto two = glass.image(*band, bg, Rect{0, 0, 600, 500}, 2);
    ASSERT_TRUE(one && two);
    EXPECT_EQ(two->width(), one->width() * 2);
    EXPECT_EQ(two->height(), one->height() * 2);
    QColor a = pixelAt(*one, *band, 1, 94, 250);
    QColor b = pixelAt(*two, *band, 2, 94, 250);
    EXPECT_NEAR(a.red(), b.red(), 3);
    EXPECT_NEAR(a.blue(), b.blue(), 3);
}

TEST(LiquidGlassRender, TooSmallTargetGivesNothing) {
    auto band = CardBorder::bandWithWidth(CardBorderStyle::liquid, 0.6, Rect{0, 0, 0.2, 0.2}, 0);
    ASSERT_TRUE(band);
    LiquidGlass glass;
    // The target is 3.4 points a side: 2 pixels at half scale.
    EXPECT_FALSE(glass.image(*band, QImage(), Rect{}, 0.5));
    EXPECT_TRUE(glass.image(*band, QImage(), Rect{}, 1));
}

TEST(LiquidGlassCache, KeepsThreeNewestFirst) {
    LiquidGlass glass;
    QImage a = solidImage(10, 10, Qt::red), b = solidImage(10, 10, Qt::green), c = solidImage(10, 10, Qt::blue),
           d = solidImage(10, 10, Qt::white);
    Rect r{0, 0, 10, 10};
    auto first = glass.cachedSource(a, r, 1);
    auto second = glass.cachedSource(b, r, 1);
    auto third = glass.cachedSource(c, r, 1);
    // A hit does not move the entry: a stays the oldest and is the one a fourth key evicts.
    EXPECT_EQ(glass.cachedSource(a, r, 1), first);
    glass.cachedSource(d, r, 1);
    EXPECT_EQ(glass.cachedSourceCount(), 3u);
    EXPECT_EQ(glass.cachedSource(b, r, 1), second);
    EXPECT_EQ(glass.cachedSource(c, r, 1), third);
    EXPECT_NE(glass.cachedSource(a, r, 1), first);
    // Another scale is another key.
    auto scaled = glass.cachedSource(d, r, 2);
    EXPECT_EQ(scaled->width, 20);
}

TEST(CardBorderThumbnail, EveryStyleDraws) {
    for (auto style : {CardBorderStyle::glass, CardBorderStyle::glassDark, CardBorderStyle::liquid}) {
        QImage image = CardBorder::thumbnail(style, 48, 2);
        ASSERT_EQ(image.width(), 96);
        // The card's pale fill shows in the lower right.
        QColor c = QColor::fromRgba(image.pixel(90, 90));
        EXPECT_GT(c.red(), 150) << int(style);
    }
}
