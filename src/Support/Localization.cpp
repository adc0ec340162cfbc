#include "Support/Localization.h"

#include <array>
#include <utility>

namespace halvane {

namespace {
constexpr std::array<std::pair<std::string_view, std::string_view>, 1> englishTable{{
    {"recording.rename.invalidName",
     "That name can't be used. Names can't be empty, contain \"/\" or \":\", or be longer than 240 bytes."},
}};
}

std::string Localization::string(std::string_view key) {
    for (const auto& [k, v] : englishTable)
        if (k == key) return std::string(v);
    return std::string(key);
}

}  // namespace halvane
