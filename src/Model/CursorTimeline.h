#pragma once

#include "Model/RecordedEvents.h"
#include "Model/TimeRange.h"
#include "Support/Geometry.h"

#include <optional>
#include <utility>
#include <vector>

namespace halvane {

// The drawn pointer of a take for one smoothing setting: the raw samples run through a critically
// damped spring into a 240 Hz table, with the press ranges, click intervals, activity intervals
// and shape changes prepared, so a query is a binary search and a blend. Source seconds; unit
// coordinates of the samples. Immutable once built.
class CursorTimeline {
public:
    struct ClickInterval {
        ClickEvent down;
        double releaseTime = 0;
        friend bool operator==(const ClickInterval&, const ClickInterval&) = default;
    };

    // One running click mark at one moment.
    struct Ripple {
        Point center;
        double progress = 0;
        bool isRight = false;
        std::optional<int> source;
        std::optional<double> pointerTime;  // whose pointer position gave `center`, while mapping
        friend bool operator==(const Ripple&, const Ripple&) = default;
    };

    static constexpr double rate = 240;

    CursorTimeline(const RecordedEvents& events, double smoothness, double duration);

    std::optional<Point> position(double t) const;
    CursorShape shape(double t) const;
    double pressAmount(double t) const;
    double activityAlpha(double t) const;

    // Indices [first, last) of the click intervals that may still show a mark of `lifetime`
    // seconds at t: none pressed after t, none released more than a lifetime before it.
    std::pair<size_t, size_t> liveClickIntervals(double t, double lifetime) const;

    // The spring's substeps per table step for a smoothness.
    static int substeps(double smoothness);

    // The table: entry k stands at time(k), 1/240 s apart from the first sample's time.
    size_t tableCount() const { return points_.size(); }
    double time(size_t k) const { return firstTime_ + static_cast<double>(k) * (1.0 / rate); }
    const std::vector<Point>& points() const { return points_; }
    const std::vector<TimeRange>& pressRanges() const { return pressRanges_; }
    const std::vector<ClickInterval>& clickIntervals() const { return clickIntervals_; }
    const std::vector<TimeRange>& activityIntervals() const { return activityIntervals_; }
    const std::vector<double>& shapeTimes() const { return shapeTimes_; }
    const std::vector<CursorShape>& shapeValues() const { return shapeValues_; }

private:
    void smooth(const std::vector<MouseSample>& samples, double smoothness, double duration);
    void collectPresses(const std::vector<ClickEvent>& sortedClicks, double duration);
    void collectClickIntervals(const std::vector<ClickEvent>& sortedClicks, double duration);
    void collectActivity(const RecordedEvents& events);

    double firstTime_ = 0;
    std::vector<Point> points_;
    std::vector<TimeRange> pressRanges_;
    std::vector<ClickInterval> clickIntervals_;
    std::vector<double> latestRelease_;  // running maximum of releaseTime over clickIntervals_
    std::vector<TimeRange> activityIntervals_;
    std::vector<double> shapeTimes_;
    std::vector<CursorShape> shapeValues_;
};

}  // namespace halvane
