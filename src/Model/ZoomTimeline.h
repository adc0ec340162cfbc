#pragma once

#include "Model/EditTypes.h"
#include "Model/RecordedEvents.h"
#include "Model/SpeedMap.h"
#include "Support/Geometry.h"

#include <functional>
#include <optional>
#include <vector>

namespace halvane {

// How clicks are grouped into generated zooms; seconds and unit distances.
struct ZoomGenerationTuning {
    double baseGap = 2.5;         // between presses of one group when they are far apart
    double closeGap = 4.5;        // when they are at the same spot
    double clusterRadius = 0.3;   // beyond which a press starts a new group
    double leadIn = 0.15;         // a zoom starts this long before its first press
    double holdAfter = 1.0;       // and lasts this long past its last press
    double minimumLength = 1.25;  // shortest zoom made from a group
    double maximumPress = 12.0;   // longest press that counts
    double tailMargin = 1.0;      // presses later than this before the end are ignored
    double edgeMargin = 0.005;    // how far outside the unit square a press may start
};

// The camera work of a take. Generation turns clicks into stored, editable zoom segments (source
// time); realisation turns the active segments into camera moves on the zoom clock (the output
// time of the take's speed map), and `visibleRect` evaluates those moves at one moment.
// Rectangles are in unit coordinates, origin top left; the full view is (0, 0, 1, 1).
struct ZoomTimeline {
    // One fixed set of values is used by every caller.
    using GenerationTuning = ZoomGenerationTuning;

    struct Press {
        double start = 0;
        double end = 0;
        Point center;
        std::optional<int> source;
        friend bool operator==(const Press&, const Press&) = default;
    };

    // A span during which one source is in front; no `leave` means to the end.
    struct FrontStretch {
        double start = 0;
        std::optional<double> leave;
        friend bool operator==(const FrontStretch&, const FrontStretch&) = default;
    };

    struct EffectiveSegment {
        Rect rect;  // view at the peak
        double inStart = 0;
        double inEnd = 0;
        double outStart = 0;
        double outEnd = 0;
        std::vector<Rect> followTrack;  // views at 30 steps a second from inStart; empty if still

        Rect window(double t) const;
        friend bool operator==(const EffectiveSegment&, const EffectiveSegment&) = default;
    };

    // The pointer at a zoom clock time, in the same unit coordinates as the targets.
    using Follow = std::function<std::optional<Point>(double)>;

    static std::vector<Press> presses(const std::vector<ClickEvent>& clicks, const GenerationTuning& tuning = {});

    static std::vector<ZoomSegment> generate(const std::vector<ClickEvent>& clicks, double level, double duration,
                                             const GenerationTuning& tuning = {});
    static std::vector<ZoomSegment> generate(const std::vector<ClickEvent>& clicks, double level, double duration,
                                             int sourceCount, const std::vector<FocusSegment>& focusSwitches,
                                             const GenerationTuning& tuning = {});

    // `switches` sorted by start.
    static std::vector<FrontStretch> frontStretches(int source, const std::vector<FocusSegment>& switches,
                                                    double duration);
    // The first stretch that overlaps the span start to end.
    static std::optional<FrontStretch> overlappingStretch(const std::vector<FrontStretch>& stretches, double start,
                                                          double end);

    static std::vector<EffectiveSegment> effectiveSegments(const std::vector<ZoomSegment>& zooms, double speed,
                                                           const SpeedMap* speedMap, const Follow& follow);

    static Rect visibleRect(double t, const std::vector<EffectiveSegment>& segments);

    // The view at the peak of a zoom of `level` aimed at `target`, kept inside the unit square.
    static Rect peakRect(double level, Point target);
};

}  // namespace halvane
