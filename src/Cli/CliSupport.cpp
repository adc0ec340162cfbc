#include "Cli/CliSupport.h"

#include "Model/Project.h"
#include "Support/AtomicFile.h"

#include <charconv>
#include <cstdlib>
#include <cmath>
#include <filesystem>
#include <stdexcept>

namespace halvane::cli {

std::optional<double> parseNumber(const std::string& text) {
    double value = 0;
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (text.empty() || ec != std::errc() || ptr != end || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::shared_ptr<Project> openPackage(const std::string& path) {
    if (!std::filesystem::is_directory(path))
        throw std::runtime_error("\"" + path + "\" is not a package folder");
    try {
        return Project::load(path);
    } catch (const std::exception& e) {
        throw std::runtime_error(e.what());
    }
}

EditSettings readEditFile(const std::string& path) {
    std::string text;
    try {
        text = readFile(path);
    } catch (const std::exception& e) {
        throw std::runtime_error("cannot read edit file \"" + path + "\": " + e.what());
    }
    try {
        return Project::decode<EditSettings>(text);
    } catch (const std::exception& e) {
        throw std::runtime_error("edit file \"" + path + "\" is not an edit record: " + e.what());
    }
}


EditSettings settingsFor(const Project& project, const std::optional<std::string>& editFile) {
    return editFile ? readEditFile(*editFile) : project.editState().settings();
}

}  // namespace halvane::cli
