#include "Cli/CliCommand.h"
#include "Cli/CliSupport.h"
#include "Cli/Commands.h"
#include "Model/ImageAnnotation.h"
#include "Render/BitmapImage.h"
#include "Render/ImageAnnotationRenderer.h"
#include "Support/AtomicFile.h"
#include "Support/HalvaneError.h"
#include "Support/Json.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>

#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

namespace halvane::cli {

namespace {

const char* const annotateUsage =
    "Usage: halvane-cli annotate IMAGE --marks MARKS.json -o OUT.png [--mark-scale N]\n"
    "\n"
    "Flattens marks onto a picture as the image editor does: the picture becomes the first\n"
    "`image` annotation and the marks are drawn over it in order. MARKS.json holds a JSON array\n"
    "of annotations in the editor's file form (id, kind, rect, points, text, number, style, ...;\n"
    "geometry in picture pixels with the origin at the bottom left). A mark that can't be read is\n"
    "skipped and the others are kept; marks of kind `image` need assets and are skipped here.\n"
    "\n"
    "Options:\n"
    "  --marks FILE        the marks (required)\n"
    "  -o, --output FILE   the flattened PNG (required)\n"
    "  --mark-scale N      factor for every mark size; by default 1 (2 for a picture of 144 dpi\n"
    "                      or more), grown for pictures over 1100 points on their longer side\n"
    "\n"
    "Prints \"wrote FILE WIDTHxHEIGHT (N marks)\" on success.\n"
    "Exit status: 0 on success, 1 when the picture or the marks can't be read or the file can't be\n"
    "written (nothing is written then), 2 on a usage error.\n";

struct AnnotateOptions {
    std::filesystem::path image;
    std::filesystem::path marks;
    std::filesystem::path output;
    std::optional<double> markScale;
};

std::optional<std::string> parseArguments(const Args& args, AnnotateOptions& options) {
    std::optional<std::filesystem::path> image, marks, output;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const bool takesValue = arg == "--marks" || arg == "-o" || arg == "--output" || arg == "--mark-scale";
        if (takesValue) {
            if (i + 1 >= args.size()) return arg + " needs a value";
            const std::string& value = args[++i];
            if (arg == "--marks") marks = value;
            else if (arg == "--mark-scale") {
                const auto v = parseNumber(value);
                if (!v || !(*v > 0)) return "--mark-scale needs a number above 0, not \"" + value + "\"";
                options.markScale = *v;
            } else output = value;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return "unknown option " + arg;
        } else if (image) {
            return "one picture only (got \"" + image->string() + "\" and \"" + arg + "\")";
        } else {
            image = arg;
        }
    }
    if (!image) return "missing IMAGE";
    if (!marks) return "missing --marks FILE";
    if (!output) return "missing -o OUT.png";
    options.image = *image;
    options.marks = *marks;
    options.output = *output;
    return std::nullopt;
}

// Pixels per point from the picture's resolution: 2 at 144 dpi or more, else 1.
double pictureScale(const QImage& image) {
    const double dpi = image.dotsPerMeterX() * 0.0254;
    return dpi > 0 && std::round(dpi / 72) >= 2 ? 2 : 1;
}

// Large pictures grow their marks in proportion beyond 1100 points on the longer side.
double settledMarkScale(const QImage& image, double scale) {
    const double longer = std::max(image.width(), image.height());
    return scale * std::max(longer / scale / 1100, 1.0);
}

ImageAnnotation pictureAnnotation(const QImage& image, const std::filesystem::path& source) {
    ImageAnnotation picture;
    picture.kind = ImageAnnotationKind::image;
    picture.rect = Rect(0, 0, image.width(), image.height());
    picture.style.shadow = false;
    picture.asset = std::make_shared<ImageAsset>(Uuid::random(), bitmapOf(image), source);
    return picture;
}

}  // namespace

int runAnnotate(const Args& args) {
    for (const auto& a : args)
        if (a == "--help" || a == "-h") {
            std::cout << annotateUsage;
            return exitSuccess;
        }
    AnnotateOptions options;
    if (auto problem = parseArguments(args, options)) return usageError("annotate: " + *problem);
    ensureGuiApplication();

    QImageReader reader(QString::fromStdString(options.image.string()));
    reader.setAutoTransform(true);
    const QImage image = reader.read();
    if (image.isNull())
        return failure(options.image.string() + ": can't read the picture (" + reader.errorString().toStdString() + ")");

    std::vector<ImageAnnotation> marks;
    try {
        marks = decodeImageAnnotationList(parseJson(readFile(options.marks)));
    } catch (const HalvaneError& e) {
        return failure(options.marks.string() + ": " + e.what());
    } catch (const JsonDecodeError& e) {
        return failure(options.marks.string() + ": not a JSON array of annotations (" + e.what() + ")");
    }

    std::vector<ImageAnnotation> annotations{pictureAnnotation(image, options.image)};
    annotations.insert(annotations.end(), marks.begin(), marks.end());
    const double markScale = options.markScale.value_or(settledMarkScale(image, pictureScale(image)));
    RedactionCache redactions;
    const QImage flattened = ImageAnnotationRenderer::flattened(
        annotations, Rect(0, 0, image.width(), image.height()), markScale, redactions);

    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (flattened.isNull() || !flattened.save(&buffer, "PNG"))
        return failure(options.output.string() + ": can't encode the picture as PNG");
    try {
        writeFileAtomically(options.output, std::string_view(png.constData(), static_cast<size_t>(png.size())));
    } catch (const HalvaneError& e) {
        return failure(options.output.string() + ": " + e.what());
    }
    std::cout << "wrote " << options.output.string() << " " << flattened.width() << "x" << flattened.height() << " ("
              << marks.size() << " marks)\n";
    return exitSuccess;
}

}  // namespace halvane::cli
