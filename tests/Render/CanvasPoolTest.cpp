#include "Render/CanvasPool.h"

#include <gtest/gtest.h>

#include <QPainter>

namespace halvane {
namespace {

QImage filled(QColor c, int w = 40, int h = 30) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(c);
    return image;
}

}  // namespace

TEST(CanvasPool, PutsBackOnlyWhatWasDrawnOutsideTheRewrittenArea) {
    const QImage plate = filled(Qt::blue);
    QImage picture = filled(Qt::red);
    const QRect keep(10, 10, 20, 10);
    // Two overlapping areas, one crossing the kept box, one beyond the picture's edge.
    restoreOutside(picture, plate, {QRect(5, 5, 20, 20), QRect(15, 0, 30, 8)}, keep);
    for (QPoint p : {QPoint(5, 5), QPoint(9, 15), QPoint(20, 21), QPoint(39, 7), QPoint(15, 0), QPoint(24, 24)})
        EXPECT_EQ(picture.pixel(p), qRgb(0, 0, 255)) << p.x() << "," << p.y();
    // Inside the kept box, and outside every area, the picture stays.
    for (QPoint p : {QPoint(10, 10), QPoint(29, 19), QPoint(4, 4), QPoint(39, 29), QPoint(30, 15)})
        EXPECT_EQ(picture.pixel(p), qRgb(255, 0, 0)) << p.x() << "," << p.y();
}

TEST(CanvasPool, SeparateAreasOnOneRowAndSeveralKeptBoxesAreRespected) {
    // Grey pictures as planar frames are kept: one byte a pixel, and two kept boxes side by side.
    QImage plate(40, 30, QImage::Format_Grayscale8), picture(40, 30, QImage::Format_Grayscale8);
    plate.fill(10);
    picture.fill(200);
    restoreOutside(picture, plate, {QRect(0, 0, 4, 30), QRect(36, 0, 4, 30), QRect(8, 20, 30, 4)},
                   std::vector<QRect>{QRect(10, 0, 6, 30), QRect(20, 0, 6, 30)});
    auto at = [&](int x, int y) { return qGray(picture.pixel(x, y)); };
    EXPECT_EQ(at(0, 5), 10);
    EXPECT_EQ(at(39, 5), 10);
    EXPECT_EQ(at(20, 5), 200);  // between the two side areas nothing is drawn: left alone
    EXPECT_EQ(at(8, 21), 10);
    EXPECT_EQ(at(17, 21), 10);  // between the kept boxes
    EXPECT_EQ(at(12, 21), 200);
    EXPECT_EQ(at(23, 21), 200);
    EXPECT_EQ(at(30, 21), 10);
}

TEST(CanvasPool, ReusesOnlyPicturesNobodyHoldsAndLetsIdleOnesGo) {
    const QImage plate = filled(Qt::blue);
    CanvasPool pool(4);
    int slot = pool.acquire(plate, QRect());
    QPainter(&pool.picture(slot)).fillRect(0, 0, 8, 8, Qt::red);
    QImage held = pool.release(slot, {QRect(0, 0, 8, 8)});
    const QImage heldCopy = held.copy();

    // Held: a second picture is made, starting as the plate.
    slot = pool.acquire(plate, QRect());
    EXPECT_EQ(pool.picture(slot), plate);
    EXPECT_NE(pool.picture(slot).constBits(), held.constBits());
    pool.release(slot, {});
    EXPECT_EQ(held, heldCopy);

    // Let go: the first picture comes back, with what was drawn on it put back to the plate.
    const uchar* firstPixels = held.constBits();
    held = QImage();
    slot = pool.acquire(plate, QRect());
    const QImage reused = pool.release(slot, {});
    EXPECT_EQ(reused.constBits(), firstPixels);
    EXPECT_EQ(reused, plate);

    // Beyond the limit, pictures still held are replaced without being touched.
    std::vector<QImage> holders;
    for (int i = 0; i < 6; ++i) {
        slot = pool.acquire(plate, QRect());
        QPainter(&pool.picture(slot)).fillRect(i, 0, 1, 1, Qt::green);
        holders.push_back(pool.release(slot, {QRect(i, 0, 1, 1)}));
    }
    EXPECT_LE(pool.size(), 6u);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(holders[size_t(i)].pixel(i, 0), qRgb(0, 255, 0)) << i;

    // Idle pictures that nobody holds go; held ones stay whatever their age.
    holders.resize(2);
    for (int i = 0; i < 10; ++i) pool.release(pool.acquire(plate, QRect()), {});
    pool.trim(5);
    EXPECT_GE(pool.size(), 3u);  // the two held and the one in use just now
    EXPECT_LE(pool.size(), 3u);
}

}  // namespace halvane
