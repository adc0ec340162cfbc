#include "Capture/Screenshots/ScrollingCaptureStitcher.h"
#include "Cli/CliCommand.h"
#include "Cli/Commands.h"
#include "Render/BitmapImage.h"
#include "Support/AtomicFile.h"
#include "Support/HalvaneError.h"
#include "Support/Json.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>

#include <charconv>
#include <filesystem>
#include <iostream>
#include <limits>

namespace halvane::cli {

namespace {

const char* const stitchUsage =
    "Usage: halvane-cli stitch -o OUT.png [options] FRAME.png [FRAME.png ...]\n"
    "\n"
    "Stitches grabs of one region, taken in order while its content scrolls, into one tall\n"
    "picture: rows fixed at the top are kept once as the header, rows fixed at the bottom once\n"
    "as the footer, and everything that scrolled through between them once as the body.\n"
    "All frames must have the same size.\n"
    "\n"
    "Options:\n"
    "  -o, --output FILE      the stitched PNG (required)\n"
    "  --expected DY          the offset in rows each frame is expected to move (positive when\n"
    "                         scrolling down); used to tell ties apart and to step over flat content\n"
    "  --preview FILE         also write the last live preview (the picture's bottom, scaled) as PNG\n"
    "  --preview-width N      width of the preview in pixels (default 120)\n"
    "  --preview-rows N       height limit of the preview in pixels (default 480)\n"
    "  --exclude-right N      ignore N columns at the right when matching, e.g. a scroll bar\n"
    "                         (default 0; at most a quarter of the width)\n"
    "  --max-body-bytes N     stop growing the body beyond N bytes (default 268435456)\n"
    "\n"
    "Output, one line per frame in order, then one line per file written:\n"
    "  frame N: matched dy=DY added=ROWS     offset measured (frame 1: dy=0, all rows added)\n"
    "  frame N: trusted dy=DY added=ROWS     flat content, the expected offset taken as true\n"
    "  frame N: unchanged                    nothing new in the frame\n"
    "  frame N: lost                         movement that can't be aligned; frame skipped\n"
    "  frame N: limit                        the body would pass --max-body-bytes; frame skipped\n"
    "  wrote FILE WIDTHxHEIGHT\n"
    "\n"
    "Exit status: 0 on success, 1 when a frame can't be read, the frames' sizes differ or a file\n"
    "can't be written (nothing is written then), 2 on a usage error.\n";

struct StitchOptions {
    std::filesystem::path output;
    std::optional<std::filesystem::path> preview;
    std::optional<int> expected;
    int previewWidth = 120;
    int previewRows = 480;
    int excludedRightColumns = 0;
    std::int64_t maxBodyBytes = ScrollingCaptureStitcher::Configuration{}.maxBodyBytes;
    std::vector<std::filesystem::path> frames;
};

template <typename Number>
std::optional<Number> parseNumber(const std::string& text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// Fills `options` from the arguments; a message when they can't be used.
std::optional<std::string> parseArguments(const Args& args, StitchOptions& options) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.size() > 1 && arg[0] == '-') {
            if (i + 1 >= args.size()) return arg + " needs a value";
            const std::string& value = args[++i];
            auto number = [&](auto& field, auto lowest) -> std::optional<std::string> {
                const auto parsed = parseNumber<std::remove_reference_t<decltype(field)>>(value);
                if (!parsed || *parsed < lowest) return arg + " needs a whole number of at least " + std::to_string(lowest) + ", not \"" + value + "\"";
                field = *parsed;
                return std::nullopt;
            };
            std::optional<std::string> problem;
            if (arg == "-o" || arg == "--output") options.output = value;
            else if (arg == "--preview") options.preview = value;
            else if (arg == "--expected") {
                int expected = 0;
                problem = number(expected, std::numeric_limits<int>::min());
                options.expected = expected;
            } else if (arg == "--preview-width") problem = number(options.previewWidth, 1);
            else if (arg == "--preview-rows") problem = number(options.previewRows, 1);
            else if (arg == "--exclude-right") problem = number(options.excludedRightColumns, 0);
            else if (arg == "--max-body-bytes") problem = number(options.maxBodyBytes, std::int64_t(0));
            else return "unknown option " + arg;
            if (problem) return problem;
        } else {
            options.frames.emplace_back(arg);
        }
    }
    if (options.output.empty()) return std::string("stitch needs -o OUT.png");
    if (options.frames.empty()) return std::string("stitch needs at least one frame");
    return std::nullopt;
}

// Every frame readable and of one size, checked from the files' headers before any work starts.
std::optional<std::string> checkFrames(const std::vector<std::filesystem::path>& frames) {
    QSize first;
    for (const auto& path : frames) {
        QImageReader reader(QString::fromStdString(path.string()));
        const QSize size = reader.size();
        if (!reader.canRead() || !size.isValid())
            return "cannot read frame " + path.string() + ": " + reader.errorString().toStdString();
        if (first.isEmpty()) first = size;
        if (size != first)
            return "frame " + path.string() + " is " + std::to_string(size.width()) + "x" +
                   std::to_string(size.height()) + ", but the first frame is " + std::to_string(first.width()) + "x" +
                   std::to_string(first.height());
    }
    return std::nullopt;
}

void writePng(const std::filesystem::path& path, const Bitmap& picture) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!imageOf(picture).save(&buffer, "PNG")) throw HalvaneError("cannot encode " + path.string() + " as PNG");
    writeFileAtomically(path, std::string_view(bytes.constData(), std::size_t(bytes.size())));
    std::cout << "wrote " << path.string() << " " << picture.width << "x" << picture.height << "\n";
}

void printOutcome(std::size_t number, const ScrollingCaptureStitcher::Outcome& outcome) {
    using Tag = ScrollingCaptureStitcher::Outcome::Tag;
    std::cout << "frame " << number << ": " << enumName(outcome.tag);
    if (outcome.tag == Tag::matched || outcome.tag == Tag::trusted)
        std::cout << " dy=" << outcome.dy << " added=" << outcome.addedRows;
    std::cout << "\n";
}

}  // namespace

int runStitch(const Args& args) {
    for (const auto& arg : args)
        if (arg == "--help" || arg == "-h") {
            std::cout << stitchUsage;
            return exitSuccess;
        }
    StitchOptions options;
    if (const auto problem = parseArguments(args, options)) return usageError(*problem);
    if (const auto problem = checkFrames(options.frames)) return failure(*problem);

    ScrollingCaptureStitcher stitcher({options.maxBodyBytes, options.previewWidth});
    for (std::size_t i = 0; i < options.frames.size(); ++i) {
        const auto& path = options.frames[i];
        QImage image(QString::fromStdString(path.string()));
        const auto frame = ScrollingFrame::make(bitmapOf(image), options.excludedRightColumns);
        if (!frame) return failure("cannot read frame " + path.string() + ": not a usable image");
        // The first frame has nothing to be expected against.
        printOutcome(i + 1, stitcher.ingest(*frame, i == 0 ? std::nullopt : options.expected));
    }

    const auto picture = stitcher.compose();
    if (!picture) return failure("no frame could be stitched");
    try {
        std::optional<Bitmap> preview;
        if (options.preview) {
            preview = stitcher.previewTail(options.previewRows);
            if (!preview) return failure("no preview could be made for " + options.preview->string());
        }
        writePng(options.output, *picture);
        if (preview) writePng(*options.preview, *preview);
    } catch (const std::exception& error) {
        return failure(error.what());
    }
    return exitSuccess;
}

}  // namespace halvane::cli
