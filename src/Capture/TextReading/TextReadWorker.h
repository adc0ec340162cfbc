#pragma once

#include "Capture/TextReading/TextRecognizer.h"
#include "Support/HalvaneError.h"

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

class QImage;

namespace halvane {

// Reads text through a worker process: the same executable started with the worker flag and the
// model folder, which loads the models at once and then waits for one request. Keeping the models
// out of the application keeps its memory small, and one warm worker is held ready so that the
// next read skips the load. The pixels cross in a file of the job's folder; the pipes carry only
// a path and one reply line.
class TextReadWorker {
public:
    static constexpr const char* flag = "--halvane-text-read-worker";
    static constexpr const char* jobsFolderName = "Halvane Text Reads";
    static constexpr const char* pixelsFileName = "grab.raw";
    static constexpr const char* requestFileName = "request.json";
    static constexpr std::uint32_t bitmapInfo = 8194;  // premultiplied alpha first, 32-bit little-endian: BGRA

    // The content of "request.json".
    struct Request {
        std::string name = pixelsFileName;
        int width = 0;
        int height = 0;
        int bitsPerComponent = 8;
        int bitsPerPixel = 32;
        int bytesPerRow = 0;
        std::uint32_t bitmapInfo = TextReadWorker::bitmapInfo;
        std::optional<std::string> colorProfile;  // ICC bytes, Base64 in JSON
        friend bool operator==(const Request&, const Request&) = default;
    };

    // The one line a worker writes on its standard output. The fragments go along so that a
    // caller can show where the text was.
    struct Reply {
        std::optional<std::string> text;
        std::optional<std::string> error;
        std::optional<std::vector<TextRecognizer::Fragment>> fragments;
        friend bool operator==(const Reply&, const Reply&) = default;
    };

    class WorkerError : public HalvaneError {
    public:
        enum class Kind { failed, timedOut };
        static WorkerError failed(const std::string& message);
        static WorkerError timedOut();
        Kind kind() const { return kind_; }

    private:
        WorkerError(Kind kind, const std::string& description) : HalvaneError(description), kind_(kind) {}
        Kind kind_;
    };

    explicit TextReadWorker(std::filesystem::path executable = currentExecutable(),
                            std::filesystem::path jobsRoot = std::filesystem::temp_directory_path() / jobsFolderName);
    ~TextReadWorker();
    TextReadWorker(const TextReadWorker&) = delete;
    TextReadWorker& operator=(const TextReadWorker&) = delete;

    // Starts a worker for the folder unless a live one for it is waiting; it lives `idleLifetime`.
    void prepare(const std::filesystem::path& modelDirectory);
    // Reads with the prepared worker when it suits, else with a new one; leaves a warm one behind.
    // Throws WorkerError.
    std::string read(const QImage& image, const std::filesystem::path& modelDirectory);
    // The same, with the fragments the text was assembled from.
    Reply readReply(const QImage& image, const std::filesystem::path& modelDirectory);
    // Ends the prepared worker and its idle timer.
    void cancelPending();

    // The process id of the waiting worker, if there is one.
    std::optional<pid_t> preparedProcessId() const;
    const std::filesystem::path& jobsRoot() const { return jobsRoot_; }

    std::chrono::milliseconds timeout{30000};
    std::chrono::milliseconds idleLifetime{60000};
    std::chrono::seconds jobExpiry{86400};

    // The worker process: never returns.
    [[noreturn]] static void runRequestedInvocationAndExit(const std::string& modelDirectory);
    static std::filesystem::path currentExecutable();

private:
    class Job;

    std::unique_ptr<Job> start(const std::filesystem::path& modelDirectory);
    bool isUsable(const std::filesystem::path& modelDirectory) const;
    void cancelPendingLocked(std::unique_lock<std::mutex>& lock);
    void startIdleTimer(std::unique_lock<std::mutex>& lock);
    void stopIdleTimer(std::unique_lock<std::mutex>& lock);

    std::filesystem::path executable_;
    std::filesystem::path jobsRoot_;
    mutable std::mutex mutex_;
    std::unique_ptr<Job> prepared_;
    std::jthread idleTimer_;
    std::condition_variable_any idleWake_;
};

}  // namespace halvane
