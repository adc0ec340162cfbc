#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace halvane::test {

// A tiny HTTP/1.1 server on 127.0.0.1 and a free port, for tests of downloads: each path gets a
// status and a body, and a body can be cut short of its declared length to fake a dropped
// connection. Every request is answered on its own and the connection closed.
class LoopbackHttpServer {
public:
    struct Response {
        int status = 200;
        std::string body;
        std::optional<size_t> declaredLength;  // Content-Length when it differs from the body's
    };

    LoopbackHttpServer();
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    void serve(const std::string& path, Response response);
    // "http://127.0.0.1:PORT/"
    std::string baseUrl() const;
    int requestCount() const { return requests_; }

private:
    void run();
    void answer(int connection);

    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::atomic<int> requests_{0};
    std::mutex mutex_;
    std::map<std::string, Response> routes_;
    std::thread thread_;
};

}  // namespace halvane::test
