#pragma once

#include "Platform/InputEventSource.h"
#include "Platform/X11Connection.h"

#include <atomic>
#include <memory>
#include <thread>

struct xkb_context;
struct xkb_keymap;
struct xkb_state;

namespace halvane {

// XInput2 raw button and key events on the root window, read on a thread of its own over a private
// connection. Raw events carry no modifier state, so an xkb state follows every key instead.
class X11InputEventSource : public InputEventSource {
public:
    explicit X11InputEventSource(std::string displayName = {});
    ~X11InputEventSource() override;

    bool start(std::function<void(const InputEvent&)> onEvent) override;
    void stop() override;

private:
    bool selectRawEvents();
    bool loadKeymap();
    void run();
    void handle(const struct xcb_ge_generic_event_t* event);
    void handleKey(uint32_t keycode, bool down, double hostTime);
    int heldModifiers() const;
    void releaseKeymap();

    std::string displayName_;
    std::unique_ptr<X11Connection> x_;
    std::function<void(const InputEvent&)> onEvent_;
    uint8_t xiOpcode_ = 0;
    xkb_context* xkbContext_ = nullptr;
    xkb_keymap* keymap_ = nullptr;
    xkb_state* keyState_ = nullptr;
    int wakeFd_ = -1;
    std::atomic<bool> running_{false};
    std::thread reader_;
};

}  // namespace halvane
