#include "Platform/X11InputEventSource.h"

#include "Model/RecordedEvents.h"
#include "Platform/KeyLabel.h"
#include "Support/Clock.h"

#include <xcb/xinput.h>
#include <xkbcommon/xkbcommon-x11.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace halvane {

namespace {

// X numbers buttons 1 left, 2 middle, 3 right, 4-7 wheel steps, 8 and up side buttons.
std::optional<int> recordedButton(uint32_t xButton) {
    switch (xButton) {
    case 1: return 0;
    case 3: return 1;
    case 2: return 2;
    case 4: case 5: case 6: case 7: return std::nullopt;
    default: return static_cast<int>(xButton) - 5;
    }
}

}  // namespace

X11InputEventSource::X11InputEventSource(std::string displayName) : displayName_(std::move(displayName)) {}

X11InputEventSource::~X11InputEventSource() {
    stop();
}

bool X11InputEventSource::start(std::function<void(const InputEvent&)> onEvent) {
    if (running_) return true;
    try {
        x_ = std::make_unique<X11Connection>(displayName_);
    } catch (...) {
        return false;
    }
    if (!selectRawEvents() || !loadKeymap()) {
        releaseKeymap();
        x_.reset();
        return false;
    }
    onEvent_ = std::move(onEvent);
    wakeFd_ = eventfd(0, EFD_CLOEXEC);
    running_ = true;
    reader_ = std::thread([this] { run(); });
    return true;
}

void X11InputEventSource::stop() {
    if (!running_.exchange(false)) return;
    uint64_t one = 1;
    (void)!write(wakeFd_, &one, sizeof one);
    reader_.join();
    close(wakeFd_);
    wakeFd_ = -1;
    releaseKeymap();
    x_.reset();
}

bool X11InputEventSource::selectRawEvents() {
    auto* c = x_->get();
    const auto* extension = xcb_get_extension_data(c, &xcb_input_id);
    if (!extension || !extension->present) return false;
    xiOpcode_ = extension->major_opcode;
    XcbReply<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    if (!version || (version->major_version < 2)) return false;

    struct {
        xcb_input_event_mask_t head;
        uint32_t mask;
    } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
                XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE |
                    XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE};
    auto cookie = xcb_input_xi_select_events_checked(c, x_->root(), 1, &selection.head);
    if (auto* error = xcb_request_check(c, cookie)) {
        free(error);
        return false;
    }
    return true;
}

bool X11InputEventSource::loadKeymap() {
    auto* c = x_->get();
    if (!xkb_x11_setup_xkb_extension(c, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr))
        return false;
    int32_t device = xkb_x11_get_core_keyboard_device_id(c);
    if (device < 0) return false;
    xkbContext_ = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (!xkbContext_) return false;
    keymap_ = xkb_x11_keymap_new_from_device(xkbContext_, c, device, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap_) return false;
    keyState_ = xkb_x11_state_new_from_device(keymap_, c, device);
    return keyState_ != nullptr;
}

void X11InputEventSource::releaseKeymap() {
    if (keyState_) xkb_state_unref(keyState_);
    if (keymap_) xkb_keymap_unref(keymap_);
    if (xkbContext_) xkb_context_unref(xkbContext_);
    keyState_ = nullptr;
    keymap_ = nullptr;
    xkbContext_ = nullptr;
}

void X11InputEventSource::run() {
    auto* c = x_->get();
    pollfd fds[2] = {{x_->fileDescriptor(), POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    while (running_ && !x_->isBroken()) {
        while (auto* event = xcb_poll_for_event(c)) {
            if ((event->response_type & 0x7F) == XCB_GE_GENERIC)
                handle(reinterpret_cast<const xcb_ge_generic_event_t*>(event));
            free(event);
        }
        if (poll(fds, 2, 500) < 0 && errno != EINTR) break;
    }
}

void X11InputEventSource::handle(const xcb_ge_generic_event_t* event) {
    if (event->extension != xiOpcode_) return;
    double now = systemUptime();
    const auto* raw = reinterpret_cast<const xcb_input_raw_button_press_event_t*>(event);
    switch (event->event_type) {
    case XCB_INPUT_RAW_BUTTON_PRESS:
    case XCB_INPUT_RAW_BUTTON_RELEASE: {
        auto button = recordedButton(raw->detail);
        if (!button) return;
        InputEvent e;
        e.kind = event->event_type == XCB_INPUT_RAW_BUTTON_PRESS ? InputEvent::Kind::buttonDown : InputEvent::Kind::buttonUp;
        e.button = *button;
        e.modifiers = heldModifiers();
        e.hostTime = now;
        onEvent_(e);
        return;
    }
    case XCB_INPUT_RAW_KEY_PRESS: handleKey(raw->detail, true, now); return;
    case XCB_INPUT_RAW_KEY_RELEASE: handleKey(raw->detail, false, now); return;
    default: return;
    }
}

void X11InputEventSource::handleKey(uint32_t keycode, bool down, double hostTime) {
    if (!down) {
        xkb_state_update_key(keyState_, keycode, XKB_KEY_UP);
        return;
    }
    // The label comes from the key's first level, as if no modifier were held.
    const xkb_keysym_t* syms = nullptr;
    xkb_layout_index_t layout = xkb_state_key_get_layout(keyState_, keycode);
    if (layout == XKB_LAYOUT_INVALID) layout = 0;
    int count = xkb_keymap_key_get_syms_by_level(keymap_, keycode, layout, 0, &syms);
    int modifiers = heldModifiers();
    xkb_state_update_key(keyState_, keycode, XKB_KEY_DOWN);
    if (count < 1) return;
    auto label = keyLabel(syms[0]);
    if (!label) return;
    InputEvent e;
    e.kind = InputEvent::Kind::keyDown;
    e.keyLabel = std::move(*label);
    e.modifiers = modifiers;
    e.hostTime = hostTime;
    onEvent_(e);
}

int X11InputEventSource::heldModifiers() const {
    auto active = [this](const char* name) {
        return xkb_state_mod_name_is_active(keyState_, name, XKB_STATE_MODS_EFFECTIVE) > 0;
    };
    int bits = 0;
    if (active(XKB_MOD_NAME_CTRL)) bits |= modifierControl;
    if (active(XKB_MOD_NAME_ALT)) bits |= modifierOption;
    if (active(XKB_MOD_NAME_SHIFT)) bits |= modifierShift;
    if (active(XKB_MOD_NAME_LOGO)) bits |= modifierCommand;
    return bits;
}

}  // namespace halvane
