#include "support/PulseAudioFixture.h"

#include "support/MediaProbe.h"

#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace halvane::test {

PulseAudioFixture::PulseAudioFixture(int sineFrequency) {
    if (const char* previous = std::getenv("PULSE_SERVER")) {
        hadPreviousServer_ = true;
        previousServer_ = previous;
    }
    root_ = makeScratchDirectory("halvane-pulse");
    std::filesystem::create_directories(root_ / "run");
    std::filesystem::create_directories(root_ / "home");
    chmod((root_ / "run").c_str(), 0700);
    server_ = "unix:" + (root_ / "run" / "pulse" / "native").string();

    int status = 0;
    runCommand(environment() + " pulseaudio -D -n --exit-idle-time=-1 --load=module-native-protocol-unix 2>&1", &status);
    if (status != 0) throw std::runtime_error("pulseaudio did not start");
    setenv("PULSE_SERVER", server_.c_str(), 1);
    pactl(std::string("load-module module-null-sink sink_name=") + sinkName + " rate=48000");
    pactl(std::string("set-default-sink ") + sinkName);
    pactl(std::string("load-module module-sine-source source_name=") + microphoneName + " rate=48000 frequency=" +
          std::to_string(sineFrequency));
    if (pactl("list short sinks").find(sinkName) == std::string::npos) throw std::runtime_error("pulseaudio has no test sink");
}

PulseAudioFixture::~PulseAudioFixture() {
    kill();
    if (hadPreviousServer_) setenv("PULSE_SERVER", previousServer_.c_str(), 1);
    else unsetenv("PULSE_SERVER");
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

std::string PulseAudioFixture::environment() const {
    return "XDG_RUNTIME_DIR='" + (root_ / "run").string() + "' HOME='" + (root_ / "home").string() + "' PULSE_SERVER='" + server_ + "'";
}

std::string PulseAudioFixture::pactl(const std::string& arguments) const {
    return runCommand(environment() + " pactl " + arguments + " 2>/dev/null");
}

void PulseAudioFixture::playTone(double frequency, double seconds) const {
    std::string file = (root_ / ("tone-" + std::to_string(static_cast<int>(frequency)) + ".wav")).string();
    runCommand("ffmpeg -v error -y -f lavfi -i 'sine=frequency=" + std::to_string(frequency) + ":sample_rate=48000:duration=" +
               std::to_string(seconds) + "' -ac 2 '" + file + "'");
    runCommand(environment() + " paplay '" + file + "' >/dev/null 2>&1 &");
}

void PulseAudioFixture::kill() {
    std::ifstream pidFile(root_ / "run" / "pulse" / "pid");
    pid_t pid = 0;
    if (!(pidFile >> pid) || pid <= 0) return;
    ::kill(pid, SIGTERM);
    for (int i = 0; i < 200 && ::kill(pid, 0) == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (::kill(pid, 0) == 0) ::kill(pid, SIGKILL);
    std::error_code ignored;
    std::filesystem::remove(root_ / "run" / "pulse" / "pid", ignored);
}

}  // namespace halvane::test
