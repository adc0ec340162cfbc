#include "support/RunProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>

#include <fstream>

namespace fs = std::filesystem;

namespace halvane {
namespace {

test::ProgramResult annotate(std::vector<std::string> args) {
    args.insert(args.begin(), {HALVANE_CLI, "annotate"});
    return test::runProgram(args);
}

struct AnnotateFiles {
    test::TemporaryDirectory dir;
    fs::path picture = dir / "shot.png";
    fs::path marks = dir / "marks.json";
    fs::path output = dir / "out.png";

    AnnotateFiles() {
        // White on the left, a black and white checker on the right half.
        QImage image(200, 100, QImage::Format_RGB32);
        image.fill(Qt::white);
        QPainter p(&image);
        for (int y = 0; y < 100; y += 2)
            for (int x = 100 + y % 4; x < 200; x += 4) p.fillRect(x, y, 2, 2, Qt::black);
        p.end();
        image.save(QString::fromStdString(picture.string()));
    }
    void writeMarks(const std::string& text) const { std::ofstream(marks) << text; }
};

TEST(AnnotateCommand, FlattensTheReadableMarksOntoThePicture) {
    AnnotateFiles files;
    files.writeMarks(R"([
      {"id":"00000000-0000-0000-0000-000000000001","kind":"rectangle","rect":[[10,10],[50,30]],
       "style":{"colorHex":"#0000FF","filled":true,"shadow":false}},
      {"id":"00000000-0000-0000-0000-000000000002","kind":"sparkle"},
      {"id":"00000000-0000-0000-0000-000000000003","kind":"redact","rect":[[120,20],[60,60]],
       "style":{"redaction":"blur"}}
    ])");
    const auto r = annotate({files.picture.string(), "--marks", files.marks.string(), "-o", files.output.string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("200x100 (2 marks)"), std::string::npos) << r.out;

    QImage out(QString::fromStdString(files.output.string()));
    ASSERT_EQ(out.size(), QSize(200, 100));
    EXPECT_EQ(out.pixel(35, 100 - 25), qRgb(0, 0, 255));  // origin at the bottom left
    EXPECT_EQ(out.pixel(35, 25), qRgb(255, 255, 255));
    const QRgb blurred = out.pixel(150, 50);
    EXPECT_GT(qGreen(blurred), 60);  // the checker has become grey
    EXPECT_LT(qGreen(blurred), 195);
}

TEST(AnnotateCommand, BadInputFailsWithTheFileNamedAndWritesNothing) {
    AnnotateFiles files;
    files.writeMarks("{\"not\": \"a list\"}");
    auto r = annotate({files.picture.string(), "--marks", files.marks.string(), "-o", files.output.string()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find(files.marks.string()), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(files.output));

    files.writeMarks("[]");
    r = annotate({(files.dir / "missing.png").string(), "--marks", files.marks.string(), "-o", files.output.string()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("missing.png"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(files.output));

    r = annotate({files.picture.string(), "--marks", files.marks.string(), "-o", (files.dir / "no/such/dir/out.png").string()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_FALSE(fs::exists(files.dir / "no"));
}

TEST(AnnotateCommand, UsageErrorsAndHelp) {
    AnnotateFiles files;
    EXPECT_EQ(annotate({files.picture.string(), "-o", files.output.string()}).exitCode, 2);
    EXPECT_EQ(annotate({files.picture.string(), "--marks"}).exitCode, 2);
    EXPECT_EQ(annotate({files.picture.string(), "--marks", "m.json", "-o", "o.png", "--mark-scale", "-1"}).exitCode, 2);
    const auto help = annotate({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.out.rfind("Usage: halvane-cli annotate", 0), 0u);
}

}  // namespace
}  // namespace halvane
