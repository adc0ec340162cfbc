#pragma once

#include <filesystem>

namespace halvane {
class PaddleTextReader;
}

namespace halvane::test {

// The model archive committed to the repository.
std::filesystem::path committedTextModelArchive();
// That archive installed the way the model store installs it, once per test process, into a
// temporary root that goes at exit. Returns the release's folder.
const std::filesystem::path& installedTextModels();
// One reader on those models for the whole process: the load is the slow part.
PaddleTextReader& sharedPaddleTextReader();

}  // namespace halvane::test
