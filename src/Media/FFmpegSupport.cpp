#include "Media/FFmpegSupport.h"

#include "Support/HalvaneError.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include <mutex>

namespace halvane::ffmpeg {

Frame makeFrame() {
    Frame f(av_frame_alloc());
    if (!f) throw HalvaneError("out of memory");
    return f;
}

Packet makePacket() {
    Packet p(av_packet_alloc());
    if (!p) throw HalvaneError("out of memory");
    return p;
}

std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

int check(int code, const std::string& what) {
    if (code < 0) throw HalvaneError(what + ": " + errorText(code));
    return code;
}

void quietLogging() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_FATAL); });
}

FormatInput openInput(const std::string& path) {
    quietLogging();
    AVFormatContext* raw = nullptr;
    int rc = avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
    if (rc < 0) throw HalvaneError("cannot open \"" + path + "\": " + errorText(rc));
    FormatInput input(raw);
    rc = avformat_find_stream_info(input.get(), nullptr);
    if (rc < 0) throw HalvaneError("cannot read \"" + path + "\": " + errorText(rc));
    return input;
}

CodecContext openDecoder(const AVStream* stream, int threads) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!codec) throw HalvaneError("no decoder for this stream");
    CodecContext ctx(avcodec_alloc_context3(codec));
    if (!ctx) throw HalvaneError("out of memory");
    check(avcodec_parameters_to_context(ctx.get(), stream->codecpar), "decoder setup");
    ctx->pkt_timebase = stream->time_base;
    ctx->thread_count = threads;
    check(avcodec_open2(ctx.get(), codec, nullptr), "cannot open decoder");
    return ctx;
}

}  // namespace halvane::ffmpeg
