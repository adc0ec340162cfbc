#pragma once

#include <filesystem>
#include <string>

namespace halvane::test {

// A private PulseAudio daemon with its own runtime directory and home, a null sink made the
// default (so its ".monitor" is the system sound) and a sine source as a fake microphone.
// PULSE_SERVER is set for this process while the object lives.
class PulseAudioFixture {
public:
    static constexpr const char* sinkName = "halvane_test_sink";
    static constexpr const char* microphoneName = "halvane_test_sine";

    // Throws std::runtime_error when the daemon doesn't come up.
    explicit PulseAudioFixture(int sineFrequency = 440);
    ~PulseAudioFixture();

    // Runs pactl against this daemon; gives its standard output.
    std::string pactl(const std::string& arguments) const;
    // Plays a tone into the default sink for `seconds` (paplay of a generated file), in the background.
    void playTone(double frequency, double seconds) const;
    // Ends the daemon, as a crash would.
    void kill();
    const std::string& serverAddress() const { return server_; }

private:
    std::string environment() const;

    std::filesystem::path root_;
    std::string server_;
    std::string previousServer_;
    bool hadPreviousServer_ = false;
};

}  // namespace halvane::test
