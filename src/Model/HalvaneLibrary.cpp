#include "Model/HalvaneLibrary.h"

#include "Support/UserDirectories.h"

namespace halvane {

std::filesystem::path HalvaneLibrary::legacyRecordingsDirectory() { return UserDirectories::videos() / "Halvane"; }

std::filesystem::path HalvaneLibrary::legacyScreenshotsDirectory() { return UserDirectories::data() / "Halvane" / "Screenshots"; }

}  // namespace halvane
