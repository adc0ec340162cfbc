#include "Export/ExportError.h"

#include "Support/Localization.h"

namespace halvane {

ExportError ExportError::setupFailed(const std::string& detail) {
    return ExportError(Kind::setupFailed, Localization::format("error.export.setupFailed", detail));
}

ExportError ExportError::renderFailed() {
    return ExportError(Kind::renderFailed, Localization::string("error.export.renderFailed"));
}

ExportError ExportError::cancelled() {
    return ExportError(Kind::cancelled, Localization::string("error.export.cancelled"));
}

}  // namespace halvane
