#pragma once

#include "Capture/TextReading/TextModelStore.h"

namespace halvane::cli {

// The text engine's selection in the user's settings file (INI under the XDG config folder),
// the same store the application reads.
class TextDefaults : public TextModelStore::Defaults {
public:
    std::optional<std::string> string(const std::string& key) const override;
    void setString(const std::string& key, const std::string& value) override;
    void remove(const std::string& key) override;
};

}  // namespace halvane::cli
