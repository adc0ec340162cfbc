#pragma once

#include "Platform/ScreenGrabber.h"
#include "Platform/X11Connection.h"

#include <xcb/shm.h>

#include <memory>
#include <optional>

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

private:
    void attachSegment();
    QImage grabDrawable(xcb_drawable_t drawable, int x, int y, int width, int height);
    [[noreturn]] void fail(const std::string& why) const;

    std::shared_ptr<X11Connection> x_;
    QSize size_;
    QPoint origin_;
    std::optional<xcb_window_t> window_;
    xcb_shm_seg_t segment_ = 0;
    int shmID_ = -1;
    uint8_t* shmBytes_ = nullptr;
};

}  // namespace halvane
