#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace halvane::test {

// A program started by a test fixture, ended (SIGTERM, then SIGKILL) when the object goes.
class ChildProcess {
public:
    ChildProcess() = default;
    // Throws std::runtime_error when the program can't be started. Output goes to /dev/null.
    explicit ChildProcess(const std::vector<std::string>& argv);
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;

    pid_t pid() const { return pid_; }
    bool isRunning();
    // Sends `signal` and waits up to `seconds` for the exit; SIGKILL after that.
    void terminate(int signal = 15, double seconds = 5);

private:
    pid_t pid_ = -1;
};

}  // namespace halvane::test
