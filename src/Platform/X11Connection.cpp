#include "Platform/X11Connection.h"

#include "Support/HalvaneError.h"

#include <cstdlib>
#include <cstring>

namespace halvane {

X11Connection::X11Connection(const std::string& displayName) {
    const char* env = std::getenv("DISPLAY");
    displayName_ = !displayName.empty() ? displayName : (env ? env : "");
    int screenNumber = 0;
    connection_ = xcb_connect(displayName_.empty() ? nullptr : displayName_.c_str(), &screenNumber);
    if (xcb_connection_has_error(connection_)) {
        xcb_disconnect(connection_);
        connection_ = nullptr;
        throw HalvaneError("Cannot connect to the X server \"" + displayName_ + "\".", 1);
    }
    auto it = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int i = 0; i < screenNumber && it.rem; ++i) xcb_screen_next(&it);
    screen_ = it.data;
}

X11Connection::~X11Connection() {
    if (connection_) xcb_disconnect(connection_);
}

bool X11Connection::hasExtension(const char* name) const {
    auto cookie = xcb_query_extension(connection_, static_cast<uint16_t>(std::strlen(name)), name);
    XcbReply<xcb_query_extension_reply_t> reply(xcb_query_extension_reply(connection_, cookie, nullptr));
    return reply && reply->present;
}

xcb_atom_t X11Connection::atom(const char* name) const {
    auto cookie = xcb_intern_atom(connection_, 0, static_cast<uint16_t>(std::strlen(name)), name);
    XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, cookie, nullptr));
    return reply ? reply->atom : XCB_ATOM_NONE;
}

std::string X11Connection::property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) const {
    auto cookie = xcb_get_property(connection_, 0, window, property, type, 0, 1 << 20);
    XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection_, cookie, nullptr));
    if (!reply || reply->type == XCB_ATOM_NONE) return {};
    auto length = xcb_get_property_value_length(reply.get());
    auto* bytes = static_cast<const char*>(xcb_get_property_value(reply.get()));
    return std::string(bytes, bytes + length);
}

}  // namespace halvane
