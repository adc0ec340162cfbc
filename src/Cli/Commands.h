#pragma once

#include <string>
#include <vector>

// Entry points of the subcommands; each lives in its own <Name>Command.cpp.
namespace halvane::cli {

using Args = std::vector<std::string>;

int runInfo(const Args&);

int runRecord(const Args&);

int runAnnotate(const Args&);

int runState(const Args&);

int runStitch(const Args&);

int runFrame(const Args&);

int runExport(const Args&);

int runReadText(const Args&);

int runTextModels(const Args&);

}  // namespace halvane::cli
