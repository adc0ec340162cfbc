#include "Render/CanvasPool.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace halvane {

namespace {

void copyRow(QImage& picture, const QImage& plate, int y, int left, int right) {
    if (right < left) return;
    const int bytes = picture.depth() / 8;
    std::memcpy(picture.scanLine(y) + left * bytes, plate.constScanLine(y) + left * bytes,
                size_t(right - left + 1) * size_t(bytes));
}

}  // namespace

void restoreOutside(QImage& picture, const QImage& plate, const std::vector<QRect>& areas, const QRect& keep) {
    restoreOutside(picture, plate, areas, std::vector<QRect>{keep});
}

void restoreOutside(QImage& picture, const QImage& plate, const std::vector<QRect>& areas,
                    const std::vector<QRect>& keep) {
    const QRect bounds = picture.rect().intersected(plate.rect());
    std::vector<QRect> clipped;
    int top = bounds.bottom() + 1, bottom = bounds.top() - 1;
    for (const QRect& area : areas) {
        const QRect r = area.intersected(bounds);
        if (r.isEmpty()) continue;
        clipped.push_back(r);
        top = std::min(top, r.top());
        bottom = std::max(bottom, r.bottom());
    }
    std::vector<std::pair<int, int>> runs, kept;
    for (int y = top; y <= bottom; ++y) {
        runs.clear();
        for (const QRect& r : clipped)
            if (r.top() <= y && y <= r.bottom()) runs.emplace_back(r.left(), r.right());
        if (runs.empty()) continue;
        kept.clear();
        for (const QRect& k : keep)
            if (!k.isEmpty() && k.top() <= y && y <= k.bottom()) kept.emplace_back(k.left(), k.right());
        std::sort(runs.begin(), runs.end());
        std::sort(kept.begin(), kept.end());
        // Overlapping runs are copied once, and the kept parts are left out of each.
        for (size_t i = 0; i < runs.size();) {
            int left = runs[i].first, right = runs[i].second;
            for (++i; i < runs.size() && runs[i].first <= right + 1; ++i) right = std::max(right, runs[i].second);
            for (const auto& [from, to] : kept) {
                if (to < left || from > right) continue;
                copyRow(picture, plate, y, left, from - 1);
                left = to + 1;
            }
            copyRow(picture, plate, y, left, right);
        }
    }
}

void CanvasPool::trim(uint64_t age) {
    std::erase_if(slots_, [&](const Slot& slot) {
        return !slot.busy && slot.image.isDetached() && uses_ - slot.lastUse > age;
    });
}

int CanvasPool::acquire(const QImage& plate, const QRect& rewritten) {
    return acquire(plate, std::vector<QRect>{rewritten});
}

int CanvasPool::acquire(const QImage& plate, const std::vector<QRect>& rewritten) {
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
