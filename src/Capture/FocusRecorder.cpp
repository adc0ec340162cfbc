#include "Capture/FocusRecorder.h"

#include <algorithm>

namespace halvane {

FocusRecorder::FocusRecorder(Kind kind, std::vector<uint32_t> ids, std::shared_ptr<PauseClock> pauseClock, ContentProvider& content)
    : kind_(kind), ids_(std::move(ids)), pauseClock_(std::move(pauseClock)), content_(content) {}

FocusRecorder::~FocusRecorder() {
    if (timer_) timer_->cancel();
}

void FocusRecorder::start() {
    timer_ = std::make_unique<RepeatingTimer>("halvane.focus", interval, [this] { poll(); });
}

void FocusRecorder::poll() {
    auto t = pauseClock_->adjusted(pauseClock_->now());
    if (!t) return;
    ShareableContent content;
    try {
        content = content_.current();
    } catch (...) {
        return;
    }
    std::optional<uint32_t> candidate;
    std::vector<std::pair<uint32_t, Rect>> collected;
    if (kind_ == Kind::displays) {
        auto pointer = content_.pointerLocation();
        for (uint32_t id : ids_) {
            const auto* display = content.display(id);
            if (!display || !(display->frame.width() > 1) || !(display->frame.height() > 1)) continue;
            collected.emplace_back(id, display->frame);
            if (!candidate && pointer && display->frame.contains(*pointer)) candidate = id;
        }
    } else {
        for (const auto& window : content.windows) {
            if (std::find(ids_.begin(), ids_.end(), window.id) == ids_.end()) continue;
            if (!candidate) candidate = window.id;
            if (window.frame.width() > 0 && window.frame.height() > 0) collected.emplace_back(window.id, window.frame);
        }
    }
    std::lock_guard lock(mutex_);
    if (candidate && current_ != candidate) {
        current_ = candidate;
        samples_.push_back({*t, *candidate});
    }
    for (const auto& [id, frame] : collected) {
        auto& list = frames_[id];
        if (list.empty() || list.back().frame != frame) list.push_back({*t, frame});
    }
}

FocusRecorder::Report FocusRecorder::stop(double sessionStart) {
    if (timer_) timer_->cancel();
    std::lock_guard lock(mutex_);
    Report report;
    report.samples = std::move(samples_);
    for (auto& s : report.samples) s.t = std::max(0.0, s.t - sessionStart);
    report.frames = std::move(frames_);
    for (auto& [id, list] : report.frames)
        for (auto& f : list) f.t = std::max(0.0, f.t - sessionStart);
    return report;
}

}  // namespace halvane
