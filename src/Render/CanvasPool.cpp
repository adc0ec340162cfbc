#include "Render/CanvasPool.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace halvane {

namespace {

void copyRow(QImage& picture, const QImage& plate, int y, int left, int right) {
    if (right < left) return;
    std::memcpy(picture.scanLine(y) + left * 4, plate.constScanLine(y) + left * 4, size_t(right - left + 1) * 4);
}

}  // namespace

void restoreOutside(QImage& picture, const QImage& plate, const std::vector<QRect>& areas, const QRect& keep) {
    const QRect bounds = picture.rect().intersected(plate.rect());
    std::vector<int> from(size_t(bounds.height()), bounds.width()), to(size_t(bounds.height()), -1);
    for (const QRect& area : areas) {
        const QRect r = area.intersected(bounds);
        for (int y = r.top(); y <= r.bottom(); ++y) {
            from[size_t(y)] = std::min(from[size_t(y)], r.left());
            to[size_t(y)] = std::max(to[size_t(y)], r.right());
        }
    }
    for (int y = 0; y < bounds.height(); ++y) {
        const int left = from[size_t(y)], right = to[size_t(y)];
        if (right < left) continue;
        if (y < keep.top() || y > keep.bottom() || right < keep.left() || left > keep.right()) {
            copyRow(picture, plate, y, left, right);
            continue;
        }
        copyRow(picture, plate, y, left, keep.left() - 1);
        copyRow(picture, plate, y, keep.right() + 1, right);
    }
}

void CanvasPool::trim(uint64_t age) {
    std::erase_if(slots_, [&](const Slot& slot) {
        return !slot.busy && slot.image.isDetached() && uses_ - slot.lastUse > age;
    });
}

int CanvasPool::acquire(const QImage& plate, const QRect& rewritten) {
    ++uses_;
    for (size_t i = 0; i < slots_.size(); ++i) {
        Slot& slot = slots_[i];
        if (slot.busy || !slot.image.isDetached() || slot.image.size() != plate.size()) continue;
        // The last holder may have let go on another thread (the export's encoder): its reads of
        // the pixels come before the writes that follow.
        std::atomic_thread_fence(std::memory_order_acquire);
        restoreOutside(slot.image, plate, slot.drawn, rewritten);
        slot.drawn.clear();
        slot.busy = true;
        slot.lastUse = uses_;
        return int(i);
    }
    // Every kept picture is still held elsewhere: a fresh copy. When the pool is full it takes the
    // place of a picture that is not being drawn on; that picture lives on with whoever holds it.
    Slot fresh{plate.copy(), {}, true, uses_};
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
