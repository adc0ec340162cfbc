#include "Render/AnnotationArt.h"
#include "Render/KeystrokeArt.h"

#include "support/GuiApplication.h"

#include <gtest/gtest.h>

#include <QColor>

using namespace halvane;

namespace {

CanvasAnnotation textAnnotation(std::string text, double size, bool pill = true) {
    CanvasAnnotation a;
    a.text = std::move(text);
    a.size = size;
    a.pill = pill;
    return a;
}

int alphaAt(const QImage& image, int x, int y) { return qAlpha(image.pixel(x, y)); }

class AnnotationArtTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { test::ensureGuiApplication(); }
};

}  // namespace

TEST_F(AnnotationArtTest, EmptyTextStillMakesASmallPill) {
    auto art = AnnotationArt::render(textAnnotation("", 0.045), 1080, 1, 4194304);
    ASSERT_TRUE(art);
    double f = 1080 * 0.045;
    EXPECT_GT(art->size.height, 2 * f * 0.38);
    EXPECT_LT(art->size.width, 2 * f * 0.72 + f);
    // The pill is dark and nearly opaque in its middle, rounded at its corners.
    QColor middle = QColor::fromRgba(art->image.pixel(art->image.width() / 2, art->image.height() / 2));
    EXPECT_NEAR(middle.alpha(), 153, 2);
    EXPECT_EQ(alphaAt(art->image, 0, 0), 0);
}

TEST_F(AnnotationArtTest, SizeIsHeldAndTinyTextIsNotDrawn) {
    auto huge = AnnotationArt::render(textAnnotation("Hello", 0.5), 720, 1, 1 << 24);
    auto capped = AnnotationArt::render(textAnnotation("Hello", 0.14), 720, 1, 1 << 24);
    ASSERT_TRUE(huge && capped);
    EXPECT_EQ(huge->size, capped->size);
    // A shorter side of 100 at 0.03 gives a 3 pixel font: nothing.
    EXPECT_FALSE(AnnotationArt::render(textAnnotation("Hello", 0.03), 100, 1, 1 << 24));
}

TEST_F(AnnotationArtTest, PixelBudgetKeepsThePointSize) {
    auto full = AnnotationArt::render(textAnnotation("A caption that is fairly long", 0.05), 1080, 1, 1 << 24);
    ASSERT_TRUE(full);
    long long budget = (long long)full->image.width() * full->image.height() / 4;
    auto reduced = AnnotationArt::render(textAnnotation("A caption that is fairly long", 0.05), 1080, 1, budget);
    ASSERT_TRUE(reduced);
    EXPECT_LE((long long)reduced->image.width() * reduced->image.height(), budget);
    EXPECT_NEAR(reduced->size.width, full->size.width, full->size.width * 0.06);
    EXPECT_NEAR(reduced->size.height, full->size.height, full->size.height * 0.08);
}

TEST_F(AnnotationArtTest, TextWithoutPillHasAShadowBelowTheGlyphs) {
    auto art = AnnotationArt::render(textAnnotation("—", 0.1, false), 720, 1, 1 << 24);
    ASSERT_TRUE(art);
    const QImage& image = art->image;
    // The corners stay clear; the image holds white glyphs and a dark shadow.
    EXPECT_EQ(alphaAt(image, 0, 0), 0);
    bool sawWhite = false, sawDark = false;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            QColor c = QColor::fromRgba(image.pixel(x, y));
            if (c.alpha() > 200 && c.red() > 200) sawWhite = true;
            if (c.alpha() > 40 && c.red() < 40) sawDark = true;
        }
    EXPECT_TRUE(sawWhite);
    EXPECT_TRUE(sawDark);
}

TEST_F(AnnotationArtTest, KeystrokePillWithOutlineAndClampedSize) {
    auto art = KeystrokeArt::render("⌘ S", 0.038, 1080, 1);
    ASSERT_TRUE(art);
    EXPECT_EQ(art->size.width, art->image.width());
    // The 0.75 pixel inset leaves the outermost row clear at the middle; the outline is light.
    int mx = art->image.width() / 2;
    EXPECT_LT(alphaAt(art->image, mx, 0), 128);
    QColor edge = QColor::fromRgba(art->image.pixel(mx, 1));
    EXPECT_GT(edge.alpha(), 150);
    auto big = KeystrokeArt::render("⌘ S", 0.5, 1080, 1);
    auto capped = KeystrokeArt::render("⌘ S", 0.08, 1080, 1);
    ASSERT_TRUE(big && capped);
    EXPECT_EQ(big->size, capped->size);
    EXPECT_FALSE(KeystrokeArt::render("A", 0.02, 150, 1));
}
