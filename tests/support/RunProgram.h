#pragma once

#include <map>
#include <string>
#include <vector>

namespace halvane::test {

struct ProgramResult {
    int exitCode = -1;  // 128 + signal number when a signal ended the program
    std::string out;
    std::string err;
};

// Runs a program to its end with the given extra environment and collects what it printed.
// Throws std::runtime_error when it can't be started.
ProgramResult runProgram(const std::vector<std::string>& argv, const std::map<std::string, std::string>& environment = {});

}  // namespace halvane::test
