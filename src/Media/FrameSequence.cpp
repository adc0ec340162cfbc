#include "Media/FrameSequence.h"

#include "Media/FFmpegSupport.h"
#include "Support/HalvaneError.h"

#include <cmath>

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
    int swsWidth = 0, swsHeight = 0, swsFormat = -1, swsMatrix = -1, swsFullRange = -1;
    QImage image;
    int outWidth = 0, outHeight = 0;

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

    const QImage* convertCurrent() {
        const AVFrame* frame = current.get();
        if (!frame) return nullptr;
        if (convertedSerial == currentSerial) return &image;
        int matrix = matrixFor(frame->colorspace, frame->height);
        int fullRange = isFullRange(frame) ? 1 : 0;
        if (!sws || swsWidth != frame->width || swsHeight != frame->height ||
            swsFormat != frame->format || swsMatrix != matrix || swsFullRange != fullRange) {
            sws.reset(sws_getContext(frame->width, frame->height,
                                     static_cast<AVPixelFormat>(frame->format), outWidth, outHeight,
                                     AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
            if (!sws) return nullptr;
            sws_setColorspaceDetails(sws.get(), sws_getCoefficients(matrix), fullRange,
                                     sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
            swsWidth = frame->width;
            swsHeight = frame->height;
            swsFormat = frame->format;
            swsMatrix = matrix;
            swsFullRange = fullRange;
        }
        if (image.isNull())
            image = QImage(outWidth, outHeight, QImage::Format_ARGB32_Premultiplied);
        uint8_t* destination[4] = {image.bits(), nullptr, nullptr, nullptr};
        int strides[4] = {static_cast<int>(image.bytesPerLine()), 0, 0, 0};
        sws_scale(sws.get(), frame->data, frame->linesize, 0, frame->height, destination, strides);
        convertedSerial = currentSerial;
        return &image;
    }

    static constexpr double timeAllowance = 1e-6;

    const QImage* imageAt(double t) {
        // A frame's time is its pts times the time base, and the caller's t is a frame number
        // over the rate: the two round differently, and without the allowance one frame in five
        // of a constant-rate movie would be taken for the next one's successor and shown late.
        t += timeAllowance;
        if (pending && t < pendingTime) return convertCurrent();
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
        return convertCurrent();
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
