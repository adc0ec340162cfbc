#pragma once

namespace halvane {

// A closed range of seconds, lower bound first.
struct TimeRange {
    double lower = 0;
    double upper = 0;

    bool contains(double t) const { return t >= lower && t <= upper; }
    friend bool operator==(const TimeRange&, const TimeRange&) = default;
};

}  // namespace halvane
