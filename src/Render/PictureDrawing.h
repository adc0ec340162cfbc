#pragma once

#include "Model/ImageAnnotation.h"
#include "Support/Geometry.h"

class QPainter;

namespace halvane {

// Drawing in document space (y upward) things that must come out upright: pictures and text.

// Moves the painter's origin to the top-left corner of `r` and turns y downward, so that images
// and text placed at (0, 0, r.width, r.height) fill `r` the right way up.
void enterTopDown(QPainter& painter, const Rect& r);

// The bitmap of an `image` annotation in its rect, turned by its rotation, smoothly scaled.
// Nothing without an asset or with a side of the rect below 1.
void paintPicture(QPainter& painter, const ImageAnnotation& picture);

}  // namespace halvane
