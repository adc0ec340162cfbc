#include "Media/AudioEditPipeline.h"

#include "Media/AudioDecoder.h"
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
#include <optional>
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

void require(int rc) {
    if (rc < 0) fail(errorText(rc));
}

// Frames decoded and handed to the graph at a time.
constexpr int feedFrames = 4096;

}  // namespace

struct AudioEditPipeline::Impl {
    std::unique_ptr<AudioDecoder> decoder;
    FilterGraph graph;
    AVFilterContext* source = nullptr;
    AVFilterContext* sink = nullptr;
    Frame input = makeFrame();
    int64_t fed = 0;
    std::optional<AudioSinkReader> output;  // none when nothing is kept
    bool inputDone = false;
    int64_t total = 0;
    int64_t position = 0;

    void buildGraph(const std::vector<KeptAudioRange>& ranges) {
        graph.reset(avfilter_graph_alloc());
        if (!graph) fail("out of memory");
        graph->nb_threads = 1;
        std::ostringstream args;
        args << "time_base=1/" << sampleRate << ":sample_rate=" << sampleRate
             << ":sample_fmt=flt:channel_layout=stereo";
        require(avfilter_graph_create_filter(&source, avfilter_get_by_name("abuffer"), "in",
                                             args.str().c_str(), nullptr, graph.get()));
        require(avfilter_graph_create_filter(&sink, avfilter_get_by_name("abuffersink"), "out",
                                             nullptr, nullptr, graph.get()));
        std::ostringstream chain;
        chain.precision(17);
        const size_t k = ranges.size();
        chain << "[in]asplit=" << k;
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
            // Stretching is close to, not exactly, the asked length: pad and cut to the frame.
            chain << "apad=whole_len=" << length << ",atrim=end_sample=" << length << "[r" << i
                  << "];";
        }
        for (size_t i = 0; i < k; ++i) chain << "[r" << i << "]";
        chain << "concat=n=" << k << ":v=0:a=1,aformat=sample_fmts=flt:sample_rates=" << sampleRate
              << ":channel_layouts=stereo[out]";

        connectFilterChain(graph.get(), chain.str(), {{"in", source}}, sink, "audio reader failed");
        output.emplace(sink, channels, "audio reader failed");
    }

    void feed() {
        if (inputDone) return;
        av_frame_unref(input.get());
        input->format = AV_SAMPLE_FMT_FLT;
        input->sample_rate = sampleRate;
        input->nb_samples = feedFrames;
        av_channel_layout_default(&input->ch_layout, channels);
        require(av_frame_get_buffer(input.get(), 0));
        int n = 0;
        try {
            n = decoder->read(reinterpret_cast<float*>(input->data[0]), feedFrames);
        } catch (const HalvaneError& e) {
            fail(e.what());
        }
        if (n == 0) {
            inputDone = true;
            require(av_buffersrc_add_frame(source, nullptr));
            return;
        }
        input->nb_samples = n;
        input->pts = fed;
        fed += n;
        require(av_buffersrc_add_frame_flags(source, input.get(), 0));
    }

    int read(float* out, int maxFrames) {
        int wanted = static_cast<int>(std::min<int64_t>(maxFrames, total - position));
        int n = output ? output->read(out, wanted, [this] {
            feed();
            return !inputDone;
        }) : 0;
        // The graph gives exactly `total`; a shortfall could only be a filter's rounding.
        if (n < wanted) std::memset(out + static_cast<size_t>(n) * channels, 0,
                                    sizeof(float) * (wanted - n) * channels);
        position += wanted;
        return wanted;
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
        impl->decoder = AudioDecoder::open(movie, sampleRate, channels);
    } catch (const HalvaneError& e) {
        fail(e.what());
    }
    if (!impl->decoder) return nullptr;
    impl->total = outputFrames(ranges);
    if (!ranges.empty()) impl->buildGraph(ranges);
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
