#include "support/LoopbackHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace halvane::test {

namespace {

const char* reason(int status) {
    switch (status) {
    case 200: return "OK";
    case 404: return "Not Found";
    case 500: return "Internal Server Error";
    default: return "Status";
    }
}

void sendAll(int fd, const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return;
        sent += static_cast<size_t>(n);
    }
}

}  // namespace

LoopbackHttpServer::LoopbackHttpServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener_ < 0) throw std::runtime_error("no socket for the loopback server");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener_, 16) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(listener_);
        throw std::runtime_error("the loopback server can't listen");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { run(); });
}

LoopbackHttpServer::~LoopbackHttpServer() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
}

void LoopbackHttpServer::serve(const std::string& path, Response response) {
    std::lock_guard lock(mutex_);
    routes_[path] = std::move(response);
}

std::string LoopbackHttpServer::baseUrl() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

void LoopbackHttpServer::run() {
    while (!stopping_) {
        pollfd descriptor{listener_, POLLIN, 0};
        if (::poll(&descriptor, 1, 100) <= 0) continue;
        int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        answer(connection);
        ::close(connection);
    }
}

void LoopbackHttpServer::answer(int connection) {
    std::string request;
    char chunk[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
        pollfd descriptor{connection, POLLIN, 0};
        if (::poll(&descriptor, 1, 5000) <= 0) return;
        ssize_t n = ::recv(connection, chunk, sizeof chunk, 0);
        if (n <= 0) return;
        request.append(chunk, static_cast<size_t>(n));
    }
    ++requests_;
    size_t start = request.find(' ') + 1;
    std::string path = request.substr(start, request.find(' ', start) - start);
    Response response{404, "not found", std::nullopt};
    {
        std::lock_guard lock(mutex_);
        if (auto it = routes_.find(path); it != routes_.end()) response = it->second;
    }
    size_t length = response.declaredLength.value_or(response.body.size());
    std::string head = "HTTP/1.1 " + std::to_string(response.status) + " " + reason(response.status) +
                       "\r\nContent-Type: application/octet-stream\r\nContent-Length: " + std::to_string(length) +
                       "\r\nConnection: close\r\n\r\n";
    sendAll(connection, head + response.body);
}

}  // namespace halvane::test
