#include "support/RunProgram.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace halvane::test {

namespace {

// An unlinked temporary file: output of any size lands there without a reader thread.
int anonymousFile() {
    char pattern[] = "/tmp/halvane-output-XXXXXX";
    int fd = mkstemp(pattern);
    if (fd < 0) throw std::runtime_error("could not make a temporary file");
    unlink(pattern);
    return fd;
}

std::string readAll(int fd) {
    std::string text;
    lseek(fd, 0, SEEK_SET);
    char buf[65536];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    close(fd);
    return text;
}

}  // namespace

ProgramResult runProgram(const std::vector<std::string>& argv, const std::map<std::string, std::string>& environment) {
    if (argv.empty()) throw std::runtime_error("no program given");
    int outFd = anonymousFile();
    int errFd = anonymousFile();
    pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        dup2(outFd, STDOUT_FILENO);
        dup2(errFd, STDERR_FILENO);
        int devNull = open("/dev/null", O_RDONLY);
        if (devNull >= 0) dup2(devNull, STDIN_FILENO);
        for (const auto& [key, value] : environment) setenv(key.c_str(), value.c_str(), 1);
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    ProgramResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = readAll(outFd);
    result.err = readAll(errFd);
    return result;
}

}  // namespace halvane::test
