#include "Render/BackgroundLibrary.h"
#include "Render/BackgroundRenderer.h"
#include "Render/MeshWallpaper.h"

#include <gtest/gtest.h>

#include <QImageWriter>
#include <QPainter>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

namespace halvane {
namespace {

namespace fs = std::filesystem;

class TempFolder {
public:
    TempFolder() {
        path_ = fs::temp_directory_path() / ("halvane-bg-" + std::to_string(::getpid()) + "-" + std::to_string(counter()++));
        fs::create_directories(path_);
    }
    ~TempFolder() {
        std::error_code e;
        fs::remove_all(path_, e);
    }
    const fs::path& path() const { return path_; }

private:
    static int& counter() {
        static int n = 0;
        return n;
    }
    fs::path path_;
};

// Left half red, right half blue.
void writeSplitPicture(const fs::path& file, int w, int h) {
    QImage picture(w, h, QImage::Format_RGB32);
    picture.fill(Qt::red);
    QPainter(&picture).fillRect(QRect(w / 2, 0, w - w / 2, h), Qt::blue);
    ASSERT_TRUE(picture.save(QString::fromStdString(file.string())));
}

void expectColourNear(QRgb pixel, std::string_view hex, int tolerance) {
    const QColor want(QString::fromUtf8(hex.data(), static_cast<int>(hex.size())));
    EXPECT_NEAR(qRed(pixel), want.red(), tolerance) << hex;
    EXPECT_NEAR(qGreen(pixel), want.green(), tolerance) << hex;
    EXPECT_NEAR(qBlue(pixel), want.blue(), tolerance) << hex;
}

QImage render(BackgroundRenderer& renderer, const CanvasBackground& background, Size size, double blur = 0,
              const std::optional<fs::path>& project = std::nullopt) {
    auto image = renderer.image(background, size, project, blur);
    EXPECT_TRUE(image);
    return image ? *image : QImage();
}

double rowVariance(const QImage& image, int y) {
    double sum = 0, sq = 0;
    for (int x = 0; x < image.width(); ++x) {
        double v = qGreen(image.pixel(x, y));
        sum += v;
        sq += v * v;
    }
    const double n = image.width();
    return sq / n - (sum / n) * (sum / n);
}

TEST(BackgroundLibrary, CataloguesHoldEveryPresetInOrder) {
    const auto& numbered = BackgroundLibrary::numberedGradients();
    ASSERT_EQ(numbered.size(), 21u);
    EXPECT_EQ(numbered[0].id, "shots-gradient-1");
    EXPECT_EQ(numbered[0].name, "Gradient 1");
    EXPECT_EQ(numbered[0].locations, (std::vector<double>{0.128, 0.4352, 0.8434}));
    EXPECT_EQ(numbered[20].hexColors.size(), 9u);
    EXPECT_EQ(numbered[6].angle, 156.04);
    EXPECT_FALSE(numbered[1].locations);
    const auto& named = BackgroundLibrary::namedGradients();
    ASSERT_EQ(named.size(), 15u);
    EXPECT_EQ(named.back().id, "linen");
    EXPECT_EQ(named.back().name, "Linen");

    const auto& meshes = BackgroundLibrary::wallpaperPresets();
    ASSERT_EQ(meshes.size(), 18u);
    EXPECT_EQ(meshes.front().id, "prism");
    EXPECT_EQ(meshes.back().name, "Meadow");
    EXPECT_EQ(meshes.front().glows.size(), 4u);
    EXPECT_EQ(meshes.front().glows[1], (WallpaperPreset::Glow{"#EC4899", 0.12, 0.28, 0.58, 0.85}));
    EXPECT_EQ(BackgroundLibrary::wallpaperPreset("abyss")->vignette, 0.16);

    std::vector<size_t> counts;
    for (const auto& group : BackgroundLibrary::remoteWallpaperGroups()) counts.push_back(group.presets.size());
    EXPECT_EQ(counts, (std::vector<size_t>{11, 10, 15, 36, 24, 22, 13}));
    EXPECT_EQ(BackgroundLibrary::remoteWallpaperGroups()[2].presets[0].id, "mystic-9");
    EXPECT_EQ(BackgroundLibrary::remoteWallpaper("glass-3")->name, "Glass 3");
    EXPECT_EQ(BackgroundLibrary::remoteWallpaper("radiant-photo-1")->name, "Radiant 8");
    EXPECT_EQ(BackgroundLibrary::remoteWallpapers().size(), 131u);
}

TEST(GradientBackground, AngleIsMeasuredWithYUp) {
    BackgroundRenderer renderer;
    // 270° runs downward: the first colour at the top.
    QImage midnight = render(renderer, CanvasBackground::gradient("midnight"), {60, 40});
    expectColourNear(midnight.pixel(30, 0), "#312E81", 4);
    expectColourNear(midnight.pixel(30, 39), "#0F172A", 4);
    // 315° runs toward the lower right; its axis spans the corners exactly.
    QImage third = render(renderer, CanvasBackground::gradient("shots-gradient-3"), {80, 40});
    expectColourNear(third.pixel(0, 0), "#EEDDF3", 6);
    expectColourNear(third.pixel(79, 39), "#6330B4", 6);
}

TEST(GradientBackground, NinetyDegreesRunsUpward) {
    const GradientPreset up{"up", "Up", {"#FF0000", "#0000FF"}, 90, std::nullopt};
    QImage image(30, 60, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    BackgroundRenderer::drawGradient(up, painter, QRectF(0, 0, 30, 60));
    painter.end();
    // The first colour at the bottom, the last at the top, and nothing changes along a row.
    expectColourNear(image.pixel(15, 59), "#FF0000", 6);
    expectColourNear(image.pixel(15, 0), "#0000FF", 6);
    EXPECT_EQ(image.pixel(0, 30), image.pixel(29, 30));
}

TEST(GradientBackground, UnknownIdDrawsTheFirstPresetAndBlurIsIgnored) {
    BackgroundRenderer renderer;
    QImage unknown = render(renderer, CanvasBackground::gradient("no-such"), {64, 36});
    QImage first = render(renderer, CanvasBackground::gradient("shots-gradient-1"), {64, 36});
    EXPECT_EQ(unknown, first);
    QImage blurred = render(renderer, CanvasBackground::gradient("shots-gradient-1"), {64, 36}, 1.0);
    EXPECT_EQ(blurred, first);
    EXPECT_EQ(renderer.cacheKey(CanvasBackground::gradient("aurora"), 64, 36, std::nullopt, 0.7), "g:aurora|64x36|b0.0");
}

TEST(SolidBackground, FillsWithTheColourOrGreyWhenMalformed) {
    BackgroundRenderer renderer;
    QImage teal = render(renderer, CanvasBackground::solid(" #14B8A6\n"), {3.4, 1.2});
    EXPECT_EQ(teal.size(), QSize(3, 2));  // rounded, at least two pixels
    EXPECT_EQ(teal.pixel(1, 1), qRgb(0x14, 0xB8, 0xA6));
    QImage grey = render(renderer, CanvasBackground::solid("#12345"), {4, 4});
    EXPECT_NEAR(qRed(grey.pixel(0, 0)), 128, 1);
    EXPECT_FALSE(renderer.image(CanvasBackground::solid("#000000"), {NAN, 10}, std::nullopt, 0));
}

TEST(BackgroundCache, KeysQuantiseBlurAndHitsReturnTheSameBitmap) {
    BackgroundRenderer renderer;
    const auto prism = CanvasBackground::wallpaper("prism");
    EXPECT_EQ(renderer.cacheKey(prism, 100, 50, std::nullopt, 0.43), "w:prism|100x50|b0.45");
    EXPECT_EQ(renderer.cacheKey(prism, 100, 50, std::nullopt, 0.47), "w:prism|100x50|b0.45");
    EXPECT_EQ(renderer.cacheKey(prism, 100, 50, std::nullopt, 0.48), "w:prism|100x50|b0.5");
    EXPECT_EQ(renderer.cacheKey(prism, 100, 50, std::nullopt, 3), "w:prism|100x50|b1.0");

    QImage first = render(renderer, prism, {100, 50}, 0.43);
    const auto generation = renderer.cacheGeneration();
    QImage hit = render(renderer, prism, {100.2, 49.8}, 0.47);
    EXPECT_EQ(hit.cacheKey(), first.cacheKey());  // the very same pixels, not a re-render
    EXPECT_EQ(renderer.cacheGeneration(), generation);

    render(renderer, prism, {100, 50}, 0.48);
    EXPECT_GT(renderer.cacheGeneration(), generation);
    renderer.purge();
    QImage again = render(renderer, prism, {100, 50}, 0.43);
    EXPECT_NE(again.cacheKey(), first.cacheKey());
    EXPECT_EQ(again, first);  // drawn anew, the same picture
}

TEST(BackgroundCache, ConcurrentRequestsAllGetTheirPicture) {
    BackgroundRenderer renderer;
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i) {
                const int w = 40 + (t + i) % 3;
                auto image = renderer.image(CanvasBackground::gradient("ocean"), {double(w), 30}, std::nullopt, 0);
                if (image && image->width() == w) ++good;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(good.load(), 40);
}

TEST(ImageBackground, FillsTheCanvasCentredAndCutsTheOverflow) {
    TempFolder project;
    writeSplitPicture(project.path() / "backdrop.png", 200, 100);
    BackgroundRenderer renderer;
    QImage square = render(renderer, CanvasBackground::image("backdrop.png"), {100, 100}, 0, project.path());
    // Drawn 200 wide, centred: the split runs down the middle, red and blue fill every row.
    EXPECT_EQ(qRed(square.pixel(10, 0)), 255);
    EXPECT_EQ(qBlue(square.pixel(90, 99)), 255);
    EXPECT_EQ(qRed(square.pixel(45, 50)), 255);
    EXPECT_EQ(qBlue(square.pixel(55, 50)), 255);
    const std::string key = renderer.cacheKey(CanvasBackground::image("backdrop.png"), 100, 100, project.path(), 0.2);
    EXPECT_EQ(key.rfind("i:" + (project.path() / "backdrop.png").string() + ":", 0), 0u) << key;
    EXPECT_NE(key.find("|100x100|b0.2"), std::string::npos) << key;
}

TEST(ImageBackground, MissingPicturesDrawThePlainFill) {
    TempFolder project;
    BackgroundRenderer renderer;
    QImage missing = render(renderer, CanvasBackground::image("gone.png"), {20, 20}, 0, project.path());
    expectColourNear(missing.pixel(5, 5), BackgroundRenderer::fallbackHex, 0);
    std::ofstream(project.path() / "broken.png") << "not a picture";
    QImage broken = render(renderer, CanvasBackground::image("broken.png"), {20, 20}, 0, project.path());
    expectColourNear(broken.pixel(5, 5), BackgroundRenderer::fallbackHex, 0);
    writeSplitPicture(project.path() / "here.png", 10, 10);
    QImage noProject = render(renderer, CanvasBackground::image("here.png"), {20, 20});
    expectColourNear(noProject.pixel(5, 5), BackgroundRenderer::fallbackHex, 0);
    EXPECT_EQ(renderer.cacheKey(CanvasBackground::image("here.png"), 20, 20, std::nullopt, 0), "i:here.png|20x20|b0.0");
}

TEST(ImageBackground, ReplacingThePictureChangesTheKey) {
    TempFolder project;
    const fs::path file = project.path() / "pic.png";
    writeSplitPicture(file, 10, 10);
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(2));
    BackgroundRenderer renderer;
    const auto background = CanvasBackground::image("pic.png");
    const std::string before = renderer.cacheKey(background, 10, 10, project.path(), 0);
    writeSplitPicture(file, 10, 10);
    EXPECT_NE(renderer.cacheKey(background, 10, 10, project.path(), 0), before);
}

TEST(DecodeDownsampled, ShrinksToTheLongestSideAndAppliesOrientation) {
    TempFolder folder;
    writeSplitPicture(folder.path() / "wide.png", 400, 200);
    EXPECT_EQ(BackgroundRenderer::decodeDownsampled(folder.path() / "wide.png", 100)->size(), QSize(100, 50));
    EXPECT_EQ(BackgroundRenderer::decodeDownsampled(folder.path() / "wide.png", 5)->size(), QSize(32, 16));
    EXPECT_EQ(BackgroundRenderer::decodeDownsampled(folder.path() / "wide.png", 1000)->size(), QSize(400, 200));
    EXPECT_FALSE(BackgroundRenderer::decodeDownsampled(folder.path() / "none.png", 100));

    QImage picture(40, 20, QImage::Format_RGB32);
    picture.fill(Qt::green);
    QImageWriter writer(QString::fromStdString((folder.path() / "turned.jpg").string()));
    writer.setTransformation(QImageIOHandler::TransformationRotate90);
    ASSERT_TRUE(writer.write(picture));
    EXPECT_EQ(BackgroundRenderer::decodeDownsampled(folder.path() / "turned.jpg", 1000)->size(), QSize(20, 40));
}

TEST(WallpaperBackground, RemoteWallpapersDrawTheCachedFileOrTheThumbnail) {
    TempFolder folder;
    writeSplitPicture(folder.path() / "thumb.jpg", 20, 10);
    bool haveOriginal = false;
    BackgroundRenderer renderer([&](const std::string& id) {
        BackgroundRenderer::RemoteWallpaperFiles files;
        files.thumbnail = folder.path() / "thumb.jpg";
        if (haveOriginal) files.cachedOriginal = folder.path() / (id + ".jpg");
        return files;
    });
    const auto glass = CanvasBackground::wallpaper("glass-1");
    EXPECT_EQ(renderer.cacheKey(glass, 8, 8, std::nullopt, 0).rfind("rw:glass-1:" + (folder.path() / "thumb.jpg").string() + ":", 0), 0u);
    QImage thumb = render(renderer, glass, {40, 20});
    EXPECT_GT(qRed(thumb.pixel(5, 10)), 200);
    writeSplitPicture(folder.path() / "glass-1.jpg", 20, 10);
    haveOriginal = true;
    EXPECT_EQ(renderer.cacheKey(glass, 8, 8, std::nullopt, 0).rfind("rw:glass-1:" + (folder.path() / "glass-1.jpg").string() + ":", 0), 0u);

    BackgroundRenderer offline;
    EXPECT_EQ(offline.cacheKey(glass, 8, 8, std::nullopt, 0), "rw:glass-1:missing|8x8|b0.0");
    expectColourNear(render(offline, glass, {8, 8}).pixel(2, 2), BackgroundRenderer::fallbackHex, 0);
}

TEST(WallpaperBackground, UnknownNamesFallBackAndPathsAreUsedWhenTheyExist) {
    TempFolder folder;
    writeSplitPicture(folder.path() / "desk.png", 20, 20);
    EXPECT_EQ(BackgroundLibrary::wallpaperURL((folder.path() / "desk.png").string()), folder.path() / "desk.png");
    EXPECT_FALSE(BackgroundLibrary::wallpaperURL((folder.path() / "nope.png").string()));
    EXPECT_FALSE(BackgroundLibrary::wallpaperURL("surely-not-a-desktop-picture.png"));
    BackgroundRenderer renderer;
    EXPECT_EQ(renderer.cacheKey(CanvasBackground::wallpaper("nothing"), 4, 4, std::nullopt, 0.3), "w:nothing|4x4|b0.3");
    expectColourNear(render(renderer, CanvasBackground::wallpaper("nothing"), {4, 4}).pixel(1, 1),
                     BackgroundRenderer::fallbackHex, 0);
}

TEST(WallpaperBackground, ListsSystemPicturesOncePerNameInOrder) {
    TempFolder first, second;
    for (auto name : {"b.JPG", "a.png", "c.txt", "d.heic"}) std::ofstream(first.path() / name) << "x";
    for (auto name : {"a.png", "e.jpeg"}) std::ofstream(second.path() / name) << "x";
    fs::create_directory(first.path() / "folder.png");
    std::vector<std::string> names;
    for (const auto& item : BackgroundLibrary::listWallpapers({first.path(), second.path(), "/no/such/folder"}))
        names.push_back(item.fileName);
    EXPECT_EQ(names, (std::vector<std::string>{"a.png", "b.JPG", "d.heic", "e.jpeg"}));
}

TEST(MeshWallpaper, BaseRunsFromTopToBottomColour) {
    WallpaperPreset plain{"plain", "Plain", "#E0F2FE", "#1E1B4B", {}, 0};
    auto image = MeshWallpaper::image(plain, {64.4, 128});
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), QSize(64, 128));
    // The grain shifts each pixel by a few levels only.
    expectColourNear(image->pixel(32, 0), "#E0F2FE", 8);
    expectColourNear(image->pixel(32, 127), "#1E1B4B", 8);
    EXPECT_EQ(MeshWallpaper::image(plain, {0.2, 0.2})->size(), QSize(2, 2));
}

TEST(MeshWallpaper, GlowsStandWhereTheirUnitPositionSays) {
    WallpaperPreset dark{"dark", "Dark", "#000000", "#000000", {{"#FF0000", 0.25, 0.2, 0.2, 1.0}}, 0};
    auto image = MeshWallpaper::image(dark, {200, 100});
    ASSERT_TRUE(image);
    // y is measured from the top: the glow's centre is at (50, 20) on the image.
    EXPECT_GT(qRed(image->pixel(50, 20)), 200);
    EXPECT_LT(qRed(image->pixel(50, 80)), 40);
    EXPECT_LT(qRed(image->pixel(150, 20)), 40);
}

TEST(MeshWallpaper, VignetteDarkensTheCornersAndGrainIsFixed) {
    WallpaperPreset grey{"grey", "Grey", "#808080", "#808080", {}, 0.5};
    auto image = MeshWallpaper::image(grey, {100, 100});
    ASSERT_TRUE(image);
    EXPECT_LT(qGreen(image->pixel(1, 1)) + 30, qGreen(image->pixel(50, 50)));
    EXPECT_EQ(*MeshWallpaper::image(grey, {100, 100}), *image);
    const QImage& tile = MeshWallpaper::grainTile();
    ASSERT_EQ(tile.size(), QSize(128, 128));
    double mean = 0;
    for (int y = 0; y < 128; ++y)
        for (int x = 0; x < 128; ++x) mean += qGreen(tile.pixel(x, y));
    EXPECT_NEAR(mean / (128 * 128), 127.5, 3);
}

TEST(MeshWallpaper, GrainTilesFromTheBottomLeftInOverlayThenPlus) {
    WallpaperPreset flat{"flat", "Flat", "#906040", "#906040", {}, 0};
    auto image = MeshWallpaper::image(flat, {300, 200});
    ASSERT_TRUE(image);
    const QImage& tile = MeshWallpaper::grainTile();
    auto expected = [](int d, int g) {
        const double cb = d / 255.0, cs = g / 255.0;
        const double overlay = cb <= 0.5 ? 2 * cb * cs : 1 - 2 * (1 - cb) * (1 - cs);
        return static_cast<int>(std::lround((cb + 0.055 * (overlay - cb) + 0.016 * cs) * 255));
    };
    // The bottom row of the picture is the bottom row of a tile; 200 rows up, row 56 of a tile.
    for (int x : {0, 77, 130, 299}) {
        const int g = qRed(tile.pixel(x % 128, 127));
        EXPECT_NEAR(qRed(image->pixel(x, 199)), expected(0x90, g), 1) << x;
        EXPECT_NEAR(qBlue(image->pixel(x, 199)), expected(0x40, g), 1) << x;
        EXPECT_NEAR(qGreen(image->pixel(x, 0)), expected(0x60, qRed(tile.pixel(x % 128, 56))), 1) << x;
    }
}

TEST(MeshWallpaper, BlurSmoothsTheGrainAndTheEdgesStayOpaque) {
    BackgroundRenderer renderer;
    QImage sharp = render(renderer, CanvasBackground::wallpaper("slate"), {160, 90});
    QImage soft = render(renderer, CanvasBackground::wallpaper("slate"), {160, 90}, 1.0);
    EXPECT_LT(rowVariance(soft, 45), rowVariance(sharp, 45));
    EXPECT_EQ(qAlpha(soft.pixel(0, 0)), 255);
    EXPECT_EQ(qAlpha(soft.pixel(159, 89)), 255);
}

}  // namespace
}  // namespace halvane
