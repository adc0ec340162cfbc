#pragma once

#include "Support/Bitmap.h"

#include <QImage>

namespace halvane {

// Crossing between the model's Qt-free Bitmap and QImage. The two share one pixel layout, so the
// image wraps the bitmap's buffer without copying; the wrapper keeps the buffer alive.
QImage imageOf(const Bitmap& bitmap);
// Takes the image's pixels, converted to premultiplied ARGB32 when needed.
Bitmap bitmapOf(const QImage& image);

}  // namespace halvane
