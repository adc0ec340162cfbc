#pragma once

#include "Platform/ShareableContent.h"
#include "Platform/X11Connection.h"

#include <memory>

namespace halvane {

// Displays from RandR monitors (index order, as `xrandr --listmonitors` numbers them), windows from
// the window manager's stacking list, or the root's children when no window manager runs.
class X11ContentProvider : public ContentProvider {
public:
    explicit X11ContentProvider(std::shared_ptr<X11Connection> connection);

    ShareableContent current() override;
    std::optional<Point> pointerLocation() override;

private:
    std::vector<DisplayInfo> displays();
    std::vector<WindowInfo> windows();
    std::vector<xcb_window_t> stackingBottomToTop();
    std::optional<WindowInfo> describe(xcb_window_t window);

    std::shared_ptr<X11Connection> x_;
};

}  // namespace halvane
