#pragma once

#include "Model/EditTypes.h"
#include "Model/TimeRange.h"

#include <optional>
#include <vector>

namespace halvane {

// One clip as the user sees it; identified by its start. Source seconds.
struct ClipSegment {
    double start = 0;
    double end = 0;
    friend bool operator==(const ClipSegment&, const ClipSegment&) = default;
};

// The clips derived from the trim range, the cuts and the split points.
struct ClipTimeline {
    std::vector<ClipSegment> segments;  // ascending, not overlapping

    ClipTimeline(TimeRange trim, const std::vector<CutSegment>& cuts, const std::vector<double>& splits);
};

// The frame of one resize gesture, taken when the drag begins and kept to its end, so that a
// drag back to where it began restores the cuts as they were.
struct ClipTrim {
    ClipSegment segment;
    TimeRange limits;
    std::vector<CutSegment> originalCuts;
    std::vector<double> originalSplits;
    std::vector<double> adjoiningBoundaries;

    // Absent if the segment isn't in the list or doesn't fit its limits.
    static std::optional<ClipTrim> make(const ClipSegment& segment, const std::vector<ClipSegment>& segments,
                                        const std::vector<double>& splits, TimeRange trim,
                                        const std::vector<CutSegment>& cuts);

    // The proposed segment held to the limits and to a minimum length.
    ClipSegment resized(double start, double end, double minimumDuration) const;

    // The cuts that leave exactly `proposed` of the limits visible.
    std::vector<CutSegment> cutsKeeping(const ClipSegment& proposed) const;

    friend bool operator==(const ClipTrim&, const ClipTrim&) = default;
};

}  // namespace halvane
