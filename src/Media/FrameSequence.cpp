#include "Media/FrameSequence.h"

#include "Media/FFmpegSupport.h"
#include "Support/HalvaneError.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <QRect>

#include <algorithm>
#include <cmath>
#include <vector>

namespace halvane {

namespace {

using namespace ffmpeg;

int matrixFor(AVColorSpace space, int height) {
    switch (space) {
    case AVCOL_SPC_BT709: return SWS_CS_ITU709;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M: return SWS_CS_ITU601;
    case AVCOL_SPC_SMPTE240M: return SWS_CS_SMPTE240M;
    case AVCOL_SPC_FCC: return SWS_CS_FCC;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return SWS_CS_BT2020;
    default: return height >= 720 ? SWS_CS_ITU709 : SWS_CS_ITU601;  // untagged: by size, as players do
    }
}

bool isFullRange(const AVFrame* frame) {
    if (frame->color_range == AVCOL_RANGE_JPEG) return true;
    switch (frame->format) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ444P: return true;
    default: return false;
    }
}

// Planar 8-bit formats whose planes can be cut to a rectangle by moving their pointers, with
// chroma subsampled by at most 16 across and 2 down.
bool croppable(int format) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
    if (!d || !(d->flags & AV_PIX_FMT_FLAG_PLANAR) ||
        (d->flags & (AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BITSTREAM)))
        return false;
    for (int c = 0; c < d->nb_components; ++c)
        if (d->comp[c].step != 1 || d->comp[c].depth != 8) return false;
    return d->log2_chroma_w <= 4 && d->log2_chroma_h <= 1;
}

int roundUp(int value, int step) { return (value + step - 1) / step * step; }

}  // namespace

struct FrameSequence::Impl {
    FormatInput input;
    const AVStream* stream = nullptr;
    CodecContext decoder;
    Packet packet = makePacket();
    double until = 0;
    bool inputDone = false;   // no more packets to send
    bool decoderDone = false; // no more frames to receive

    Frame current;            // decoded, not yet or already converted
    double currentTime = NAN;
    Frame pending;            // the first frame after the last asked time
    double pendingTime = NAN;
    uint64_t currentSerial = 0;     // rises whenever `current` changes
    uint64_t convertedSerial = 0;   // the serial of the frame `image` holds

    Sws sws;
    int swsWidth = 0, swsHeight = 0, swsOutWidth = 0, swsOutHeight = 0;
    int swsFormat = -1, swsMatrix = -1, swsFullRange = -1;
    std::vector<uint8_t> pixels;  // what `image` shows
    QImage image;
    int outWidth = 0, outHeight = 0;
    Rect region{0, 0, 1, 1};
    QRect converted;  // the pixels of `image` that hold the frame of convertedSerial

    double seconds(int64_t pts) const { return pts * av_q2d(stream->time_base); }

    Frame decodeNext() {
        while (!decoderDone) {
            Frame frame = makeFrame();
            int rc = avcodec_receive_frame(decoder.get(), frame.get());
            if (rc == 0) {
                int64_t pts = frame->best_effort_timestamp;
                if (pts == AV_NOPTS_VALUE) pts = frame->pts;
                frame->pts = pts == AV_NOPTS_VALUE ? 0 : pts;
                if (seconds(frame->pts) > until) {
                    decoderDone = true;
                    return nullptr;
                }
                return frame;
            }
            if (rc == AVERROR_EOF) {
                decoderDone = true;
                break;
            }
            if (rc != AVERROR(EAGAIN)) {
                decoderDone = true;  // a broken stream ends here; the last frame holds
                break;
            }
            feedPacket();
        }
        return nullptr;
    }

    void feedPacket() {
        if (inputDone) return;
        while (true) {
            int rc = av_read_frame(input.get(), packet.get());
            if (rc < 0) {
                inputDone = true;
                avcodec_send_packet(decoder.get(), nullptr);
                return;
            }
            if (packet->stream_index != stream->index) {
                av_packet_unref(packet.get());
                continue;
            }
            rc = avcodec_send_packet(decoder.get(), packet.get());
            av_packet_unref(packet.get());
            if (rc == AVERROR_INVALIDDATA) continue;  // a damaged packet is skipped
            return;
        }
    }

    // The pixels of the frame the region asks for: rounded out to 16-pixel columns and even rows
    // (whole chroma samples), sizes in steps of 64 so that a zoom holding still keeps its converter.
    QRect neededPixels(const AVFrame* frame) const {
        const int w = frame->width, h = frame->height;
        const QRect whole(0, 0, w, h);
        if (outWidth != w || outHeight != h || !croppable(frame->format)) return whole;
        if (!(region.width() > 0) || !(region.height() > 0)) return whole;
        int x0 = std::clamp(static_cast<int>(std::floor(region.minX() * w)), 0, w) & ~15;
        int y0 = std::clamp(static_cast<int>(std::floor(region.minY() * h)), 0, h) & ~1;
        const int x1 = std::clamp(static_cast<int>(std::ceil(region.maxX() * w)), 0, w);
        const int y1 = std::clamp(static_cast<int>(std::ceil(region.maxY() * h)), 0, h);
        int width = std::min(roundUp(std::max(x1 - x0, 1), 64), w);
        int height = std::min(roundUp(std::max(y1 - y0, 1), 64), h);
        // Grown past the far edge: moved back to stay inside, and stretched to reach that edge.
        if (x0 + width > w) {
            x0 = (w - width) & ~15;
            width = w - x0;
        }
        if (y0 + height > h) {
            y0 = (h - height) & ~1;
            height = h - y0;
        }
        return QRect(x0, y0, width, height);
    }

    bool prepareConverter(const AVFrame* frame, int width, int height, int toWidth, int toHeight) {
        const int matrix = matrixFor(frame->colorspace, frame->height);
        const int fullRange = isFullRange(frame) ? 1 : 0;
        if (sws && swsWidth == width && swsHeight == height && swsOutWidth == toWidth && swsOutHeight == toHeight &&
            swsFormat == frame->format && swsMatrix == matrix && swsFullRange == fullRange)
            return true;
        sws.reset(sws_getContext(width, height, static_cast<AVPixelFormat>(frame->format), toWidth, toHeight,
                                 AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!sws) return false;
        sws_setColorspaceDetails(sws.get(), sws_getCoefficients(matrix), fullRange, sws_getCoefficients(SWS_CS_DEFAULT),
                                 1, 0, 1 << 16, 1 << 16);
        swsWidth = width;
        swsHeight = height;
        swsOutWidth = toWidth;
        swsOutHeight = toHeight;
        swsFormat = frame->format;
        swsMatrix = matrix;
        swsFullRange = fullRange;
        return true;
    }

    const QImage* convertCurrent() {
        const AVFrame* frame = current.get();
        if (!frame) return nullptr;
        const QRect needed = neededPixels(frame);
        if (convertedSerial == currentSerial && converted.contains(needed)) return &image;
        const bool whole = needed == QRect(0, 0, frame->width, frame->height);
        if (!prepareConverter(frame, needed.width(), needed.height(), whole ? outWidth : needed.width(),
                              whole ? outHeight : needed.height()))
            return nullptr;
        if (image.isNull()) {
            // swscale's vector converters write whole blocks of 8 pixels: rows are padded to 16
            // pixels, and the buffer has room after the last one, so no block writes past it.
            const int stride = roundUp(outWidth, 16) * 4;
            pixels.assign(size_t(stride) * size_t(outHeight) + 64, 0);
            image = QImage(pixels.data(), outWidth, outHeight, stride, QImage::Format_ARGB32_Premultiplied);
        }
        // The rectangle's planes start where it does: chroma planes at its subsampled corner.
        const uint8_t* source[4] = {frame->data[0], frame->data[1], frame->data[2], frame->data[3]};
        if (!whole) {
            const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
            for (int c = 0; c < d->nb_components; ++c) {
                const bool chroma = (c == 1 || c == 2) && !(d->flags & AV_PIX_FMT_FLAG_RGB);
                const int plane = d->comp[c].plane;
                source[plane] = frame->data[plane] + (needed.y() >> (chroma ? d->log2_chroma_h : 0)) * frame->linesize[plane] +
                                (needed.x() >> (chroma ? d->log2_chroma_w : 0));
            }
        }
        const int stride = static_cast<int>(image.bytesPerLine());
        uint8_t* destination[4] = {image.bits() + needed.y() * stride + needed.x() * 4, nullptr, nullptr, nullptr};
        int strides[4] = {stride, 0, 0, 0};
        sws_scale(sws.get(), source, frame->linesize, 0, needed.height(), destination, strides);
        converted = whole ? QRect(0, 0, outWidth, outHeight) : needed;
        convertedSerial = currentSerial;
        return &image;
    }

    static constexpr double timeAllowance = 1e-6;

    Yuv420View planarView;

    const Yuv420View* planesAt(double t) {
        advanceTo(t);
        const AVFrame* frame = current.get();
        if (!frame || frame->format != AV_PIX_FMT_YUV420P || isFullRange(frame) ||
            matrixFor(frame->colorspace, frame->height) != SWS_CS_ITU709 || outWidth != frame->width ||
            outHeight != frame->height)
            return nullptr;
        planarView = {{frame->data[0], frame->data[1], frame->data[2]},
                      {frame->linesize[0], frame->linesize[1], frame->linesize[2]},
                      frame->width,
                      frame->height};
        return &planarView;
    }

    const QImage* imageAt(double t) {
        advanceTo(t);
        return convertCurrent();
    }

    void advanceTo(double t) {
        // A frame's time is its pts times the time base, and the caller's t is a frame number
        // over the rate: the two round differently, and without the allowance one frame in five
        // of a constant-rate movie would count as later than the time asked for, and the frame
        // before it would be shown in its place.
        t += timeAllowance;
        if (pending && t < pendingTime) return;
        if (pending) {
            current = std::move(pending);
            currentTime = pendingTime;
            ++currentSerial;
        }
        while (Frame frame = decodeNext()) {
            double time = seconds(frame->pts);
            if (time > t) {
                pending = std::move(frame);
                pendingTime = time;
                break;
            }
            current = std::move(frame);
            currentTime = time;
            ++currentSerial;
        }
    }
};

FrameSequence::FrameSequence(const std::filesystem::path& movie, double startAt, double until,
                             Size outputSize)
    : impl_(std::make_unique<Impl>()) {
    auto& d = *impl_;
    try {
        d.input = openInput(movie.string());
    } catch (const HalvaneError& e) {
        throw HalvaneError(std::string("cannot read video track: ") + e.what());
    }
    int index = av_find_best_stream(d.input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) throw HalvaneError("no video track in recording");
    d.stream = d.input->streams[index];
    for (unsigned i = 0; i < d.input->nb_streams; ++i)
        if (static_cast<int>(i) != index) d.input->streams[i]->discard = AVDISCARD_ALL;
    try {
        d.decoder = openDecoder(d.stream, 0);
    } catch (const HalvaneError& e) {
        throw HalvaneError(std::string("cannot read video track: ") + e.what());
    }
    if (d.decoder->width <= 0 || d.decoder->height <= 0)
        throw HalvaneError("cannot read video track: no picture size");
    d.until = until;
    d.outWidth = outputSize.width >= 1 ? static_cast<int>(outputSize.width) : d.decoder->width;
    d.outHeight = outputSize.height >= 1 ? static_cast<int>(outputSize.height) : d.decoder->height;
    if (startAt > 0) {
        auto target = static_cast<int64_t>(startAt / av_q2d(d.stream->time_base));
        // Lands on the key frame at or before startAt; failure just means decoding from the top.
        if (av_seek_frame(d.input.get(), index, target, AVSEEK_FLAG_BACKWARD) >= 0)
            avcodec_flush_buffers(d.decoder.get());
    }
}

FrameSequence::~FrameSequence() = default;

const QImage* FrameSequence::image(double t) { return impl_->imageAt(t); }

const Yuv420View* FrameSequence::planes(double t) { return impl_->planesAt(t); }

void FrameSequence::setRegion(const Rect& unit) {
    const Rect whole{0, 0, 1, 1};
    impl_->region = unit.width() > 0 && unit.height() > 0 ? unit.intersection(whole) : whole;
}

double FrameSequence::currentTime() const { return impl_->currentTime; }

Size FrameSequence::outputSize() const {
    return {static_cast<double>(impl_->outWidth), static_cast<double>(impl_->outHeight)};
}

Size FrameSequence::streamSize() const {
    return {static_cast<double>(impl_->decoder->width), static_cast<double>(impl_->decoder->height)};
}

double FrameSequence::duration() const {
    const auto* s = impl_->stream;
    if (s->duration != AV_NOPTS_VALUE && s->duration > 0) return s->duration * av_q2d(s->time_base);
    if (impl_->input->duration > 0) return impl_->input->duration / double(AV_TIME_BASE);
    return 0;
}

}  // namespace halvane
