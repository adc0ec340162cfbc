#include "Render/Resampling.h"

#include <gtest/gtest.h>

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <random>

namespace halvane {
namespace {

constexpr QRgb sentinel = 0xff123456;

// Opaque noise: every pixel independent, so any misplaced tap shows.
QImage noise(int w, int h, unsigned seed) {
    std::mt19937 random(seed);
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) image.setPixel(x, y, 0xff000000u | (random() & 0xffffffu));
    return image;
}

// Premultiplied pixels of varying alpha that change slowly, so that area and bilinear filters agree.
QImage smooth(int w, int h, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> phase(0, 6.3);
    const double p[4] = {phase(random), phase(random), phase(random), phase(random)};
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            auto wave = [&](int i, double fx, double fy) { return 0.5 + 0.5 * std::sin(p[i] + fx * x + fy * y); };
            const int a = int(std::lround(128 + 127 * wave(3, 0.05, 0.03)));
            auto c = [&](int i) { return int(std::lround(a * wave(i, 0.04 * (i + 1), 0.03 * (3 - i)))); };
            image.setPixel(x, y, qRgba(c(0), c(1), c(2), a));
        }
    return image;
}

QImage filled(int w, int h, QRgb value) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(value);
    return image;
}

// The largest difference of any component over `area`.
int largestDifference(const QImage& a, const QImage& b, const QRect& area) {
    int most = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            for (int shift : {0, 8, 16, 24}) most = std::max(most, std::abs(int((p >> shift) & 0xff) - int((q >> shift) & 0xff)));
        }
    return most;
}

// What QPainter's smooth drawing of the same placement gives.
QImage painted(QSize size, const QRect& clip, const QImage& source, const QRectF& from, const QRectF& to) {
    QImage image = filled(size.width(), size.height(), sentinel);
    QPainter p(&image);
    p.setCompositionMode(QPainter::CompositionMode_Source);
    p.setRenderHint(QPainter::SmoothPixmapTransform, true);
    p.setClipRect(clip);
    p.drawImage(to, source, from);
    return image;
}

// Bilinear sampling at pixel centres in double precision, the source clamped at its edges.
QImage exactBilinear(QSize size, const QImage& source, const QRectF& from, const QRectF& to) {
    QImage image = filled(size.width(), size.height(), sentinel);
    const double sx = from.width() / to.width(), sy = from.height() / to.height();
    auto at = [&](int x, int y, int shift) {
        x = std::clamp(x, 0, source.width() - 1);
        y = std::clamp(y, 0, source.height() - 1);
        return double((source.pixel(x, y) >> shift) & 0xff);
    };
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x) {
            const double u = from.x() + (x + 0.5 - to.x()) * sx - 0.5, v = from.y() + (y + 0.5 - to.y()) * sy - 0.5;
            const int i = int(std::floor(u)), j = int(std::floor(v));
            const double fu = u - i, fv = v - j;
            QRgb value = 0;
            for (int shift : {0, 8, 16, 24}) {
                const double top = at(i, j, shift) * (1 - fu) + at(i + 1, j, shift) * fu;
                const double bottom = at(i, j + 1, shift) * (1 - fu) + at(i + 1, j + 1, shift) * fu;
                value |= QRgb(std::lround(top * (1 - fv) + bottom * fv)) << shift;
            }
            image.setPixel(x, y, value);
        }
    return image;
}

}  // namespace

TEST(Resampling, MatchesExactBilinearWithinOneLevel) {
    const QImage source = noise(53, 31, 11);
    struct Placement {
        QRectF from, to;
    };
    for (const Placement& c : {Placement{{0, 0, 53, 31}, {0, 0, 131, 77}},       // upscale, odd ratio
                               Placement{{0, 0, 53, 31}, {0, 0, 29, 17}},        // shrink under 2
                               Placement{{10.3, 4.6, 20.2, 11.5}, {-3.7, 2.25, 90.5, 60.1}},  // window, offsets
                               Placement{{0, 0, 53, 31}, {0.5, 0.5, 53, 31}}}) {  // half-pixel shift
        QImage out = filled(80, 64, sentinel);
        resampleInto(out, out.rect(), source, c.from, c.to);
        EXPECT_LE(largestDifference(out, exactBilinear(out.size(), source, c.from, c.to), out.rect()), 1)
            << c.to.width();
    }
}

// QPainter and QImage::scaled quantise their weights more coarsely (up to 3 levels apart on noise).
TEST(Resampling, AgreesWithSmoothScalingAcrossSizes) {
    struct Case {
        QSize from, to;
    };
    // Upscales on noise (odd sizes, unequal axes), gentle shrinks on smooth pictures.
    for (Case c : {Case{{37, 23}, {101, 67}}, Case{{64, 48}, {128, 97}}, Case{{31, 57}, {62, 57}}}) {
        const QImage source = noise(c.from.width(), c.from.height(), unsigned(c.from.width()));
        QImage out = filled(c.to.width(), c.to.height(), sentinel);
        resampleInto(out, out.rect(), source, QRectF(source.rect()), QRectF(out.rect()));
        const QImage reference = source.scaled(c.to, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        EXPECT_LE(largestDifference(out, reference, out.rect().adjusted(1, 1, -1, -1)), 3)
            << c.from.width() << "x" << c.from.height() << " to " << c.to.width() << "x" << c.to.height();
    }
    for (Case c : {Case{{200, 150}, {151, 113}}, Case{{199, 101}, {100, 60}}}) {
        const QImage source = smooth(c.from.width(), c.from.height(), 7);
        QImage out = filled(c.to.width(), c.to.height(), sentinel);
        resampleInto(out, out.rect(), source, QRectF(source.rect()), QRectF(out.rect()));
        const QImage reference = source.scaled(c.to, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        EXPECT_LE(largestDifference(out, reference, out.rect().adjusted(1, 1, -1, -1)), 3) << c.to.width();
    }
}

TEST(Resampling, SubPixelPlacementsMatchPainterAndStayInsideTheClip) {
    const QImage source = noise(160, 90, 3);
    struct Placement {
        QRectF from, to;
        QRect clip;
    };
    // A zoomed window at fractional source and target positions, a plain shrink with a fractional
    // target, and a clip that cuts the target.
    for (const Placement& c : {Placement{{40.3, 20.7, 80.5, 45.2}, {10.25, 7.5, 180.6, 101.3}, {10, 7, 182, 103}},
                               Placement{{0, 0, 160, 90}, {3.4, 2.6, 130.2, 73.3}, {3, 2, 132, 75}},
                               Placement{{10, 5, 140, 80}, {-20.5, 4.5, 240, 140}, {30, 20, 100, 60}}}) {
        QImage out = filled(200, 150, sentinel);
        resampleInto(out, c.clip, source, c.from, c.to);
        const QImage reference = painted(out.size(), c.clip, source, c.from, c.to);
        // Where the whole pixel lies inside the target both sample the same way.
        const QRect inner = c.to.toAlignedRect().adjusted(2, 2, -2, -2).intersected(c.clip);
        EXPECT_LE(largestDifference(out, reference, inner), 3) << c.to.x();
        for (int y = 0; y < out.height(); ++y)
            for (int x = 0; x < out.width(); ++x) {
                if (c.clip.contains(x, y)) {
                    ASSERT_NE(out.pixel(x, y), sentinel) << x << "," << y;  // every clip pixel written
                } else {
                    ASSERT_EQ(out.pixel(x, y), sentinel) << x << "," << y;  // nothing outside
                }
            }
    }
}

TEST(Resampling, StrongShrinksAverageEverySourcePixel) {
    // One-pixel stripes: sampling two pixels of every eight would give pure black or white.
    QImage stripes(240, 120, QImage::Format_ARGB32_Premultiplied);
    for (int x = 0; x < stripes.width(); ++x)
        for (int y = 0; y < stripes.height(); ++y) stripes.setPixel(x, y, x % 2 ? 0xffffffffu : 0xff000000u);
    QImage out = filled(30, 15, sentinel);
    resampleInto(out, out.rect(), stripes, QRectF(stripes.rect()), QRectF(out.rect()));
    for (int y = 0; y < out.height(); ++y)
        for (int x = 0; x < out.width(); ++x) {
            EXPECT_NEAR(qRed(out.pixel(x, y)), 128, 2) << x << "," << y;
            EXPECT_EQ(qAlpha(out.pixel(x, y)), 255);
        }
}

TEST(Resampling, HalvingAveragesPairsAndKeepsAnOddEdge) {
    QImage image(3, 3, QImage::Format_ARGB32_Premultiplied);
    const int levels[3][3] = {{0, 100, 40}, {200, 60, 80}, {10, 10, 250}};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x) image.setPixel(x, y, qRgba(levels[y][x], 0, 0, 255));
    const QImage both = halved(image, true, true);
    ASSERT_EQ(both.size(), QSize(2, 2));
    EXPECT_EQ(qRed(both.pixel(0, 0)), 90);   // (0 + 100 + 200 + 60) / 4
    EXPECT_EQ(qRed(both.pixel(1, 0)), 60);   // the odd column with itself: (40 + 40 + 80 + 80) / 4
    EXPECT_EQ(qRed(both.pixel(1, 1)), 250);  // the odd corner alone
    const QImage wide = halved(image, true, false);
    ASSERT_EQ(wide.size(), QSize(2, 3));
    EXPECT_EQ(qRed(wide.pixel(0, 2)), 10);
    const QImage tall = halved(image, false, true);
    ASSERT_EQ(tall.size(), QSize(3, 2));
    EXPECT_EQ(qRed(tall.pixel(2, 0)), 60);
}

TEST(Resampling, ConvertsOtherFormatsAndIgnoresEmptyPlacements) {
    QImage rgb(20, 10, QImage::Format_RGB888);
    rgb.fill(QColor(10, 200, 30));
    QImage out = filled(40, 20, sentinel);
    resampleInto(out, out.rect(), rgb, QRectF(rgb.rect()), QRectF(out.rect()));
    EXPECT_EQ(out.pixel(20, 10), qRgb(10, 200, 30));
    QImage untouched = filled(40, 20, sentinel);
    resampleInto(untouched, untouched.rect(), rgb, QRectF(rgb.rect()), QRectF(5, 5, 0, 10));
    resampleInto(untouched, QRect(50, 50, 10, 10), rgb, QRectF(rgb.rect()), QRectF(untouched.rect()));
    resampleInto(untouched, untouched.rect(), QImage(), QRectF(0, 0, 1, 1), QRectF(untouched.rect()));
    EXPECT_EQ(untouched, filled(40, 20, sentinel));
}

namespace {

// A plane of independent random bytes, with a stride wider than its width.
struct Plane {
    int width, height, stride;
    std::vector<uint8_t> bytes;
    PlaneView view() const { return {bytes.data(), stride, width, height}; }
    int at(int x, int y) const { return bytes[size_t(y) * size_t(stride) + size_t(x)]; }
};

Plane noisePlane(int w, int h, unsigned seed) {
    std::mt19937 random(seed);
    Plane plane{w, h, w + 7, std::vector<uint8_t>(size_t(w + 7) * size_t(h))};
    for (auto& b : plane.bytes) b = uint8_t(random());
    return plane;
}

Plane blankPlane(int w, int h) { return {w, h, w + 3, std::vector<uint8_t>(size_t(w + 3) * size_t(h), 0xAA)}; }

// The largest difference between a resampled plane and exact bilinear sampling inside `clip`;
// -1 when anything outside the clip changed.
int planeError(const Plane& out, const QRect& clip, const Plane& source, const QRectF& from, const QRectF& to) {
    const double sx = from.width() / to.width(), sy = from.height() / to.height();
    auto at = [&](int x, int y) {
        return double(source.at(std::clamp(x, 0, source.width - 1), std::clamp(y, 0, source.height - 1)));
    };
    int most = 0;
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x) {
            if (!clip.contains(x, y)) {
                if (out.at(x, y) != 0xAA) return -1;
                continue;
            }
            const double u = from.x() + (x + 0.5 - to.x()) * sx - 0.5, v = from.y() + (y + 0.5 - to.y()) * sy - 0.5;
            const int i = int(std::floor(u)), j = int(std::floor(v));
            const double fu = u - i, fv = v - j;
            const double top = at(i, j) * (1 - fu) + at(i + 1, j) * fu;
            const double bottom = at(i, j + 1) * (1 - fu) + at(i + 1, j + 1) * fu;
            most = std::max(most, int(std::lround(std::fabs(top * (1 - fv) + bottom * fv - out.at(x, y)))));
        }
    return most;
}

}  // namespace

TEST(Resampling, PlanesMatchExactBilinearWithinTwoLevels) {
    // Weights are in 128ths across: on noise, where neighbours differ by up to 255, that and two
    // roundings make two levels at most.
    struct Case {
        int sourceWidth, sourceHeight;
        QRectF from, to;
        QRect clip;
    };
    for (const Case& c : {Case{53, 31, {0, 0, 53, 31}, {0, 0, 131, 77}, {0, 0, 131, 77}},     // upscale
                          Case{53, 31, {0, 0, 53, 31}, {0, 0, 29, 17}, {0, 0, 29, 17}},       // shrink under 2
                          Case{64, 40, {0, 0, 64, 40}, {0, 0, 33, 21}, {0, 0, 33, 21}},       // shrink near 2
                          Case{53, 31, {10.3, 4.6, 20.2, 11.5}, {-3.7, 2.25, 90.5, 60.1}, {3, 1, 77, 62}},
                          Case{53, 31, {0, 0, 53, 31}, {0.5, 0.5, 53, 31}, {0, 0, 54, 32}},  // half-pixel shift
                          Case{1, 1, {0, 0, 1, 1}, {0, 0, 9, 5}, {0, 0, 9, 5}},              // one pixel
                          Case{2, 7, {0, 0, 2, 7}, {1, 0, 37, 7}, {0, 0, 40, 7}}}) {         // clip past the target
        const Plane source = noisePlane(c.sourceWidth, c.sourceHeight, 5);
        Plane out = blankPlane(c.clip.right() + 4, c.clip.bottom() + 3);
        resamplePlaneInto(out.bytes.data(), out.stride, c.clip, source.view(), c.from, c.to);
        const int error = planeError(out, c.clip, source, c.from, c.to);
        EXPECT_GE(error, 0) << "wrote outside the clip, " << c.to.width();
        EXPECT_LE(error, 2) << c.to.width();
    }
}

TEST(Resampling, PlanesShrunkStronglyAverageEverySourceByte) {
    Plane stripes{240, 120, 240, std::vector<uint8_t>(240 * 120)};
    for (size_t i = 0; i < stripes.bytes.size(); ++i) stripes.bytes[i] = i % 2 ? 235 : 16;
    Plane out = blankPlane(30, 15);
    resamplePlaneInto(out.bytes.data(), out.stride, QRect(0, 0, 30, 15), stripes.view(), QRectF(0, 0, 240, 120),
                      QRectF(0, 0, 30, 15));
    for (int y = 0; y < 15; ++y)
        for (int x = 0; x < 30; ++x) EXPECT_NEAR(out.at(x, y), 126, 2) << x << "," << y;
}

TEST(Resampling, APlaneScalerKeptAcrossFramesGivesWhatAFreshOneGives) {
    // Placements as a zoom goes in and comes back, and a source whose size changes under the same
    // placement: a kept plan must never outlive what it was made for.
    const Plane small = noisePlane(53, 31, 8), large = noisePlane(120, 70, 9);
    struct Step {
        const Plane* source;
        QRectF from, to;
    };
    const std::vector<Step> steps{{&small, {0, 0, 53, 31}, {2, 1, 70, 40}},
                                  {&small, {0, 0, 53, 31}, {2, 1, 70, 40}},
                                  {&small, {5.5, 3, 30, 17}, {2, 1, 70, 40}},
                                  {&large, {5.5, 3, 30, 17}, {2, 1, 70, 40}},
                                  {&large, {0, 0, 120, 70}, {2, 1, 36, 20}},  // a shrink past 2
                                  {&small, {0, 0, 53, 31}, {2, 1, 70, 40}}};
    PlaneScaler kept;
    const QRect clip(0, 0, 74, 42);
    for (size_t i = 0; i < steps.size(); ++i) {
        Plane once = blankPlane(76, 44), reused = blankPlane(76, 44);
        resamplePlaneInto(once.bytes.data(), once.stride, clip, steps[i].source->view(), steps[i].from, steps[i].to);
        kept.scale(reused.bytes.data(), reused.stride, clip, steps[i].source->view(), steps[i].from, steps[i].to);
        EXPECT_EQ(reused.bytes, once.bytes) << i;
    }
}

}  // namespace halvane
