#include "Capture/MouseRecorder.h"

#include <algorithm>
#include <cmath>

namespace halvane {

namespace {

constexpr double restingDistance = 0.0004;
constexpr double restingInterval = 0.25;

}  // namespace

MouseRecorder::MouseRecorder(std::function<Rect()> sourceRect, std::shared_ptr<PauseClock> pauseClock, Platform platform)
    : sourceRect_(std::move(sourceRect)), pauseClock_(std::move(pauseClock)), platform_(std::move(platform)) {
    samples_.reserve(120 * 60 * 5);
}

MouseRecorder::~MouseRecorder() {
    // The timers go first: their ticks touch the lists below.
    if (timer_) timer_->cancel();
    if (shapeTimer_) shapeTimer_->cancel();
    if (listening_) platform_.buttons->stop();
}

void MouseRecorder::start() {
    timer_ = std::make_unique<RepeatingTimer>("halvane.mouse", sampleInterval, [this] { samplePosition(); });
    if (platform_.cursor)
        shapeTimer_ = std::make_unique<RepeatingTimer>("halvane.mouse", shapeInterval, [this] { sampleShape(); });
    if (platform_.buttons) listening_ = platform_.buttons->start([this](const InputEvent& e) { recordButton(e); });
}

std::optional<Point> MouseRecorder::normalizedPointer() const {
    auto location = platform_.pointer ? platform_.pointer->pointerLocation() : std::nullopt;
    if (!location) return std::nullopt;
    Rect rect = sourceRect_();
    if (!(rect.width() > 1.0) || !(rect.height() > 1.0)) return std::nullopt;
    // A pointer far outside is pinned half a source outside it.
    double x = std::clamp((location->x - rect.minX()) / rect.width(), -0.5, 1.5);
    double y = std::clamp((location->y - rect.minY()) / rect.height(), -0.5, 1.5);
    return Point{x, y};
}

void MouseRecorder::samplePosition() {
    auto point = normalizedPointer();
    if (!point) return;
    auto t = pauseClock_->adjusted(pauseClock_->now());
    if (!t) return;
    std::lock_guard lock(mutex_);
    if (lastRecorded_ && !samples_.empty() && std::fabs(point->x - lastRecorded_->x) < restingDistance &&
        std::fabs(point->y - lastRecorded_->y) < restingDistance && *t - samples_.back().t < restingInterval)
        return;
    samples_.push_back({*t, point->x, point->y});
    lastRecorded_ = point;
}

void MouseRecorder::recordButton(const InputEvent& event) {
    if (event.kind == InputEvent::Kind::keyDown) return;
    auto point = normalizedPointer();
    if (!point) return;
    auto t = pauseClock_->adjusted(event.hostTime);
    if (!t) return;
    ClickEvent click;
    click.t = *t;
    click.x = point->x;
    click.y = point->y;
    click.button = event.button;
    click.phase = event.kind == InputEvent::Kind::buttonDown ? ClickPhase::down : ClickPhase::up;
    std::lock_guard lock(mutex_);
    clicks_.push_back(click);
}

void MouseRecorder::sampleShape() {
    auto t = pauseClock_->adjusted(pauseClock_->now());
    if (!t || !platform_.cursor) return;
    if (!shapeSampler_) shapeSampler_ = std::make_unique<CursorShapeSampler>(*platform_.cursor, platform_.shapeReferences);
    auto shape = shapeSampler_->poll();
    if (!shape) return;
    std::lock_guard lock(mutex_);
    shapes_.push_back({*t, *shape});
}

RecordedEvents MouseRecorder::stop(double sessionStart) {
    if (timer_) timer_->cancel();
    if (shapeTimer_) shapeTimer_->cancel();
    if (listening_) platform_.buttons->stop();
    listening_ = false;

    std::lock_guard lock(mutex_);
    RecordedEvents events;
    events.samples = std::move(samples_);
    for (auto& s : events.samples) s.t = std::max(0.0, s.t - sessionStart);
    for (const auto& c : clicks_) {
        if (c.t < sessionStart) continue;
        ClickEvent moved = c;
        moved.t -= sessionStart;
        events.clicks.push_back(moved);
    }
    events.shapes = std::move(shapes_);
    for (auto& s : events.shapes) s.t = std::max(0.0, s.t - sessionStart);
    clicks_.clear();
    return events;
}

}  // namespace halvane
