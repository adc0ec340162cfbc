#include "support/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace halvane::test {

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork failed for " + argv.front());
    if (pid_ == 0) {
        int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(null, 1);
        dup2(null, 2);
        setpgid(0, 0);
        execvp(args[0], args.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    terminate();
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept : pid_(other.pid_) {
    other.pid_ = -1;
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    if (this != &other) {
        terminate();
        pid_ = other.pid_;
        other.pid_ = -1;
    }
    return *this;
}

bool ChildProcess::isRunning() {
    if (pid_ <= 0) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return false;
    }
    return true;
}

void ChildProcess::terminate(int signal, double seconds) {
    if (pid_ <= 0) return;
    kill(pid_, signal);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

}  // namespace halvane::test
