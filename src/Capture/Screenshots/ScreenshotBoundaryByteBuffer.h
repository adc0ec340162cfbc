#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace halvane {

// One anonymous private mapping of zeroed bytes. The snap index keeps its planes here rather than
// on the heap: a 5K display's planes are tens of megabytes that should go back to the system the
// moment the index dies, and fresh pages arrive zeroed, which the index relies on for its borders.
class ScreenshotBoundaryByteBuffer {
public:
    // Nothing for a count below 1 or when the mapping fails.
    static std::unique_ptr<ScreenshotBoundaryByteBuffer> create(std::ptrdiff_t count);

    ~ScreenshotBoundaryByteBuffer();
    ScreenshotBoundaryByteBuffer(const ScreenshotBoundaryByteBuffer&) = delete;
    ScreenshotBoundaryByteBuffer& operator=(const ScreenshotBoundaryByteBuffer&) = delete;

    std::size_t count() const { return count_; }
    std::uint8_t* storage() { return storage_; }
    const std::uint8_t* storage() const { return storage_; }

private:
    ScreenshotBoundaryByteBuffer(std::uint8_t* storage, std::size_t count) : storage_(storage), count_(count) {}

    std::uint8_t* storage_;
    std::size_t count_;
};

}  // namespace halvane
