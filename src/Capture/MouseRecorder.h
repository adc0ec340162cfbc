#pragma once

#include "Capture/CursorShapeSampler.h"
#include "Capture/PauseClock.h"
#include "Capture/RepeatingTimer.h"
#include "Model/RecordedEvents.h"
#include "Platform/CursorImageSource.h"
#include "Platform/InputEventSource.h"
#include "Platform/ShareableContent.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace halvane {

// Pointer positions at 120 Hz (a resting pointer writes one sample every 0.25 s), button presses
// and releases, and cursor shape changes at 30 Hz, all in unit coordinates of a source rectangle
// and on the pause-free host clock until stop moves them onto the movie's timeline.
class MouseRecorder {
public:
    struct Platform {
        ContentProvider* pointer = nullptr;        // position reads
        InputEventSource* buttons = nullptr;        // may be null: no clicks
        CursorImageSource* cursor = nullptr;        // may be null: no shapes
        std::vector<CursorShapeSampler::Reference> shapeReferences;
    };

    static constexpr double sampleInterval = 1.0 / 120;
    static constexpr double shapeInterval = 1.0 / 30;

    // `sourceRect` gives the rectangle in global top-left coordinates, asked at every sample.
    MouseRecorder(std::function<Rect()> sourceRect, std::shared_ptr<PauseClock> pauseClock, Platform platform);
    ~MouseRecorder();

    void start();
    // Cancels the timers and the button listener, then gives samples, clicks and shapes with
    // times less `sessionStart`.
    RecordedEvents stop(double sessionStart);

    // The steps shared by position samples and clicks, exposed so tests can feed them directly.
    void samplePosition();
    void recordButton(const InputEvent& event);
    void sampleShape();

private:
    std::optional<Point> normalizedPointer() const;

    std::function<Rect()> sourceRect_;
    std::shared_ptr<PauseClock> pauseClock_;
    Platform platform_;
    std::unique_ptr<RepeatingTimer> timer_;
    std::unique_ptr<RepeatingTimer> shapeTimer_;
    std::unique_ptr<CursorShapeSampler> shapeSampler_;  // used on the shape timer's thread only
    bool listening_ = false;

    std::mutex mutex_;
    std::vector<MouseSample> samples_;
    std::vector<ClickEvent> clicks_;
    std::vector<CursorShapeSample> shapes_;
    std::optional<Point> lastRecorded_;
};

}  // namespace halvane
