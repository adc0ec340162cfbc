#include "Model/ZoomTimeline.h"

#include "Model/Easing.h"
#include "Model/FocusTimeline.h"
#include "Model/StableOrder.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace halvane {

namespace {

constexpr double followStep = 1.0 / 30;
// 1 - exp(-(1/30) / 0.28): a low-pass with a time constant of 0.28 s at 30 steps a second.
constexpr double followGain = 0.11223447479342219;
// Duration of a switch transition, of the zoom-in ramp and the in-point offset, at tempo 1.
constexpr double switchTransition = 0.65;
constexpr double rampInSeconds = 1.35;
constexpr double inPointOffset = 0.4;

bool insideEdges(double v, double margin) { return v >= -margin && v <= 1 + margin; }

Point midpoint(Point a, Point b) { return {(a.x + b.x) / 2, (a.y + b.y) / 2}; }

struct Group {
    std::vector<ZoomTimeline::Press> presses;
    Point sum;

    Point mean() const {
        auto n = static_cast<double>(presses.size());
        return {sum.x / n, sum.y / n};
    }
    void add(const ZoomTimeline::Press& p) {
        presses.push_back(p);
        sum.x += p.center.x;
        sum.y += p.center.y;
    }
};

std::vector<Group> groupPresses(const std::vector<ZoomTimeline::Press>& ps, const ZoomTimeline::GenerationTuning& tu) {
    std::vector<Group> groups;
    Group current;
    current.add(ps.front());
    for (size_t i = 1; i < ps.size(); ++i) {
        const auto& p = ps[i];
        double d = distance(p.center, current.mean());
        bool split = d > tu.clusterRadius;
        if (!split) {
            double closeness = std::clamp(1 - d / tu.clusterRadius, 0.0, 1.0);
            double allowed = tu.baseGap + closeness * (tu.closeGap - tu.baseGap);
            double gap = p.start - current.presses.back().end;
            split = gap > allowed;
        }
        if (split) {
            groups.push_back(std::move(current));
            current = Group{};
        }
        current.add(p);
    }
    groups.push_back(std::move(current));
    return groups;
}

std::vector<ZoomSegment> mergeSegments(const std::vector<ZoomSegment>& segments) {
    std::vector<ZoomSegment> result;
    for (ZoomSegment g : segments) {
        if (result.empty()) {
            result.push_back(g);
            continue;
        }
        ZoomSegment& m = result.back();
        if (g.start >= m.end + 0.35) {
            result.push_back(g);
        } else if (g.start < m.end - 0.6 || distance(g.target, m.target) < 0.18) {
            m.end = std::max(m.end, g.end);
            m.target = midpoint(m.target, g.target);
        } else {
            g.start = m.end + 0.35;
            if (g.end - g.start > 0.8) result.push_back(g);
        }
    }
    return result;
}

// Fits a zoom generated for one source into the stretch in which that source is in front.
std::optional<ZoomSegment> placeInStretch(ZoomSegment g, const std::vector<ZoomTimeline::FrontStretch>& stretches,
                                          double duration) {
    auto stretch = ZoomTimeline::overlappingStretch(stretches, g.start, g.end);
    if (!stretch) return std::nullopt;
    double earliest = stretch->start > 0.001 ? stretch->start + switchTransition + rampInSeconds - inPointOffset : 0;
    if (g.start < earliest) {
        double oldLength = std::max(g.end - g.start, 0.0);
        g.start = earliest;
        g.end = std::max(g.end, earliest + oldLength);
    }
    double visibleEnd = std::min({stretch->leave.value_or(duration), g.end, duration});
    if (visibleEnd - (g.start + inPointOffset) < 0.5) return std::nullopt;
    if (stretch->leave && g.end > *stretch->leave - 1.0) g.end = *stretch->leave + switchTransition;
    g.end = std::min(g.end, duration);
    return g;
}

std::vector<Rect> followTrack(const ZoomSegment& zoom, const ZoomTimeline::EffectiveSegment& segment,
                              const ZoomTimeline::Follow& follow) {
    if (!(zoom.level > 1)) return {};
    if (zoom.level <= 6 && 1 / zoom.level >= 0.999) return {};
    const double level = std::min(zoom.level, 6.0);
    const double size = 1 / level;
    const double startX = segment.rect.midX();
    const double startY = segment.rect.midY();
    double cx = startX;
    double cy = startY;
    const double half = size / 2;
    const double dead = half / 2;
    const auto n = std::max<long>(static_cast<long>(std::ceil((segment.outEnd - segment.inStart) / followStep)) + 1, 2);
    auto deadZone = [dead](double p, double c) {
        if (p < c - dead) return p + dead;
        if (p > c + dead) return p - dead;
        return c;
    };
    std::vector<Rect> track;
    track.reserve(static_cast<size_t>(n));
    bool moved = false;
    for (long k = 0; k < n; ++k) {
        double t = segment.inStart + static_cast<double>(k) / 30;
        if (t > segment.inEnd && t <= segment.outStart) {
            if (auto p = follow(t)) {
                double tx = deadZone(p->x, cx);
                double ty = deadZone(p->y, cy);
                cx = std::clamp(cx + (tx - cx) * followGain, half, 1 - half);
                cy = std::clamp(cy + (ty - cy) * followGain, half, 1 - half);
                if (std::abs(cx - startX) > 0.000001 || std::abs(cy - startY) > 0.000001) moved = true;
            }
        }
        track.push_back({cx - size / 2, cy - size / 2, size, size});
    }
    if (!moved) return {};
    return track;
}

void connectNeighbours(std::vector<ZoomTimeline::EffectiveSegment>& segs, const std::vector<std::pair<double, double>>& spans,
                       double tempo) {
    for (size_t i = 1; i < segs.size(); ++i) {
        auto& p = segs[i - 1];
        auto& s = segs[i];
        double gap = spans[i].first - spans[i - 1].second;
        if (!(gap < 1.4 || s.inStart - p.outEnd < 0.5)) continue;
        double a = p.outStart;
        double b = s.inEnd;
        double n = b - a;
        if (n < 0) continue;
        if (n < 0.9 / tempo) {
            double extra = (0.9 / tempo - n) / 2;
            a = a - std::min(extra, (a - p.inEnd) / 2);
            b = b + std::min(extra, (s.outStart - b) / 2);
        } else if (n > 1.8 / tempo) {
            a = b - 1.8 / tempo;
        }
        p.outStart = a;
        p.outEnd = b;
        s.inStart = a;
        s.inEnd = b;
    }
}

}  // namespace

std::vector<ZoomTimeline::Press> ZoomTimeline::presses(const std::vector<ClickEvent>& clicks, const GenerationTuning& tuning) {
    std::vector<ClickEvent> left;
    for (const auto& c : clicks)
        if (c.button == 0) left.push_back(c);
    stableSortBy(left, &ClickEvent::t);
    std::vector<Press> result;
    std::optional<Press> pending;
    for (const auto& c : left) {
        if (c.phase == ClickPhase::down) {
            if (pending) {
                pending->end = pending->start;
                result.push_back(*pending);
            }
            pending.reset();
            if (insideEdges(c.x, tuning.edgeMargin) && insideEdges(c.y, tuning.edgeMargin))
                pending = Press{c.t, c.t, {c.x, c.y}, c.source};
        } else if (pending) {
            Press p = *pending;
            p.end = std::min(std::max(c.t, p.start), p.start + tuning.maximumPress);
            // A drag is placed at its middle.
            if (p.source == c.source) p.center = midpoint(p.center, {c.x, c.y});
            result.push_back(p);
            pending.reset();
        }
    }
    if (pending) {
        pending->end = pending->start;
        result.push_back(*pending);
    }
    return result;
}

std::vector<ZoomSegment> ZoomTimeline::generate(const std::vector<ClickEvent>& clicks, double level, double duration,
                                                const GenerationTuning& tuning) {
    if (level < 1.05) return {};
    std::vector<Press> ps;
    for (const auto& p : presses(clicks, tuning))
        if (p.start < duration - tuning.tailMargin) ps.push_back(p);
    if (ps.empty() || duration <= 0.5) return {};

    std::vector<ZoomSegment> segments;
    for (const auto& group : groupPresses(ps, tuning)) {
        double s = group.presses.front().start - tuning.leadIn;
        double e = group.presses.back().end + tuning.holdAfter;
        if (e - s < tuning.minimumLength) e = s + tuning.minimumLength;
        s = std::clamp(s, 0.0, duration);
        e = std::clamp(e, 0.0, duration);
        if (!(e - s > 0.8)) continue;
        ZoomSegment z;
        z.start = s;
        z.end = e;
        z.level = level;
        z.target = group.mean();
        z.isAuto = true;
        segments.push_back(z);
    }
    return mergeSegments(segments);
}

std::vector<ZoomSegment> ZoomTimeline::generate(const std::vector<ClickEvent>& clicks, double level, double duration,
                                                int sourceCount, const std::vector<FocusSegment>& focusSwitches,
                                                const GenerationTuning& tuning) {
    if (sourceCount < 2) return generate(clicks, level, duration, tuning);
    const auto switches = FocusTimeline::sanitized(focusSwitches, sourceCount);
    std::vector<ZoomSegment> kept;
    for (int s = 0; s < sourceCount; ++s) {
        std::vector<ClickEvent> own;
        for (const auto& c : clicks)
            if (c.source && *c.source == s) own.push_back(c);
        const auto stretches = frontStretches(s, switches, duration);
        for (ZoomSegment g : generate(own, level, duration, tuning)) {
            g.source = s;
            if (auto placed = placeInStretch(g, stretches, duration)) kept.push_back(*placed);
        }
    }
    stableSortBy(kept, &ZoomSegment::start);
    return kept;
}

std::vector<ZoomTimeline::FrontStretch> ZoomTimeline::frontStretches(int source, const std::vector<FocusSegment>& switches,
                                                                     double /*duration*/) {
    std::vector<FrontStretch> result;
    int front = 0;
    double stretchStart = 0;
    for (const auto& sw : switches) {
        if (sw.source == front) continue;
        if (front == source) result.push_back({stretchStart, sw.start});
        front = sw.source;
        stretchStart = sw.start;
    }
    if (front == source) result.push_back({stretchStart, std::nullopt});
    return result;
}

std::optional<ZoomTimeline::FrontStretch> ZoomTimeline::overlappingStretch(const std::vector<FrontStretch>& stretches,
                                                                          double start, double end) {
    for (const auto& st : stretches) {
        double leave = st.leave.value_or(std::numeric_limits<double>::infinity());
        if (start < leave && st.start < end) return st;
    }
    return std::nullopt;
}

Rect ZoomTimeline::peakRect(double level, Point target) {
    double s = level <= 1 ? 1 : 1 / std::min(level, 6.0);
    double x = std::min(std::max(target.x - s / 2, 0.0), 1 - s);
    double y = std::min(std::max(target.y - s / 2, 0.0), 1 - s);
    return {x, y, s, s};
}

std::vector<ZoomTimeline::EffectiveSegment> ZoomTimeline::effectiveSegments(const std::vector<ZoomSegment>& input,
                                                                            double speed, const SpeedMap* speedMap,
                                                                            const Follow& follow) {
    const double tempo = std::clamp(speed, 0.25, 4.0);
    std::vector<ZoomSegment> zooms = input;
    stableSortBy(zooms, &ZoomSegment::start);

    std::vector<const ZoomSegment*> used;
    std::vector<std::pair<double, double>> spans;
    for (const auto& z : zooms) {
        double start = speedMap ? speedMap->outputTime(z.start) : z.start;
        double end = speedMap ? speedMap->outputTime(z.end) : z.end;
        if (!spans.empty()) start = std::max(start, spans.back().second);
        if (!(end - start > 0.15)) continue;
        spans.push_back({start, end});
        used.push_back(&z);
    }

    const double rampIn = rampInSeconds / tempo;
    const double rampOut = 1.0 / tempo;
    std::vector<EffectiveSegment> segs;
    segs.reserve(spans.size());
    for (size_t i = 0; i < spans.size(); ++i) {
        EffectiveSegment e;
        e.inEnd = spans[i].first + inPointOffset;
        e.outStart = spans[i].second;
        if (e.outStart < e.inEnd) e.inEnd = e.outStart = (e.inEnd + e.outStart) / 2;
        e.inStart = e.inEnd - rampIn;
        if (e.inEnd >= 0 && e.inStart < 0) {
            // A zoom that starts too close to the beginning is simply in place at time 0.
            if (e.inEnd < rampIn / 2) {
                e.inEnd = 0;
                e.inStart = -rampIn;
            } else {
                e.inStart = 0;
            }
        }
        e.outEnd = e.outStart + rampOut;
        e.rect = peakRect(used[i]->level, used[i]->target);
        segs.push_back(std::move(e));
    }
    connectNeighbours(segs, spans, tempo);
    if (follow)
        for (size_t i = 0; i < segs.size(); ++i) segs[i].followTrack = followTrack(*used[i], segs[i], follow);
    return segs;
}

Rect ZoomTimeline::EffectiveSegment::window(double t) const {
    if (followTrack.empty()) return rect;
    double f = (t - inStart) / followStep;
    if (!(f > 0)) return followTrack.front();
    double whole = std::floor(f);
    if (whole + 1 < static_cast<double>(followTrack.size())) {
        auto i = static_cast<size_t>(whole);
        double frac = f - whole;
        const Rect& a = followTrack[i];
        const Rect& b = followTrack[i + 1];
        return {a.origin.x + (b.origin.x - a.origin.x) * frac, a.origin.y + (b.origin.y - a.origin.y) * frac,
                a.size.width, a.size.height};
    }
    return followTrack.back();
}

Rect ZoomTimeline::visibleRect(double t, const std::vector<EffectiveSegment>& segments) {
    double w = 0;
    double X = 0, Y = 0, W = 0, H = 0;
    for (const auto& s : segments) {
        if (!(s.inStart < t && t < s.outEnd)) continue;
        double a = std::clamp((t - s.inStart) / std::max(s.inEnd - s.inStart, 0.0001), 0.0, 1.0);
        double b = std::clamp((t - s.outStart) / std::max(s.outEnd - s.outStart, 0.0001), 0.0, 1.0);
        double weight = smootherstep(a) * (1 - smootherstep(b));
        if (!(weight > 0.0001)) continue;
        Rect r = s.window(t);
        X += weight * r.minX();
        Y += weight * r.minY();
        W += weight * r.width();
        H += weight * r.height();
        w += weight;
    }
    if (w <= 0.0001) return {0, 0, 1, 1};
    double rest = std::max(1 - w, 0.0);
    double d = std::max(w, 1.0);
    double width = std::clamp((W + rest) / d, 1.0 / 6, 1.0);
    double height = std::clamp((H + rest) / d, 1.0 / 6, 1.0);
    double x = std::clamp(X / d, 0.0, 1 - width);
    double y = std::clamp(Y / d, 0.0, 1 - height);
    return {x, y, width, height};
}

}  // namespace halvane
