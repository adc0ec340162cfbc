// Stitches real browser screenshots of long pages taken at a series of scroll offsets, and checks
// the result against the browser's own picture of the whole page.

#include "Capture/Screenshots/ScrollingCaptureStitcher.h"
#include "Render/BitmapImage.h"
#include "support/RunProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <QImage>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace halvane {
namespace {

namespace fs = std::filesystem;

const char* const chromium = "/usr/bin/chromium";
constexpr int viewportWidth = 640;
constexpr int viewportHeight = 480;

std::vector<std::string> browserCommand(const fs::path& profile, int windowHeight) {
    // `timeout` keeps a wedged browser from hanging the suite.
    return {"/usr/bin/timeout", "120", chromium, "--headless", "--no-sandbox", "--disable-gpu",
            "--disable-background-networking", "--no-first-run", "--hide-scrollbars",
            "--user-data-dir=" + profile.string(),
            "--window-size=" + std::to_string(viewportWidth) + "," + std::to_string(windowHeight)};
}

pid_t spawnQuietly(const std::vector<std::string>& command) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> argv;
    for (const auto& part : command) argv.push_back(const_cast<char*>(part.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("could not start " + command.front());
    return pid;
}

int waitForExit(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// One fixture page, opened in a fresh browser profile per run.
class BrowserPage {
public:
    BrowserPage(std::string name, fs::path workDirectory)
        : url_("file://" + (fs::path(HALVANE_SOURCE_DIR) / "tests/fixtures/scrolling" / name).string()),
          work_(std::move(workDirectory)) {
        fs::create_directories(work_);
    }

    // The page writes its scrollable height into its title.
    int scrollHeight() {
        auto command = browserCommand(profile(), viewportHeight);
        command.push_back("--dump-dom");
        command.push_back(url_);
        const std::string dom = test::runProgram(command).out;
        const auto start = dom.find("<title>");
        return start == std::string::npos ? 0 : std::atoi(dom.c_str() + start + 7);
    }

    // What the window shows scrolled to each offset, and the browser's own picture of the whole
    // page, taken by two browsers side by side. Each offset gets a viewport of its own, an iframe
    // of the window's size, and one screenshot of a sheet of them stacked takes them all: one
    // browser start instead of one per offset. The whole page is a window as tall as the page,
    // which then has nothing to scroll.
    struct Pictures {
        std::vector<Bitmap> frames;
        QImage fullPage;
    };
    Pictures capture(const std::vector<int>& offsets, int pageHeight) {
        const fs::path sheet = work_ / "sheet.html";
        std::string html = "<!doctype html><html><body style=\"margin:0\">";
        for (int offset : offsets)
            html += "<iframe src=\"" + url_ + "#" + std::to_string(offset) + "\" width=\"" +
                    std::to_string(viewportWidth) + "\" height=\"" + std::to_string(viewportHeight) +
                    "\" style=\"display:block;border:0\"></iframe>";
        html += "</body></html>";
        std::ofstream(sheet) << html;

        const fs::path sheetFile = work_ / "sheet.png";
        auto sheetCommand = browserCommand(profile(), viewportHeight * int(offsets.size()));
        sheetCommand.push_back("--screenshot=" + sheetFile.string());
        sheetCommand.push_back("file://" + sheet.string());
        const fs::path fullFile = work_ / "full.png";
        auto fullCommand = browserCommand(profile(), pageHeight);
        fullCommand.push_back("--screenshot=" + fullFile.string());
        fullCommand.push_back(url_);
        const pid_t sheetBrowser = spawnQuietly(sheetCommand);
        const pid_t fullBrowser = spawnQuietly(fullCommand);
        waitForExit(sheetBrowser);
        waitForExit(fullBrowser);

        Pictures pictures;
        const QImage picture(QString::fromStdString(sheetFile.string()));
        for (std::size_t i = 0; i < offsets.size() && !picture.isNull(); ++i)
            pictures.frames.push_back(
                bitmapOf(picture.copy(0, int(i) * viewportHeight, viewportWidth, viewportHeight)));
        pictures.fullPage = QImage(QString::fromStdString(fullFile.string()));
        return pictures;
    }

private:
    fs::path profile() { return work_ / ("profile-" + std::to_string(profiles_++)); }

    std::string url_;
    fs::path work_;
    int profiles_ = 0;
};

// Offsets from 0 to the end of the page by steps of varied length, some leaving under a
// quarter of the moving band as overlap.
std::vector<int> scrollOffsets(int maxScroll) {
    const int steps[] = {90, 320, 12, 260, 200, 300, 140};
    std::vector<int> offsets{0};
    for (int i = 0; offsets.back() + steps[i % 7] < maxScroll; ++i) offsets.push_back(offsets.back() + steps[i % 7]);
    offsets.push_back(maxScroll);
    return offsets;
}

int firstDifferentRow(const Bitmap& a, const Bitmap& b) {
    for (int y = 0; y < std::min(a.height, b.height); ++y)
        if (!std::equal(a.row(y), a.row(y) + a.width * 4, b.row(y))) return y;
    return a.height == b.height ? -1 : std::min(a.height, b.height);
}

class ScrollingChromiumStitch : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (access(chromium, X_OK) != 0) GTEST_SKIP() << chromium << " is not installed";
    }
    test::TemporaryDirectory work_;
};

TEST_P(ScrollingChromiumStitch, MatchesTheBrowsersFullPage) {
    BrowserPage page(GetParam(), work_.path());
    const int pageHeight = page.scrollHeight();
    ASSERT_GT(pageHeight, 3 * viewportHeight) << "the page must be long enough to need stitching";
    const auto offsets = scrollOffsets(pageHeight - viewportHeight);
    const auto [frames, fullPage] = page.capture(offsets, pageHeight);
    ASSERT_EQ(frames.size(), offsets.size());
    ASSERT_FALSE(fullPage.isNull());

    // As the scrolling session does when it scrolls by itself, each frame comes with the offset
    // the scroll should have caused; it only decides between alignments that score alike.
    ScrollingCaptureStitcher stitcher({ScrollingCaptureStitcher::Configuration{}.maxBodyBytes, 120});
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const auto frame = ScrollingFrame::make(frames[i], 0);
        ASSERT_TRUE(frame) << "scroll to " << offsets[i];
        const int step = i == 0 ? 0 : offsets[i] - offsets[i - 1];
        const auto outcome = stitcher.ingest(*frame, i == 0 ? std::nullopt : std::optional(step));
        EXPECT_EQ(outcome.tag, ScrollingCaptureStitcher::Outcome::Tag::matched) << "scroll to " << offsets[i];
        EXPECT_EQ(outcome.dy, step) << "scroll to " << offsets[i];
    }

    const auto stitched = stitcher.compose();
    ASSERT_TRUE(stitched);
    const Bitmap reference = bitmapOf(fullPage);
    ASSERT_EQ(reference.height, pageHeight);
    EXPECT_EQ(stitched->width, reference.width);
    EXPECT_EQ(stitched->height, reference.height);
    // Every row equal means the sticky header is at the top once, the fixed footer at the bottom
    // once, and no body row is repeated or missing.
    EXPECT_EQ(firstDifferentRow(*stitched, reference), -1);
    EXPECT_GE(stitcher.headerRows(), 48) << "the sticky header, 46 rows and its 2-row rule, is the header";
}

INSTANTIATE_TEST_SUITE_P(Pages, ScrollingChromiumStitch, testing::Values("article.html", "changelog.html"),
                         [](const auto& info) { return std::string(info.param).substr(0, std::string(info.param).find('.')); });

}  // namespace
}  // namespace halvane
