#include "Model/RenderModel.h"

#include "Model/Easing.h"
#include "Model/FocusTimeline.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace halvane {

namespace {

constexpr double loopGlide = 0.8;
constexpr double rippleLife = 0.6;
constexpr double rippleHold = 0.3;

// A zoom of one source, fitted to the first stretch in which that source is in front: it starts
// once the switch and its ramp in are through, and runs out behind the next switch.
std::optional<ZoomSegment> placedInFront(ZoomSegment z, const std::vector<ZoomTimeline::FrontStretch>& stretches,
                                         double tempo, double duration) {
    auto stretch = ZoomTimeline::overlappingStretch(stretches, z.start, z.end);
    if (!stretch) return std::nullopt;
    const double earliest = stretch->start > 0.001 ? stretch->start + 0.65 + 1.35 / tempo - 0.4 : 0;
    z.start = std::max(earliest, z.start);
    const double visibleEnd = std::min({z.end, stretch->leave.value_or(duration), duration});
    if (visibleEnd - (z.start + 0.4) <= 0.001) return std::nullopt;
    if (stretch->leave && z.end > *stretch->leave - 1 / tempo) z.end = *stretch->leave + 0.65;
    z.end = std::min(z.end, duration);
    return z;
}

}  // namespace

RenderModel::RenderModel(RecordingMeta meta, RecordedEvents events, const EditSettings& settings)
    : meta_(std::move(meta)),
      events_(std::move(events)),
      cursorTimeline_(events_, settings.cursorSmoothness, meta_.duration),
      keystrokeDisplays_(KeystrokeTimeline::displays(events_.keys, settings.keystrokeMode)),
      zoomClock_(zoomClock(settings, meta_.duration)),
      pointerMap_(WindowPointerMap::make(meta_, events_)),
      cachedSmoothness_(settings.cursorSmoothness),
      cachedKeystrokeMode_(settings.keystrokeMode) {
    rebuildZooms(settings);
}

void RenderModel::rebuildCursorIfNeeded(const EditSettings& settings) {
    if (!(std::abs(settings.cursorSmoothness - cachedSmoothness_) > 0.001)) return;
    cachedSmoothness_ = settings.cursorSmoothness;
    cursorTimeline_ = CursorTimeline(events_, cachedSmoothness_, meta_.duration);
    rebuildZooms(settings);
}

void RenderModel::rebuildKeystrokesIfNeeded(const EditSettings& settings) {
    if (settings.keystrokeMode == cachedKeystrokeMode_) return;
    cachedKeystrokeMode_ = settings.keystrokeMode;
    keystrokeDisplays_ = KeystrokeTimeline::displays(events_.keys, cachedKeystrokeMode_);
}

void RenderModel::rebuildZooms(const EditSettings& settings) {
    crop_ = settings.cropRect();
    zoomClock_ = zoomClock(settings, meta_.duration);
    const int sources = static_cast<int>(meta_.sources.size());
    effectiveZooms_ = sources <= 1 ? effectiveZooms(settings, meta_.duration, &cursorTimeline_) : Segments{};
    effectiveZoomsBySource_ = effectiveZoomsBySource(settings, sources > 1 ? sources : 0, meta_.duration, &cursorTimeline_,
                                                     pointerMap_ ? &*pointerMap_ : nullptr);
}

SpeedMap RenderModel::zoomClock(const EditSettings& settings, double duration) { return settings.speedMap(duration); }

std::vector<ZoomSegment> RenderModel::activeZooms(const EditSettings& settings) {
    if (settings.autoZoom) return settings.zooms.get();
    std::vector<ZoomSegment> manual;
    for (const auto& z : settings.zooms)
        if (!z.isAuto) manual.push_back(z);
    return manual;
}

Point RenderModel::inCrop(Point p, const Rect& crop) {
    return {(p.x - crop.minX()) / crop.width(), (p.y - crop.minY()) / crop.height()};
}

std::optional<Point> RenderModel::pointerWithLoop(const CursorTimeline& timeline, double t, const EditSettings& settings,
                                                  double duration) {
    auto p = timeline.position(t);
    if (!p || !settings.cursorLoop) return p;
    const TimeRange trim = settings.trimBounds(duration);
    const double L = trim.lower;
    const double U = trim.upper;
    const double b = U - std::min(U - L, loopGlide);
    if (!(b < t)) return p;
    auto q = timeline.position(L);
    if (!q) return p;
    const double k = !(U > b) && t >= b ? 1 : smoothstep((t - b) / (U - b));
    return Point{p->x + (q->x - p->x) * k, p->y + (q->y - p->y) * k};
}

RenderModel::Segments RenderModel::effectiveZooms(const EditSettings& settings, double duration,
                                                  const CursorTimeline* cursorTimeline) {
    const Rect crop = settings.cropRect();
    std::vector<ZoomSegment> zooms = activeZooms(settings);
    for (auto& z : zooms) z.target = inCrop(z.target, crop);
    const SpeedMap clock = zoomClock(settings, duration);
    ZoomTimeline::Follow follow;
    if (settings.zoomFollowCursor && cursorTimeline) {
        follow = [&](double c) -> std::optional<Point> {
            auto p = pointerWithLoop(*cursorTimeline, clock.sourceTime(c), settings, duration);
            if (!p) return std::nullopt;
            return inCrop(*p, crop);
        };
    }
    return ZoomTimeline::effectiveSegments(zooms, settings.zoomSpeed, &clock, follow);
}

std::vector<RenderModel::Segments> RenderModel::effectiveZoomsBySource(const EditSettings& settings, int n, double duration,
                                                                      const CursorTimeline* cursorTimeline,
                                                                      const WindowPointerMap* pointerMap) {
    if (n < 2) return {};
    const double tempo = std::clamp(settings.zoomSpeed, 0.25, 4.0);
    const auto switches = FocusTimeline::sanitized(settings.focusSwitches, n);
    const auto zooms = activeZooms(settings);
    const SpeedMap clock = zoomClock(settings, duration);
    const bool following = settings.zoomFollowCursor && cursorTimeline && pointerMap;

    std::vector<Segments> result;
    result.reserve(static_cast<size_t>(n));
    for (int s = 0; s < n; ++s) {
        const auto stretches = ZoomTimeline::frontStretches(s, switches, duration);
        std::vector<ZoomSegment> own;
        for (const ZoomSegment& z : zooms) {
            if (!(z.source ? *z.source == s : s == 0)) continue;
            if (auto placed = placedInFront(z, stretches, tempo, duration)) own.push_back(*placed);
        }
        ZoomTimeline::Follow follow;
        if (following) {
            follow = [&, s](double c) -> std::optional<Point> {
                const double t = clock.sourceTime(c);
                auto p = pointerWithLoop(*cursorTimeline, t, settings, duration);
                if (!p) return std::nullopt;
                auto h = pointerMap->hit(t, *p);
                if (!h || h->source != s) return std::nullopt;
                return h->point;
            };
        }
        result.push_back(ZoomTimeline::effectiveSegments(own, settings.zoomSpeed, &clock, follow));
    }
    return result;
}

RenderState RenderModel::state(double t, const EditSettings& settings) const {
    RenderState st;
    const double zoomTime = zoomClock_.outputTime(t);
    st.zoomRect = ZoomTimeline::visibleRect(zoomTime, effectiveZooms_);

    // A windows take of the first format kept no usable pointer data.
    const bool pointerUsable = !(meta_.mode == "windows" && meta_.version < 2);
    if (settings.showCursor && pointerUsable) {
        if (auto p = pointerWithLoop(cursorTimeline_, t, settings, meta_.duration))
            if (placeCursor(st, t, *p)) addCursorLook(st, t, settings);
        if (settings.clickEffect != ClickEffect::none) addRipples(st, t, settings);
    }

    if (settings.showKeystrokes) st.keystroke = KeystrokeTimeline::display(t, keystrokeDisplays_);
    if (!effectiveZoomsBySource_.empty()) {
        st.sourceZoomRects.reserve(effectiveZoomsBySource_.size());
        for (const auto& segments : effectiveZoomsBySource_)
            st.sourceZoomRects.push_back(ZoomTimeline::visibleRect(zoomTime, segments));
    }
    return st;
}

bool RenderModel::placeCursor(RenderState& st, double t, Point p) const {
    if (pointerMap_) {
        auto h = pointerMap_->hit(t, p);
        if (!h) return false;  // off all sources
        st.cursor = h->point;
        st.cursorSource = h->source;
        return true;
    }
    const Point c = inCrop(p, crop_);
    if (!(c.x > -0.02 && c.x < 1.02 && c.y > -0.02 && c.y < 1.02)) return false;  // outside the frame
    st.cursor = c;
    return true;
}

void RenderModel::addCursorLook(RenderState& st, double t, const EditSettings& settings) const {
    st.cursorShape = settings.cursorSyncShape && settings.cursorStyle != CursorStyle::dot ? cursorTimeline_.shape(t)
                                                                                          : CursorShape::arrow;
    st.pressAmount = settings.clickBounce ? cursorTimeline_.pressAmount(t) : 0;
    if (settings.cursorAutoHide) {
        st.cursorAlpha = cursorTimeline_.activityAlpha(t);
        if (st.cursorAlpha < 0.004) st.cursor.reset();
    }
}

void RenderModel::addRipples(RenderState& st, double t, const EditSettings& settings) const {
    const auto& intervals = cursorTimeline_.clickIntervals();
    const auto [first, last] = cursorTimeline_.liveClickIntervals(t, rippleLife);
    for (size_t i = first; i < last; ++i) {
        const auto& d = intervals[i].down;
        const double r = intervals[i].releaseTime;
        const double age = t - d.t;
        if (age < 0) continue;
        const double hold = r - d.t;
        const double held = hold > 0 ? std::min(hold, rippleHold) : 0;
        double progress;
        if (t > r) {
            progress = (t - r + held) / rippleLife;
            if (progress > 1) continue;
        } else {
            // Half the ripple plays on the press; it waits at the middle while the button is held.
            progress = age <= rippleHold ? age / rippleLife : 0.5;
        }
        CursorTimeline::Ripple ripple;
        ripple.progress = progress;
        ripple.isRight = d.button == 1;
        const double pointerTime = std::min(t, r);
        if (auto p = pointerWithLoop(cursorTimeline_, pointerTime, settings, meta_.duration)) {
            ripple.center = *p;
            ripple.pointerTime = pointerTime;
        } else {
            ripple.center = {d.x, d.y};
            ripple.source = d.source;
        }
        if (pointerMap_) {
            if (!ripple.pointerTime) {
                if (!ripple.source) continue;
            } else {
                auto h = pointerMap_->hit(*ripple.pointerTime, ripple.center);
                if (!h) continue;
                ripple.center = h->point;
                ripple.source = h->source;
                ripple.pointerTime.reset();
            }
        } else {
            ripple.center = inCrop(ripple.center, crop_);
        }
        st.ripples.push_back(ripple);
    }
}

}  // namespace halvane
