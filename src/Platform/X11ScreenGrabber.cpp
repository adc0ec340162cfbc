#include "Platform/X11ScreenGrabber.h"

#include "Support/HalvaneError.h"

#include <xcb/composite.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <atomic>
#include <cstring>

namespace halvane {

// One shared memory segment of a full picture. A picture handed out keeps its segment alive (and
// marked busy) until the last copy of that picture goes.
struct X11ScreenGrabber::Segment {
    xcb_shm_seg_t id = 0;
    uint8_t* bytes = nullptr;
    std::atomic<bool> busy{false};
    ~Segment() {
        if (bytes) shmdt(bytes);
    }
};

namespace {

struct PictureHold {
    std::shared_ptr<void> segment;
    std::atomic<bool>* busy;
};

void releasePicture(void* info) {
    auto* hold = static_cast<PictureHold*>(info);
    hold->busy->store(false);
    delete hold;
}

}  // namespace

X11ScreenGrabber::X11ScreenGrabber(std::shared_ptr<X11Connection> connection, QRect rootArea)
    : x_(std::move(connection)), size_(rootArea.size()), origin_(rootArea.topLeft()) {
    segments_.push_back(attachSegment());
}

X11ScreenGrabber::X11ScreenGrabber(std::shared_ptr<X11Connection> connection, xcb_window_t window, QSize size)
    : x_(std::move(connection)), size_(size), window_(window) {
    auto* c = x_->get();
    if (!x_->hasExtension("Composite")) fail("the X server has no Composite extension");
    XcbReply<xcb_composite_query_version_reply_t> version(
        xcb_composite_query_version_reply(c, xcb_composite_query_version(c, 0, 4), nullptr));
    // Automatic redirection keeps the screen looking as before while every window gets a pixmap.
    xcb_composite_redirect_subwindows(c, x_->root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    xcb_flush(c);
    segments_.push_back(attachSegment());
}

X11ScreenGrabber::~X11ScreenGrabber() {
    if (!x_->isBroken()) {
        for (const auto& segment : segments_) xcb_shm_detach(x_->get(), segment->id);
        xcb_flush(x_->get());
    }
}

void X11ScreenGrabber::fail(const std::string& why) const {
    throw HalvaneError("Screen capture of \"" + x_->displayName() + "\" failed: " + why + ".", 1);
}

std::shared_ptr<X11ScreenGrabber::Segment> X11ScreenGrabber::attachSegment() {
    if (size_.width() <= 0 || size_.height() <= 0) fail("the capture area is empty");
    if (!x_->hasExtension("MIT-SHM")) fail("the X server has no MIT-SHM extension");
    size_t bytes = static_cast<size_t>(size_.width()) * size_.height() * 4;
    int shmID = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (shmID < 0) fail("no shared memory segment");
    auto segment = std::make_shared<Segment>();
    void* mapped = shmat(shmID, nullptr, 0);
    // Marked for removal at once: it lives until both sides detach, so a crash leaks nothing.
    shmctl(shmID, IPC_RMID, nullptr);
    if (mapped == reinterpret_cast<void*>(-1)) fail("shared memory could not be mapped");
    segment->bytes = static_cast<uint8_t*>(mapped);
    segment->id = xcb_generate_id(x_->get());
    auto cookie = xcb_shm_attach_checked(x_->get(), segment->id, static_cast<uint32_t>(shmID), 0);
    if (auto* error = xcb_request_check(x_->get(), cookie)) {
        free(error);
        fail("the X server could not attach shared memory");
    }
    return segment;
}

std::shared_ptr<X11ScreenGrabber::Segment> X11ScreenGrabber::freeSegment() {
    for (const auto& segment : segments_)
        if (!segment->busy.load()) return segment;
    if (static_cast<int>(segments_.size()) >= maxSharedSegments) return nullptr;
    segments_.push_back(attachSegment());
    return segments_.back();
}

QImage X11ScreenGrabber::grab() {
    if (x_->isBroken()) fail("the connection to the X server was lost");
    if (!window_) {
        auto segment = freeSegment();
        if (!segment) {
            // Every shared picture is still in use: fetch into the first and hand out a copy.
            fetch(x_->root(), *segments_.front(), origin_.x(), origin_.y(), size_.width(), size_.height());
            return QImage(segments_.front()->bytes, size_.width(), size_.height(), size_.width() * 4, QImage::Format_RGB32).copy();
        }
        fetch(x_->root(), *segment, origin_.x(), origin_.y(), size_.width(), size_.height());
        segment->busy.store(true);
        auto* hold = new PictureHold{segment, &segment->busy};
        return QImage(segment->bytes, size_.width(), size_.height(), size_.width() * 4, QImage::Format_RGB32, releasePicture, hold);
    }

    auto* c = x_->get();
    XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, xcb_get_geometry(c, *window_), nullptr));
    if (!geometry) fail("the window is gone");
    xcb_pixmap_t pixmap = xcb_generate_id(c);
    auto named = xcb_composite_name_window_pixmap_checked(c, *window_, pixmap);
    if (auto* error = xcb_request_check(c, named)) {
        free(error);
        fail("the window is not on screen");
    }
    int width = std::min<int>(geometry->width, size_.width());
    int height = std::min<int>(geometry->height, size_.height());
    const Segment& segment = *segments_.front();
    try {
        fetch(pixmap, segment, 0, 0, width, height);
    } catch (...) {
        xcb_free_pixmap(c, pixmap);
        throw;
    }
    xcb_free_pixmap(c, pixmap);
    // A window that changed size since the start is cut or padded to the movie's size.
    QImage picture(size_, QImage::Format_RGB32);
    if (width != size_.width() || height != size_.height()) picture.fill(Qt::black);
    for (int row = 0; row < height; ++row)
        std::memcpy(picture.scanLine(row), segment.bytes + static_cast<size_t>(row) * width * 4, static_cast<size_t>(width) * 4);
    return picture;
}

void X11ScreenGrabber::fetch(xcb_drawable_t drawable, const Segment& segment, int x, int y, int width, int height) {
    auto* c = x_->get();
    auto cookie = xcb_shm_get_image(c, drawable, static_cast<int16_t>(x), static_cast<int16_t>(y), static_cast<uint16_t>(width),
                                    static_cast<uint16_t>(height), ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, segment.id, 0);
    xcb_generic_error_t* error = nullptr;
    XcbReply<xcb_shm_get_image_reply_t> reply(xcb_shm_get_image_reply(c, cookie, &error));
    if (!reply) {
        bool broken = x_->isBroken();
        free(error);
        fail(broken ? "the connection to the X server was lost" : "the area is no longer on screen");
    }
}

}  // namespace halvane
