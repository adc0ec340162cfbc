#include "Support/TimeFormat.h"

#include <cmath>
#include <cstdio>

namespace halvane {

std::string formatTime(double seconds, bool showTenths) {
    if (!(seconds > 0)) seconds = 0;
    long whole = static_cast<long>(std::floor(seconds));
    long minutes = whole / 60;
    long secs = whole % 60;
    char buf[48];
    if (showTenths) {
        int tenths = static_cast<int>(std::floor((seconds - static_cast<double>(whole)) * 10));
        if (tenths > 9) tenths = 9;
        std::snprintf(buf, sizeof buf, "%ld:%02ld.%d", minutes, secs, tenths);
    } else {
        std::snprintf(buf, sizeof buf, "%ld:%02ld", minutes, secs);
    }
    return buf;
}

}  // namespace halvane
