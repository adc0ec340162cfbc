#include "Media/AudioEditPipeline.h"

#include "Media/FFmpegSupport.h"
#include "Support/HalvaneError.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>

namespace halvane {

namespace {

using namespace ffmpeg;

// A rate this close to 1 plays unchanged.
constexpr double rateTolerance = 0.0001;

double effectiveRate(const KeptAudioRange& r) {
    return std::abs(r.rate - 1) > rateTolerance && r.rate > 0 ? r.rate : 1.0;
}

double rangeDuration(const KeptAudioRange& r) { return std::max(r.sourceEnd - r.sourceStart, 0.0); }

// atempo sounds best within 0.5 to 2, so larger changes are a chain of stages.
std::string tempoChain(double rate) {
    std::ostringstream out;
    out.precision(17);
    while (rate > 2.0) {
        out << "atempo=2,";
        rate /= 2.0;
    }
    while (rate < 0.5) {
        out << "atempo=0.5,";
        rate /= 0.5;
    }
    if (std::abs(rate - 1) > 1e-12) out << "atempo=" << rate << ",";
    return out.str();
}

[[noreturn]] void fail(const std::string& why) { throw HalvaneError("audio reader failed: " + why); }

struct Source {
    AVStream* stream = nullptr;
    CodecContext decoder;
    AVFilterContext* buffer = nullptr;
};

}  // namespace

struct AudioEditPipeline::Impl {
    FormatInput input;
    std::vector<Source> sources;
    FilterGraph graph;
    AVFilterContext* sink = nullptr;
    Packet packet = makePacket();
    Frame decoded = makeFrame();
    Frame filtered = makeFrame();
    int filteredOffset = 0;  // frames of `filtered` already given out
    bool inputDone = false;
    bool graphDone = false;
    int64_t total = 0;
    int64_t position = 0;

    Source* sourceFor(int streamIndex) {
        for (auto& s : sources)
            if (s.stream->index == streamIndex) return &s;
        return nullptr;
    }

    void buildGraph(const std::vector<KeptAudioRange>& ranges) {
        graph.reset(avfilter_graph_alloc());
        if (!graph) fail("out of memory");
        graph->nb_threads = 1;
        std::ostringstream chain;
        chain.precision(17);
        const size_t n = sources.size();
        for (size_t i = 0; i < n; ++i) {
            auto* d = sources[i].decoder.get();
            AVChannelLayout layout{};
            if (d->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
                av_channel_layout_default(&layout, d->ch_layout.nb_channels);
            else
                av_channel_layout_copy(&layout, &d->ch_layout);
            char layoutName[128] = {};
            av_channel_layout_describe(&layout, layoutName, sizeof layoutName);
            av_channel_layout_uninit(&layout);
            const AVRational tb = sources[i].stream->time_base;
            std::ostringstream args;
            args << "time_base=" << tb.num << "/" << tb.den << ":sample_rate=" << d->sample_rate
                 << ":sample_fmt=" << av_get_sample_fmt_name(d->sample_fmt)
                 << ":channel_layout=" << layoutName;
            std::string name = "in" + std::to_string(i);
            check(avfilter_graph_create_filter(&sources[i].buffer, avfilter_get_by_name("abuffer"),
                                               name.c_str(), args.str().c_str(), nullptr,
                                               graph.get()),
                  "audio reader failed");
            // Resampling pads the start with silence so that sound keeps the movie's clock
            // even when a track begins late.
            chain << "[" << name << "]aresample=" << sampleRate
                  << ":async=1:first_pts=0,aformat=sample_fmts=fltp:channel_layouts=stereo[a" << i
                  << "];";
        }
        if (n > 1) {
            for (size_t i = 0; i < n; ++i) chain << "[a" << i << "]";
            chain << "amix=inputs=" << n << ":normalize=0:duration=longest[mix];";
        } else {
            chain << "[a0]anull[mix];";
        }
        const size_t k = ranges.size();
        chain << "[mix]asplit=" << k;
        for (size_t i = 0; i < k; ++i) chain << "[s" << i << "]";
        chain << ";";
        double outputEnd = 0;
        for (size_t i = 0; i < k; ++i) {
            const auto& r = ranges[i];
            const double rate = effectiveRate(r);
            auto start = std::llround(r.sourceStart * sampleRate);
            auto end = std::max(start, std::llround(r.sourceEnd * sampleRate));
            auto outStart = std::llround(outputEnd * sampleRate);
            outputEnd += rangeDuration(r) / rate;
            auto length = std::llround(outputEnd * sampleRate) - outStart;
            chain << "[s" << i << "]atrim=start_sample=" << start << ":end_sample=" << end
                  << ",asetpts=PTS-STARTPTS," << tempoChain(rate);
            if (std::abs(r.volume - 1) > 1e-9) chain << "volume=" << std::max(r.volume, 0.0) << ",";
            chain << "apad=whole_len=" << length << ",atrim=end_sample=" << length << "[r" << i
                  << "];";
        }
        for (size_t i = 0; i < k; ++i) chain << "[r" << i << "]";
        chain << "concat=n=" << k << ":v=0:a=1,aformat=sample_fmts=flt:sample_rates=" << sampleRate
              << ":channel_layouts=stereo[out]";

        check(avfilter_graph_create_filter(&sink, avfilter_get_by_name("abuffersink"), "out",
                                           nullptr, nullptr, graph.get()),
              "audio reader failed");
        AVFilterInOut* outputs = nullptr;
        for (size_t i = n; i-- > 0;) {
            AVFilterInOut* o = avfilter_inout_alloc();
            o->name = av_strdup(("in" + std::to_string(i)).c_str());
            o->filter_ctx = sources[i].buffer;
            o->pad_idx = 0;
            o->next = outputs;
            outputs = o;
        }
        AVFilterInOut* inputs = avfilter_inout_alloc();
        inputs->name = av_strdup("out");
        inputs->filter_ctx = sink;
        inputs->pad_idx = 0;
        inputs->next = nullptr;
        int rc = avfilter_graph_parse_ptr(graph.get(), chain.str().c_str(), &inputs, &outputs,
                                          nullptr);
        avfilter_inout_free(&inputs);
        avfilter_inout_free(&outputs);
        check(rc, "audio reader failed");
        check(avfilter_graph_config(graph.get(), nullptr), "audio reader failed");
    }

    // Decodes one more packet into the graph; at the end of the file, ends every source.
    void feed() {
        if (inputDone) return;
        while (true) {
            int rc = av_read_frame(input.get(), packet.get());
            if (rc == AVERROR_EOF || rc == AVERROR(EIO)) {
                inputDone = true;
                for (auto& s : sources) {
                    avcodec_send_packet(s.decoder.get(), nullptr);
                    drainDecoder(s);
                    check(av_buffersrc_add_frame(s.buffer, nullptr), "audio reader failed");
                }
                return;
            }
            check(rc, "audio reader failed");
            Source* s = sourceFor(packet->stream_index);
            if (!s) {
                av_packet_unref(packet.get());
                continue;
            }
            rc = avcodec_send_packet(s->decoder.get(), packet.get());
            av_packet_unref(packet.get());
            if (rc < 0 && rc != AVERROR_INVALIDDATA) check(rc, "audio reader failed");
            drainDecoder(*s);
            return;
        }
    }

    void drainDecoder(Source& s) {
        while (true) {
            int rc = avcodec_receive_frame(s.decoder.get(), decoded.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
            if (rc == AVERROR_INVALIDDATA) continue;
            check(rc, "audio reader failed");
            decoded->pts = decoded->best_effort_timestamp;
            check(av_buffersrc_add_frame_flags(s.buffer, decoded.get(), 0), "audio reader failed");
            av_frame_unref(decoded.get());
        }
    }

    // Makes sure `filtered` holds unread frames; false at the end of the output.
    bool fill() {
        while (filtered->nb_samples == 0 || filteredOffset >= filtered->nb_samples) {
            if (graphDone) return false;
            av_frame_unref(filtered.get());
            filteredOffset = 0;
            int rc = av_buffersink_get_frame(sink, filtered.get());
            if (rc == AVERROR(EAGAIN)) {
                if (inputDone) {  // everything is in and nothing more comes out
                    graphDone = true;
                    return false;
                }
                feed();
                continue;
            }
            if (rc == AVERROR_EOF) {
                graphDone = true;
                return false;
            }
            check(rc, "audio reader failed");
        }
        return true;
    }

    int read(float* out, int maxFrames) {
        int written = 0;
        while (written < maxFrames && position < total) {
            if (!fill()) {
                // The graph gives exactly `total`; any shortfall would be a filter's rounding.
                int n = static_cast<int>(std::min<int64_t>(maxFrames - written, total - position));
                std::memset(out + written * channels, 0, sizeof(float) * n * channels);
                written += n;
                position += n;
                break;
            }
            int n = std::min({maxFrames - written, filtered->nb_samples - filteredOffset,
                              static_cast<int>(std::min<int64_t>(maxFrames, total - position))});
            const auto* samples = reinterpret_cast<const float*>(filtered->data[0]);
            std::memcpy(out + written * channels, samples + filteredOffset * channels,
                        sizeof(float) * n * channels);
            filteredOffset += n;
            written += n;
            position += n;
        }
        return written;
    }
};

AudioEditPipeline::AudioEditPipeline(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

AudioEditPipeline::~AudioEditPipeline() = default;

std::unique_ptr<AudioEditPipeline> AudioEditPipeline::open(const std::filesystem::path& movie,
                                                           std::vector<KeptAudioRange> ranges) {
    std::erase_if(ranges, [](const KeptAudioRange& r) { return rangeDuration(r) <= 0; });
    for (size_t i = 1; i < ranges.size(); ++i)
        if (ranges[i].sourceStart < ranges[i - 1].sourceEnd - 1e-9)
            fail("kept ranges must follow each other in source time");

    auto impl = std::make_unique<Impl>();
    try {
        impl->input = openInput(movie.string());
    } catch (const HalvaneError& e) {
        fail(e.what());
    }
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
    impl->total = outputFrames(ranges);
    if (ranges.empty()) {
        impl->graphDone = true;
    } else {
        impl->buildGraph(ranges);
    }
    return std::unique_ptr<AudioEditPipeline>(new AudioEditPipeline(std::move(impl)));
}

int64_t AudioEditPipeline::outputFrames(const std::vector<KeptAudioRange>& ranges) {
    double end = 0;
    for (const auto& r : ranges) end += rangeDuration(r) / effectiveRate(r);
    return std::llround(end * sampleRate);
}

int AudioEditPipeline::read(float* interleaved, int maxFrames) {
    return impl_->read(interleaved, maxFrames);
}

int64_t AudioEditPipeline::totalFrames() const { return impl_->total; }

int64_t AudioEditPipeline::position() const { return impl_->position; }

}  // namespace halvane
