#pragma once

#include <functional>
#include <mutex>
#include <optional>

namespace halvane {

// The one gate every stream of a take goes through: a stamp taken during a pause is dropped, and
// every later stamp is moved earlier by the length of all pauses, so recorded time has no holes.
class PauseClock {
public:
    using Now = std::function<double()>;
    // `now` reads host seconds; the host clock unless a test supplies its own.
    explicit PauseClock(Now now = {});

    double totalPaused() const;
    void pause();
    void resume();
    bool isPaused() const;
    // Host seconds less all pauses; absent while paused.
    std::optional<double> adjusted(double hostSeconds) const;
    double now() const { return now_(); }

private:
    Now now_;
    mutable std::mutex mutex_;
    double accumulated_ = 0;
    std::optional<double> pauseBegan_;
};

}  // namespace halvane
