#pragma once

#include <cstddef>
#include <functional>

namespace halvane {

// Runs body(i) for every i in 0 ..< iterations, spread over the machine's cores, and returns
// when all have run. Iterations are handed out in contiguous runs, so a body that touches row i
// of a buffer keeps each thread on neighbouring memory. The calling thread takes part; bodies
// must not throw and must only write memory no other iteration writes.
void concurrentPerform(std::size_t iterations, const std::function<void(std::size_t)>& body);

// The number of workers concurrentPerform uses (at least 1).
std::size_t concurrencyWidth();

}  // namespace halvane
