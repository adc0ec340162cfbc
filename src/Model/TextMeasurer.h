#pragma once

#include "Support/Geometry.h"

#include <functional>
#include <string>

namespace halvane {

// Measures text set in the system font, semibold, at `fontSize`, wrapped by words at `wrapWidth`:
// the size of its line fragments. The model has no text system of its own; Render supplies one
// backed by real fonts. Where none is given the model falls back to `estimatedTextSize`.
using TextMeasurer = std::function<Size(const std::string& text, double fontSize, double wrapWidth)>;

// A font-free stand-in for headless callers: an average advance of 0.56 em, lines of 1.2 em,
// wrapped by words at the width. Good for rough layout only.
Size estimatedTextSize(const std::string& text, double fontSize, double wrapWidth);

}  // namespace halvane
