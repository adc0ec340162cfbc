#pragma once

#include <QImage>

namespace halvane {

// Decoded pictures of one video, asked for in increasing time: the frame shown at t seconds of
// the video's own timeline (the newest at or before t; the last one holds after the end). Null
// while there is none. The pointer stays valid until the next call.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual const QImage* frame(double t) = 0;
};

}  // namespace halvane
