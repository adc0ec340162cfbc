#pragma once

#include "Support/Geometry.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace halvane {

struct PickedWindow {
    uint32_t id = 0;
    std::string name;
    friend bool operator==(const PickedWindow&, const PickedWindow&) = default;
};

struct PickedDisplay {
    uint32_t id = 0;
    std::string name;
    friend bool operator==(const PickedDisplay&, const PickedDisplay&) = default;
};

// What a take records.
struct CaptureTarget {
    struct Display {
        uint32_t id = 0;
        friend bool operator==(const Display&, const Display&) = default;
    };
    struct Window {
        uint32_t id = 0;
        friend bool operator==(const Window&, const Window&) = default;
    };
    struct Windows {
        std::vector<PickedWindow> picks;
        friend bool operator==(const Windows&, const Windows&) = default;
    };
    struct Displays {
        std::vector<PickedDisplay> picks;
        friend bool operator==(const Displays&, const Displays&) = default;
    };
    // `rect` is relative to the display, top-left points.
    struct Area {
        uint32_t display = 0;
        Rect rect;
        friend bool operator==(const Area&, const Area&) = default;
    };
    struct Device {
        std::string uniqueID;
        friend bool operator==(const Device&, const Device&) = default;
    };
    using Kind = std::variant<Display, Window, Windows, Displays, Area, Device>;

    Kind kind = Display{};
    std::string name = "Display";  // shown to the user; becomes the take's source name
    friend bool operator==(const CaptureTarget&, const CaptureTarget&) = default;
};

}  // namespace halvane
