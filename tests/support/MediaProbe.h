#pragma once

// Looks at media files from outside the program, through the ffprobe and ffmpeg tools, so a test
// of a writer never trusts the writer's own reading of its file.

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace halvane::test {

// Runs a shell command; gives its standard output. `status` receives the exit status.
std::string runCommand(const std::string& command, int* status = nullptr);

// `ffprobe -show_streams -show_format -count_frames` as JSON; an empty object when it fails.
nlohmann::json probeMedia(const std::filesystem::path& file);

// The first stream of the type ("video", "audio") in a probe, or null.
const nlohmann::json* probeStream(const nlohmann::json& probe, const std::string& type);

// Decodes the first audio stream to mono 32-bit float at `sampleRate`.
std::vector<float> decodeAudioMono(const std::filesystem::path& file, int sampleRate);

// Mean luma (0-255) of every decoded video frame, in order, at the file's own frame times.
std::vector<double> frameBrightness(const std::filesystem::path& file);

// Presentation times of the decoded video frames, in seconds.
std::vector<double> videoFrameTimes(const std::filesystem::path& file);

// A fresh, empty directory for one test; removed by the caller (or left in /tmp on a crash).
std::filesystem::path makeScratchDirectory(const std::string& prefix);

}  // namespace halvane::test
