#pragma once

#include "Render/PlanarPicture.h"
#include "Support/Geometry.h"

#include <QImage>

namespace halvane {

// Decoded pictures of one video, asked for in increasing time: the frame shown at t seconds of
// the video's own timeline (the newest at or before t; the last one holds after the end). Null
// while there is none. The pointer stays valid until the next call.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual const QImage* frame(double t) = 0;

    // The part of the pictures the next calls to `frame` will be read in, as a unit rectangle of
    // the picture (origin top left), margin for filtering included. A source may then make only
    // that part and leave the rest of the picture stale, which saves converting what a zoom hides.
    // Pictures keep their full size. The whole picture until said otherwise.
    virtual void setRegionOfInterest(const Rect& unit) { (void)unit; }

    // The same frame as `frame(t)` in the decoder's own planes, when those are 8-bit 4:2:0 in
    // BT.709 limited range (what recordings hold): an export then scales the video straight into
    // its encoder's form. Null when a source has no such form; `frame` may still be asked for
    // the same t afterwards. Valid until the next call.
    virtual const Yuv420View* planarFrame(double t) {
        (void)t;
        return nullptr;
    }
};

}  // namespace halvane
