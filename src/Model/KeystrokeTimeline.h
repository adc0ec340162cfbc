#pragma once

#include "Model/EditTypes.h"
#include "Model/RecordedEvents.h"

#include <optional>
#include <string>
#include <vector>

namespace halvane {

// The keystroke overlay: a typed run as a growing line of text, a shortcut as a chord of modifier
// glyphs and a key. Source seconds.
struct KeystrokeTimeline {
    struct Display {
        std::string text;
        double start = 0;
        double end = 0;
        double chainStart = 0;  // start of the unbroken run of displays this one belongs to
        double chainEnd = 0;
        friend bool operator==(const Display&, const Display&) = default;
    };

    struct Shown {
        std::string text;
        double alpha = 0;
        friend bool operator==(const Shown&, const Shown&) = default;
    };

    static constexpr int shortcutMask = modifierControl | modifierCommand;

    static std::vector<Display> displays(const std::vector<KeyEvent>& keys, KeystrokeMode mode);
    static std::optional<Shown> display(double t, const std::vector<Display>& displays);
    // Modifier glyphs in the order control, option, shift, command, then the key upper-cased.
    static std::string chordText(const KeyEvent& key);
};

}  // namespace halvane
