#pragma once

#include <xcb/xcb.h>

#include <memory>
#include <string>

namespace halvane {

// One connection to the X server named by DISPLAY (or an explicit name). Each platform component
// that reads events opens its own, so a blocking reader never stalls another component's requests.
class X11Connection {
public:
    // Throws HalvaneError naming the display when no server answers.
    explicit X11Connection(const std::string& displayName = {});
    ~X11Connection();
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    xcb_connection_t* get() const { return connection_; }
    xcb_screen_t* screen() const { return screen_; }
    xcb_window_t root() const { return screen_->root; }
    int fileDescriptor() const { return xcb_get_file_descriptor(connection_); }
    const std::string& displayName() const { return displayName_; }

    // True once the server went away or the stream broke; every later request fails.
    bool isBroken() const { return xcb_connection_has_error(connection_) != 0; }
    bool hasExtension(const char* name) const;

    xcb_atom_t atom(const char* name) const;
    // The property as bytes, empty when the window has none.
    std::string property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) const;

private:
    xcb_connection_t* connection_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
    std::string displayName_;
};

// Frees an xcb reply when it leaves scope.
struct XcbFree {
    void operator()(void* p) const { free(p); }
};
template <class T>
using XcbReply = std::unique_ptr<T, XcbFree>;

}  // namespace halvane
