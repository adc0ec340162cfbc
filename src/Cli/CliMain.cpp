#include "Cli/CliCommand.h"
#include "Cli/Commands.h"
#include "Capture/TextReading/TextReadWorker.h"

#include <cstring>
#include <iostream>

using namespace halvane::cli;

namespace {

// One row per subcommand, in the order `--help` lists them.
const CliCommand commands[] = {
    {"info", "print what a recording package holds", runInfo},
    {"record", "record a take from the X server into a new package", runRecord},
    {"annotate", "flatten image marks onto a picture as PNG", runAnnotate},
    {"state", "print the render state at output times", runState},
    {"stitch", "stitch scrolled frames into one tall picture", runStitch},
    {"frame", "write the exported frame at an output time as PNG", runFrame},
    {"export", "export a take to MP4 or GIF", runExport},
    {"read-text", "print the text of a screenshot in reading order", runReadText},
    {"text-models", "install, remove or show the PP-OCR text models", runTextModels},
    {nullptr, nullptr, nullptr},
};

void printHelp(std::ostream& out) {
    out << "Usage: halvane-cli COMMAND [ARGS...]\n\n"
           "Headless jobs on Halvane packages and images. Every command takes --help.\n\n"
           "Commands:\n";
    for (const auto& c : commands)
        if (c.name) out << "  " << c.name << std::string(c.name ? 14 - std::min<size_t>(13, std::strlen(c.name)) : 0, ' ') << c.summary << "\n";
}

}  // namespace

int main(int argc, char** argv) {
    // read-text starts this same program as its text worker.
    if (argc == 3 && std::strcmp(argv[1], halvane::TextReadWorker::flag) == 0)
        halvane::TextReadWorker::runRequestedInvocationAndExit(argv[2]);
    if (argc < 2) {
        printHelp(std::cerr);
        return exitUsage;
    }
    std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        printHelp(std::cout);
        return exitSuccess;
    }
    for (const auto& c : commands) {
        if (c.name && name == c.name) return c.run(Args(argv + 2, argv + argc));
    }
    return usageError("unknown command \"" + name + "\" (see halvane-cli --help)");
}
