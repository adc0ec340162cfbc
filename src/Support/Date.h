#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace halvane {

using Date = std::chrono::system_clock::time_point;

// Internet date-time with whole seconds and "Z", e.g. "2024-05-01T09:30:00Z".
std::string iso8601String(Date date);
// Accepts "Z" or a numeric offset, with or without fractional seconds.
std::optional<Date> parseIso8601(std::string_view text);

}  // namespace halvane
