#pragma once

#include "Model/CursorTimeline.h"
#include "Model/EditSettings.h"
#include "Model/KeystrokeTimeline.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"
#include "Model/SpeedMap.h"
#include "Model/WindowPointerMap.h"
#include "Model/ZoomTimeline.h"

#include <optional>
#include <vector>

namespace halvane {

// What is on screen at one source moment.
struct RenderState {
    Rect zoomRect{0, 0, 1, 1};
    // Unit coordinates of the (cropped) frame or, with several sources, of `cursorSource`;
    // absent when no pointer is drawn.
    std::optional<Point> cursor;
    double cursorAlpha = 1;
    CursorShape cursorShape = CursorShape::arrow;
    double pressAmount = 0;
    std::vector<CursorTimeline::Ripple> ripples;
    std::optional<KeystrokeTimeline::Shown> keystroke;
    std::vector<Rect> sourceZoomRects;  // one per source of a multi-source take, else empty
    int cursorSource = 0;

    friend bool operator==(const RenderState&, const RenderState&) = default;
};

// Ties the timelines of one open take together and caches what doesn't depend on the moment, so
// that `state` is binary searches and small loops. It doesn't observe the edit: its owner passes
// each change on to the matching rebuild.
class RenderModel {
public:
    using Segments = std::vector<ZoomTimeline::EffectiveSegment>;

    RenderModel(RecordingMeta meta, RecordedEvents events, const EditSettings& settings);

    void rebuildZooms(const EditSettings& settings);
    void rebuildCursorIfNeeded(const EditSettings& settings);
    void rebuildKeystrokesIfNeeded(const EditSettings& settings);

    RenderState state(double t, const EditSettings& settings) const;

    const RecordingMeta& meta() const { return meta_; }
    const RecordedEvents& events() const { return events_; }
    const CursorTimeline& cursorTimeline() const { return cursorTimeline_; }
    const std::vector<KeystrokeTimeline::Display>& keystrokeDisplays() const { return keystrokeDisplays_; }
    const Segments& effectiveZooms() const { return effectiveZooms_; }
    const std::vector<Segments>& effectiveZoomsBySource() const { return effectiveZoomsBySource_; }
    const SpeedMap& zoomClock() const { return zoomClock_; }
    const std::optional<WindowPointerMap>& pointerMap() const { return pointerMap_; }
    const Rect& crop() const { return crop_; }

    // ---- helpers shared with the export run, which keeps its own cursor timeline

    static SpeedMap zoomClock(const EditSettings& settings, double duration);
    static std::vector<ZoomSegment> activeZooms(const EditSettings& settings);
    static Segments effectiveZooms(const EditSettings& settings, double duration, const CursorTimeline* cursorTimeline);
    static std::vector<Segments> effectiveZoomsBySource(const EditSettings& settings, int sourceCount, double duration,
                                                        const CursorTimeline* cursorTimeline,
                                                        const WindowPointerMap* pointerMap);
    // The pointer at t; with `cursorLoop` on it glides back over the last 0.8 s of the trim to
    // where it stands at the trim's start, so a looping video has no jump.
    static std::optional<Point> pointerWithLoop(const CursorTimeline& timeline, double t, const EditSettings& settings,
                                                double duration);
    // A unit point of the source in unit coordinates of the crop.
    static Point inCrop(Point p, const Rect& crop);

private:
    // Puts the pointer into the state if it lies on a source or inside the frame.
    bool placeCursor(RenderState& state, double t, Point pointer) const;
    void addCursorLook(RenderState& state, double t, const EditSettings& settings) const;
    void addRipples(RenderState& state, double t, const EditSettings& settings) const;

    RecordingMeta meta_;
    RecordedEvents events_;
    CursorTimeline cursorTimeline_;
    std::vector<KeystrokeTimeline::Display> keystrokeDisplays_;
    Segments effectiveZooms_;
    std::vector<Segments> effectiveZoomsBySource_;
    SpeedMap zoomClock_;
    std::optional<WindowPointerMap> pointerMap_;
    double cachedSmoothness_;
    KeystrokeMode cachedKeystrokeMode_;
    Rect crop_{0, 0, 1, 1};
};

}  // namespace halvane
