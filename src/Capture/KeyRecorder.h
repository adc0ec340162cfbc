#pragma once

#include "Capture/PauseClock.h"
#include "Model/RecordedEvents.h"
#include "Platform/InputEventSource.h"

#include <memory>
#include <mutex>
#include <vector>

namespace halvane {

// Key presses with their labels and held modifiers, on the pause-free host clock.
class KeyRecorder {
public:
    KeyRecorder(std::shared_ptr<PauseClock> pauseClock, InputEventSource& keys);
    ~KeyRecorder();

    // False when keys can't be heard; the take then goes on without keystrokes.
    bool start();
    // Times less `sessionStart`; keys from before it are dropped.
    std::vector<KeyEvent> stop(double sessionStart);

    void record(const InputEvent& event);

private:
    std::shared_ptr<PauseClock> pauseClock_;
    InputEventSource& keys_;
    bool listening_ = false;
    std::mutex mutex_;
    std::vector<KeyEvent> events_;
};

}  // namespace halvane
