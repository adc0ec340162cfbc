#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace halvane {

// Runs `tick` on a thread of its own every `interval` seconds, the first at once, on an absolute
// schedule: a late tick doesn't push the later ones back, and ticks missed by a stall are skipped
// rather than run in a burst.
class RepeatingTimer {
public:
    RepeatingTimer(std::string name, double interval, std::function<void()> tick);
    ~RepeatingTimer();
    RepeatingTimer(const RepeatingTimer&) = delete;
    RepeatingTimer& operator=(const RepeatingTimer&) = delete;

    // Returns after the last tick has finished; no tick runs after it.
    void cancel();

private:
    void run();

    std::string name_;
    double interval_;
    std::function<void()> tick_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool cancelled_ = false;
    std::thread thread_;
};

}  // namespace halvane
