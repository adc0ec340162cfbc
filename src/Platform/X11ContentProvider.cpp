#include "Platform/X11ContentProvider.h"

#include "Support/HalvaneError.h"

#include <xcb/randr.h>

#include <algorithm>
#include <cstring>

namespace halvane {

X11ContentProvider::X11ContentProvider(std::shared_ptr<X11Connection> connection) : x_(std::move(connection)) {}

ShareableContent X11ContentProvider::current() {
    if (x_->isBroken()) throw HalvaneError("The X server \"" + x_->displayName() + "\" is gone.", 1);
    ShareableContent content;
    content.displays = displays();
    content.windows = windows();
    if (x_->isBroken()) throw HalvaneError("The X server \"" + x_->displayName() + "\" is gone.", 1);
    return content;
}

std::optional<Point> X11ContentProvider::pointerLocation() {
    auto* c = x_->get();
    XcbReply<xcb_query_pointer_reply_t> reply(xcb_query_pointer_reply(c, xcb_query_pointer(c, x_->root()), nullptr));
    if (!reply) return std::nullopt;
    return Point{static_cast<double>(reply->root_x), static_cast<double>(reply->root_y)};
}

std::vector<DisplayInfo> X11ContentProvider::displays() {
    auto* c = x_->get();
    std::vector<DisplayInfo> result;
    XcbReply<xcb_randr_get_monitors_reply_t> reply(
        xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, x_->root(), 1), nullptr));
    if (reply) {
        uint32_t index = 0;
        for (auto it = xcb_randr_get_monitors_monitors_iterator(reply.get()); it.rem; xcb_randr_monitor_info_next(&it)) {
            const auto* m = it.data;
            DisplayInfo d;
            d.id = index++;
            XcbReply<xcb_get_atom_name_reply_t> name(xcb_get_atom_name_reply(c, xcb_get_atom_name(c, m->name), nullptr));
            if (name) d.name.assign(xcb_get_atom_name_name(name.get()), xcb_get_atom_name_name_length(name.get()));
            d.frame = Rect(m->x, m->y, m->width, m->height);
            result.push_back(d);
        }
    }
    if (result.empty() && x_->screen()) {
        // A server without RandR still has its one screen.
        result.push_back({0, "screen", Rect(0, 0, x_->screen()->width_in_pixels, x_->screen()->height_in_pixels), 1.0});
    }
    return result;
}

std::vector<xcb_window_t> X11ContentProvider::stackingBottomToTop() {
    std::string list = x_->property(x_->root(), x_->atom("_NET_CLIENT_LIST_STACKING"), XCB_ATOM_WINDOW);
    std::vector<xcb_window_t> ids(list.size() / sizeof(xcb_window_t));
    if (!ids.empty()) {
        std::memcpy(ids.data(), list.data(), ids.size() * sizeof(xcb_window_t));
        return ids;
    }
    auto* c = x_->get();
    XcbReply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, x_->root()), nullptr));
    if (!tree) return {};
    auto* children = xcb_query_tree_children(tree.get());
    return {children, children + xcb_query_tree_children_length(tree.get())};
}

std::vector<WindowInfo> X11ContentProvider::windows() {
    auto ids = stackingBottomToTop();
    std::vector<WindowInfo> result;
    for (auto it = ids.rbegin(); it != ids.rend(); ++it)
        if (auto info = describe(*it)) result.push_back(std::move(*info));
    return result;
}

std::optional<WindowInfo> X11ContentProvider::describe(xcb_window_t window) {
    auto* c = x_->get();
    XcbReply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
    if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE || attributes->override_redirect) return std::nullopt;
    XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    if (!geometry) return std::nullopt;
    XcbReply<xcb_translate_coordinates_reply_t> origin(
        xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, window, x_->root(), 0, 0), nullptr));
    if (!origin) return std::nullopt;

    WindowInfo info;
    info.id = window;
    info.frame = Rect(origin->dst_x, origin->dst_y, geometry->width, geometry->height);
    info.title = x_->property(window, x_->atom("_NET_WM_NAME"), x_->atom("UTF8_STRING"));
    if (info.title.empty()) info.title = x_->property(window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING);
    std::string wmClass = x_->property(window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    // WM_CLASS holds instance\0class\0; the class is the application's name.
    if (auto nul = wmClass.find('\0'); nul != std::string::npos) info.applicationName = wmClass.substr(nul + 1).c_str();
    std::string pid = x_->property(window, x_->atom("_NET_WM_PID"), XCB_ATOM_CARDINAL);
    if (pid.size() >= 4) {
        uint32_t value = 0;
        std::memcpy(&value, pid.data(), 4);
        info.processID = static_cast<int>(value);
    }
    return info;
}

}  // namespace halvane
