#pragma once

#include "Support/Geometry.h"

#include <QImage>

namespace halvane {

// Grabs one picture of a fixed-size source. The picture never holds the pointer: the editor draws
// it later from the recorded samples.
class ScreenGrabber {
public:
    virtual ~ScreenGrabber() = default;
    // Size of every grabbed picture in pixels.
    virtual QSize pixelSize() const = 0;
    // A new picture in Format_RGB32, or throws HalvaneError when the source is gone.
    virtual QImage grab() = 0;
};

}  // namespace halvane
