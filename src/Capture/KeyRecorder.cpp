#include "Capture/KeyRecorder.h"

namespace halvane {

KeyRecorder::KeyRecorder(std::shared_ptr<PauseClock> pauseClock, InputEventSource& keys)
    : pauseClock_(std::move(pauseClock)), keys_(keys) {}

KeyRecorder::~KeyRecorder() {
    if (listening_) keys_.stop();
}

bool KeyRecorder::start() {
    listening_ = keys_.start([this](const InputEvent& e) { record(e); });
    return listening_;
}

void KeyRecorder::record(const InputEvent& event) {
    if (event.kind != InputEvent::Kind::keyDown || event.keyLabel.empty()) return;
    auto t = pauseClock_->adjusted(event.hostTime);
    if (!t) return;
    std::lock_guard lock(mutex_);
    events_.push_back({*t, event.keyLabel, event.modifiers});
}

std::vector<KeyEvent> KeyRecorder::stop(double sessionStart) {
    if (listening_) keys_.stop();
    listening_ = false;
    std::lock_guard lock(mutex_);
    std::vector<KeyEvent> result;
    for (const auto& e : events_) {
        if (e.t - sessionStart < 0) continue;
        result.push_back({e.t - sessionStart, e.label, e.modifiers});
    }
    events_.clear();
    return result;
}

}  // namespace halvane
