#pragma once

#include <ctime>

namespace halvane {

// Seconds on CLOCK_MONOTONIC: the host clock every capture stamp and history entry uses.
inline double systemUptime() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

}  // namespace halvane
