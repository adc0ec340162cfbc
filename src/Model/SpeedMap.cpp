#include "Model/SpeedMap.h"

#include "Model/StableOrder.h"

#include <algorithm>

namespace halvane {

namespace {

struct SpeedRange {
    double start;
    double end;
    double factor;
};

std::vector<TimeRange> mergedCuts(const std::vector<CutSegment>& cuts, TimeRange trim) {
    std::vector<CutSegment> sorted = cuts;
    stableSortBy(sorted, &CutSegment::start);
    std::vector<TimeRange> removed;
    for (const auto& cut : sorted) {
        double s = std::max(trim.lower, cut.start);
        double e = std::min(cut.end, trim.upper);
        if (!(e - s > 0.000001)) continue;
        if (!removed.empty() && !(s > removed.back().upper + 0.000001))
            removed.back().upper = std::max(removed.back().upper, e);
        else
            removed.push_back({s, e});
    }
    return removed;
}

std::vector<TimeRange> keptRanges(const std::vector<TimeRange>& removed, TimeRange trim) {
    std::vector<TimeRange> kept;
    double c = trim.lower;
    for (const auto& r : removed) {
        if (r.lower - c > 0.001) kept.push_back({c, r.lower});
        c = std::max(r.upper, c);
    }
    if (trim.upper - c > 0.001) kept.push_back({c, trim.upper});
    return kept;
}

std::vector<SpeedRange> speedRanges(const std::vector<SpeedSegment>& speeds, TimeRange trim) {
    std::vector<SpeedSegment> sorted = speeds;
    stableSortBy(sorted, &SpeedSegment::start);
    std::vector<SpeedRange> ranges;
    for (const auto& seg : sorted) {
        double s = std::max(trim.lower, seg.start);
        double e = std::min(seg.end, trim.upper);
        // An earlier segment wins an overlap.
        if (!ranges.empty()) s = std::max(s, ranges.back().end);
        if (!(e - s > 0.01)) continue;
        ranges.push_back({s, e, std::clamp(seg.factor, 0.1, 10.0)});
    }
    return ranges;
}

}  // namespace

SpeedMap::SpeedMap(const std::vector<SpeedSegment>& speeds, TimeRange trim, const std::vector<CutSegment>& cuts)
    : sourceRange_(trim), removedRanges_(mergedCuts(cuts, trim)) {
    const auto kept = keptRanges(removedRanges_, trim);
    const auto ranges = speedRanges(speeds, trim);
    double o = 0;
    auto append = [&](double from, double to, double factor) {
        double outStart = o;
        o += (to - from) / factor;
        pieces_.push_back({from, to, outStart, o, factor});
    };
    for (const auto& k : kept) {
        double c = k.lower;
        for (const auto& r : ranges) {
            if (!(k.lower < r.end && r.start < k.upper)) continue;
            double a = std::max(k.lower, r.start);
            double b = std::min(r.end, k.upper);
            if (a - c > 0.0001) append(c, a, 1);
            if (b - a > 0.0001) append(a, b, r.factor);
            c = std::max(b, c);
        }
        if (k.upper - c > 0.0001) append(c, k.upper, 1);
    }
    if (pieces_.empty()) pieces_.push_back({trim.lower, trim.lower, 0, 0, 1});
}

double SpeedMap::sourceTime(double t) const {
    const Piece& first = pieces_.front();
    const Piece& last = pieces_.back();
    if (t <= first.outputStart) return first.sourceStart;
    if (t >= last.outputEnd) return last.sourceEnd;
    for (const auto& p : pieces_) {
        if (t < p.outputEnd - 0.0000001) {
            double f = std::clamp((t - p.outputStart) / std::max(p.outputEnd - p.outputStart, 0.0000001), 0.0, 1.0);
            return p.sourceStart + (p.sourceEnd - p.sourceStart) * f;
        }
    }
    return last.sourceEnd;
}

double SpeedMap::outputTime(double t) const {
    const Piece& first = pieces_.front();
    const Piece& last = pieces_.back();
    if (t <= first.sourceStart) return first.outputStart;
    if (t >= last.sourceEnd) return last.outputEnd;
    for (const auto& p : pieces_) {
        if (t <= p.sourceEnd + 0.0000001) {
            double f = std::clamp((t - p.sourceStart) / std::max(p.sourceEnd - p.sourceStart, 0.0000001), 0.0, 1.0);
            return p.outputStart + (p.outputEnd - p.outputStart) * f;
        }
    }
    return last.outputEnd;
}

}  // namespace halvane
