#include "Cli/CliCommand.h"
#include "Cli/CliSupport.h"
#include "Cli/Commands.h"

#include "Model/Project.h"
#include "Model/RenderModel.h"

#include <iostream>
#include <sstream>

namespace halvane::cli {

namespace {

const char* stateUsage =
    "Usage: halvane-cli state PACKAGE --at T [--at T ...] [--edit FILE] [--json] [--pretty]\n"
    "\n"
    "Prints what the render model shows at each output time T (seconds of the edited result).\n"
    "  --at T       an output time; repeat for more\n"
    "  --edit FILE  use the settings of this \"edit.json\"-format file instead of the package's\n"
    "  --json       an array with one render state object per T, in the order given\n"
    "  --pretty     indent the JSON\n";

struct StateOptions {
    std::string package;
    std::vector<double> times;
    std::optional<std::string> editFile;
    bool json = false;
    bool pretty = false;
};

std::optional<std::string> parseStateArgs(const Args& args, StateOptions& options) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--json") {
            options.json = true;
        } else if (arg == "--pretty") {
            options.pretty = true;
        } else if (arg == "--at" || arg == "--edit") {
            if (i + 1 >= args.size()) return "state: " + arg + " needs a value";
            const std::string& value = args[++i];
            if (arg == "--edit") {
                if (options.editFile) return std::string("state: --edit given more than once");
                options.editFile = value;
            } else if (auto t = parseNumber(value)) {
                options.times.push_back(*t);
            } else {
                return "state: --at needs a number of seconds, not \"" + value + "\"";
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            return "state: unknown option \"" + arg + "\"";
        } else if (options.package.empty()) {
            options.package = arg;
        } else {
            return std::string("state: more than one package given");
        }
    }
    if (options.package.empty()) return std::string("state: no package given (see halvane-cli state --help)");
    if (options.times.empty()) return std::string("state: no output time given (--at T)");
    return std::nullopt;
}

Json rippleJson(const CursorTimeline::Ripple& r) {
    Json j = Json::object();
    j["center"] = toJson(r.center);
    j["progress"] = r.progress;
    j["isRight"] = r.isRight;
    putOptional(j, "source", r.source);
    return j;
}

Json stateJson(double output, double source, const RenderState& st) {
    Json j = Json::object();
    j["output"] = output;
    j["source"] = source;
    j["zoomRect"] = toJson(st.zoomRect);
    putOptional(j, "cursor", st.cursor);
    j["cursorAlpha"] = st.cursorAlpha;
    j["cursorShape"] = toJson(st.cursorShape);
    j["pressAmount"] = st.pressAmount;
    Json ripples = Json::array();
    for (const auto& r : st.ripples) ripples.push_back(rippleJson(r));
    j["ripples"] = std::move(ripples);
    if (st.keystroke) j["keystroke"] = Json{{"text", st.keystroke->text}, {"alpha", st.keystroke->alpha}};
    j["sourceZoomRects"] = toJson(st.sourceZoomRects);
    j["cursorSource"] = st.cursorSource;
    return j;
}

std::string stateLine(double output, double source, const RenderState& st) {
    std::ostringstream out;
    const Rect& z = st.zoomRect;
    out << "output " << output << " s  source " << source << " s  view (" << z.x() << ", " << z.y() << ", " << z.width()
        << " x " << z.height() << ")";
    if (st.cursor)
        out << "  pointer (" << st.cursor->x << ", " << st.cursor->y << ") " << enumName(st.cursorShape) << " alpha "
            << st.cursorAlpha;
    else
        out << "  no pointer";
    if (st.pressAmount > 0) out << "  press " << st.pressAmount;
    if (!st.ripples.empty()) out << "  " << st.ripples.size() << " ripple(s)";
    if (st.keystroke) out << "  keys \"" << st.keystroke->text << "\" alpha " << st.keystroke->alpha;
    if (!st.sourceZoomRects.empty()) out << "  pointer source " << st.cursorSource;
    return out.str();
}

}  // namespace

int runState(const Args& args) {
    for (const auto& arg : args) {
        if (arg == "--help" || arg == "-h") {
            std::cout << stateUsage;
            return exitSuccess;
        }
    }
    StateOptions options;
    if (auto error = parseStateArgs(args, options)) return usageError(*error);

    std::shared_ptr<Project> project;
    EditSettings settings;
    try {
        project = openPackage(options.package);
        settings = settingsFor(*project, options.editFile);
    } catch (const std::exception& e) {
        return failure(std::string("state: ") + e.what());
    }

    const double duration = project->meta().duration;
    const SpeedMap map = settings.speedMap(duration);
    const RenderModel model(project->meta(), project->events(), settings);
    Json all = Json::array();
    for (double output : options.times) {
        const double source = map.sourceTime(output);
        const RenderState st = model.state(source, settings);
        if (options.json) all.push_back(stateJson(output, source, st));
        else std::cout << stateLine(output, source, st) << "\n";
    }
    if (options.json)
        std::cout << (options.pretty ? all.dump(2, ' ', false, Json::error_handler_t::replace) : dumpJson(all)) << "\n";
    return exitSuccess;
}

}  // namespace halvane::cli
