#include "Media/AudioDecoder.h"

#include "Media/FFmpegSupport.h"
#include "Support/HalvaneError.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <optional>
#include <cstring>
#include <sstream>
#include <vector>

namespace halvane {

namespace {

using namespace ffmpeg;

struct Source {
    AVStream* stream = nullptr;
    CodecContext decoder;
    AVFilterContext* buffer = nullptr;
};

std::string layoutName(const AVCodecContext* d) {
    AVChannelLayout layout{};
    if (d->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&layout, d->ch_layout.nb_channels);
    else
        av_channel_layout_copy(&layout, &d->ch_layout);
    char name[128] = {};
    av_channel_layout_describe(&layout, name, sizeof name);
    av_channel_layout_uninit(&layout);
    return name;
}

}  // namespace

struct AudioDecoder::Impl {
    std::string path;
    int rate = 48000;
    int channelCount = 2;
    FormatInput input;
    std::vector<Source> sources;
    FilterGraph graph;
    AVFilterContext* sink = nullptr;
    Packet packet = makePacket();
    Frame decoded = makeFrame();
    std::optional<AudioSinkReader> output;
    bool inputDone = false;

    [[noreturn]] void fail(const std::string& why) const {
        throw HalvaneError("cannot read \"" + path + "\": " + why);
    }
    void require(int rc) const {
        if (rc < 0) fail(errorText(rc));
    }

    void buildGraph() {
        graph.reset(avfilter_graph_alloc());
        if (!graph) fail("out of memory");
        graph->nb_threads = 1;
        std::ostringstream chain;
        const size_t n = sources.size();
        for (size_t i = 0; i < n; ++i) {
            auto* d = sources[i].decoder.get();
            const AVRational tb = sources[i].stream->time_base;
            std::ostringstream args;
            args << "time_base=" << tb.num << "/" << tb.den << ":sample_rate=" << d->sample_rate
                 << ":sample_fmt=" << av_get_sample_fmt_name(d->sample_fmt)
                 << ":channel_layout=" << layoutName(d);
            std::string name = "in" + std::to_string(i);
            require(avfilter_graph_create_filter(&sources[i].buffer, avfilter_get_by_name("abuffer"),
                                                 name.c_str(), args.str().c_str(), nullptr,
                                                 graph.get()));
            chain << "[" << name << "]" << channelMapping(d->ch_layout.nb_channels) << "aresample="
                  << rate << ":async=1:first_pts=0[a" << i << "];";
        }
        if (n > 1) {
            for (size_t i = 0; i < n; ++i) chain << "[a" << i << "]";
            chain << "amix=inputs=" << n << ":normalize=0:duration=longest,";
        } else {
            chain << "[a0]";
        }
        chain << "aformat=sample_fmts=flt:sample_rates=" << rate
              << ":channel_layouts=" << (channelCount == 1 ? "mono" : "stereo") << "[out]";

        require(avfilter_graph_create_filter(&sink, avfilter_get_by_name("abuffersink"), "out",
                                             nullptr, nullptr, graph.get()));
        std::vector<std::pair<std::string, AVFilterContext*>> inputs;
        for (size_t i = 0; i < n; ++i) inputs.emplace_back("in" + std::to_string(i), sources[i].buffer);
        connectFilterChain(graph.get(), chain.str(), inputs, sink, "cannot read \"" + path + "\"");
        output.emplace(sink, channelCount, "cannot read \"" + path + "\"");
    }

    // Mono is heard the same on both sides and stereo folds to its average, as players do;
    // the resampler's own rematrixing would lower both by 3 dB.
    std::string channelMapping(int sourceChannels) const {
        if (sourceChannels == 1 && channelCount == 2) return "pan=stereo|c0=c0|c1=c0,";
        if (sourceChannels == 2 && channelCount == 1) return "pan=mono|c0=0.5*c0+0.5*c1,";
        return "";
    }

    Source* sourceFor(int streamIndex) {
        for (auto& s : sources)
            if (s.stream->index == streamIndex) return &s;
        return nullptr;
    }

    void feed() {
        while (!inputDone) {
            int rc = av_read_frame(input.get(), packet.get());
            if (rc < 0) {
                // The end, or damage past which nothing can be read: what came so far stands.
                inputDone = true;
                for (auto& s : sources) {
                    avcodec_send_packet(s.decoder.get(), nullptr);
                    drainDecoder(s);
                    require(av_buffersrc_add_frame(s.buffer, nullptr));
                }
                return;
            }
            Source* s = sourceFor(packet->stream_index);
            if (!s) {
                av_packet_unref(packet.get());
                continue;
            }
            avcodec_send_packet(s->decoder.get(), packet.get());  // a damaged packet is skipped
            av_packet_unref(packet.get());
            drainDecoder(*s);
            return;
        }
    }

    void drainDecoder(Source& s) {
        while (true) {
            int rc = avcodec_receive_frame(s.decoder.get(), decoded.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
            if (rc < 0) continue;
            decoded->pts = decoded->best_effort_timestamp;
            require(av_buffersrc_add_frame_flags(s.buffer, decoded.get(), 0));
            av_frame_unref(decoded.get());
        }
    }

    int read(float* out, int maxFrames) {
        return output->read(out, maxFrames, [this] {
            feed();
            return !inputDone;
        });
    }
};

AudioDecoder::AudioDecoder(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

AudioDecoder::~AudioDecoder() = default;

std::unique_ptr<AudioDecoder> AudioDecoder::open(const std::filesystem::path& file, int sampleRate,
                                                 int channels) {
    auto impl = std::make_unique<Impl>();
    impl->path = file.string();
    impl->rate = std::max(sampleRate, 8000);
    impl->channelCount = channels == 1 ? 1 : 2;
    impl->input = openInput(impl->path);
    for (unsigned i = 0; i < impl->input->nb_streams; ++i) {
        AVStream* stream = impl->input->streams[i];
        if (stream->codecpar->codec_type != AVMEDIA_TYPE_AUDIO) {
            stream->discard = AVDISCARD_ALL;
            continue;
        }
        try {
            impl->sources.push_back(Source{stream, openDecoder(stream, 1), nullptr});
        } catch (const HalvaneError&) {
            stream->discard = AVDISCARD_ALL;  // a track that can't be decoded is left out
        }
    }
    if (impl->sources.empty()) return nullptr;
    impl->buildGraph();
    return std::unique_ptr<AudioDecoder>(new AudioDecoder(std::move(impl)));
}

int AudioDecoder::read(float* interleaved, int maxFrames) {
    return impl_->read(interleaved, maxFrames);
}

int AudioDecoder::sampleRate() const { return impl_->rate; }

int AudioDecoder::channels() const { return impl_->channelCount; }

}  // namespace halvane
