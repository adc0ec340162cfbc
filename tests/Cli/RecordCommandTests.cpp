#include "support/MediaProbe.h"
#include "support/TestWindow.h"
#include "support/XvfbFixture.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

using namespace halvane::test;

namespace {

namespace fs = std::filesystem;

int runCli(const std::string& arguments, std::string* output = nullptr) {
    int status = 0;
    std::string out = runCommand(std::string(HALVANE_CLI) + " " + arguments + " 2>/dev/null", &status);
    if (output) *output = out;
    return status;
}

// Starts `halvane-cli record` in the background with DISPLAY set; its pid.
pid_t startRecording(const std::string& display, const std::vector<std::string>& arguments) {
    pid_t pid = fork();
    if (pid == 0) {
        setenv("DISPLAY", display.c_str(), 1);
        std::vector<char*> argv{const_cast<char*>(HALVANE_CLI), const_cast<char*>("record")};
        for (const auto& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(HALVANE_CLI, argv.data());
        _exit(127);
    }
    return pid;
}

int waitForExit(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(RecordCommand, helpAndUsageErrors) {
    std::string help;
    EXPECT_EQ(runCli("record --help", &help), 0);
    EXPECT_NE(help.find("--system-audio"), std::string::npos);
    EXPECT_EQ(runCli("record"), 2);
    EXPECT_EQ(runCli("record -o /tmp/x.halvane --area 1,2,3"), 2);
    EXPECT_EQ(runCli("record -o /tmp/x.halvane --display 0 --window 5"), 2);
    EXPECT_EQ(runCli("record -o /tmp/x.halvane --fps 0"), 2);
    EXPECT_EQ(runCli("record -o /tmp/x.halvane --bogus"), 2);
}

TEST(RecordCommand, unusableTargetsAndServersFailWithoutLeavingAPackage) {
    fs::path dir = makeScratchDirectory("halvane-record-cli");
   
    std::string command = "DISPLAY=:999 " + std::string(HALVANE_CLI) + " record -o " + (dir / "a.halvane").string() + " --duration 1 2>&1";
    int status = 0;
    std::string message = runCommand(command, &status);
    EXPECT_EQ(status, 1);
    EXPECT_NE(message.find(":999"), std::string::npos) << message;
    EXPECT_FALSE(fs::exists(dir / "a.halvane"));
    fs::create_directory(dir / "taken.halvane");
    EXPECT_EQ(runCli("record -o " + (dir / "taken.halvane").string() + " --duration 1"), 1);
    fs::remove_all(dir);
}

TEST(RecordCommand, recordsPausesOnSigusr1AndStopsOnSigint) {
    XvfbFixture xvfb(800, 600);
    TestWindow window(xvfb.displayName(), 0, 0, 800, 600, 0x808080, "CLI take");
    fs::path dir = makeScratchDirectory("halvane-record-cli");
    fs::path package = dir / "take.halvane";
    pid_t pid = startRecording(xvfb.displayName(), {"-o", package.string(), "--fps", "15", "--area", "0,0,400,300"});
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_FALSE(fs::exists(package / "meta.json"));  // never half-written under its name
    kill(pid, SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    kill(pid, SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    kill(pid, SIGINT);
    ASSERT_EQ(waitForExit(pid), 0);

    std::string info;
    ASSERT_EQ(runCli("info " + package.string() + " --json", &info), 0);
    auto j = nlohmann::json::parse(info);
    EXPECT_EQ(j["meta"]["mode"], "area");
    EXPECT_EQ(j["meta"]["pixelWidth"], 400);
    EXPECT_EQ(j["meta"]["fps"], 15.0);
    double duration = j["meta"]["duration"];
    // About 3.2 s of wall time less the 1 s pause and the start-up of the process; with the pause
    // left in it would be over 3 s.
    EXPECT_GT(duration, 0.6);
    EXPECT_LT(duration, 2.6);
    auto times = videoFrameTimes(package / "screen.mov");
    ASSERT_FALSE(times.empty());
    EXPECT_NEAR(times.back(), duration, 0.1);
    fs::remove_all(dir);
}

TEST(RecordCommand, aDurationEndsTheTake) {
    XvfbFixture xvfb(640, 480);
    fs::path dir = makeScratchDirectory("halvane-record-cli");
    fs::path package = dir / "timed.halvane";
    pid_t pid = startRecording(xvfb.displayName(), {"-o", package.string(), "--duration", "1.5", "--fps", "10"});
    ASSERT_EQ(waitForExit(pid), 0);
    std::string info;
    ASSERT_EQ(runCli("info " + package.string() + " --json", &info), 0);
    auto j = nlohmann::json::parse(info);
    EXPECT_NEAR(j["meta"]["duration"].get<double>(), 1.5, 0.15);
    EXPECT_EQ(j["meta"]["mode"], "display");
    EXPECT_EQ(j["meta"]["pixelWidth"], 640);
    fs::remove_all(dir);
}
