#pragma once

#include <string>

namespace halvane {

// "m:ss" or "m:ss.t"; negative times count as 0 and tenths are truncated, not rounded.
std::string formatTime(double seconds, bool showTenths = false);

}  // namespace halvane
