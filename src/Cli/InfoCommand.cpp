#include "Cli/CliCommand.h"
#include "Cli/Commands.h"

#include "Model/Project.h"
#include "Support/TimeFormat.h"

#include <iostream>
#include <sstream>

namespace halvane::cli {

namespace {

const char* infoUsage =
    "Usage: halvane-cli info PACKAGE [--json] [--pretty]\n"
    "\n"
    "Opens a recording package the way the editor does and prints what it holds.\n"
    "  --json    one object {\"meta\", \"events\", \"edit\", \"transcript\"}, each record as written\n"
    "  --pretty  indent the JSON\n";

struct InfoOptions {
    std::string package;
    bool json = false;
    bool pretty = false;
};

// Gives an error message, or nothing when the arguments are usable.
std::optional<std::string> parseInfoArgs(const Args& args, InfoOptions& options) {
    for (const auto& arg : args) {
        if (arg == "--json") options.json = true;
        else if (arg == "--pretty") options.pretty = true;
        else if (arg.size() > 1 && arg[0] == '-') return "info: unknown option \"" + arg + "\"";
        else if (options.package.empty()) options.package = arg;
        else return "info: more than one package given";
    }
    if (options.package.empty()) return "info: no package given (see halvane-cli info --help)";
    return std::nullopt;
}

Json infoJson(const Project& project) {
    Json j = Json::object();
    j["meta"] = toJson(project.meta());
    j["events"] = toJson(project.events());
    j["edit"] = toJson(project.editState().settings());
    if (project.transcript()) j["transcript"] = toJson(*project.transcript());
    return j;
}

const char* yesNo(bool b) { return b ? "yes" : "no"; }

std::string summary(const Project& project) {
    const RecordingMeta& m = project.meta();
    const RecordedEvents& e = project.events();
    const EditSettings& s = project.editState().settings();
    std::ostringstream out;
    out << "Package:     " << project.url().string() << "\n"
        << "Name:        " << project.displayName() << "\n"
        << "Recorded:    " << iso8601String(m.createdAt) << "\n"
        << "Mode:        " << m.mode << " (" << m.sourceName << ")\n"
        << "Duration:    " << formatTime(m.duration, true) << " (" << m.duration << " s)\n"
        << "Video:       " << m.pixelWidth << "x" << m.pixelHeight << " px, " << m.pointWidth << "x" << m.pointHeight
        << " pt, scale " << m.scale << ", " << m.fps << " fps\n"
        << "Sources:     " << (m.sources.empty() ? 1 : m.sources.size()) << (project.isMultiWindow() ? " (multi-window)" : "")
        << "\n"
        << "Audio:       system " << yesNo(m.hasSystemAudio) << ", microphone " << yesNo(m.hasMicrophone) << ", camera "
        << yesNo(m.hasCamera) << "\n"
        << "Events:      " << e.samples.size() << " pointer samples, " << e.clicks.size() << " clicks ("
        << e.leftClickDowns().size() << " left presses), " << e.keys.size() << " keys, " << e.shapes.size()
        << " cursor shapes, " << e.focus.size() << " focus samples\n";
    TimeRange trim = s.trimBounds(m.duration);
    out << "Edit:        " << s.zooms.size() << " zooms, " << s.cuts.size() << " cuts, " << s.speeds.size() << " speed changes, "
        << s.annotations.size() << " annotations, " << s.masks.size() << " masks; trim " << formatTime(trim.lower, true)
        << " to " << formatTime(trim.upper, true) << "\n";
    if (project.transcript())
        out << "Transcript:  " << project.transcript()->cues.size() << " cues (" << project.transcript()->locale << ")\n";
    else
        out << "Transcript:  none\n";
    return out.str();
}

}  // namespace

int runInfo(const Args& args) {
    for (const auto& arg : args) {
        if (arg == "--help" || arg == "-h") {
            std::cout << infoUsage;
            return exitSuccess;
        }
    }
    InfoOptions options;
    if (auto error = parseInfoArgs(args, options)) return usageError(*error);

    std::error_code ec;
    if (!std::filesystem::is_directory(options.package, ec))
        return failure("info: \"" + options.package + "\" is not a package directory");
    std::shared_ptr<Project> project;
    try {
        project = Project::load(options.package);
    } catch (const std::exception& e) {
        return failure(std::string("info: ") + e.what());
    }
    if (options.json)
        std::cout << (options.pretty ? infoJson(*project).dump(2, ' ', false, Json::error_handler_t::replace)
                                     : dumpJson(infoJson(*project)))
                  << "\n";
    else
        std::cout << summary(*project);
    return exitSuccess;
}

}  // namespace halvane::cli
