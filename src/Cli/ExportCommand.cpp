#include "Cli/CliCommand.h"
#include "Cli/CliSupport.h"
#include "Cli/Commands.h"

#include "Export/Exporter.h"
#include "Model/Project.h"
#include "Render/CanvasLayout.h"

#include <csignal>
#include <cstdio>
#include <iostream>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace halvane::cli {

namespace {

const char* exportUsage =
    "Usage: halvane-cli export PACKAGE -o FILE [--format h264|hevc|gif] [--fps N] [--short-side N]\n"
    "                          [--edit FILE] [--quiet]\n"
    "\n"
    "Exports the take with its edit as the export sheet does.\n"
    "  -o FILE         the MP4 or GIF to write\n"
    "  --format F      h264 (default), hevc or gif\n"
    "  --fps N         frames a second (default 60 for movies, 20 for GIF)\n"
    "  --short-side N  canvas short side in pixels (default 720; 0: the source's size)\n"
    "  --edit FILE     use the settings of this \"edit.json\"-format file instead of the package's\n"
    "  --quiet         no progress on stderr\n"
    "Progress goes to stderr. Ctrl-C cancels: the partial file is removed and the status is 130.\n";

struct ExportArgs {
    std::string package;
    std::string output;
    ExportFormat format = ExportFormat::h264;
    std::optional<double> fps;
    double shortSide = 720;
    std::optional<std::string> editFile;
    bool quiet = false;
};

std::optional<std::string> parseExportArgs(const Args& args, ExportArgs& o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--quiet") {
            o.quiet = true;
        } else if (arg == "-o" || arg == "--format" || arg == "--fps" || arg == "--short-side" || arg == "--edit") {
            if (i + 1 >= args.size()) return "export: " + arg + " needs a value";
            const std::string& value = args[++i];
            if (arg == "-o") {
                o.output = value;
            } else if (arg == "--edit") {
                o.editFile = value;
            } else if (arg == "--format") {
                auto format = enumFromName<ExportFormat>(value);
                if (!format) return "export: --format must be h264, hevc or gif, not \"" + value + "\"";
                o.format = *format;
            } else {
                auto number = parseNumber(value);
                bool fps = arg == "--fps";
                if (!number || *number < 0 || (fps && (*number < 1 || *number > 240)))
                    return "export: " + arg + " needs " + (fps ? "a frame rate from 1 to 240" : "a number") +
                           ", not \"" + value + "\"";
                if (fps) o.fps = *number;
                else o.shortSide = *number;
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            return "export: unknown option \"" + arg + "\"";
        } else if (o.package.empty()) {
            o.package = arg;
        } else {
            return std::string("export: more than one package given");
        }
    }
    if (o.package.empty()) return std::string("export: no package given (see halvane-cli export --help)");
    if (o.output.empty()) return std::string("export: no output file given (-o FILE)");
    return std::nullopt;
}

// Progress as a bar on a terminal, as percentage lines otherwise.
class ProgressPrinter {
public:
    explicit ProgressPrinter(bool quiet) : quiet_(quiet), terminal_(isatty(STDERR_FILENO) != 0) {}
    void operator()(double value) {
        if (quiet_) return;
        int percent = int(value * 100);
        if (percent == last_) return;
        last_ = percent;
        if (terminal_) {
            int filled = percent * 30 / 100;
            std::fprintf(stderr, "\r[%s%s] %3d%%", std::string(size_t(filled), '#').c_str(),
                         std::string(size_t(30 - filled), '-').c_str(), percent);
            if (percent >= 100) std::fputc('\n', stderr);
        } else {
            std::fprintf(stderr, "%d%%\n", percent);
        }
        std::fflush(stderr);
    }

private:
    bool quiet_;
    bool terminal_;
    int last_ = -1;
};

// Turns SIGINT and SIGTERM into a cancel of the export, from a thread of its own, so no handler
// has to touch the exporter. Stopped by SIGUSR2 when the export ends.
class CancelOnSignal {
public:
    explicit CancelOnSignal(Exporter& exporter) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        sigaddset(&set, SIGUSR2);
        pthread_sigmask(SIG_BLOCK, &set, &previous_);
        watcher_ = std::thread([&exporter, set, this] {
            int signal = 0;
            sigwait(&set, &signal);
            if (signal != SIGUSR2) {
                received_ = true;
                exporter.cancel();
            }
        });
    }
    ~CancelOnSignal() {
        pthread_kill(watcher_.native_handle(), SIGUSR2);
        watcher_.join();
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    bool received() const { return received_; }

private:
    sigset_t previous_;
    std::thread watcher_;
    std::atomic<bool> received_{false};
};

}  // namespace

int runExport(const Args& args) {
    for (const auto& a : args)
        if (a == "--help" || a == "-h") {
            std::cout << exportUsage;
            return exitSuccess;
        }
    ExportArgs o;
    if (auto error = parseExportArgs(args, o)) return usageError(*error);
    std::shared_ptr<Project> project;
    EditSettings settings;
    try {
        project = openPackage(o.package);
        settings = settingsFor(*project, o.editFile);
    } catch (const std::exception& e) {
        return failure(e.what());
    }
    ExportOptions options;
    options.format = o.format;
    options.fps = o.fps.value_or(o.format == ExportFormat::gif ? 20 : 60);
    options.canvasSize = canvasSize(project->meta(), settings, o.shortSide);
    if (options.canvasSize.width < 2 || options.canvasSize.height < 2)
        return failure("\"" + o.package + "\" has no picture size to export at");

    ensureGuiApplication();
    Exporter exporter(*project, settings, options);
    ProgressPrinter progress(o.quiet);
    bool cancelledBySignal = false;
    try {
        CancelOnSignal watcher(exporter);
        try {
            exporter.run(o.output, [&](double value) { progress(value); });
        } catch (...) {
            cancelledBySignal = watcher.received();
            throw;
        }
    } catch (const ExportError& e) {
        if (e.kind() == ExportError::Kind::cancelled || cancelledBySignal) {
            if (!o.quiet) std::cerr << "\n" << e.localizedDescription() << "\n";
            return exitCancelled;
        }
        return failure(e.localizedDescription());
    } catch (const std::exception& e) {
        return failure(e.what());
    }
    std::cout << o.output << "\n";
    return exitSuccess;
}

}  // namespace halvane::cli
