#pragma once

#include "Render/AnnotationArt.h"

#include <string>

namespace halvane {

// The pill of the keys being pressed: white semibold text on a dark, outlined rounded box.
struct KeystrokeArt {
    static std::optional<AnnotationArt::Rendered> render(const std::string& text, double sizeFraction,
                                                         double minCanvasDim, double scale);
};

}  // namespace halvane
