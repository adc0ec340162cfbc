#pragma once

#include "Capture/PauseClock.h"
#include "Capture/RepeatingTimer.h"
#include "Platform/ShareableContent.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

namespace halvane {

// Which of a multi-source take's windows or displays has the user's attention, and where each of
// them is, polled ten times a second.
class FocusRecorder {
public:
    struct Sample {
        double t = 0;
        uint32_t id = 0;
        friend bool operator==(const Sample&, const Sample&) = default;
    };
    struct FrameSample {
        double t = 0;
        Rect frame;
        friend bool operator==(const FrameSample&, const FrameSample&) = default;
    };
    struct Report {
        std::vector<Sample> samples;
        std::map<uint32_t, std::vector<FrameSample>> frames;
    };
    enum class Kind { windows, displays };

    static constexpr double interval = 0.1;

    // Windows compete by stacking order (the frontmost listed one has the focus); displays by
    // holding the pointer.
    FocusRecorder(Kind kind, std::vector<uint32_t> ids, std::shared_ptr<PauseClock> pauseClock, ContentProvider& content);
    ~FocusRecorder();

    void start();
    Report stop(double sessionStart);
    void poll();

private:
    Kind kind_;
    std::vector<uint32_t> ids_;
    std::shared_ptr<PauseClock> pauseClock_;
    ContentProvider& content_;
    std::unique_ptr<RepeatingTimer> timer_;

    std::mutex mutex_;
    std::vector<Sample> samples_;
    std::map<uint32_t, std::vector<FrameSample>> frames_;
    std::optional<uint32_t> current_;
};

}  // namespace halvane
