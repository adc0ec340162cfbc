#pragma once

#include "Platform/ScreenGrabber.h"
#include "Platform/X11Connection.h"

#include <xcb/shm.h>

#include <memory>
#include <optional>
#include <vector>

namespace halvane {

// MIT-SHM grabs: a rectangle of the root window (display or area), or a whole window through its
// Composite pixmap, which keeps the window's own pixels even while something covers it.
class X11ScreenGrabber : public ScreenGrabber {
public:
    // A rectangle of the root in root pixels.
    X11ScreenGrabber(std::shared_ptr<X11Connection> connection, QRect rootArea);
    // One window, always `size` pixels: a smaller window is padded with black, a larger one cut.
    X11ScreenGrabber(std::shared_ptr<X11Connection> connection, xcb_window_t window, QSize size);
    ~X11ScreenGrabber() override;

    QSize pixelSize() const override { return size_; }
    QImage grab() override;

    // Pictures of a root area share their memory with the server (no copy); at most this many
    // may be alive at once before grabs fall back to copying.
    static constexpr int maxSharedSegments = 12;

private:
    struct Segment;
    std::shared_ptr<Segment> attachSegment();
    std::shared_ptr<Segment> freeSegment();
    void fetch(xcb_drawable_t drawable, const Segment& segment, int x, int y, int width, int height);
    [[noreturn]] void fail(const std::string& why) const;

    std::shared_ptr<X11Connection> x_;
    QSize size_;
    QPoint origin_;
    std::optional<xcb_window_t> window_;
    std::vector<std::shared_ptr<Segment>> segments_;
};

}  // namespace halvane
