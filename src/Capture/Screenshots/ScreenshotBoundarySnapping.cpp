#include "Capture/Screenshots/ScreenshotBoundarySnapping.h"

#include <cmath>

namespace halvane {

namespace {

struct AxisSnap {
    double delta = 0;
    double guide = 0;
};

// The smaller of the two edges' moves that keeps the span lo … hi within boundsLo … boundsHi;
// the low edge is asked first and wins a tie.
std::optional<AxisSnap> chooseSnap(double lo, double hi, double boundsLo, double boundsHi,
                                   std::optional<ScreenshotBoundarySnapIndex::Hit> lowHit,
                                   std::optional<ScreenshotBoundarySnapIndex::Hit> highHit) {
    std::optional<AxisSnap> best;
    auto consider = [&](const std::optional<ScreenshotBoundarySnapIndex::Hit>& hit, double edge) {
        if (!hit) return;
        const double delta = hit->position - edge;
        if (lo + delta < boundsLo || hi + delta > boundsHi) return;
        if (!best || std::abs(delta) < std::abs(best->delta)) best = AxisSnap{delta, hit->position};
    };
    consider(lowHit, lo);
    consider(highHit, hi);
    return best;
}

}  // namespace

ScreenshotBoundarySnapResult ScreenshotBoundarySnapping::movedRectangle(const Rect& rect, const Rect& bounds,
                                                                        const ScreenshotBoundarySnapIndex& index) {
    ScreenshotBoundarySnapResult result{rect, std::nullopt, std::nullopt};

    const auto x = chooseSnap(rect.minX(), rect.maxX(), bounds.minX(), bounds.maxX(),
                              index.nearestVertical(rect.minX(), rect.minY(), rect.maxY(), radius),
                              index.nearestVertical(rect.maxX(), rect.minY(), rect.maxY(), radius));
    if (x) {
        result.rect = result.rect.offsetBy(x->delta, 0);
        result.verticalGuide = x->guide;
    }

    const Rect r = result.rect;
    const auto y = chooseSnap(r.minY(), r.maxY(), bounds.minY(), bounds.maxY(),
                              index.nearestHorizontal(r.minY(), r.minX(), r.maxX(), radius),
                              index.nearestHorizontal(r.maxY(), r.minX(), r.maxX(), radius));
    if (y) {
        result.rect = result.rect.offsetBy(0, y->delta);
        result.horizontalGuide = y->guide;
    }
    return result;
}

}  // namespace halvane
