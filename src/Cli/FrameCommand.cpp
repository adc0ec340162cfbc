#include "Cli/CliCommand.h"
#include "Cli/CliSupport.h"
#include "Cli/Commands.h"

#include "Export/ExportError.h"
#include "Export/ExportFrames.h"
#include "Model/Project.h"
#include "Render/CanvasLayout.h"
#include "Support/AtomicFile.h"

#include <QBuffer>
#include <QImageWriter>

#include <iostream>

namespace halvane::cli {

namespace {

const char* frameUsage =
    "Usage: halvane-cli frame PACKAGE --at T -o FILE.png [--short-side N] [--edit FILE]\n"
    "\n"
    "Writes the exported frame at output time T (seconds of the edited result) as a PNG.\n"
    "  --at T          output time in seconds\n"
    "  -o FILE.png     where to write the picture\n"
    "  --short-side N  canvas short side in pixels as in the export sheet; 0 or absent: source size\n"
    "  --edit FILE     use the settings of this \"edit.json\"-format file instead of the package's\n";

struct FrameOptions {
    std::string package;
    std::optional<double> at;
    std::string output;
    double shortSide = 0;
    std::optional<std::string> editFile;
};

std::optional<std::string> parseFrameArgs(const Args& args, FrameOptions& o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--at" || arg == "-o" || arg == "--short-side" || arg == "--edit") {
            if (i + 1 >= args.size()) return "frame: " + arg + " needs a value";
            const std::string& value = args[++i];
            if (arg == "-o") {
                o.output = value;
            } else if (arg == "--edit") {
                o.editFile = value;
            } else {
                auto number = parseNumber(value);
                if (!number || *number < 0) return "frame: " + arg + " needs a number, not \"" + value + "\"";
                if (arg == "--at") o.at = *number;
                else o.shortSide = *number;
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            return "frame: unknown option \"" + arg + "\"";
        } else if (o.package.empty()) {
            o.package = arg;
        } else {
            return std::string("frame: more than one package given");
        }
    }
    if (o.package.empty()) return std::string("frame: no package given (see halvane-cli frame --help)");
    if (!o.at) return std::string("frame: no output time given (--at T)");
    if (o.output.empty()) return std::string("frame: no output file given (-o FILE.png)");
    return std::nullopt;
}

void writePng(const QImage& frame, const std::string& path) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "png");
    if (!writer.write(frame.convertToFormat(QImage::Format_RGB32)))
        throw std::runtime_error("cannot encode the frame as PNG: " + writer.errorString().toStdString());
    writeFileAtomically(path, std::string_view(bytes.constData(), size_t(bytes.size())));
}

}  // namespace

int runFrame(const Args& args) {
    for (const auto& a : args)
        if (a == "--help" || a == "-h") {
            std::cout << frameUsage;
            return exitSuccess;
        }
    FrameOptions options;
    if (auto error = parseFrameArgs(args, options)) return usageError(*error);
    ensureGuiApplication();
    try {
        auto project = openPackage(options.package);
        EditSettings settings = settingsFor(*project, options.editFile);
        Size canvas = canvasSize(project->meta(), settings, options.shortSide);
        if (canvas.width < 2 || canvas.height < 2)
            return failure("\"" + options.package + "\" has no picture size to compose a frame at");
        ExportFrames frames(*project, settings, canvas, 60);
        QImage frame = frames.compose(*options.at);
        if (frame.isNull()) return failure("the frame at " + std::to_string(*options.at) + " s could not be made");
        writePng(frame, options.output);
    } catch (const std::exception& e) {
        return failure(e.what());
    }
    return exitSuccess;
}

}  // namespace halvane::cli
