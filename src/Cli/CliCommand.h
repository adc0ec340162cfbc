#pragma once

#include <string>
#include <vector>

namespace halvane::cli {

// Exit codes every command shares.
enum ExitCode : int { exitSuccess = 0, exitFailure = 1, exitUsage = 2, exitCancelled = 130 };

// One subcommand of halvane-cli. `args` excludes the program and the command name.
struct CliCommand {
    const char* name;
    const char* summary;
    int (*run)(const std::vector<std::string>& args);
};

// Prints "halvane-cli: message" to stderr and returns exitUsage.
int usageError(const std::string& message);
// Prints "halvane-cli: message" to stderr and returns exitFailure.
int failure(const std::string& message);

}  // namespace halvane::cli
