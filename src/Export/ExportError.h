#pragma once

#include "Support/HalvaneError.h"

#include <string>

namespace halvane {

// Why an export ended without a file. The message is what the user reads.
class ExportError : public HalvaneError {
public:
    enum class Kind { setupFailed, renderFailed, cancelled };

    static ExportError setupFailed(const std::string& detail);
    static ExportError renderFailed();
    static ExportError cancelled();

    Kind kind() const { return kind_; }

private:
    ExportError(Kind kind, const std::string& message) : HalvaneError(message, int(kind)), kind_(kind) {}
    Kind kind_;
};

}  // namespace halvane
