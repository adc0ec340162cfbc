#include "Model/WindowPointerMap.h"

#include "Model/FocusTimeline.h"

#include <algorithm>

namespace halvane {

namespace {

// Frames are global top-left rectangles; like the platform's own test, the far edges are outside.
bool frameContains(const Rect& f, Point p) { return p.x >= f.minX() && p.x < f.maxX() && p.y >= f.minY() && p.y < f.maxY(); }

const Rect& frameAt(const std::vector<WindowFrameSample>& samples, double t) {
    auto after = std::upper_bound(samples.begin(), samples.end(), t, [](double v, const auto& s) { return v < s.t; });
    return after == samples.begin() ? samples.front().frame : std::prev(after)->frame;
}

}  // namespace

std::optional<WindowPointerMap> WindowPointerMap::make(const RecordingMeta& meta, const RecordedEvents& events) {
    if (meta.sources.size() < 2 || !events.pointerSpace) return std::nullopt;
    if (!(events.pointerSpace->width() > 1 && events.pointerSpace->height() > 1)) return std::nullopt;
    WindowPointerMap map;
    map.space = *events.pointerSpace;
    map.frames = events.windowFrames;
    map.sourceCount = static_cast<int>(meta.sources.size());
    std::vector<FocusSegment> focus;
    focus.reserve(events.focus.size());
    for (const auto& f : events.focus) focus.push_back({Uuid::random(), f.t, f.source});
    map.realFocus = FocusTimeline::sanitized(focus, map.sourceCount);
    return map;
}

std::optional<WindowPointerMap::Hit> WindowPointerMap::hit(double t, Point p) const {
    const Point s{space.minX() + p.x * space.width(), space.minY() + p.y * space.height()};
    // The front order; up to 64 sources without allocating, the per-frame common case.
    int small[64];
    std::vector<int> large;
    int* order = small;
    const int n = std::max(sourceCount, 0);
    if (n <= 64) {
        for (int i = 0; i < n; ++i) order[i] = i;
        for (const auto& sw : realFocus) {
            if (!(sw.start <= t)) break;
            int* at = std::find(order, order + n, sw.source);
            std::rotate(order, at, at + 1);
        }
    } else {
        large = FocusTimeline::transition(t, realFocus, n).to;
        order = large.data();
    }
    for (int k = 0; k < n; ++k) {
        const auto index = static_cast<size_t>(order[k]);
        if (index >= frames.size() || frames[index].empty()) continue;
        const Rect& f = frameAt(frames[index], t);
        if (!(f.width() > 1 && f.height() > 1)) continue;
        if (!frameContains(f, s)) continue;
        return Hit{order[k], {(s.x - f.minX()) / f.width(), (s.y - f.minY()) / f.height()}};
    }
    return std::nullopt;
}

}  // namespace halvane
