#pragma once

#include <string>
#include <vector>

namespace halvane {

// The process entry: a worker start when launched with exactly one worker flag and its value,
// the application otherwise.
struct HalvaneMain {
    enum class Role { application, screenshotFreezeWorker, windowScreenshotWorker, textReadWorker };

    struct Dispatch {
        Role role = Role::application;
        std::string argument;  // the worker's third argument
        friend bool operator==(const Dispatch&, const Dispatch&) = default;
    };

    static Dispatch classify(const std::vector<std::string>& arguments);
    static int run(int argc, char** argv);
};

}  // namespace halvane
