#include "Support/Json.h"
#include "support/RunProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <QImage>

#include <cmath>
#include <fstream>

namespace fs = std::filesystem;

namespace halvane {
namespace {

const fs::path samplePackage = fs::path(HALVANE_SOURCE_DIR) / "tests/fixtures/sample.halvane";

Json canvasMark(const std::string& id, const std::string& kind, Point position, Size span, const std::string& color) {
    return Json{{"id", id},
                {"start", 0.0},
                {"end", 4.0},
                {"kind", kind},
                {"position", {position.x, position.y}},
                {"span", {span.width, span.height}},
                {"style", {{"colorHex", color}, {"size", 2}, {"filled", true}, {"shadow", false}}}};
}

// Some pixel within `reach` of (x, y) has the colour, give or take a little.
bool colourNear(const QImage& image, double x, double y, QRgb colour, int reach = 2) {
    for (int dy = -reach; dy <= reach; ++dy)
        for (int dx = -reach; dx <= reach; ++dx) {
            const int px = static_cast<int>(std::lround(x)) + dx, py = static_cast<int>(std::lround(y)) + dy;
            if (!image.rect().contains(px, py)) continue;
            const QRgb p = image.pixel(px, py);
            if (std::abs(qRed(p) - qRed(colour)) + std::abs(qGreen(p) - qGreen(colour)) + std::abs(qBlue(p) - qBlue(colour)) < 24)
                return true;
        }
    return false;
}

TEST(CanvasAnnotationFrame, AnExportedFrameShowsCanvasMarksWhereTheyStandAndPointingTheirWay) {
    const auto info = test::runProgram({HALVANE_CLI, "info", samplePackage.string(), "--json"});
    ASSERT_EQ(info.exitCode, 0) << info.err;
    Json edit = parseJsonObject(info.out)["edit"];
    edit["annotations"] = Json::array({
        canvasMark("00000000-0000-0000-0000-0000000000A1", "rectangle", {0.25, 0.75}, {0.1, 0.1}, "#0000FF"),
        // Positive span: from lower left to upper right as seen on the canvas.
        canvasMark("00000000-0000-0000-0000-0000000000A2", "arrow", {0.7, 0.5}, {0.2, 0.3}, "#FF00FF"),
    });
    test::TemporaryDirectory dir;
    const fs::path editFile = dir / "edit.json", frame = dir / "frame.png";
    std::ofstream(editFile) << dumpJson(edit);

    const auto r = test::runProgram({HALVANE_CLI, "frame", samplePackage.string(), "--at", "1", "-o", frame.string(),
                                     "--edit", editFile.string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const QImage image(QString::fromStdString(frame.string()));
    ASSERT_FALSE(image.isNull());
    const double W = image.width(), H = image.height();

    EXPECT_TRUE(colourNear(image, 0.25 * W, 0.25 * H, qRgb(0, 0, 255), 0));  // y from the bottom
    EXPECT_FALSE(colourNear(image, 0.25 * W, 0.75 * H, qRgb(0, 0, 255)));

    // Along the arrow, near its end, and not along its mirror image.
    const double along = 0.8;
    const double x = (0.6 + 0.2 * along) * W;
    EXPECT_TRUE(colourNear(image, x, (0.65 - 0.3 * along) * H, qRgb(255, 0, 255)));
    EXPECT_FALSE(colourNear(image, x, (0.35 + 0.3 * along) * H, qRgb(255, 0, 255)));
}

}  // namespace
}  // namespace halvane
