#include "MediaProbe.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace halvane::test {

namespace {

std::string quoted(const std::filesystem::path& p) {
    std::string out = "'";
    for (char c : p.string()) {
        if (c == '\'') out += "'\\''";
        else out += c;
    }
    return out + "'";
}

std::string readAll(FILE* pipe) {
    std::string out;
    char buffer[65536];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    return out;
}

}  // namespace

std::string runCommand(const std::string& command, int* status) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) throw std::runtime_error("cannot run " + command);
    std::string out = readAll(pipe);
    int rc = pclose(pipe);
    if (status) *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    return out;
}

nlohmann::json probeMedia(const std::filesystem::path& file) {
    int status = 0;
    auto text = runCommand("ffprobe -v error -count_frames -show_streams -show_format -of json " +
                               quoted(file) + " 2>/dev/null",
                           &status);
    if (status != 0) return nlohmann::json::object();
    return nlohmann::json::parse(text, nullptr, false);
}

const nlohmann::json* probeStream(const nlohmann::json& probe, const std::string& type) {
    if (!probe.contains("streams")) return nullptr;
    for (const auto& s : probe["streams"])
        if (s.value("codec_type", "") == type) return &s;
    return nullptr;
}

std::vector<float> decodeAudioMono(const std::filesystem::path& file, int sampleRate) {
    auto bytes = runCommand("ffmpeg -v error -i " + quoted(file) + " -map 0:a:0 -ac 1 -ar " +
                            std::to_string(sampleRate) + " -f f32le - 2>/dev/null");
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

std::vector<double> frameBrightness(const std::filesystem::path& file) {
    // One 8 × 8 grey thumbnail per decoded frame, without frame-rate conversion.
    auto bytes = runCommand("ffmpeg -v error -i " + quoted(file) +
                            " -map 0:v:0 -vsync passthrough -vf scale=8:8 -pix_fmt gray -f rawvideo"
                            " - 2>/dev/null");
    std::vector<double> result;
    for (size_t i = 0; i + 64 <= bytes.size(); i += 64) {
        double sum = 0;
        for (size_t k = 0; k < 64; ++k) sum += static_cast<unsigned char>(bytes[i + k]);
        result.push_back(sum / 64);
    }
    return result;
}

std::vector<double> videoFrameTimes(const std::filesystem::path& file) {
    auto text = runCommand("ffprobe -v error -select_streams v:0 -show_entries frame=pts_time -of csv=p=0 " +
                           quoted(file) + " 2>/dev/null");
    std::vector<double> times;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line))
        if (!line.empty()) times.push_back(std::strtod(line.c_str(), nullptr));
    return times;
}

std::filesystem::path makeScratchDirectory(const std::string& prefix) {
    std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    return pattern;
}

}  // namespace halvane::test
