#include "Cli/CliCommand.h"

#include <iostream>

namespace halvane::cli {

int usageError(const std::string& message) {
    std::cerr << "halvane-cli: " << message << "\n";
    return exitUsage;
}

int failure(const std::string& message) {
    std::cerr << "halvane-cli: " << message << "\n";
    return exitFailure;
}

}  // namespace halvane::cli
