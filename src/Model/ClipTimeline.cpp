#include "Model/ClipTimeline.h"

#include "Model/SpeedMap.h"
#include "Model/StableOrder.h"

#include <algorithm>
#include <cmath>

namespace halvane {

namespace {

std::vector<double> finiteSorted(const std::vector<double>& values) {
    std::vector<double> out;
    for (double v : values)
        if (std::isfinite(v)) out.push_back(v);
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

ClipTimeline::ClipTimeline(TimeRange trim, const std::vector<CutSegment>& cuts, const std::vector<double>& rawSplits) {
    const auto splits = finiteSorted(rawSplits);
    const SpeedMap map({}, trim, cuts);
    size_t index = 0;
    for (const auto& piece : map.pieces()) {
        double s = piece.sourceStart;
        double e = piece.sourceEnd;
        double c = s;
        while (index < splits.size()) {
            double p = splits[index];
            if (p >= e) break;
            ++index;
            if (p > c + 0.000001) {
                segments.push_back({c, p});
                c = p;
            }
        }
        if (e > c + 0.000001) segments.push_back({c, e});
    }
}

std::optional<ClipTrim> ClipTrim::make(const ClipSegment& segment, const std::vector<ClipSegment>& segments,
                                       const std::vector<double>& splits, TimeRange trim,
                                       const std::vector<CutSegment>& cuts) {
    auto found = std::find(segments.begin(), segments.end(), segment);
    if (found == segments.end()) return std::nullopt;
    const size_t i = static_cast<size_t>(found - segments.begin());

    double ls = trim.lower;
    double us = trim.upper;
    bool haveLower = false;
    bool haveUpper = false;
    for (double p : splits) {
        if (!std::isfinite(p)) continue;
        if (p <= segment.start + 0.000001 && (!haveLower || p > ls)) {
            ls = p;
            haveLower = true;
        }
        if (p >= segment.end - 0.000001 && (!haveUpper || p < us)) {
            us = p;
            haveUpper = true;
        }
    }
    const bool hasPrevious = i > 0;
    const bool hasNext = i + 1 < segments.size();
    double previous = hasPrevious ? segments[i - 1].end : trim.lower;
    double next = hasNext ? segments[i + 1].start : trim.upper;
    double lower = std::max({trim.lower, ls, previous});
    double upper = std::min({next, us, trim.upper});
    if (!(lower <= segment.start && segment.end <= upper)) return std::nullopt;

    ClipTrim result;
    result.segment = segment;
    result.limits = {lower, upper};
    result.originalCuts = cuts;
    result.originalSplits = splits;
    if (hasPrevious) result.adjoiningBoundaries.push_back(lower);
    if (hasNext) result.adjoiningBoundaries.push_back(upper);
    return result;
}

ClipSegment ClipTrim::resized(double start, double end, double minimumDuration) const {
    const double n = segment.end - segment.start;
    double m = minimumDuration > 0.0001 ? minimumDuration : 0.0001;
    m = std::min(m, n);
    double e = std::isfinite(end) ? end : segment.end;
    e = std::max(e, limits.lower + m);
    e = std::min(e, limits.upper);
    double s = std::isfinite(start) ? start : segment.start;
    s = std::max(s, limits.lower);
    s = std::min(s, e - m);
    return {s, e};
}

std::vector<CutSegment> ClipTrim::cutsKeeping(const ClipSegment& proposed) const {
    if (proposed == segment) return originalCuts;
    std::vector<CutSegment> result;
    for (const auto& cut : originalCuts) {
        if (cut.end <= limits.lower || cut.start >= limits.upper) {
            result.push_back(cut);
            continue;
        }
        if (cut.start < limits.lower) result.push_back({cut.id, cut.start, limits.lower});
        if (limits.upper < cut.end) result.push_back({cut.id, limits.upper, cut.end});
    }
    if (limits.lower + 0.000001 < proposed.start) result.push_back({Uuid::random(), limits.lower, proposed.start});
    if (proposed.end < limits.upper - 0.000001) result.push_back({Uuid::random(), proposed.end, limits.upper});
    stableSortBy(result, &CutSegment::start);
    return result;
}

}  // namespace halvane
