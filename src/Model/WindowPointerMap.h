#pragma once

#include "Model/EditTypes.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"
#include "Support/Geometry.h"

#include <optional>
#include <vector>

namespace halvane {

// The pointer of a multi-source take was recorded in one space spanning all sources; this tells
// which source it was over at a moment, and where on that source.
struct WindowPointerMap {
    struct Hit {
        int source = 0;
        Point point;  // unit coordinates of that source, origin top left
        friend bool operator==(const Hit&, const Hit&) = default;
    };

    Rect space;
    std::vector<std::vector<WindowFrameSample>> frames;
    std::vector<FocusSegment> realFocus;  // what the user actually focused, not the edited switches
    int sourceCount = 0;

    // Absent unless the take has several sources and a pointer space more than 1 wide and high.
    static std::optional<WindowPointerMap> make(const RecordingMeta& meta, const RecordedEvents& events);

    std::optional<Hit> hit(double t, Point unionPoint) const;
};

}  // namespace halvane
