#include "Capture/Screenshots/ScreenshotBoundaryByteBuffer.h"

#include <sys/mman.h>

namespace halvane {

std::unique_ptr<ScreenshotBoundaryByteBuffer> ScreenshotBoundaryByteBuffer::create(std::ptrdiff_t count) {
    if (count < 1) return nullptr;
    void* mapped = mmap(nullptr, static_cast<std::size_t>(count), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) return nullptr;
    return std::unique_ptr<ScreenshotBoundaryByteBuffer>(
        new ScreenshotBoundaryByteBuffer(static_cast<std::uint8_t*>(mapped), static_cast<std::size_t>(count)));
}

ScreenshotBoundaryByteBuffer::~ScreenshotBoundaryByteBuffer() {
    munmap(storage_, count_);
}

}  // namespace halvane
