#pragma once

#include "Media/FrameSequence.h"
#include "Render/FrameSource.h"

namespace halvane {

// A movie's decoded pictures as a frame source for the composition.
class MovieFrames : public FrameSource {
public:
    // Throws HalvaneError as FrameSequence does.
    MovieFrames(const std::filesystem::path& movie, double startAt, double until)
        : sequence_(movie, startAt, until) {}

    const QImage* frame(double t) override { return sequence_.image(t); }
    void setRegionOfInterest(const Rect& unit) override { sequence_.setRegion(unit); }
    const Yuv420View* planarFrame(double t) override { return sequence_.planes(t); }
    FrameSequence& sequence() { return sequence_; }

private:
    FrameSequence sequence_;
};

}  // namespace halvane
