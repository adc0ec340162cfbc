#include "Model/FocusTimeline.h"

#include "Model/Easing.h"
#include "Model/StableOrder.h"
#include "Model/ZoomTimeline.h"

#include <algorithm>
#include <cmath>

namespace halvane {

namespace {

// Stage one: focus samples become switches, with quick bounces between two sources undone.
std::vector<FocusSegment> switchesFromSamples(const std::vector<FocusSample>& input, int sourceCount,
                                              std::vector<double>& realTimes) {
    std::vector<FocusSample> samples = input;
    stableSortBy(samples, &FocusSample::t);
    int current = 0;
    int previous = 0;
    std::vector<FocusSegment> segments;
    for (const auto& s : samples) {
        if (s.source < 0 || s.source >= sourceCount || s.source == current) continue;
        if (realTimes.empty() || s.t - realTimes.back() >= 0.8) {
            segments.push_back({Uuid::random(), std::max(s.t - 1.85, 0.0), s.source});
            realTimes.push_back(s.t);
            previous = current;
            current = s.source;
        } else if (s.source == previous) {
            segments.pop_back();
            realTimes.pop_back();
            current = previous;
        } else {
            segments.back().source = s.source;
            current = s.source;
        }
    }
    return segments;
}

double quarter(double v) { return std::round(v * 4) / 4; }

}  // namespace

std::vector<FocusSegment> FocusTimeline::generate(const std::vector<FocusSample>& samples, int sourceCount,
                                                  const std::vector<ClickEvent>& clicks) {
    std::vector<double> realTimes;
    auto segments = switchesFromSamples(samples, sourceCount, realTimes);

    // Stage two: the front source finishes what it was doing first.
    std::vector<ZoomTimeline::Press> ps;
    for (const auto& p : ZoomTimeline::presses(clicks))
        if (p.source) ps.push_back(p);
    int front = 0;
    for (size_t i = 0; i < segments.size(); ++i) {
        auto& seg = segments[i];
        const double real = realTimes[i];
        for (auto p = ps.rbegin(); p != ps.rend(); ++p) {
            if (*p->source == front && p->start < real) {
                seg.start = std::max(seg.start, std::min(p->end + 0.35, real));
                break;
            }
        }
        if (i > 0) seg.start = std::max(seg.start, segments[i - 1].start + 0.8);
        front = seg.source;
    }
    return segments;
}

std::vector<FocusSegment> FocusTimeline::sanitized(const std::vector<FocusSegment>& switches, int sourceCount) {
    std::vector<FocusSegment> out;
    for (const auto& s : switches)
        if (s.source >= 0 && s.source < sourceCount) out.push_back(s);
    stableSortBy(out, &FocusSegment::start);
    return out;
}

FocusTimeline::Transition FocusTimeline::transition(double t, const std::vector<FocusSegment>& switches, int sourceCount) {
    Transition result;
    std::vector<int> order;
    for (int i = 0; i < sourceCount; ++i) order.push_back(i);
    result.from = order;
    for (const auto& sw : sanitized(switches, sourceCount)) {
        if (!(sw.start <= t)) continue;
        result.from = order;
        auto it = std::find(order.begin(), order.end(), sw.source);
        std::rotate(order.begin(), it, it + 1);
        result.progress = sw.start <= 0.001 ? 1 : smootherstep((t - sw.start) / changeDuration);
    }
    result.to = std::move(order);
    return result;
}

std::vector<int> FocusTimeline::depths(const std::vector<int>& order, int count) {
    std::vector<int> d(static_cast<size_t>(std::max(count, 0)), 0);
    for (size_t k = 0; k < order.size(); ++k)
        if (order[k] >= 0 && order[k] < count) d[static_cast<size_t>(order[k])] = static_cast<int>(k);
    return d;
}

std::vector<Rect> FocusTimeline::layout(const std::vector<int>& order, const std::vector<double>& aspects,
                                        Size canvasSize, double padding) {
    const size_t n = aspects.size();
    if (n == 0) return {};
    std::vector<Rect> rects(n);
    const double W = canvasSize.width;
    const double H = canvasSize.height;
    const double m = std::min(W, H);
    const double inset = m * std::clamp(padding, 0.0, 0.35);
    Rect area{inset, inset, W - 2 * inset, H - 2 * inset};
    if (area.size.width <= 8 || area.size.height <= 8) area = {0, 0, W, H};

    const double step = m * 0.04;
    const Rect room{area.origin.x, area.origin.y, area.size.width, area.size.height - step * static_cast<double>(n - 1)};
    const int frontSource = order.empty() ? 0 : order[0];
    const size_t frontIndex = static_cast<size_t>(frontSource) < n && frontSource >= 0 ? static_cast<size_t>(frontSource) : 0;
    const Rect front = aspectFit(aspects[frontIndex], room);
    if (frontSource >= 0 && static_cast<size_t>(frontSource) < n) rects[frontIndex] = front;

    for (size_t k = 1; k < order.size(); ++k) {
        int s = order[k];
        if (s < 0 || static_cast<size_t>(s) >= n) continue;
        const Rect box{0, 0, front.size.width, front.size.height};
        const double aspect = aspects[static_cast<size_t>(s)];
        const Rect fit = aspect > 0 ? aspectFit(aspect, box) : box;
        const double scale = std::max(1 - 0.045 * static_cast<double>(k), 0.5);
        const double w = scale * fit.size.width;
        const double h = scale * fit.size.height;
        const double x = front.midX() - w / 2;
        const double y = step * static_cast<double>(k) + front.maxY() - h;
        rects[static_cast<size_t>(s)] = {quarter(x), quarter(y), quarter(w), quarter(h)};
    }
    return rects;
}

std::vector<FocusTimeline::Placement> FocusTimeline::placements(double t, const std::vector<FocusSegment>& switches,
                                                                const std::vector<double>& aspects, Size canvasSize,
                                                                double padding) {
    const int n = static_cast<int>(aspects.size());
    if (n == 0) return {};
    const auto tr = transition(t, switches, n);
    const double p = tr.progress;
    const auto A = layout(tr.from, aspects, canvasSize, padding);
    const auto B = tr.from == tr.to ? A : layout(tr.to, aspects, canvasSize, padding);
    const auto df = depths(tr.from, n);
    const auto dt = depths(tr.to, n);
    const int front = tr.to.empty() ? 0 : tr.to.front();
    double q = 1;
    if (tr.from != tr.to && p < 0.9999) q = smoothstep(2 * p);

    std::vector<Placement> result(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        const auto u = static_cast<size_t>(i);
        const Rect& a = A[u];
        const Rect& b = B[u];
        Placement& pl = result[u];
        pl.rect = {a.minX() + (b.minX() - a.minX()) * p, a.minY() + (b.minY() - a.minY()) * p,
                   a.width() + (b.width() - a.width()) * p, a.height() + (b.height() - a.height()) * p};
        const int d = q < 0.9999 ? df[u] : dt[u];
        pl.z = n - d;
        pl.dim = std::min(0.14 * (df[u] + (dt[u] - df[u]) * p), 0.45);
        pl.lift = q < 0.9999 && i == front ? q : 0;
    }
    return result;
}

}  // namespace halvane
