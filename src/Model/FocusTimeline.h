#pragma once

#include "Model/EditTypes.h"
#include "Model/RecordedEvents.h"
#include "Support/Geometry.h"

#include <vector>

namespace halvane {

// Which source of a multi-source take is in front when, and each source's card at a moment,
// including the animation of a change. Times are source seconds; sources index meta.sources.
struct FocusTimeline {
    struct Placement {
        Rect rect;        // canvas coordinates
        double z = 0;     // the largest is in front
        double dim = 0;   // 0 to 0.45
        double lift = 0;  // 0 to 1, raised over the others during a change
        friend bool operator==(const Placement&, const Placement&) = default;
    };

    // Stacking orders, front first, and how far the change between them has run.
    struct Transition {
        std::vector<int> from;
        std::vector<int> to;
        double progress = 1;
        friend bool operator==(const Transition&, const Transition&) = default;
    };

    static constexpr double changeDuration = 0.65;

    static std::vector<FocusSegment> generate(const std::vector<FocusSample>& samples, int sourceCount,
                                              const std::vector<ClickEvent>& clicks);
    static std::vector<FocusSegment> sanitized(const std::vector<FocusSegment>& switches, int sourceCount);
    static Transition transition(double t, const std::vector<FocusSegment>& switches, int sourceCount);
    // Rectangles indexed by source.
    static std::vector<Rect> layout(const std::vector<int>& order, const std::vector<double>& aspects, Size canvasSize,
                                    double padding);
    // Each source's distance from the front.
    static std::vector<int> depths(const std::vector<int>& order, int count);
    // Indexed by source.
    static std::vector<Placement> placements(double t, const std::vector<FocusSegment>& switches,
                                             const std::vector<double>& aspects, Size canvasSize, double padding);
};

}  // namespace halvane
