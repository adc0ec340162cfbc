#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <string>

namespace halvane::test {

// A plain top-level X window filled with one colour, on its own connection, for tests that need
// something to click in, to focus or to flash.
class TestWindow {
public:
    TestWindow(const std::string& displayName, int x, int y, int width, int height, uint32_t rgb,
               const std::string& title = "Halvane test window");
    ~TestWindow();
    TestWindow(const TestWindow&) = delete;
    TestWindow& operator=(const TestWindow&) = delete;

    uint32_t id() const { return window_; }
    // Repaints the whole window in `rgb` and waits until the server has done it.
    void fill(uint32_t rgb);
    void raise();
    void move(int x, int y);

private:
    void sync();

    xcb_connection_t* connection_ = nullptr;
    xcb_window_t window_ = 0;
};

}  // namespace halvane::test
