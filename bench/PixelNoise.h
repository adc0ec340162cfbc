#pragma once

#include <cstdint>

// A well-mixed hash of two numbers, for drawing repeatable synthetic pictures in benchmarks
// without keeping them: the same (a, b) always gives the same value.
inline std::uint32_t pixelNoise(std::uint32_t a, std::uint32_t b) {
    std::uint32_t h = a * 0x9E3779B1u ^ (b + 0x7F4A7C15u + (a << 6) + (a >> 2));
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 13;
    return h;
}
