#pragma once

#include <algorithm>

namespace halvane {

// The two easing curves every timeline uses; both hold x to 0 to 1 first.
inline double smoothstep(double x) {
    x = std::clamp(x, 0.0, 1.0);
    return x * x * (3 - 2 * x);
}

inline double smootherstep(double x) {
    x = std::clamp(x, 0.0, 1.0);
    return x * x * x * (x * (6 * x - 15) + 10);
}

}  // namespace halvane
