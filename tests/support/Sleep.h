#pragma once

#include <chrono>
#include <thread>

namespace halvane::test {

// Lets real time pass in tests that record against the wall clock.
inline void sleepFor(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

}  // namespace halvane::test
