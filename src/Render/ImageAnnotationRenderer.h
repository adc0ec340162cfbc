#pragma once

#include "Model/ImageAnnotation.h"
#include "Render/RedactionCache.h"

#include <QImage>

#include <optional>
#include <vector>

class QPainter;

namespace halvane {

struct ImageAnnotationRenderOptions {
    std::optional<Uuid> editingTextID;  // a text being edited on the canvas: its words are left out
    bool drawsPictures = true;          // the canvas draws pictures on layers of its own
};

// Draws image annotations with no state of its own. The painter's user space must be document
// pixels with y upward (bottomLeftTransform of CanvasCoordinates.h, with any scaling on top).
// Every length comes from AnnotationMetrics at `scale`, the document's mark scale.
struct ImageAnnotationRenderer {
    using Options = ImageAnnotationRenderOptions;

    // A whole list: pictures first, then the other marks in order, then every spotlight in one
    // darkening of `canvas`.
    static void draw(const std::vector<ImageAnnotation>& annotations, QPainter& painter, const Rect& canvas,
                     double scale, RedactionCache& redactions, const Options& options);

    // One annotation; `pictures` are the pictures of its list, which redactions and a lone
    // spotlight need.
    static void draw(const ImageAnnotation& annotation, QPainter& painter, const std::vector<ImageAnnotation>& pictures,
                     double scale, RedactionCache& redactions, const Options& options);

    // The list flattened onto a new transparent image covering `canvas`, one pixel a document pixel.
    static QImage flattened(const std::vector<ImageAnnotation>& annotations, const Rect& canvas, double scale,
                            RedactionCache& redactions, const Options& options = {});
};

}  // namespace halvane
