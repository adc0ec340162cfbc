#include "Capture/RepeatingTimer.h"

#include <pthread.h>

#include <chrono>

namespace halvane {

RepeatingTimer::RepeatingTimer(std::string name, double interval, std::function<void()> tick)
    : name_(std::move(name)), interval_(interval), tick_(std::move(tick)) {
    thread_ = std::thread([this] { run(); });
}

RepeatingTimer::~RepeatingTimer() {
    cancel();
}

void RepeatingTimer::cancel() {
    {
        std::lock_guard lock(mutex_);
        cancelled_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

void RepeatingTimer::run() {
    pthread_setname_np(pthread_self(), name_.substr(0, 15).c_str());
    using Clock = std::chrono::steady_clock;
    const auto step = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(interval_));
    auto next = Clock::now();
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            if (wake_.wait_until(lock, next, [this] { return cancelled_; })) return;
        }
        tick_();
        next += step;
        // A tick that is merely late runs at once; whole intervals lost to a stall are skipped.
        auto now = Clock::now();
        if (now - next > step) next += step * ((now - next) / step);
    }
}

}  // namespace halvane
