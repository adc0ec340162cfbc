#include "Platform/X11CursorImageSource.h"

#include <xcb/xfixes.h>

namespace halvane {

X11CursorImageSource::X11CursorImageSource(std::shared_ptr<X11Connection> connection) : x_(std::move(connection)) {
    auto* c = x_->get();
    const auto* extension = xcb_get_extension_data(c, &xcb_xfixes_id);
    if (!extension || !extension->present) return;
    XcbReply<xcb_xfixes_query_version_reply_t> version(
        xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 4, 0), nullptr));
    available_ = version && version->major_version >= 2;
}

std::optional<CursorImage> X11CursorImageSource::current() {
    if (!available_ || x_->isBroken()) return std::nullopt;
    auto* c = x_->get();
    XcbReply<xcb_xfixes_get_cursor_image_and_name_reply_t> reply(
        xcb_xfixes_get_cursor_image_and_name_reply(c, xcb_xfixes_get_cursor_image_and_name(c), nullptr));
    if (!reply) return std::nullopt;
    CursorImage image;
    image.width = reply->width;
    image.height = reply->height;
    image.serial = reply->cursor_serial;
    const char* name = xcb_xfixes_get_cursor_image_and_name_name(reply.get());
    image.name.assign(name, static_cast<size_t>(xcb_xfixes_get_cursor_image_and_name_name_length(reply.get())));
    const uint32_t* pixels = xcb_xfixes_get_cursor_image_and_name_cursor_image(reply.get());
    image.argb.assign(pixels, pixels + xcb_xfixes_get_cursor_image_and_name_cursor_image_length(reply.get()));
    return image;
}

}  // namespace halvane
