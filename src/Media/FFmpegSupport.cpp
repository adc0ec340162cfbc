#include "Media/FFmpegSupport.h"

#include "Support/HalvaneError.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <cstring>
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

void connectFilterChain(AVFilterGraph* graph, const std::string& chain,
                        const std::vector<std::pair<std::string, AVFilterContext*>>& sources,
                        AVFilterContext* sink, const std::string& what) {
    AVFilterInOut* outputs = nullptr;
    for (auto it = sources.rbegin(); it != sources.rend(); ++it) {
        AVFilterInOut* o = avfilter_inout_alloc();
        o->name = av_strdup(it->first.c_str());
        o->filter_ctx = it->second;
        o->next = outputs;
        outputs = o;
    }
    AVFilterInOut* inputs = avfilter_inout_alloc();
    inputs->name = av_strdup("out");
    inputs->filter_ctx = sink;
    int rc = avfilter_graph_parse_ptr(graph, chain.c_str(), &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    check(rc, what);
    check(avfilter_graph_config(graph, nullptr), what);
}

AudioSinkReader::AudioSinkReader(AVFilterContext* sink, int channels, std::string what)
    : sink_(sink), channels_(channels), what_(std::move(what)), frame_(makeFrame()) {}

bool AudioSinkReader::fill(const std::function<bool()>& feed) {
    while (frame_->nb_samples == 0 || offset_ >= frame_->nb_samples) {
        if (done_) return false;
        av_frame_unref(frame_.get());
        offset_ = 0;
        int rc = av_buffersink_get_frame(sink_, frame_.get());
        if (rc == AVERROR(EAGAIN)) {
            // Everything is in and nothing more comes out: the end.
            if (!inputLeft_) done_ = true;
            else inputLeft_ = feed();
            continue;
        }
        if (rc == AVERROR_EOF) {
            done_ = true;
            return false;
        }
        check(rc, what_);
    }
    return true;
}

int AudioSinkReader::read(float* out, int maxFrames, const std::function<bool()>& feed) {
    int written = 0;
    while (written < maxFrames && fill(feed)) {
        int n = std::min(maxFrames - written, frame_->nb_samples - offset_);
        const auto* samples = reinterpret_cast<const float*>(frame_->data[0]);
        std::memcpy(out + static_cast<size_t>(written) * channels_,
                    samples + static_cast<size_t>(offset_) * channels_,
                    sizeof(float) * n * channels_);
        offset_ += n;
        written += n;
    }
    return written;
}

}  // namespace halvane::ffmpeg
