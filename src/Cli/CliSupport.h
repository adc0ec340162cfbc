#pragma once

#include "Model/EditSettings.h"
#include "Render/GuiApplication.h"

#include <memory>
#include <optional>
#include <string>

namespace halvane {
class Project;
}

namespace halvane::cli {

// A finite decimal number, the whole text and nothing else.
std::optional<double> parseNumber(const std::string& text);

// Opens a package as the editor does; throws std::runtime_error with a message that names the file.
std::shared_ptr<Project> openPackage(const std::string& path);

// The settings of an "edit.json"-format file; throws std::runtime_error naming the file.
EditSettings readEditFile(const std::string& path);

// The package's settings, or those of `editFile` when given.
EditSettings settingsFor(const Project& project, const std::optional<std::string>& editFile);

}  // namespace halvane::cli
