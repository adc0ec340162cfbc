#include "Platform/ShareableContent.h"

namespace halvane {

const DisplayInfo* ShareableContent::display(uint32_t id) const {
    for (const auto& d : displays)
        if (d.id == id) return &d;
    return nullptr;
}

const WindowInfo* ShareableContent::window(uint32_t id) const {
    for (const auto& w : windows)
        if (w.id == id) return &w;
    return nullptr;
}

const DisplayInfo* ShareableContent::display(const Rect& under) const {
    Point middle = under.center();
    for (const auto& d : displays)
        if (d.frame.contains(middle)) return &d;
    const DisplayInfo* best = nullptr;
    double bestArea = 0;
    for (const auto& d : displays) {
        Rect overlap = d.frame.intersection(under);
        double area = overlap.width() * overlap.height();
        if (area > bestArea) {
            bestArea = area;
            best = &d;
        }
    }
    return best;
}

Rect ShareableContent::displayUnion() const {
    if (displays.empty()) return {};
    Rect all = displays.front().frame;
    for (const auto& d : displays) all = all.united(d.frame);
    return all;
}

}  // namespace halvane
