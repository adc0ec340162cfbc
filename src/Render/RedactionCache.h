#pragma once

#include "Model/AnnotationMetrics.h"
#include "Model/ImageAnnotation.h"
#include "Support/Uuid.h"

#include <QImage>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace halvane {

// Makes and keeps the blurred or pixelated picture under each `redact`, one cache per document
// view, used on the drawing thread only. Pixels come only from the pictures under the region, so
// marks lower in the list stay as they are. An entry is reused while its key holds: the key names
// every input of the result (the pictures beneath and where they lie, the region, the style and
// size), so no pixel is ever compared.
class RedactionCache {
public:
    struct Entry {
        std::string key;
        QImage image;  // covers the region; a blur may be smaller and is stretched when drawn
    };

    // The finished picture for `redact`, or nothing: a side below one pixel, no picture beneath.
    std::optional<QImage> image(const ImageAnnotation& redact, const std::vector<ImageAnnotation>& pictures,
                                const AnnotationMetrics& metrics);

    // Drops every entry whose annotation is no longer there.
    void prune(const std::set<Uuid>& keeping);

    size_t entryCount() const { return entries_.size(); }
    // How many pictures were computed rather than served from an entry.
    int computeCount() const { return computeCount_; }

    // The integral box a redaction covers, or nothing when a side is below one pixel.
    static std::optional<Rect> region(const ImageAnnotation& redact);
    // The key of the picture under `redact`; nothing when no picture lies beneath.
    static std::optional<std::string> key(const ImageAnnotation& redact, const std::vector<ImageAnnotation>& pictures,
                                          const AnnotationMetrics& metrics);

    // A blur is computed on at most about this many source pixels, whatever the picture's size.
    static constexpr double blurPixelBudget = 400000;

private:
    std::map<Uuid, Entry> entries_;
    int computeCount_ = 0;
};

}  // namespace halvane
