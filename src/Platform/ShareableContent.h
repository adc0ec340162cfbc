#pragma once

#include "Support/Geometry.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace halvane {

// One monitor of the X screen; `frame` is in global top-left root pixels.
struct DisplayInfo {
    uint32_t id = 0;
    std::string name;
    Rect frame;
    double scale = 1.0;
    friend bool operator==(const DisplayInfo&, const DisplayInfo&) = default;
};

// One top-level window that is mapped on screen.
struct WindowInfo {
    uint32_t id = 0;
    std::string title;
    std::string applicationName;
    int processID = 0;
    Rect frame;
    friend bool operator==(const WindowInfo&, const WindowInfo&) = default;
};

// What can be recorded right now: displays, and windows ordered front to back.
struct ShareableContent {
    std::vector<DisplayInfo> displays;
    std::vector<WindowInfo> windows;

    const DisplayInfo* display(uint32_t id) const;
    const WindowInfo* window(uint32_t id) const;
    // The display holding the middle of `rect`; failing that, the one sharing the largest area.
    const DisplayInfo* display(const Rect& under) const;
    // Union of every display's frame, empty without displays.
    Rect displayUnion() const;

    friend bool operator==(const ShareableContent&, const ShareableContent&) = default;
};

// Source of the content list; the Linux one asks the X server each time.
class ContentProvider {
public:
    virtual ~ContentProvider() = default;
    // Throws HalvaneError when the list can't be had (server gone).
    virtual ShareableContent current() = 0;
    // Global pointer position, absent when it can't be read.
    virtual std::optional<Point> pointerLocation() = 0;
};

}  // namespace halvane
