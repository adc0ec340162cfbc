#include "Render/CanvasPool.h"

#include <cstring>

namespace halvane {

namespace {

void copyRect(QImage& picture, const QImage& plate, const QRect& r) {
    const QRect area = r.intersected(picture.rect()).intersected(plate.rect());
    if (area.isEmpty()) return;
    const size_t bytes = size_t(area.width()) * 4;
    for (int y = area.top(); y <= area.bottom(); ++y)
        std::memcpy(picture.scanLine(y) + area.left() * 4, plate.constScanLine(y) + area.left() * 4, bytes);
}

}  // namespace

void restoreOutside(QImage& picture, const QImage& plate, const QRect& area, const QRect& keep) {
    const QRect inside = area.intersected(keep);
    if (inside.isEmpty()) {
        copyRect(picture, plate, area);
        return;
    }
    // Above and below the kept part at full width, then left and right of it.
    copyRect(picture, plate, QRect(area.left(), area.top(), area.width(), inside.top() - area.top()));
    copyRect(picture, plate, QRect(area.left(), inside.bottom() + 1, area.width(), area.bottom() - inside.bottom()));
    copyRect(picture, plate, QRect(area.left(), inside.top(), inside.left() - area.left(), inside.height()));
    copyRect(picture, plate, QRect(inside.right() + 1, inside.top(), area.right() - inside.right(), inside.height()));
}

int CanvasPool::acquire(const QImage& plate, const QRect& rewritten) {
    for (size_t i = 0; i < slots_.size(); ++i) {
        Slot& slot = slots_[i];
        if (slot.busy || !slot.image.isDetached() || slot.image.size() != plate.size()) continue;
        for (const QRect& r : slot.drawn) restoreOutside(slot.image, plate, r, rewritten);
        slot.drawn.clear();
        slot.busy = true;
        return int(i);
    }
    // Every kept picture is still held elsewhere: a fresh copy. When the pool is full it takes the
    // place of a picture that is not being drawn on; that picture lives on with whoever holds it.
    Slot fresh{plate.copy(), {}, true};
    if (slots_.size() >= limit_) {
        for (size_t i = 0; i < slots_.size(); ++i) {
            if (slots_[i].busy) continue;
            slots_[i] = std::move(fresh);
            return int(i);
        }
    }
    slots_.push_back(std::move(fresh));
    return int(slots_.size() - 1);
}

QImage CanvasPool::release(int slot, std::vector<QRect> drawn) {
    Slot& s = slots_[size_t(slot)];
    s.drawn = std::move(drawn);
    s.busy = false;
    return s.image;
}

}  // namespace halvane
