#pragma once

#include "Render/CardBorder.h"

#include <QImage>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace halvane {

// The liquid border: the background seen through a half-round lens along the band, with colour
// fringes and light on the rim. Single precision; rows are split across threads and rows that
// cross the card's straight sides visit only the two strips of the band.
class LiquidGlass {
public:
    // The background as raw premultiplied BGRA pixels positioned in canvas points.
    struct Source {
        std::vector<std::uint8_t> pixels;
        int width = 0;
        int height = 0;
        float originX = 0;  // minX of the rectangle, points
        float topY = 0;     // maxY of the rectangle, points
        float scale = 1;    // pixels a point
    };

    // None when the target is under 3 pixels a side or the band is too thin.
    std::optional<QImage> image(const CardBorder::Band& band, const QImage& background, const Rect& backgroundRect,
                                double scale);

    // The last three sources, newest first, keyed by image identity, rectangle and scale.
    std::shared_ptr<const Source> cachedSource(const QImage& image, const Rect& rect, double scale);

    size_t cachedSourceCount() const;

private:
    struct CacheEntry {
        qint64 imageKey = 0;
        Rect rect;
        double scale = 0;
        std::shared_ptr<const Source> source;
    };
    mutable std::mutex cacheLock_;
    std::vector<CacheEntry> cache_;
};

}  // namespace halvane
