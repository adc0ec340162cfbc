#pragma once

#include "Render/PlanarPicture.h"
#include "Support/Geometry.h"

#include <QImage>

#include <filesystem>
#include <limits>
#include <memory>

namespace halvane {

// A forward-only reader of the first video stream of a movie, giving the picture on screen at a
// time. Decoding starts at the key frame before `startAt` and stops after `until`; the last frame
// holds after that. Pictures are converted to premultiplied BGRA honouring the stream's colour
// range and matrix, and only when asked for, so frames skipped by speed-ups cost no conversion.
class FrameSequence {
public:
    // Throws HalvaneError: "no video track in recording" when the file has no video stream,
    // "cannot read video track: …" when it can't be opened or decoded.
    // `outputSize` (whole pixels) scales every picture; empty keeps the stream's size. Scaling here
    // is slow: swscale's scaling path took 7 ms for a 1080p 4:2:0 frame where the plain conversion
    // took 0.9 ms, so the composition converts at the stream's size and scales with its own kernel.
    FrameSequence(const std::filesystem::path& movie, double startAt = 0,
                  double until = std::numeric_limits<double>::infinity(), Size outputSize = {});
    ~FrameSequence();
    FrameSequence(const FrameSequence&) = delete;
    FrameSequence& operator=(const FrameSequence&) = delete;

    // The latest frame at or before t (seconds of the movie), or nullptr before the first frame.
    // Calls come with rising t; a lower t gets the current frame. The image stays valid until the
    // next call.
    const QImage* image(double t);

    // The same frame, not converted: its planes when the stream is 8-bit 4:2:0 in BT.709 limited
    // range (tagged so, or untagged at 720 rows or more) at the stream's size; otherwise null, and
    // image(t) gives the picture. Valid until the next call.
    const Yuv420View* planes(double t);

    // Only this part of the pictures (unit rectangle, origin top left) needs to be right from now
    // on: when pictures keep the stream's size, only those pixels (rounded out to whole 16-pixel
    // columns and even rows) are converted, and the rest of the image keeps older pixels. An
    // empty or whole rectangle converts everything, as before any call.
    void setRegion(const Rect& unit);

    // The time of the frame image() gave last, or NaN before any.
    double currentTime() const;
    // Size of the pictures given out.
    Size outputSize() const;
    // Size of the stream in pixels.
    Size streamSize() const;
    // Duration of the stream in seconds (0 when the file doesn't say).
    double duration() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvane
