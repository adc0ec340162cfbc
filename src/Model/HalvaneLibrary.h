#pragma once

#include <filesystem>

namespace halvane {

// Folders older versions kept takes and screenshots in; the project list and the screenshot
// library still look there.
struct HalvaneLibrary {
    // "Halvane" in the user's videos folder.
    static std::filesystem::path legacyRecordingsDirectory();
    // "Halvane/Screenshots" in the user's data folder.
    static std::filesystem::path legacyScreenshotsDirectory();
};

}  // namespace halvane
