#include "Model/AnnotationMetrics.h"
#include "Model/AnnotationTypography.h"
#include "Model/ImageAnnotation.h"

#include <gtest/gtest.h>

#include <cmath>

namespace halvane {
namespace {

using Kind = ImageAnnotationKind;

ImageAnnotation segment(Kind kind, Point s, Point e, ArrowStyle style = ArrowStyle::standard) {
    ImageAnnotation a;
    a.kind = kind;
    a.points = {s, e};
    a.style.arrow = style;
    return a;
}

ImageAnnotation boxed(Kind kind, Rect r, bool filled = false) {
    ImageAnnotation a;
    a.kind = kind;
    a.rect = r;
    a.style.filled = filled;
    return a;
}

// A 4 × 2 bitmap, opaque where `opaque` says, rows top first.
Bitmap alphaBitmap(int w, int h, const std::vector<int>& opaque) {
    auto pixels = std::make_shared<std::vector<std::uint8_t>>(static_cast<size_t>(w * h * 4), 0);
    for (int i : opaque) (*pixels)[i * 4 + 3] = 255;
    return {w, h, w * 4, pixels};
}

ImageAssetPointer asset(int w = 4, int h = 4) {
    std::vector<int> all;
    for (int i = 0; i < w * h; ++i) all.push_back(i);
    return std::make_shared<ImageAsset>(Uuid::random(), alphaBitmap(w, h, all));
}

ImageAnnotation picture(Rect r, double rotation = 0) {
    ImageAnnotation a = boxed(Kind::image, r);
    a.asset = asset();
    a.rotation = rotation;
    return a;
}

// ---- JSON

TEST(ImageAnnotationJson, WritesKeysInTheFixedOrderAndLeavesOutWhatIsAbsent) {
    ImageAnnotation a = segment(Kind::arrow, {1, 2}, {3, 4});
    a.id = *Uuid::parse("5A0E7B52-8A4B-4B4E-9E0C-1D2C3B4A5F60");
    a.rect = Rect(1, 2, 3, 4);
    const std::string text = dumpJson(toOrderedJson(a));
    EXPECT_EQ(text,
              R"({"id":"5A0E7B52-8A4B-4B4E-9E0C-1D2C3B4A5F60","kind":"arrow","rect":[[1.0,2.0],[3.0,4.0]],)"
              R"("points":[[1.0,2.0],[3.0,4.0]],"text":"","number":1,"style":{"colorHex":"#FF3B30","size":1,)"
              R"("filled":false,"shadow":true,"redaction":"pixelate","arrow":"standard"}})");

    ImageAnnotation p = picture(Rect(0, 0, 10, 10), 30);
    const OrderedJson j = toOrderedJson(p);
    std::vector<std::string> keys;
    for (auto it = j.begin(); it != j.end(); ++it) keys.push_back(it.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"id", "kind", "rect", "points", "text", "number", "style", "image", "rotation"}));
    EXPECT_EQ(j["image"], p.asset->id().string());
}

TEST(ImageAnnotationJson, RoundTripKeepsEveryFieldAndTheListOrder) {
    ImageAnnotation arrow = segment(Kind::arrow, {1, 2}, {30, 40}, ArrowStyle::curved);
    arrow.setControl(Point{5, 6});
    arrow.style = AnnotationStyle{"#00FF00", AnnotationSize::large, true, false, MaskStyle::blur, ArrowStyle::doubleHeaded};
    ImageAnnotation text = boxed(Kind::text, Rect(10, 20, 0, 0));
    text.text = "Héllo\nworld";
    ImageAnnotation counter = boxed(Kind::counter, Rect(5, 5, 36, 36));
    counter.number = 7;
    ImageAnnotation pic = picture(Rect(0, 0, 4, 4), -12.5);
    const std::vector<ImageAnnotation> list{pic, arrow, text, counter};

    const ImageAssetLookup assets{{pic.asset->id(), pic.asset}};
    const Json parsed = parseJson(dumpJson(toOrderedJson(list)));
    const auto back = decodeImageAnnotationList(parsed, &assets);
    EXPECT_EQ(back, list);
    EXPECT_EQ(back[0].asset, pic.asset);  // the very same shared asset
}

TEST(ImageAnnotationJson, RotationZeroIsNotWrittenAndAbsentReadsAsZero) {
    ImageAnnotation p = picture(Rect(0, 0, 4, 4));
    EXPECT_FALSE(toOrderedJson(p).contains("rotation"));
    const ImageAssetLookup assets{{p.asset->id(), p.asset}};
    Json j = toOrderedJson(p);
    EXPECT_EQ(decodeImageAnnotation(j, &assets).rotation, 0);
}

TEST(ImageAnnotationJson, LenientKeysTakeTheirDefaults) {
    const Json j = parseJson(R"({"id":"5A0E7B52-8A4B-4B4E-9E0C-1D2C3B4A5F60","kind":"rectangle",
        "rect":"wide","points":[[1,2],"x"],"number":"seven","text":3,"rotation":[],
        "style":{"colorHex":"#112233","size":"big","filled":1,"arrow":"nope"}})");
    const ImageAnnotation a = decodeImageAnnotation(j);
    EXPECT_EQ(a.rect, Rect());
    EXPECT_TRUE(a.points.empty());
    EXPECT_EQ(a.number, 1);
    EXPECT_EQ(a.text, "");
    EXPECT_EQ(a.rotation, 0);
    AnnotationStyle expected;
    expected.colorHex = "#112233";
    EXPECT_EQ(a.style, expected);  // medium, outline, shadow, pixelate, standard
}

TEST(ImageAnnotationJson, IdAndKindAreStrictAndAPictureNeedsItsAsset) {
    EXPECT_THROW(decodeImageAnnotation(parseJson(R"({"kind":"line"})")), JsonDecodeError);
    EXPECT_THROW(decodeImageAnnotation(parseJson(R"({"id":"5A0E7B52-8A4B-4B4E-9E0C-1D2C3B4A5F60","kind":"star"})")),
                 JsonDecodeError);
    const std::string missing = "11111111-2222-3333-4444-555555555555";
    try {
        decodeImageAnnotation(
            parseJson(R"({"id":"5A0E7B52-8A4B-4B4E-9E0C-1D2C3B4A5F60","kind":"image","image":")" + missing + "\"}"));
        FAIL() << "a picture without its asset must fail";
    } catch (const JsonDecodeError& e) {
        EXPECT_EQ(std::string(e.what()), "missing image " + missing);
    }
}

TEST(ImageAnnotationJson, OneBadMarkIsSkippedAndTheOthersKeepTheirOrder) {
    const Json j = parseJson(R"([
        {"id":"00000000-0000-0000-0000-000000000001","kind":"line","points":[[0,0],[1,1]]},
        {"id":"00000000-0000-0000-0000-000000000002","kind":"hexagon"},
        "not even an object",
        {"id":"00000000-0000-0000-0000-000000000003","kind":"image","image":"00000000-0000-0000-0000-0000000000FF"},
        {"id":"00000000-0000-0000-0000-000000000004","kind":"counter","number":3}
    ])");
    const auto list = decodeImageAnnotationList(j);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].id.string(), "00000000-0000-0000-0000-000000000001");
    EXPECT_EQ(list[1].id.string(), "00000000-0000-0000-0000-000000000004");
    EXPECT_EQ(list[1].number, 3);
    EXPECT_THROW(decodeImageAnnotationList(parseJson("{}")), JsonDecodeError);
}

// ---- metrics, tools

TEST(AnnotationMetrics, FollowTheSizeTableAtAScale) {
    AnnotationStyle style;
    style.size = AnnotationSize::large;
    const AnnotationMetrics m(style, 2);
    EXPECT_DOUBLE_EQ(m.strokeWidth, 14);
    EXPECT_DOUBLE_EQ(m.highlighterWidth, 2 * (3.5 * 7 + 6));
    EXPECT_DOUBLE_EQ(m.fontSize, 60);
    EXPECT_DOUBLE_EQ(m.counterDiameter, 2 * 1.8 * 30);
    EXPECT_DOUBLE_EQ(m.blurRadius, 2 * (2.5 * 7 + 4));
    EXPECT_DOUBLE_EQ(m.pixelCell, 2 * (2 * 7 + 4));
    EXPECT_DOUBLE_EQ(m.headLength, 2 * (2.6 * 7 + 9));
    EXPECT_DOUBLE_EQ(m.cornerRadius, 2 * (0.6 * 7 + 1.5));
    EXPECT_DOUBLE_EQ(m.shadowBlur, 8);
    EXPECT_DOUBLE_EQ(m.shadowOffset, 3);
}

TEST(ImageTool, EveryDrawingToolMakesTheKindThatMapsBackToIt) {
    for (auto name : enumNames(ImageTool{})) {
        const ImageTool tool = *enumFromName<ImageTool>(name);
        if (auto kind = drawnKind(tool)) EXPECT_EQ(toolFor(*kind), tool) << name;
    }
    EXPECT_EQ(toolFor(Kind::image), ImageTool::select);
    EXPECT_FALSE(drawnKind(ImageTool::crop));
    EXPECT_EQ(symbolName(ImageTool::spotlight), "flashlight.on.fill");
}

// ---- rotation

TEST(ImageAnnotationGeometry, SnappedRotation) {
    EXPECT_EQ(ImageAnnotation::snappedRotation(46), 45);
    EXPECT_EQ(ImageAnnotation::snappedRotation(50), 50);
    EXPECT_EQ(ImageAnnotation::snappedRotation(88), 90);
    EXPECT_EQ(ImageAnnotation::snappedRotation(-180), 180);
    EXPECT_EQ(ImageAnnotation::snappedRotation(190), -170);
    EXPECT_EQ(ImageAnnotation::snappedRotation(-87), -90);
    EXPECT_EQ(ImageAnnotation::snappedRotation(724), 0);
    EXPECT_EQ(ImageAnnotation::snappedRotation(37, 15.0), 30);
    EXPECT_EQ(ImageAnnotation::snappedRotation(-179, 10.0), 180);
}

TEST(ImageAnnotationGeometry, APictureTurnedClockwiseIsHitWhereItIsShown) {
    // 200 × 20 bar centred at (100, 100), turned 90° clockwise: it now stands upright.
    const ImageAnnotation bar = picture(Rect(0, 90, 200, 20), 90);
    EXPECT_TRUE(bar.hitTest({100, 180}, 1, 0));
    EXPECT_TRUE(bar.hitTest({100, 20}, 1, 0));
    EXPECT_FALSE(bar.hitTest({180, 100}, 1, 0));
    EXPECT_FALSE(bar.hitTest({20, 100}, 1, 0));
    // Clockwise on screen with y upward: the right end (200, 100) goes down to (100, 0).
    const Point turned = bar.rotated({200, 100});
    EXPECT_NEAR(turned.x, 100, 1e-9);
    EXPECT_NEAR(turned.y, 0, 1e-9);
    const Point back = bar.unrotated(turned);
    EXPECT_NEAR(back.x, 200, 1e-9);
    EXPECT_NEAR(back.y, 100, 1e-9);
    const Rect b = bar.bounds(1);
    EXPECT_NEAR(b.width(), 20, 1e-9);
    EXPECT_NEAR(b.height(), 200, 1e-9);
}

TEST(ImageAnnotationGeometry, RotatedCornersTurnAboutTheAnnotationsOwnCentre) {
    const ImageAnnotation p = picture(Rect(0, 0, 100, 100), 180);
    const auto corners = p.rotatedCorners(Rect(0, 0, 10, 10));
    // (minX, maxY) = (0, 10) turned half a turn about (50, 50).
    EXPECT_NEAR(corners[0].x, 100, 1e-9);
    EXPECT_NEAR(corners[0].y, 90, 1e-9);
    EXPECT_EQ(corners.size(), 4u);
}

// ---- curves

TEST(ImageAnnotationGeometry, AStraightCurvedArrowIsAlreadyBentToTheLeft) {
    const ImageAnnotation a = segment(Kind::arrow, {0, 0}, {100, 0}, ArrowStyle::curved);
    const Point c = a.curveControl();
    EXPECT_NEAR(c.x, 50, 1e-9);
    EXPECT_NEAR(c.y, 22, 1e-9);  // left of travel to the right is up
    const auto spine = a.arrowSpine();
    ASSERT_EQ(spine.size(), 17u);
    EXPECT_EQ(spine.front(), (Point{0, 0}));
    EXPECT_EQ(spine.back(), (Point{100, 0}));
    EXPECT_NEAR(spine[8].y, 11, 1e-9);  // the curve passes halfway to its control
    EXPECT_EQ(segment(Kind::arrow, {0, 0}, {100, 0}).arrowSpine().size(), 2u);
}

TEST(ImageAnnotationGeometry, CurveMidpointRoundTripsThroughTheControl) {
    ImageAnnotation a = segment(Kind::arrow, {0, 0}, {100, 40}, ArrowStyle::doubleHeaded);
    a.setCurveMidpoint({30, 60});
    const Point m = a.curveMidpoint();
    EXPECT_NEAR(m.x, 30, 1e-9);
    EXPECT_NEAR(m.y, 60, 1e-9);
    EXPECT_EQ(a.points.size(), 3u);
}

TEST(ImageAnnotationGeometry, EndAndControlFillUpShortLists) {
    ImageAnnotation a;
    a.kind = Kind::arrow;
    a.setEnd({5, 5});
    EXPECT_EQ(a.points, (std::vector<Point>{{5, 5}, {5, 5}}));
    a.setEnd({9, 9});
    EXPECT_EQ(a.points, (std::vector<Point>{{5, 5}, {9, 9}}));

    ImageAnnotation b;
    b.points = {{3, 4}};
    b.setControl(Point{7, 7});
    EXPECT_EQ(b.points, (std::vector<Point>{{3, 4}, {3, 4}, {7, 7}}));
    b.setControl(Point{8, 8});
    EXPECT_EQ(b.points.size(), 3u);
    b.setControl(std::nullopt);
    EXPECT_EQ(b.points, (std::vector<Point>{{3, 4}, {3, 4}}));

    ImageAnnotation c;
    c.setControl(Point{1, 1});
    EXPECT_EQ(c.points, (std::vector<Point>{{0, 0}, {0, 0}, {1, 1}}));
}

// ---- hit tests and bounds

TEST(ImageAnnotationGeometry, ArrowHitsAlongItsShaftAndAroundItsHeads) {
    const double scale = 1;
    const AnnotationMetrics m(AnnotationStyle{}, scale);
    const ImageAnnotation a = segment(Kind::arrow, {0, 0}, {200, 0});
    EXPECT_TRUE(a.hitTest({100, m.strokeWidth / 2}, scale, 0));
    EXPECT_FALSE(a.hitTest({100, m.strokeWidth / 2 + 1}, scale, 0));
    EXPECT_TRUE(a.hitTest({200 + 0.7 * m.headLength - 0.1, 0}, scale, 0));
    EXPECT_FALSE(a.hitTest({-0.7 * m.headLength + 0.1, 0}, scale, 0));
    const ImageAnnotation both = segment(Kind::arrow, {0, 0}, {200, 0}, ArrowStyle::doubleHeaded);
    EXPECT_TRUE(both.hitTest({-0.7 * m.headLength + 0.1, 0}, scale, 0));
}

TEST(ImageAnnotationGeometry, OutlinesAreHollowAndFilledShapesAreNot) {
    const Rect r(0, 0, 100, 60);
    EXPECT_TRUE(boxed(Kind::rectangle, r).hitTest({0, 30}, 1, 2));
    EXPECT_FALSE(boxed(Kind::rectangle, r).hitTest({50, 30}, 1, 2));
    EXPECT_TRUE(boxed(Kind::rectangle, r, true).hitTest({50, 30}, 1, 2));
    EXPECT_FALSE(boxed(Kind::rectangle, r, true).hitTest({-3, 30}, 1, 2));

    EXPECT_TRUE(boxed(Kind::ellipse, r).hitTest({100, 30}, 1, 0));
    EXPECT_FALSE(boxed(Kind::ellipse, r).hitTest({50, 30}, 1, 0));
    EXPECT_FALSE(boxed(Kind::ellipse, r).hitTest({2, 2}, 1, 0));  // a corner of the box is off the ellipse
    EXPECT_TRUE(boxed(Kind::ellipse, r, true).hitTest({50, 30}, 1, 0));
    EXPECT_FALSE(boxed(Kind::ellipse, Rect(0, 0, 100, 0), true).hitTest({50, 0}, 1, 10));
    // An unstandardized box hits as its standardized self.
    EXPECT_TRUE(boxed(Kind::rectangle, Rect(100, 60, -100, -60), true).hitTest({50, 30}, 1, 0));
}

TEST(ImageAnnotationGeometry, StrokesWithoutPointsHaveNoBoundsAndAreNeverHit) {
    ImageAnnotation pen;
    pen.kind = Kind::pen;
    EXPECT_EQ(pen.bounds(1), Rect());
    EXPECT_FALSE(pen.hitTest({0, 0}, 1, 10));
    pen.points = {{10, 10}};
    EXPECT_TRUE(pen.hitTest({12, 10}, 1, 0));  // a dot of the stroke's width
    ImageAnnotation marker = pen;
    marker.kind = Kind::highlighter;
    EXPECT_TRUE(marker.hitTest({20, 10}, 1, 0));  // the wider highlighter stroke
    EXPECT_FALSE(pen.hitTest({20, 10}, 1, 0));
}

TEST(ImageAnnotationGeometry, AnEmptyTextStillHasABoxOfOneLine) {
    ImageAnnotation t = boxed(Kind::text, Rect(10, 100, 0, 0));
    const Rect box = t.bounds(1);
    EXPECT_EQ(box.minX(), 10);
    EXPECT_EQ(box.maxY(), 100);  // hangs down from the anchor
    EXPECT_GT(box.height(), AnnotationMetrics(t.style, 1).fontSize);
    EXPECT_TRUE(t.hitTest({box.midX(), box.midY()}, 1, 0));
    // A wrap width fixes the box's width.
    t.rect = Rect(10, 100, 300, 0);
    t.text = "a few words";
    EXPECT_EQ(t.bounds(1).width(), 300);
}

// ---- fitting

TEST(ImageAnnotationGeometry, FittingACounterMovesItWithoutResizing) {
    ImageAnnotation c = boxed(Kind::counter, Rect(10, 10, 36, 36));
    c.fit(Rect(100, 200, 400, 400), 1);
    EXPECT_EQ(c.rect, Rect(100, 200, 36, 36));
}

TEST(ImageAnnotationGeometry, FittingStrokesStretchesEveryPointIntoTheTarget) {
    ImageAnnotation line = segment(Kind::line, {0, 0}, {10, 20});
    line.fit(Rect(100, 100, 20, 10), 1);
    EXPECT_EQ(line.points, (std::vector<Point>{{100, 100}, {120, 110}}));
    ImageAnnotation flat = segment(Kind::line, {0, 5}, {10, 5});
    flat.fit(Rect(0, 50, 30, 10), 1);  // no height to scale: moved only
    EXPECT_EQ(flat.points, (std::vector<Point>{{0, 50}, {30, 50}}));
    ImageAnnotation box = boxed(Kind::ellipse, Rect(0, 0, 1, 1));
    box.fit(Rect(50, 50, -20, -20), 1);
    EXPECT_EQ(box.rect, Rect(30, 30, 20, 20));
}

// ---- assets

TEST(ImageAsset, OpaqueBoundsAreTheOutsetExtentWithTheOriginAtTheBottom) {
    // 6 × 4 bitmap with one opaque pixel at column 2, row 0 (the top row).
    const auto a = std::make_shared<ImageAsset>(Uuid::random(), alphaBitmap(6, 4, {2}));
    EXPECT_EQ(a->opaqueBounds(), Rect(1, 2, 3, 2));  // (2, 3, 1, 1) outset by one, clipped
    const auto clear = std::make_shared<ImageAsset>(Uuid::random(), alphaBitmap(6, 4, {}));
    EXPECT_EQ(clear->opaqueBounds(), Rect(0, 0, 6, 4));
    EXPECT_EQ(asset(5, 3)->opaqueBounds(), Rect(0, 0, 5, 3));
}

TEST(ImageAnnotation, EqualityComparesAssetsById) {
    ImageAnnotation a = picture(Rect(0, 0, 4, 4));
    ImageAnnotation b = a;
    b.asset = std::make_shared<ImageAsset>(a.asset->id(), Bitmap{});
    EXPECT_EQ(a, b);
    b.asset = asset();
    EXPECT_NE(a, b);
}

}  // namespace
}  // namespace halvane
