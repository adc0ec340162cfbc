#pragma once

#include <QImage>

#include <filesystem>
#include <optional>

namespace halvane {

// The poster of a take: one frame of "screen.mov" early in the take, within 640 × 640, as
// "thumbnail.png" in the package. Touches only files, so it may run on any thread.
struct ThumbnailGenerator {
    static constexpr int maximumSide = 640;

    // The smaller of half the duration and half a second.
    static double posterTime(double duration);

    // The frame on screen at `time`, scaled to fit within 640 × 640 with its aspect kept
    // (never enlarged). None when the movie can't be read.
    static std::optional<QImage> posterImage(const std::filesystem::path& movie, double time);

    // Writes the poster of the package's "screen.mov" to its "thumbnail.png", plainly rather
    // than atomically: it is a cache. Gives whether it was written; failures are dropped.
    static bool generate(const std::filesystem::path& package, double duration);
};

}  // namespace halvane
