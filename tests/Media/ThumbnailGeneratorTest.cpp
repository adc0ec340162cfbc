#include "Media/ThumbnailGenerator.h"

#include "SyntheticMovie.h"
#include "support/MediaProbe.h"

#include <gtest/gtest.h>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

TEST(ThumbnailGenerator, PosterIsTakenEarlyAndFitsWithin640) {
    EXPECT_DOUBLE_EQ(ThumbnailGenerator::posterTime(30), 0.5);
    EXPECT_DOUBLE_EQ(ThumbnailGenerator::posterTime(0.4), 0.2);

    auto package = test::makeScratchDirectory("thumbnail") ;
    test::SyntheticMovie movie;
    movie.width = 1280;
    movie.height = 720;
    movie.duration = 1;
    movie.audioTracks = 0;
    movie.flashes = {0.5};  // white exactly at the poster time, dark before
    movie.write(package / "screen.mov");

    ASSERT_TRUE(ThumbnailGenerator::generate(package, 30));
    QImage poster(QString::fromStdString((package / "thumbnail.png").string()));
    ASSERT_FALSE(poster.isNull());
    EXPECT_EQ(poster.width(), 640);
    EXPECT_EQ(poster.height(), 360);
    EXPECT_GT(qGray(poster.pixel(320, 180)), 240);

    // A package without a movie gets no poster and no error.
    fs::remove(package / "screen.mov");
    fs::remove(package / "thumbnail.png");
    EXPECT_FALSE(ThumbnailGenerator::generate(package, 30));
    EXPECT_FALSE(fs::exists(package / "thumbnail.png"));
    fs::remove_all(package);
}

TEST(ThumbnailGenerator, SmallMoviesAreNotEnlarged) {
    auto dir = test::makeScratchDirectory("thumbnail-small");
    test::SyntheticMovie movie;  // 160 × 90
    movie.duration = 0.3;
    movie.audioTracks = 0;
    movie.write(dir / "screen.mov");
    auto image = ThumbnailGenerator::posterImage(dir / "screen.mov", 0.15);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), QSize(160, 90));
    fs::remove_all(dir);
}

}  // namespace
