#include "Model/CanvasAnnotation.h"
#include "Model/ImageAnnotation.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

CanvasAnnotation span(double s, double e) {
    CanvasAnnotation a;
    a.start = s;
    a.end = e;
    return a;
}

}  // namespace

TEST(CanvasAnnotation, AlphaFades) {
    EXPECT_DOUBLE_EQ(span(2, 2.01).alpha(2.005), 0);
    auto shortOne = span(1, 1.6);
    EXPECT_DOUBLE_EQ(shortOne.alpha(1), 0);
    EXPECT_DOUBLE_EQ(shortOne.alpha(1.6), 0);
    EXPECT_NEAR(shortOne.alpha(1.1), 0.5, 1e-12);
    EXPECT_DOUBLE_EQ(shortOne.alpha(1.3), 1);
    auto longOne = span(0, 3);
    EXPECT_NEAR(longOne.alpha(0.125), 0.5, 1e-12);
    EXPECT_DOUBLE_EQ(longOne.alpha(0.25), 1);
    EXPECT_NEAR(longOne.alpha(2.875), 0.5, 1e-12);
    EXPECT_DOUBLE_EQ(longOne.alpha(3.1), 0);
}

TEST(CanvasAnnotation, RectIsTopLeftAndSquareForCounters) {
    CanvasAnnotation a;
    a.position = {0.5, 0.25};
    a.span = {0.2, 0.1};
    EXPECT_EQ(a.rect({1000, 500}), (Rect{400, 375 - 25, 200, 50}));
    a.kind = CanvasAnnotationKind::counter;
    a.span = {0.1, 0.4};
    Rect r = a.rect({1920, 1080});
    EXPECT_DOUBLE_EQ(r.width(), r.height());
    a.kind = CanvasAnnotationKind::image;
    a.imageAspect = 0;
    EXPECT_DOUBLE_EQ(a.rect({100, 100}).height(), 10 / 0.001);
}

TEST(CanvasAnnotation, MarkPointsFollowSignedSpan) {
    CanvasAnnotation a;
    a.kind = CanvasAnnotationKind::arrow;
    a.position = {0.5, 0.5};
    a.span = {0.2, 0.1};
    CanvasAnnotation b = a;
    b.span = {-0.2, 0.1};
    auto ma = a.mark({1000, 1000});
    auto mb = b.mark({1000, 1000});
    EXPECT_EQ(a.rect({1000, 1000}), b.rect({1000, 1000}));
    EXPECT_EQ(ma.kind, ImageAnnotationKind::arrow);
    EXPECT_EQ(ma.id, a.id);
    ASSERT_EQ(ma.points.size(), 2u);
    EXPECT_EQ(ma.points[0], (Point{400, 550}));
    EXPECT_EQ(ma.points[1], (Point{600, 450}));
    EXPECT_EQ(mb.points[0], (Point{600, 550}));
    EXPECT_EQ(mb.points[1], (Point{400, 450}));
}

TEST(CanvasAnnotation, ImageURLStaysInsidePackage) {
    CanvasAnnotation a;
    EXPECT_FALSE(a.imageURL("/p.halvane"));
    a.imageFileName = "overlay-1.png";
    EXPECT_EQ(a.imageURL("/p.halvane"), std::filesystem::path("/p.halvane/overlay-1.png"));
    a.imageFileName = "../overlay-1.png";
    EXPECT_FALSE(a.imageURL("/p.halvane"));
    a.imageFileName = "overlay-../../x.png";
    EXPECT_FALSE(a.imageURL("/p.halvane"));
    a.imageFileName = "picture.png";
    EXPECT_FALSE(a.imageURL("/p.halvane"));
    a.imageFileName = "overlay-1.jpg";
    EXPECT_FALSE(a.imageURL("/p.halvane"));
}

TEST(CanvasAnnotation, Title) {
    CanvasAnnotation a;
    a.text = "Hello";
    EXPECT_EQ(a.title(), "Hello");
    a.text.clear();
    EXPECT_EQ(a.title(), title(ImageAnnotationKind::text));
    a.kind = CanvasAnnotationKind::counter;
    a.number = 3;
    EXPECT_EQ(a.title(), title(ImageAnnotationKind::counter) + " 3");
}
