#include "Capture/TextReading/TextReadWorker.h"

#include "Capture/TextReading/PaddleTextReader.h"
#include "Support/AtomicFile.h"
#include "Support/Json.h"
#include "Support/Uuid.h"

#include <QByteArray>
#include <QColorSpace>
#include <QImage>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>


#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

extern char** environ;

namespace halvane {

namespace fs = std::filesystem;

namespace {

bool requestWaiting() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return ::poll(&input, 1, 0) > 0;
}

Json toJson(const TextReadWorker::Request& r) {
    Json j = Json::object();
    j["name"] = r.name;
    j["width"] = r.width;
    j["height"] = r.height;
    j["bitsPerComponent"] = r.bitsPerComponent;
    j["bitsPerPixel"] = r.bitsPerPixel;
    j["bytesPerRow"] = r.bytesPerRow;
    j["bitmapInfo"] = r.bitmapInfo;
    if (r.colorProfile)
        j["colorProfile"] = QByteArray::fromStdString(*r.colorProfile).toBase64().toStdString();
    return j;
}

// Strict: a worker can do nothing with a request that lacks a field.
TextReadWorker::Request requestFromJson(const Json& j) {
    JsonObjectReader reader(j);
    TextReadWorker::Request r;
    reader.required("name", r.name);
    reader.required("width", r.width);
    reader.required("height", r.height);
    reader.required("bitsPerComponent", r.bitsPerComponent);
    reader.required("bitsPerPixel", r.bitsPerPixel);
    reader.required("bytesPerRow", r.bytesPerRow);
    long long info = 0;
    reader.required("bitmapInfo", info);
    r.bitmapInfo = static_cast<std::uint32_t>(info);
    std::optional<std::string> profile;
    reader.optional("colorProfile", profile);
    if (profile) r.colorProfile = QByteArray::fromBase64(QByteArray::fromStdString(*profile)).toStdString();
    return r;
}

Json toJson(const TextReadWorker::Reply& r) {
    Json j = Json::object();
    putOptional(j, "text", r.text);
    putOptional(j, "error", r.error);
    putOptional(j, "fragments", r.fragments);
    return j;
}

TextReadWorker::Reply replyFromJson(const Json& j) {
    JsonObjectReader reader(j);
    TextReadWorker::Reply r;
    reader.lenient("text", r.text);
    reader.lenient("error", r.error);
    reader.lenient("fragments", r.fragments);
    return r;
}

void closeQuietly(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

// The job folders of reads lost to a crash: anything not touched for a day goes.
void removeExpired(const fs::path& root, std::chrono::seconds expiry) {
    std::error_code error;
    auto now = fs::file_time_type::clock::now();
    for (const auto& entry : fs::directory_iterator(root, error)) {
        auto modified = entry.last_write_time(error);
        if (!error && now - modified > expiry) fs::remove_all(entry.path(), error);
    }
}

// The worker's view of the request: the pixels mapped straight from the file.
class MappedImage {
public:
    explicit MappedImage(const fs::path& requestPath) {
        TextReadWorker::Request request = requestFromJson(parseJsonObject(readFile(requestPath)));
        if (request.width < 1 || request.height < 1 || request.bitsPerPixel != 32 ||
            request.bytesPerRow < request.width * 4 || request.name.find('/') != std::string::npos)
            throw HalvaneError("The request describes no image");
        fs::path pixels = requestPath.parent_path() / request.name;
        int fd = ::open(pixels.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) throw HalvaneError("Couldn't open " + pixels.string());
        struct stat info {};
        size_t needed = static_cast<size_t>(request.height) * static_cast<size_t>(request.bytesPerRow);
        if (::fstat(fd, &info) != 0 || static_cast<size_t>(info.st_size) < needed) {
            ::close(fd);
            throw HalvaneError("The pixels in " + pixels.string() + " are too few for the image");
        }
        length_ = needed;
        data_ = ::mmap(nullptr, length_, PROT_READ, MAP_PRIVATE, fd, 0);
        ::close(fd);
        if (data_ == MAP_FAILED) {
            data_ = nullptr;
            throw HalvaneError("Couldn't map " + pixels.string());
        }
        image_ = QImage(static_cast<const uchar*>(data_), request.width, request.height, request.bytesPerRow,
                        QImage::Format_ARGB32_Premultiplied);
        QColorSpace space = request.colorProfile
                                ? QColorSpace::fromIccProfile(QByteArray::fromStdString(*request.colorProfile))
                                : QColorSpace();
        image_.setColorSpace(space.isValid() ? space : QColorSpace(QColorSpace::SRgb));
    }
    ~MappedImage() {
        if (data_) ::munmap(data_, length_);
    }
    const QImage& image() const { return image_; }

private:
    void* data_ = nullptr;
    size_t length_ = 0;
    QImage image_;
};

[[noreturn]] void replyAndExit(const TextReadWorker::Reply& reply, int status) {
    std::string line = dumpJson(toJson(reply)) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
    // The model runtime's thread pools need no orderly shutdown in a process that is done.
    std::_Exit(status);
}

}  // namespace

// One worker process and its job folder, for exactly one read.
class TextReadWorker::Job {
public:
    Job(fs::path modelDirectory, pid_t process, fs::path directory, int requests, int replies)
        : modelDirectory(std::move(modelDirectory)), process(process), directory(std::move(directory)),
          requests(requests), replies(replies) {}
    ~Job() { cancel(); }

    bool isRunning() {
        if (exited_) return false;
        int status = 0;
        pid_t result = ::waitpid(process, &status, WNOHANG);
        if (result == process || (result < 0 && errno == ECHILD)) exited_ = true;
        return !exited_;
    }

    Reply read(const QImage& source, std::chrono::milliseconds timeout) {
        if (!isRunning()) throw WorkerError::failed("");
        QImage image = source.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        if (image.isNull()) throw WorkerError::failed("The image couldn't be prepared");
        Request request;
        request.width = image.width();
        request.height = image.height();
        request.bytesPerRow = image.width() * 4;
        if (image.colorSpace().isValid()) request.colorProfile = image.colorSpace().iccProfile().toStdString();
        std::string pixels;
        pixels.reserve(static_cast<size_t>(request.bytesPerRow) * request.height);
        for (int y = 0; y < image.height(); ++y)
            pixels.append(reinterpret_cast<const char*>(image.constScanLine(y)), static_cast<size_t>(request.bytesPerRow));
        writeFileAtomically(directory / pixelsFileName, pixels);
        fs::path requestPath = directory / requestFileName;
        writeFileAtomically(requestPath, dumpJson(toJson(request)));

        if (!writeAll(requests, requestPath.string() + "\n")) throw WorkerError::failed("");
        closeQuietly(requests);
        return awaitReply(timeout);
    }

    // Once: ends the process and removes the job folder.
    void cancel() {
        if (finished) return;
        finished = true;
        closeQuietly(requests);
        if (isRunning()) {
            ::kill(process, SIGTERM);
            for (int i = 0; i < 100 && isRunning(); ++i) ::usleep(10000);
            if (isRunning()) {
                ::kill(process, SIGKILL);
                ::waitpid(process, nullptr, 0);
                exited_ = true;
            }
        }
        closeQuietly(replies);
        std::error_code ignored;
        fs::remove_all(directory, ignored);
    }

    fs::path modelDirectory;
    pid_t process;
    fs::path directory;
    int requests;
    int replies;
    bool finished = false;

private:
    Reply awaitReply(std::chrono::milliseconds timeout) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        std::string buffer;
        while (true) {
            for (size_t end; (end = buffer.find('\n')) != std::string::npos;) {
                std::string line = buffer.substr(0, end);
                buffer.erase(0, end + 1);
                if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
                Reply reply;
                try {
                    reply = replyFromJson(parseJsonObject(line));
                } catch (const std::exception&) {
                    throw WorkerError::failed("");
                }
                if (reply.error && !reply.error->empty()) throw WorkerError::failed(*reply.error);
                if (!reply.text) reply.text = "";
                reply.error.reset();
                return reply;
            }
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) throw WorkerError::timedOut();
            pollfd descriptor{replies, POLLIN, 0};
            int ready = ::poll(&descriptor, 1, static_cast<int>(std::min<long long>(left.count(), 1000)));
            if (ready < 0 && errno == EINTR) continue;
            if (ready <= 0) continue;
            char chunk[4096];
            ssize_t n = ::read(replies, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) throw WorkerError::failed("");
            buffer.append(chunk, static_cast<size_t>(n));
        }
    }

    bool exited_ = false;
};

TextReadWorker::WorkerError TextReadWorker::WorkerError::failed(const std::string& message) {
    return {Kind::failed, message.empty() ? "The text reader stopped" : message};
}

TextReadWorker::WorkerError TextReadWorker::WorkerError::timedOut() {
    return {Kind::timedOut, "The text reader took too long"};
}

TextReadWorker::TextReadWorker(fs::path executable, fs::path jobsRoot)
    : executable_(std::move(executable)), jobsRoot_(std::move(jobsRoot)) {}

TextReadWorker::~TextReadWorker() { cancelPending(); }

fs::path TextReadWorker::currentExecutable() {
    std::error_code error;
    fs::path path = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path() : path;
}

std::unique_ptr<TextReadWorker::Job> TextReadWorker::start(const fs::path& modelDirectory) {
    std::error_code error;
    fs::create_directories(jobsRoot_, error);
    removeExpired(jobsRoot_, jobExpiry);
    fs::path directory = jobsRoot_ / Uuid::random().string();
    if (!fs::create_directory(directory, error)) throw WorkerError::failed("Couldn't create " + directory.string());

    // The request side is a socket so that a worker that died can't kill us with SIGPIPE.
    int requestPair[2], replyPipe[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, requestPair) != 0) {
        fs::remove_all(directory, error);
        throw WorkerError::failed("Couldn't start the text reader");
    }
    if (::pipe2(replyPipe, O_CLOEXEC) != 0) {
        ::close(requestPair[0]), ::close(requestPair[1]);
        fs::remove_all(directory, error);
        throw WorkerError::failed("Couldn't start the text reader");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, requestPair[1], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, replyPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::string program = executable_.string(), model = modelDirectory.string();
    char* argv[] = {program.data(), const_cast<char*>(flag), model.data(), nullptr};
    pid_t pid = -1;
    int spawned = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(requestPair[1]);
    ::close(replyPipe[1]);
    if (spawned != 0) {
        ::close(requestPair[0]);
        ::close(replyPipe[0]);
        fs::remove_all(directory, error);
        throw WorkerError::failed("Couldn't start the text reader: " + std::string(std::strerror(spawned)));
    }
    return std::make_unique<Job>(modelDirectory, pid, directory, requestPair[0], replyPipe[0]);
}

bool TextReadWorker::isUsable(const fs::path& modelDirectory) const {
    return prepared_ && !prepared_->finished && prepared_->isRunning() && prepared_->modelDirectory == modelDirectory;
}

void TextReadWorker::startIdleTimer(std::unique_lock<std::mutex>& lock) {
    stopIdleTimer(lock);
    Job* job = prepared_.get();
    idleTimer_ = std::jthread([this, job, lifetime = idleLifetime](std::stop_token stop) {
        std::unique_lock guard(mutex_);
        if (idleWake_.wait_for(guard, stop, lifetime, [] { return false; }) || stop.stop_requested()) return;
        // Only the job this timer was started for; a newer one has its own timer.
        if (prepared_.get() == job) prepared_.reset();
    });
}

void TextReadWorker::stopIdleTimer(std::unique_lock<std::mutex>& lock) {
    if (!idleTimer_.joinable()) return;
    idleTimer_.request_stop();
    lock.unlock();
    idleTimer_.join();
    lock.lock();
}

void TextReadWorker::cancelPendingLocked(std::unique_lock<std::mutex>& lock) {
    stopIdleTimer(lock);
    prepared_.reset();
}

void TextReadWorker::cancelPending() {
    std::unique_lock lock(mutex_);
    cancelPendingLocked(lock);
}

void TextReadWorker::prepare(const fs::path& modelDirectory) {
    std::unique_lock lock(mutex_);
    if (isUsable(modelDirectory)) {
        startIdleTimer(lock);
        return;
    }
    cancelPendingLocked(lock);
    try {
        prepared_ = start(modelDirectory);
    } catch (const WorkerError&) {
        return;  // the read that needs it will start one and report
    }
    startIdleTimer(lock);
}

std::optional<pid_t> TextReadWorker::preparedProcessId() const {
    std::lock_guard lock(mutex_);
    if (!prepared_) return std::nullopt;
    return prepared_->process;
}

std::string TextReadWorker::read(const QImage& image, const fs::path& modelDirectory) {
    return readReply(image, modelDirectory).text.value_or("");
}

TextReadWorker::Reply TextReadWorker::readReply(const QImage& image, const fs::path& modelDirectory) {
    std::unique_ptr<Job> job;
    {
        std::unique_lock lock(mutex_);
        stopIdleTimer(lock);
        if (isUsable(modelDirectory)) job = std::move(prepared_);
        prepared_.reset();
    }
    struct Rewarm {
        TextReadWorker& worker;
        const fs::path& directory;
        ~Rewarm() {
            bool usable;
            {
                std::lock_guard lock(worker.mutex_);
                usable = worker.isUsable(directory);
            }
            if (!usable) worker.prepare(directory);
        }
    } rewarm{*this, modelDirectory};
    if (!job) job = start(modelDirectory);
    return job->read(image, timeout);
}

void TextReadWorker::runRequestedInvocationAndExit(const std::string& modelDirectory) {
    ::signal(SIGPIPE, SIG_IGN);
    std::unique_ptr<PaddleTextReader> reader;
    std::string loadError;
    try {
        reader = PaddleTextReader::load(modelDirectory);
        // A prepared worker waits for its request and sets the nets up meanwhile; a worker
        // started for a read that already waits would only spend time on sizes it may not use.
        reader->warmUp(requestWaiting);
    } catch (const std::exception& e) {
        if (!reader) loadError = e.what();
    }
    std::string line;
    if (!std::getline(std::cin, line) || line.empty()) std::_Exit(0);
    if (!reader) replyAndExit({std::nullopt, loadError, std::nullopt}, 1);
    try {
        MappedImage mapped{fs::path(line)};
        std::vector<TextRecognizer::Fragment> fragments = reader->readFragments(mapped.image());
        replyAndExit({TextRecognizer::assemble(fragments), std::nullopt, fragments}, 0);
    } catch (const std::exception& e) {
        replyAndExit({std::nullopt, std::string(e.what()), std::nullopt}, 1);
    }
}

}  // namespace halvane
