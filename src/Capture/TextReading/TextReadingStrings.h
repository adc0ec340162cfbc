#pragma once

#include <string>
#include <string_view>

namespace halvane {

// The user-visible texts of text reading: the localized string for the key, or the English form
// while the tables don't have the key yet. A "%d" or "%@" in it takes `number` when one is given.
std::string textReadingString(std::string_view key, std::string_view english);
std::string textReadingString(std::string_view key, std::string_view english, long long number);

}  // namespace halvane
