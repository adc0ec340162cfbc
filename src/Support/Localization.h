#pragma once

#include <string>
#include <string_view>

namespace halvane {

// Every user-visible text is a key. Until the tables exist a key stands for itself,
// except for the few texts the command line prints, which have an English form here.
struct Localization {
    static std::string string(std::string_view key);
    // The text of `key` with its one "%@" placeholder replaced by `argument`.
    static std::string format(std::string_view key, std::string_view argument);
};

}  // namespace halvane
