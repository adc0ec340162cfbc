#pragma once

#include "Model/CanvasAnnotation.h"
#include "Render/AnnotationArt.h"
#include "Support/Uuid.h"

#include <filesystem>
#include <map>
#include <optional>
#include <vector>

namespace halvane {

// The bitmaps of a take's canvas annotations, kept between frames. Owned by its user (the export's
// render queue or the preview's main thread). Moving an annotation or changing its times keeps its
// bitmap; any other change, or a new canvas size or scale, makes a new one on demand.
class CanvasAnnotationBitmaps {
public:
    struct Entry {
        CanvasAnnotation signature;
        std::optional<AnnotationArt::Rendered> rendered;  // none: the mark can't be drawn; not retried
    };

    // Drops entries whose annotation is gone or changed; all of them when the canvas, scale or
    // pixel budget changed. Nothing is rendered here.
    void prepare(const std::vector<CanvasAnnotation>& annotations, Size canvas, double scale);

    // The bitmap of one annotation on the prepared canvas, rendered on first demand.
    std::optional<AnnotationArt::Rendered> rendered(const CanvasAnnotation& annotation,
                                                    const std::filesystem::path& package);

    long long maximumPixels() const { return maximumPixels_; }
    size_t entryCount() const { return entries_.size(); }

    // All bitmaps together may take 32 MiB.
    static long long maximumPixels(size_t annotationCount);
    // What the bitmap depends on: the annotation without its times and position.
    static CanvasAnnotation signature(const CanvasAnnotation& annotation);

private:
    std::map<Uuid, Entry> entries_;
    Size canvas_;
    double scale_ = 0;
    long long maximumPixels_ = 0;
};

}  // namespace halvane
