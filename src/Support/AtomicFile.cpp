#include "Support/AtomicFile.h"

#include "Support/HalvaneError.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace halvane {

namespace {
[[noreturn]] void fail(const std::filesystem::path& path, const char* what, int err) {
    throw HalvaneError("Could not " + std::string(what) + " \"" + path.string() + "\": " + std::strerror(err), err);
}
}  // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes) {
    std::filesystem::path dir = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    std::string pattern = (dir / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
    int fd = mkstemp(pattern.data());
    if (fd < 0) fail(path, "write", errno);
    const char* p = bytes.data();
    size_t left = bytes.size();
    while (left > 0) {
        ssize_t n = ::write(fd, p, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            int err = errno;
            ::close(fd);
            ::unlink(pattern.c_str());
            fail(path, "write", err);
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    fchmod(fd, 0644);
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        int err = errno;
        ::unlink(pattern.c_str());
        fail(path, "write", err);
    }
    if (::rename(pattern.c_str(), path.c_str()) != 0) {
        int err = errno;
        ::unlink(pattern.c_str());
        fail(path, "write", err);
    }
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail(path, "read", errno ? errno : ENOENT);
    std::ostringstream ss;
    ss << in.rdbuf();
    if (in.bad()) fail(path, "read", EIO);
    return ss.str();
}

}  // namespace halvane
