#include "support/TestWindow.h"

#include <cstdlib>
#include <stdexcept>

namespace halvane::test {

TestWindow::TestWindow(const std::string& displayName, int x, int y, int width, int height, uint32_t rgb,
                       const std::string& title) {
    connection_ = xcb_connect(displayName.c_str(), nullptr);
    if (xcb_connection_has_error(connection_)) {
        xcb_disconnect(connection_);
        throw std::runtime_error("cannot connect to " + displayName);
    }
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
    window_ = xcb_generate_id(connection_);
    uint32_t values[] = {rgb, XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_BUTTON_PRESS};
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen->root, static_cast<int16_t>(x), static_cast<int16_t>(y),
                      static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        static_cast<uint32_t>(title.size()), title.data());
    xcb_map_window(connection_, window_);
    sync();
}

TestWindow::~TestWindow() {
    xcb_destroy_window(connection_, window_);
    xcb_flush(connection_);
    xcb_disconnect(connection_);
}

void TestWindow::fill(uint32_t rgb) {
    xcb_change_window_attributes(connection_, window_, XCB_CW_BACK_PIXEL, &rgb);
    xcb_clear_area(connection_, 0, window_, 0, 0, 0, 0);
    sync();
}

void TestWindow::raise() {
    uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(connection_, window_, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    sync();
}

void TestWindow::move(int x, int y) {
    uint32_t position[] = {static_cast<uint32_t>(x), static_cast<uint32_t>(y)};
    xcb_configure_window(connection_, window_, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, position);
    sync();
}

void TestWindow::sync() {
    // A round trip: every request before it has been carried out when the reply comes.
    free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

}  // namespace halvane::test
