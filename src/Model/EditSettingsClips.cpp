// The edit's timeline-derived views and the clip operations that write back into it.

#include "Model/EditSettings.h"

#include "Model/StableOrder.h"

#include <algorithm>
#include <cmath>

namespace halvane {

SpeedMap EditSettings::speedMap(double duration) const {
    return SpeedMap(speeds.get(), trimBounds(duration), cuts.get());
}

ClipTimeline EditSettings::clipTimeline(double duration) const {
    return ClipTimeline(trimBounds(duration), cuts.get(), clipSplits.get());
}

void EditSettings::trimClip(const ClipTrim& trim, const ClipSegment& to) {
    if (!(trim.limits.lower <= to.start && to.start < to.end && to.end <= trim.limits.upper)) return;
    cuts = trim.cutsKeeping(to);
    std::vector<double> splits = trim.originalSplits;
    if (!(to == trim.segment)) {
        // The neighbours keep their place when the gap between them opens.
        for (double boundary : trim.adjoiningBoundaries) {
            bool present = std::any_of(splits.begin(), splits.end(),
                                       [&](double p) { return std::abs(p - boundary) <= 0.000001; });
            if (!present) splits.push_back(boundary);
        }
    }
    std::sort(splits.begin(), splits.end());
    clipSplits = std::move(splits);
}

bool EditSettings::splitClip(double t, double duration, double minimumDuration) {
    if (!std::isfinite(t)) return false;
    const auto timeline = clipTimeline(duration);
    auto clip = std::find_if(timeline.segments.begin(), timeline.segments.end(),
                             [&](const ClipSegment& c) { return c.start <= t && t < c.end; });
    if (clip == timeline.segments.end()) return false;
    const double m = std::max(minimumDuration, 0.0001) - 0.000001;
    if (!(t - clip->start >= m && clip->end - t >= m)) return false;
    auto& splits = clipSplits.edit();
    splits.push_back(t);
    std::sort(splits.begin(), splits.end());
    return true;
}

bool EditSettings::canDeleteClip(const ClipSegment& segment, double duration) const {
    const auto timeline = clipTimeline(duration);
    return timeline.segments.size() >= 2 &&
           std::find(timeline.segments.begin(), timeline.segments.end(), segment) != timeline.segments.end();
}

bool EditSettings::deleteClip(const ClipSegment& segment, double duration) {
    if (!canDeleteClip(segment, duration)) return false;
    std::vector<CutSegment> sorted = cuts.get();
    sorted.push_back({Uuid::random(), segment.start, segment.end});
    stableSortBy(sorted, &CutSegment::start);
    std::vector<CutSegment> merged;
    for (const auto& cut : sorted) {
        if (!merged.empty() && cut.start <= merged.back().end + 0.000001)
            merged.back().end = std::max(merged.back().end, cut.end);
        else
            merged.push_back(cut);
    }
    cuts = std::move(merged);
    return true;
}

}  // namespace halvane
