#pragma once

#include "Support/Color.h"

namespace halvane {

// The fixed colours of the program's own surfaces, sRGB, alpha 1. The accent colour follows the
// desktop and is taken from the widget palette where it is needed.
struct Theme {
    static constexpr Color editorBackground{0.0166, 0.0225, 0.0355, 1};
    static constexpr Color timelineBackground{0.0166, 0.0225, 0.0355, 1};
    static constexpr Color panelBackground{0.0706, 0.0785, 0.102, 1};
    // Behind the video inside the card.
    static constexpr Color cardFill{0.055, 0.06, 0.07, 1};
};

}  // namespace halvane
