#include "Capture/PauseClock.h"

#include "Support/Clock.h"

#include <algorithm>

namespace halvane {

PauseClock::PauseClock(Now now) : now_(now ? std::move(now) : Now(systemUptime)) {}

double PauseClock::totalPaused() const {
    double t = now_();
    std::lock_guard lock(mutex_);
    return pauseBegan_ ? accumulated_ + std::max(0.0, t - *pauseBegan_) : accumulated_;
}

void PauseClock::pause() {
    double t = now_();
    std::lock_guard lock(mutex_);
    if (!pauseBegan_) pauseBegan_ = t;
}

void PauseClock::resume() {
    double t = now_();
    std::lock_guard lock(mutex_);
    if (!pauseBegan_) return;
    accumulated_ += std::max(0.0, t - *pauseBegan_);
    pauseBegan_.reset();
}

bool PauseClock::isPaused() const {
    std::lock_guard lock(mutex_);
    return pauseBegan_.has_value();
}

std::optional<double> PauseClock::adjusted(double hostSeconds) const {
    std::lock_guard lock(mutex_);
    if (pauseBegan_) return std::nullopt;
    return hostSeconds - accumulated_;
}

}  // namespace halvane
