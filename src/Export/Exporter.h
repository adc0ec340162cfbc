#pragma once

#include "Export/ExportError.h"
#include "Media/MovieWriter.h"
#include "Model/EditSettings.h"
#include "Support/Geometry.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace halvane {

class Project;
class ExportFrames;
class ExportAudio;

enum class ExportFormat { h264, hevc, gif };
constexpr auto enumNames(ExportFormat) { return std::array<std::string_view, 3>{"h264", "hevc", "gif"}; }

struct ExportOptions {
    ExportFormat format = ExportFormat::h264;
    double fps = 60;
    Size canvasSize;  // whole even pixels
    // The x264/x265 speed preset, chosen so an export keeps up with real time on this machine.
    std::string preset = MovieWriter::exportPreset(std::thread::hardware_concurrency());
    friend bool operator==(const ExportOptions&, const ExportOptions&) = default;
};

// Turns one take and a snapshot of its edit into one MP4 or GIF file. The picture is composed
// frame by frame in output time while the previous frames are encoded; the sound is made in output
// time on its own thread. The file exists at the destination only after success.
class Exporter {
public:
    Exporter(const Project& project, EditSettings settings, ExportOptions options);
    ~Exporter();

    // Runs the whole export on the calling thread (and two helpers). `onProgress` gets 0 ... 1 from
    // the export's threads. Throws ExportError; the destination is then gone.
    void run(const std::filesystem::path& destination, const std::function<void(double)>& onProgress = {});

    // May be called from any thread, or from a signal-watching thread, at any time.
    void cancel() { cancelled_.store(true); }
    bool isCancelled() const { return cancelled_.load(); }

    // Frames a movie export writes: times 0, 1/fps, … up to max(end, 0.01) + 0.0001.
    static int64_t movieFrameCount(double outputDuration, double fps);
    // Frames of a GIF: floor(end × fps) + 1, at least 1.
    static int64_t gifFrameCount(double outputDuration, double fps);

private:
    void runMovie(const std::filesystem::path& destination, ExportFrames& frames,
                  const std::function<void(double)>& onProgress);
    void runGif(const std::filesystem::path& destination, ExportFrames& frames,
                const std::function<void(double)>& onProgress);
    void pumpAudio(ExportAudio& audio, MovieWriter& writer);
    // Keeps the first error of any thread.
    void record(std::exception_ptr error);
    bool failed();
    void throwIfCancelled() const;

    const Project& project_;
    EditSettings settings_;
    ExportOptions options_;
    std::atomic<bool> cancelled_{false};
    std::mutex errorLock_;
    std::exception_ptr firstError_;
};

}  // namespace halvane
