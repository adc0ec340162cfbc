#include "support/RunProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <QImage>

#include <filesystem>
#include <fstream>
#include <random>

namespace {

namespace fs = std::filesystem;
using halvane::test::ProgramResult;
using halvane::test::TemporaryDirectory;

ProgramResult stitch(std::vector<std::string> args) {
    args.insert(args.begin(), {HALVANE_CLI, "stitch"});
    return halvane::test::runProgram(args);
}

constexpr int width = 240;
constexpr int viewport = 300;
constexpr int headerRows = 30;
constexpr int footerRows = 20;
constexpr int visibleRows = viewport - headerRows - footerRows;

// A page of random grey blocks under a fixed bar at the top and another at the bottom.
class Page {
public:
    explicit Page(int contentRows) : content_(width, contentRows, QImage::Format_RGB32) {
        std::mt19937 random(9);
        for (int y = 0; y < contentRows; ++y)
            for (int x = 0; x < width; x += 6) {
                const int v = int(random() % 256);
                for (int i = x; i < std::min(x + 6, width); ++i) content_.setPixel(i, y, qRgb(v, v, v / 2));
            }
    }
    int maxScroll() const { return content_.height() - visibleRows; }

    QImage frame(int scroll) const { return compose(scroll, viewport); }
    QImage fullPage() const { return compose(0, content_.height() + headerRows + footerRows); }

private:
    QImage compose(int scroll, int rows) const {
        QImage out(width, rows, QImage::Format_RGB32);
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < width; ++x) {
                if (y < headerRows) out.setPixel(x, y, qRgb(20, 40, 90 + (x / 20) * 8));
                else if (y >= rows - footerRows) out.setPixel(x, y, qRgb(90, 60, 30 + (x / 20) * 8));
                else out.setPixel(x, y, content_.pixel(x, scroll + y - headerRows));
            }
        return out;
    }
    QImage content_;
};

std::vector<std::string> writeFrames(const TemporaryDirectory& dir, const Page& page, const std::vector<int>& scrolls) {
    std::vector<std::string> files;
    for (int scroll : scrolls) {
        files.push_back((dir / ("frame-" + std::to_string(scroll) + ".png")).string());
        EXPECT_TRUE(page.frame(scroll).save(QString::fromStdString(files.back())));
    }
    return files;
}

bool samePixels(const QImage& a, const QImage& b) {
    return a.size() == b.size() &&
           a.convertToFormat(QImage::Format_RGB32) == b.convertToFormat(QImage::Format_RGB32);
}

TEST(StitchCommand, StitchesFramesAndReportsEachOutcome) {
    TemporaryDirectory dir;
    const Page page(900);
    auto args = writeFrames(dir, page, {0, 100, 100, 280, 450, page.maxScroll()});
    const std::string out = (dir / "long.png").string();
    const std::string preview = (dir / "preview.png").string();
    args.insert(args.begin(), {"-o", out, "--preview", preview, "--preview-width", "60", "--preview-rows", "90"});
    const auto result = stitch(args);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out,
              "frame 1: matched dy=0 added=300\n"
              "frame 2: matched dy=100 added=100\n"
              "frame 3: unchanged\n"
              "frame 4: matched dy=180 added=180\n"
              "frame 5: matched dy=170 added=170\n"
              "frame 6: matched dy=200 added=200\n"
              "wrote " + out + " 240x950\n"
              "wrote " + preview + " 60x90\n");
    EXPECT_TRUE(samePixels(QImage(QString::fromStdString(out)), page.fullPage()));
    EXPECT_EQ(QImage(QString::fromStdString(preview)).size(), QSize(60, 90));
}

TEST(StitchCommand, FlatFramesMoveOnlyWithAnExpectedOffset) {
    TemporaryDirectory dir;
    QImage flat(100, 200, QImage::Format_RGB32);
    flat.fill(qRgb(240, 240, 240));
    const std::string frame = (dir / "flat.png").string();
    ASSERT_TRUE(flat.save(QString::fromStdString(frame)));
    const std::string out = (dir / "out.png").string();

    auto still = stitch({"-o", out, frame, frame});
    ASSERT_EQ(still.exitCode, 0) << still.err;
    EXPECT_NE(still.out.find("frame 2: unchanged\n"), std::string::npos) << still.out;

    auto moved = stitch({"-o", out, "--expected", "50", frame, frame, frame});
    ASSERT_EQ(moved.exitCode, 0) << moved.err;
    EXPECT_NE(moved.out.find("frame 2: trusted dy=50 added=50\nframe 3: trusted dy=50 added=50\n"), std::string::npos)
        << moved.out;
    EXPECT_EQ(QImage(QString::fromStdString(out)).size(), QSize(100, 300));
}

TEST(StitchCommand, UnusableFramesFailWithoutWritingAnything) {
    TemporaryDirectory dir;
    const Page page(600);
    const auto frames = writeFrames(dir, page, {0, 120});
    const std::string out = (dir / "out.png").string();

    const std::string broken = (dir / "broken.png").string();
    std::ofstream(broken) << "not a picture";
    auto unreadable = stitch({"-o", out, frames[0], broken});
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_NE(unreadable.err.find(broken), std::string::npos) << unreadable.err;
    EXPECT_FALSE(fs::exists(out));

    auto missing = stitch({"-o", out, frames[0], (dir / "absent.png").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("absent.png"), std::string::npos) << missing.err;

    const std::string small = (dir / "small.png").string();
    ASSERT_TRUE(page.frame(0).copy(0, 0, width, viewport - 1).save(QString::fromStdString(small)));
    auto mixed = stitch({"-o", out, frames[0], frames[1], small});
    EXPECT_EQ(mixed.exitCode, 1);
    EXPECT_NE(mixed.err.find("240x299"), std::string::npos) << mixed.err;
    EXPECT_NE(mixed.err.find("240x300"), std::string::npos) << mixed.err;
    EXPECT_TRUE(mixed.out.empty()) << "sizes are checked before any frame is stitched";
    EXPECT_FALSE(fs::exists(out));

    auto unwritable = stitch({"-o", (dir / "no-such-folder" / "out.png").string(), frames[0]});
    EXPECT_EQ(unwritable.exitCode, 1);
    EXPECT_FALSE(unwritable.err.empty());
}

TEST(StitchCommand, UsageErrorsAndHelp) {
    auto help = stitch({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("Usage: halvane-cli stitch"), std::string::npos);
    EXPECT_NE(help.out.find("frame N: matched dy=DY added=ROWS"), std::string::npos);

    EXPECT_EQ(stitch({"frame.png"}).exitCode, 2) << "no output";
    EXPECT_EQ(stitch({"-o", "out.png"}).exitCode, 2) << "no frames";
    EXPECT_EQ(stitch({"-o", "out.png", "--expected", "ten", "a.png"}).exitCode, 2);
    EXPECT_EQ(stitch({"-o", "out.png", "--preview-width", "0", "a.png"}).exitCode, 2);
    EXPECT_EQ(stitch({"-o", "out.png", "--sideways", "a.png"}).exitCode, 2);
    EXPECT_EQ(stitch({"-o", "out.png", "a.png", "--expected"}).exitCode, 2) << "option without value";
}

TEST(StitchCommand, StopsGrowingAtTheBodyLimit) {
    TemporaryDirectory dir;
    const Page page(900);
    auto args = writeFrames(dir, page, {0, 200, 400});
    const std::string out = (dir / "out.png").string();
    // Room for the first frame's body (250 rows) and 200 more rows.
    args.insert(args.begin(), {"-o", out, "--max-body-bytes", std::to_string(450 * width * 4)});
    const auto result = stitch(args);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("frame 3: limit\n"), std::string::npos) << result.out;
    EXPECT_EQ(QImage(QString::fromStdString(out)).height(), headerRows + 200 + visibleRows + footerRows);
}

}  // namespace
