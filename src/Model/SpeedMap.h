#pragma once

#include "Model/EditTypes.h"
#include "Model/TimeRange.h"

#include <vector>

namespace halvane {

// The piecewise linear map between source time (the recording as captured) and output time
// (the edited result after trim, cuts and speed changes).
class SpeedMap {
public:
    struct Piece {
        double sourceStart = 0;
        double sourceEnd = 0;
        double outputStart = 0;
        double outputEnd = 0;
        double factor = 1;  // source seconds per output second
        friend bool operator==(const Piece&, const Piece&) = default;
    };

    SpeedMap(const std::vector<SpeedSegment>& speeds, TimeRange trim, const std::vector<CutSegment>& cuts);

    double sourceTime(double output) const;
    double outputTime(double source) const;
    double outputDuration() const { return pieces_.back().outputEnd; }

    const std::vector<Piece>& pieces() const { return pieces_; }
    TimeRange sourceRange() const { return sourceRange_; }
    const std::vector<TimeRange>& removedRanges() const { return removedRanges_; }

    friend bool operator==(const SpeedMap&, const SpeedMap&) = default;

private:
    std::vector<Piece> pieces_;
    TimeRange sourceRange_;
    std::vector<TimeRange> removedRanges_;
};

}  // namespace halvane
