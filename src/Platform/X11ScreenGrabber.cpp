#include "Platform/X11ScreenGrabber.h"

#include "Support/HalvaneError.h"

#include <xcb/composite.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>

namespace halvane {

X11ScreenGrabber::X11ScreenGrabber(std::shared_ptr<X11Connection> connection, QRect rootArea)
    : x_(std::move(connection)), size_(rootArea.size()), origin_(rootArea.topLeft()) {
    attachSegment();
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
    attachSegment();
}

X11ScreenGrabber::~X11ScreenGrabber() {
    if (segment_ && !x_->isBroken()) {
        xcb_shm_detach(x_->get(), segment_);
        xcb_flush(x_->get());
    }
    if (shmBytes_) shmdt(shmBytes_);
}

void X11ScreenGrabber::fail(const std::string& why) const {
    throw HalvaneError("Screen capture of \"" + x_->displayName() + "\" failed: " + why + ".", 1);
}

void X11ScreenGrabber::attachSegment() {
    if (size_.width() <= 0 || size_.height() <= 0) fail("the capture area is empty");
    if (!x_->hasExtension("MIT-SHM")) fail("the X server has no MIT-SHM extension");
    size_t bytes = static_cast<size_t>(size_.width()) * size_.height() * 4;
    shmID_ = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (shmID_ < 0) fail("no shared memory segment");
    shmBytes_ = static_cast<uint8_t*>(shmat(shmID_, nullptr, 0));
    // Marked for removal at once: it lives until both sides detach, so a crash leaks nothing.
    shmctl(shmID_, IPC_RMID, nullptr);
    if (shmBytes_ == reinterpret_cast<uint8_t*>(-1)) {
        shmBytes_ = nullptr;
        fail("shared memory could not be mapped");
    }
    segment_ = xcb_generate_id(x_->get());
    auto cookie = xcb_shm_attach_checked(x_->get(), segment_, static_cast<uint32_t>(shmID_), 0);
    if (auto* error = xcb_request_check(x_->get(), cookie)) {
        free(error);
        segment_ = 0;
        fail("the X server could not attach shared memory");
    }
}

QImage X11ScreenGrabber::grab() {
    if (x_->isBroken()) fail("the connection to the X server was lost");
    if (!window_) return grabDrawable(x_->root(), origin_.x(), origin_.y(), size_.width(), size_.height());

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
    QImage picture;
    try {
        picture = grabDrawable(pixmap, 0, 0, width, height);
    } catch (...) {
        xcb_free_pixmap(c, pixmap);
        throw;
    }
    xcb_free_pixmap(c, pixmap);
    return picture;
}

QImage X11ScreenGrabber::grabDrawable(xcb_drawable_t drawable, int x, int y, int width, int height) {
    auto* c = x_->get();
    auto cookie = xcb_shm_get_image(c, drawable, static_cast<int16_t>(x), static_cast<int16_t>(y), static_cast<uint16_t>(width),
                                    static_cast<uint16_t>(height), ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, segment_, 0);
    xcb_generic_error_t* error = nullptr;
    XcbReply<xcb_shm_get_image_reply_t> reply(xcb_shm_get_image_reply(c, cookie, &error));
    if (!reply) {
        bool broken = x_->isBroken();
        free(error);
        fail(broken ? "the connection to the X server was lost" : "the area is no longer on screen");
    }
    QImage picture(size_, QImage::Format_RGB32);
    if (width != size_.width() || height != size_.height()) picture.fill(Qt::black);
    const size_t rowBytes = static_cast<size_t>(width) * 4;
    for (int row = 0; row < height; ++row) {
        auto* dst = reinterpret_cast<uint32_t*>(picture.scanLine(row));
        const auto* src = reinterpret_cast<const uint32_t*>(shmBytes_ + row * rowBytes);
        // Depth-24 pixels leave the top byte undefined; RGB32 wants it opaque.
        for (int i = 0; i < width; ++i) dst[i] = src[i] | 0xFF000000u;
    }
    return picture;
}

}  // namespace halvane
