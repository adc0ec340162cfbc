#pragma once

#include <QImage>
#include <QRect>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace halvane {

// Reusable canvas-sized pictures that start out as a constant plate. Copying the whole plate for
// every frame costs more than the parts of it a frame actually changes, so each picture remembers
// where it was drawn on and only those areas are put back. A picture handed out stays untouched
// for as long as anyone holds a copy of it (QImage sharing): only pictures that nobody but the
// pool references are reused.
class CanvasPool {
public:
    explicit CanvasPool(size_t limit = 8) : limit_(limit) {}

    // A picture equal to `plate` everywhere outside `rewritten` (one area or several), which the
    // caller overwrites in full. Draw on it through `picture(slot)` and finish with `release`.
    int acquire(const QImage& plate, const QRect& rewritten);
    int acquire(const QImage& plate, const std::vector<QRect>& rewritten);
    QImage& picture(int slot) { return slots_[size_t(slot)].image; }
    // Hands the picture out. `drawn` lists the areas outside `rewritten` that now differ from the plate.
    QImage release(int slot, std::vector<QRect> drawn);
    // Drops every kept picture (the plate changed).
    void clear() { slots_.clear(); }
    // Drops kept pictures that nobody holds and that were last handed out more than `age`
    // acquisitions ago: motion blur needs many at once, and only for the frames of a camera move.
    void trim(uint64_t age);
    size_t size() const { return slots_.size(); }

private:
    struct Slot {
        QImage image;
        std::vector<QRect> drawn;
        bool busy = false;
        uint64_t lastUse = 0;
    };
    size_t limit_;
    uint64_t uses_ = 0;
    std::vector<Slot> slots_;
};

// Copies `plate` into `picture` (same format, whole bytes per pixel) over `areas`, leaving out the
// parts inside `keep`. Overlapping areas are copied once.
void restoreOutside(QImage& picture, const QImage& plate, const std::vector<QRect>& areas, const QRect& keep);
void restoreOutside(QImage& picture, const QImage& plate, const std::vector<QRect>& areas,
                    const std::vector<QRect>& keep);

}  // namespace halvane
