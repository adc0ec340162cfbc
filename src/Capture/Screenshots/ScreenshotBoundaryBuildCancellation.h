#pragma once

#include <mutex>

namespace halvane {

// Shared between the thread that builds a snap index and the thread that may give up on it.
class ScreenshotBoundaryBuildCancellation {
public:
    void cancel() {
        std::lock_guard lock(mutex_);
        cancelled_ = true;
    }
    bool isCancelled() const {
        std::lock_guard lock(mutex_);
        return cancelled_;
    }

private:
    mutable std::mutex mutex_;
    bool cancelled_ = false;
};

}  // namespace halvane
