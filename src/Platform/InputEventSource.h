#pragma once

#include <functional>
#include <string>

namespace halvane {

// A global button or key transition, stamped on the host clock when it was read.
struct InputEvent {
    enum class Kind { buttonDown, buttonUp, keyDown };
    Kind kind = Kind::buttonDown;
    int button = 0;         // 0 left, 1 right, 2 middle, 3 and up the side buttons
    std::string keyLabel;   // empty when the key has no label worth showing
    int modifiers = 0;      // KeyModifier bits held at the time of the event
    double hostTime = 0;
    friend bool operator==(const InputEvent&, const InputEvent&) = default;
};

// Every button and key of every application, heard without taking them from anyone.
class InputEventSource {
public:
    virtual ~InputEventSource() = default;
    // Delivers events on a reader thread of its own until stop; false when input can't be heard.
    virtual bool start(std::function<void(const InputEvent&)> onEvent) = 0;
    virtual void stop() = 0;
};

}  // namespace halvane
