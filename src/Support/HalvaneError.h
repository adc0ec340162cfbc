#pragma once

#include <stdexcept>
#include <string>

namespace halvane {

// The one user-facing error type: its message is the localized description shown to the user.
class HalvaneError : public std::runtime_error {
public:
    explicit HalvaneError(const std::string& localizedDescription, int code = 0)
        : std::runtime_error(localizedDescription), code_(code) {}

    std::string localizedDescription() const { return what(); }
    int code() const { return code_; }

private:
    int code_;
};

}  // namespace halvane
