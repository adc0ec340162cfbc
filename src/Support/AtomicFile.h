#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace halvane {

// Writes to a temporary file beside the target, flushes it to disk and renames it over the target,
// so a reader sees either the old or the new content, never half of one. Throws HalvaneError.
void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes);

// Throws HalvaneError naming the file when it can't be read.
std::string readFile(const std::filesystem::path& path);

}  // namespace halvane
