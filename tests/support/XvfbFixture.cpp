#include "support/XvfbFixture.h"

#include <xcb/xcb.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace halvane::test {

namespace {

bool displayTaken(int n) {
    return std::filesystem::exists("/tmp/.X" + std::to_string(n) + "-lock") ||
           std::filesystem::exists("/tmp/.X11-unix/X" + std::to_string(n));
}

bool accepts(const std::string& name) {
    xcb_connection_t* c = xcb_connect(name.c_str(), nullptr);
    bool ok = !xcb_connection_has_error(c);
    xcb_disconnect(c);
    return ok;
}

}  // namespace

XvfbFixture::XvfbFixture(int width, int height) {
    // Several test programs may run at once; a lost race on a number moves on to the next.
    for (int n = 90 + static_cast<int>(getpid() % 50); n < 400; ++n) {
        if (displayTaken(n)) continue;
        displayName_ = ":" + std::to_string(n);
        server_ = ChildProcess({"Xvfb", displayName_, "-screen", "0", std::to_string(width) + "x" + std::to_string(height) + "x24",
                                "-nolisten", "tcp", "-noreset"});
        for (int attempt = 0; attempt < 200; ++attempt) {
            if (!server_.isRunning()) break;
            if (accepts(displayName_)) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        server_.terminate();
    }
    throw std::runtime_error("no Xvfb server could be started");
}

XvfbFixture::~XvfbFixture() = default;

void XvfbFixture::makeDefault() const {
    setenv("DISPLAY", displayName_.c_str(), 1);
}

int XvfbFixture::xdotool(const std::string& arguments) const {
    std::string command = "DISPLAY=" + displayName_ + " xdotool " + arguments + " >/dev/null 2>&1";
    return std::system(command.c_str());
}

void XvfbFixture::kill() {
    server_.terminate(9, 5);
}

}  // namespace halvane::test
