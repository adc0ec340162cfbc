#pragma once

#include "support/ChildProcess.h"

#include <string>

namespace halvane::test {

// A private X server (Xvfb, 24-bit, -noreset so the pointer stays put between xdotool calls) on
// the first free display number from 90 on. Gone with the object.
class XvfbFixture {
public:
    // Throws std::runtime_error when no server comes up within ten seconds.
    explicit XvfbFixture(int width = 1920, int height = 1080);
    ~XvfbFixture();

    // ":N"
    const std::string& displayName() const { return displayName_; }
    // Sets DISPLAY for this process and the programs it starts.
    void makeDefault() const;
    // Runs xdotool on this display; returns its exit status.
    int xdotool(const std::string& arguments) const;
    // Kills the server, as a crash would.
    void kill();

private:
    std::string displayName_;
    ChildProcess server_;
};

}  // namespace halvane::test
