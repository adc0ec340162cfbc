#include "Support/ConcurrentPerform.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace halvane {

std::size_t concurrencyWidth() {
    return std::max<std::size_t>(std::thread::hardware_concurrency(), 1);
}

void concurrentPerform(std::size_t iterations, const std::function<void(std::size_t)>& body) {
    if (iterations == 0) return;
    const std::size_t workers = std::min(concurrencyWidth(), iterations);
    auto runSlice = [&](std::size_t worker) {
        // Even split with the remainder spread over the first slices.
        const std::size_t begin = iterations * worker / workers;
        const std::size_t end = iterations * (worker + 1) / workers;
        for (std::size_t i = begin; i < end; ++i) body(i);
    };
    if (workers == 1) {
        runSlice(0);
        return;
    }
    std::vector<std::jthread> threads;
    threads.reserve(workers - 1);
    for (std::size_t w = 1; w < workers; ++w) threads.emplace_back(runSlice, w);
    runSlice(0);
}

}  // namespace halvane
