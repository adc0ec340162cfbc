#include "Model/CursorTimeline.h"

#include "Model/Easing.h"
#include "Model/StableOrder.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

namespace halvane {

namespace {

constexpr double tableStep = 1.0 / CursorTimeline::rate;

double timeConstant(double smoothness) {
    double tau = smoothness > 0 ? std::min(smoothness, 1.0) * 0.3 + 0.03 : 0.03;
    return std::max(tau, 0.016);
}

// More than 0.0004 apart. The squared distance settles all but a hair's breadth around the
// threshold cheaply; there the rounded distance decides.
bool movedNoticeably(const MouseSample& a, const MouseSample& b) {
    constexpr double threshold = 0.0004;
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double squared = dx * dx + dy * dy;
    constexpr double band = threshold * threshold * 1e-6;
    if (squared > threshold * threshold + band) return true;
    if (squared < threshold * threshold - band) return false;
    return std::hypot(dx, dy) > threshold;
}

}  // namespace

int CursorTimeline::substeps(double smoothness) {
    const double w = 2 * std::numbers::pi / timeConstant(smoothness);
    return std::max(static_cast<int>(std::ceil((w * tableStep) / 0.45)), 1);
}

CursorTimeline::CursorTimeline(const RecordedEvents& events, double smoothness, double duration) {
    smooth(events.samples, smoothness, duration);
    std::vector<ClickEvent> clicks = events.clicks;
    stableSortBy(clicks, &ClickEvent::t);
    collectPresses(clicks, duration);
    collectClickIntervals(clicks, duration);
    collectActivity(events);
    std::vector<CursorShapeSample> shapes = events.shapes;
    stableSortBy(shapes, &CursorShapeSample::t);
    shapeTimes_.reserve(shapes.size());
    shapeValues_.reserve(shapes.size());
    for (const auto& s : shapes) {
        shapeTimes_.push_back(s.t);
        shapeValues_.push_back(s.shape);
    }
}

void CursorTimeline::smooth(const std::vector<MouseSample>& samples, double smoothness, double duration) {
    if (samples.empty()) return;
    firstTime_ = samples[0].t;
    if (samples.size() == 1) {
        points_.push_back({samples[0].x, samples[0].y});
        return;
    }
    const double w = 2 * std::numbers::pi / timeConstant(smoothness);
    const int steps = substeps(smoothness);
    const double h = tableStep / steps;
    const double first = samples.front().t;
    const double last = samples.back().t;
    const double limit = std::max(last, std::min(last + 0.5, duration));
    const double w2 = w * w;
    const double damping = 2 * w;

    const auto count = static_cast<size_t>(std::max((limit - first) * rate, 0.0)) + 2;
    points_.reserve(count);

    double px = samples[0].x, py = samples[0].y;
    double vx = 0, vy = 0;
    size_t i = 0;
    const size_t n = samples.size();
    for (size_t k = 0;; ++k) {
        // Each step from the first time, not accumulated, so the table does not drift.
        const double t = time(k);
        if (t > limit) break;
        while (i + 1 < n && !(samples[i + 1].t > t)) ++i;
        double tx, ty;
        if (i + 1 < n) {
            const auto& a = samples[i];
            const auto& b = samples[i + 1];
            double f = std::clamp((t - a.t) / std::max(b.t - a.t, 0.0001), 0.0, 1.0);
            tx = a.x + (b.x - a.x) * f;
            ty = a.y + (b.y - a.y) * f;
        } else {
            tx = samples[n - 1].x;
            ty = samples[n - 1].y;
        }
        for (int s = 0; s < steps; ++s) {
            vx = vx + ((tx - px) * w2 - vx * damping) * h;
            px = px + vx * h;
            vy = vy + ((ty - py) * w2 - vy * damping) * h;
            py = py + vy * h;
        }
        points_.push_back({px, py});
    }
}

void CursorTimeline::collectPresses(const std::vector<ClickEvent>& clicks, double duration) {
    std::optional<double> open;
    for (const auto& c : clicks) {
        if (c.button != 0) continue;
        if (c.phase == ClickPhase::down) {
            open = c.t;
        } else if (open) {
            if (*open < c.t) pressRanges_.push_back({*open, c.t});
            open.reset();
        }
    }
    if (open) pressRanges_.push_back({*open, std::max(duration, *open + 0.05)});
}

void CursorTimeline::collectClickIntervals(const std::vector<ClickEvent>& clicks, double duration) {
    std::map<int, ClickEvent> open;
    for (const auto& c : clicks) {
        auto found = open.find(c.button);
        if (c.phase == ClickPhase::up) {
            if (found != open.end()) {
                clickIntervals_.push_back({found->second, std::max(c.t, found->second.t)});
                open.erase(found);
            }
        } else {
            if (found != open.end()) clickIntervals_.push_back({found->second, c.t});
            open[c.button] = c;
        }
    }
    for (const auto& [button, down] : open) clickIntervals_.push_back({down, std::max(duration, down.t)});
    std::stable_sort(clickIntervals_.begin(), clickIntervals_.end(),
                     [](const auto& a, const auto& b) { return a.down.t < b.down.t; });
    latestRelease_.reserve(clickIntervals_.size());
    double latest = -std::numeric_limits<double>::infinity();
    for (const auto& c : clickIntervals_) {
        latest = std::max(latest, c.releaseTime);
        latestRelease_.push_back(latest);
    }
}

void CursorTimeline::collectActivity(const RecordedEvents& events) {
    std::vector<double> clickMoments;
    clickMoments.reserve(events.clicks.size());
    for (const auto& c : events.clicks) clickMoments.push_back(c.t);
    std::sort(clickMoments.begin(), clickMoments.end());
    std::vector<double> moveMoments;
    moveMoments.reserve(events.samples.size());
    for (size_t i = 1; i < events.samples.size(); ++i) {
        const auto& a = events.samples[i - 1];
        const auto& b = events.samples[i];
        if (movedNoticeably(a, b)) moveMoments.push_back(b.t);
    }
    // Samples are recorded in order, so their moments only need sorting when they are not.
    if (!std::is_sorted(moveMoments.begin(), moveMoments.end())) std::sort(moveMoments.begin(), moveMoments.end());
    if (clickMoments.empty() && moveMoments.empty()) return;

    // Walk both in one ascending order; a pause of more than 1.6 s closes a range.
    size_t i = 0, j = 0;
    auto next = [&] {
        if (j >= moveMoments.size() || (i < clickMoments.size() && clickMoments[i] <= moveMoments[j])) return clickMoments[i++];
        return moveMoments[j++];
    };
    double start = next();
    double previous = start;
    while (i < clickMoments.size() || j < moveMoments.size()) {
        const double t = next();
        if (t - previous > 1.6) {
            activityIntervals_.push_back({start, previous});
            start = t;
        }
        previous = t;
    }
    activityIntervals_.push_back({start, previous});
}

std::optional<Point> CursorTimeline::position(double t) const {
    const size_t n = points_.size();
    if (n == 0) return std::nullopt;
    if (t <= time(0)) return points_.front();
    if (t >= time(n - 1)) return points_.back();
    // The table is evenly spaced: its index is a product, corrected by a step at most.
    auto lo = static_cast<size_t>(std::clamp((t - firstTime_) * rate, 0.0, static_cast<double>(n - 2)));
    while (lo + 2 < n && !(time(lo + 1) > t)) ++lo;
    while (lo > 0 && time(lo) > t) --lo;
    const double a = time(lo);
    const double b = time(lo + 1);
    const double f = std::clamp((t - a) / std::max(b - a, 0.0001), 0.0, 1.0);
    const Point& p = points_[lo];
    const Point& q = points_[lo + 1];
    return Point{p.x + (q.x - p.x) * f, p.y + (q.y - p.y) * f};
}

CursorShape CursorTimeline::shape(double t) const {
    if (shapeTimes_.empty() || t < shapeTimes_.front()) return CursorShape::arrow;
    auto after = std::upper_bound(shapeTimes_.begin(), shapeTimes_.end(), t);
    return shapeValues_[static_cast<size_t>(after - shapeTimes_.begin()) - 1];
}

double CursorTimeline::pressAmount(double t) const {
    // Press ranges are disjoint and ascending: only those starting by t + 0.01 can apply, and
    // walking back from there the ends only fall.
    auto after = std::upper_bound(pressRanges_.begin(), pressRanges_.end(), t,
                                  [](double v, const TimeRange& r) { return v < r.lower - 0.01; });
    double amount = 0;
    bool any = false;
    for (auto it = after; it != pressRanges_.begin();) {
        --it;
        const double s = it->lower;
        const double e = it->upper;
        if (!(t >= s - 0.01 && t <= e + 0.2)) {
            if (t > e + 0.2) break;
            continue;
        }
        const double attack = smoothstep((t - s) / 0.09);
        const double release = 1 - smoothstep((t - e) / 0.16);
        const double value = std::min(attack, release);
        amount = any ? std::max(amount, value) : value;
        any = true;
    }
    return amount;
}

double CursorTimeline::activityAlpha(double t) const {
    if (activityIntervals_.empty()) return 1;
    auto next = std::upper_bound(activityIntervals_.begin(), activityIntervals_.end(), t,
                                 [](double v, const TimeRange& r) { return v < r.lower; });
    double fadeOut = 0;
    if (next != activityIntervals_.begin()) {
        const TimeRange& current = *std::prev(next);
        if (t <= current.upper) return 1;
        const double f = current.upper + 1.6;
        fadeOut = 1 - smoothstep((t - f) / 0.45);
    }
    double fadeIn = 0;
    if (next != activityIntervals_.end()) fadeIn = smoothstep((t - (next->lower - 0.35)) / 0.35);
    return std::max(fadeOut, fadeIn);
}

std::pair<size_t, size_t> CursorTimeline::liveClickIntervals(double t, double lifetime) const {
    auto after = std::upper_bound(clickIntervals_.begin(), clickIntervals_.end(), t,
                                  [](double v, const ClickInterval& c) { return v < c.down.t; });
    size_t last = static_cast<size_t>(after - clickIntervals_.begin());
    size_t first = last;
    // A margin above the lifetime keeps every interval the exact test would still look at.
    while (first > 0 && latestRelease_[first - 1] >= t - lifetime - 0.1) --first;
    return {first, last};
}

}  // namespace halvane
