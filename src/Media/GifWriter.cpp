#include "Media/GifWriter.h"

#include "Media/FFmpegSupport.h"
#include "Support/HalvaneError.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/imgutils.h>
}

#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace halvane {

namespace {

using namespace ffmpeg;

constexpr AVRational gifTimeBase{1, 100};

int64_t centiseconds(int64_t index, double fps) { return std::llround(index * 100.0 / fps); }

[[noreturn]] void fail(const std::string& why) {
    throw HalvaneError("could not create GIF file: " + why);
}

AVFilterContext* addFilter(AVFilterGraph* graph, const char* filter, const char* name,
                           const std::string& args) {
    AVFilterContext* context = nullptr;
    int rc = avfilter_graph_create_filter(&context, avfilter_get_by_name(filter), name,
                                          args.empty() ? nullptr : args.c_str(), nullptr, graph);
    if (rc < 0) fail(std::string(filter) + ": " + errorText(rc));
    return context;
}

std::string bufferArgs(int width, int height) {
    return "video_size=" + std::to_string(width) + "x" + std::to_string(height) +
           ":pix_fmt=" + std::to_string(AV_PIX_FMT_BGRA) + ":time_base=1/100:pixel_aspect=1/1";
}

void link(AVFilterContext* from, unsigned fromPad, AVFilterContext* to, unsigned toPad) {
    int rc = avfilter_link(from, fromPad, to, toPad);
    if (rc < 0) fail(errorText(rc));
}

}  // namespace

struct GifWriter::Impl {
    std::filesystem::path destination;
    std::filesystem::path temporary;
    GifWriterSettings settings;
    FILE* spool = nullptr;
    int64_t frames = 0;
    bool done = false;

    FilterGraph statsGraph;
    AVFilterContext* statsSource = nullptr;
    AVFilterContext* statsSink = nullptr;
    Frame frame = makeFrame();

    ~Impl() { cancel(); }

    void open() {
        quietLogging();
        if (settings.width < 1 || settings.height < 1 || !(settings.fps > 0))
            fail("unusable size or frame rate");
        static std::atomic<int> counter{0};
        temporary = destination.parent_path() /
                    ("." + destination.filename().string() + ".partial-" +
                     std::to_string(getpid()) + "-" + std::to_string(counter++));
        // Proves the destination is writable before any frame is made.
        FILE* probe = std::fopen(temporary.c_str(), "wb");
        if (!probe) fail("cannot write \"" + destination.string() + "\": " + std::strerror(errno));
        std::fclose(probe);
        spool = std::tmpfile();
        if (!spool) fail(std::string("no temporary space: ") + std::strerror(errno));

        statsGraph.reset(avfilter_graph_alloc());
        statsSource = addFilter(statsGraph.get(), "buffer", "frames",
                                bufferArgs(settings.width, settings.height));
        auto* palettegen = addFilter(statsGraph.get(), "palettegen", "palettegen", "");
        statsSink = addFilter(statsGraph.get(), "buffersink", "palette", "");
        link(statsSource, 0, palettegen, 0);
        link(palettegen, 0, statsSink, 0);
        check(avfilter_graph_config(statsGraph.get(), nullptr), "could not create GIF file");
    }

    void fillFrame(const uint8_t* pixels, int bytesPerRow, int64_t index) {
        av_frame_unref(frame.get());
        frame->format = AV_PIX_FMT_BGRA;
        frame->width = settings.width;
        frame->height = settings.height;
        check(av_frame_get_buffer(frame.get(), 0), "could not create GIF file");
        av_image_copy_plane(frame->data[0], frame->linesize[0], pixels, bytesPerRow,
                            settings.width * 4, settings.height);
        frame->pts = centiseconds(index, settings.fps);
    }

    void append(const uint8_t* pixels, int bytesPerRow) {
        if (done) fail("already finished");
        const size_t row = static_cast<size_t>(settings.width) * 4;
        for (int y = 0; y < settings.height; ++y)
            if (std::fwrite(pixels + static_cast<size_t>(y) * bytesPerRow, 1, row, spool) != row)
                fail(std::string("no temporary space: ") + std::strerror(errno));
        fillFrame(pixels, bytesPerRow, frames);
        // Pushed through at once, so palettegen keeps only its colour counts, never the frames.
        check(av_buffersrc_add_frame_flags(statsSource, frame.get(), AV_BUFFERSRC_FLAG_PUSH),
              "could not create GIF file");
        ++frames;
    }

    Frame takePalette() {
        check(av_buffersrc_add_frame(statsSource, nullptr), "could not create GIF file");
        Frame palette = makeFrame();
        int rc = av_buffersink_get_frame(statsSink, palette.get());
        if (rc < 0) fail("no palette: " + errorText(rc));
        statsGraph.reset();
        return palette;
    }

    void finish() {
        if (done) fail("already finished");
        if (frames == 0) fail("no frames");
        Frame palette = takePalette();

        FilterGraph graph(avfilter_graph_alloc());
        auto* source = addFilter(graph.get(), "buffer", "frames",
                                 bufferArgs(settings.width, settings.height));
        auto* paletteSource = addFilter(graph.get(), "buffer", "palette",
                                        bufferArgs(palette->width, palette->height));
        // Screen content changes little between frames: mapping only the changed rectangle
        // keeps the result identical and the work small.
        auto* paletteuse = addFilter(graph.get(), "paletteuse", "paletteuse", "diff_mode=rectangle");
        auto* sink = addFilter(graph.get(), "buffersink", "out", "");
        link(source, 0, paletteuse, 0);
        link(paletteSource, 0, paletteuse, 1);
        link(paletteuse, 0, sink, 0);
        check(avfilter_graph_config(graph.get(), nullptr), "could not create GIF file");
        palette->pts = 0;
        check(av_buffersrc_add_frame(paletteSource, palette.get()), "could not create GIF file");
        check(av_buffersrc_add_frame(paletteSource, nullptr), "could not create GIF file");

        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_GIF);
        if (!codec) fail("no GIF encoder");
        CodecContext encoder(avcodec_alloc_context3(codec));
        encoder->width = settings.width;
        encoder->height = settings.height;
        encoder->pix_fmt = AV_PIX_FMT_PAL8;
        encoder->time_base = gifTimeBase;
        check(avcodec_open2(encoder.get(), codec, nullptr), "could not create GIF file");

        AVFormatContext* output = nullptr;
        check(avformat_alloc_output_context2(&output, nullptr, "gif", temporary.c_str()),
              "could not create GIF file");
        std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> outputOwner(
            output, [](AVFormatContext* c) {
                if (c->pb) avio_closep(&c->pb);
                avformat_free_context(c);
            });
        AVStream* stream = avformat_new_stream(output, nullptr);
        stream->time_base = gifTimeBase;
        check(avcodec_parameters_from_context(stream->codecpar, encoder.get()),
              "could not create GIF file");
        int rc = avio_open(&output->pb, temporary.c_str(), AVIO_FLAG_WRITE);
        if (rc < 0) fail("cannot write \"" + destination.string() + "\": " + errorText(rc));
        AVDictionary* options = nullptr;
        av_dict_set(&options, "loop", "0", 0);  // for ever
        rc = avformat_write_header(output, &options);
        av_dict_free(&options);
        check(rc, "could not create GIF file");

        Packet packet = makePacket();
        Frame mapped = makeFrame();
        int64_t written = 0;
        auto encode = [&](AVFrame* f) {
            check(avcodec_send_frame(encoder.get(), f), "could not create GIF file");
            while ((rc = avcodec_receive_packet(encoder.get(), packet.get())) >= 0) {
                packet->stream_index = 0;
                packet->duration = frameDelay(written++, settings.fps);  // the last frame's delay
                av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
                check(av_interleaved_write_frame(output, packet.get()), "could not create GIF file");
            }
            if (rc != AVERROR(EAGAIN) && rc != AVERROR_EOF) check(rc, "could not create GIF file");
        };
        auto drainFilter = [&] {
            while ((rc = av_buffersink_get_frame(sink, mapped.get())) >= 0) {
                mapped->pict_type = AV_PICTURE_TYPE_NONE;
                encode(mapped.get());
                av_frame_unref(mapped.get());
            }
            if (rc != AVERROR(EAGAIN) && rc != AVERROR_EOF) check(rc, "could not create GIF file");
        };

        std::rewind(spool);
        const int row = settings.width * 4;
        std::vector<uint8_t> pixels(static_cast<size_t>(row) * settings.height);
        for (int64_t i = 0; i < frames; ++i) {
            if (std::fread(pixels.data(), 1, pixels.size(), spool) != pixels.size())
                fail("temporary frames lost");
            fillFrame(pixels.data(), row, i);
            check(av_buffersrc_add_frame_flags(source, frame.get(), AV_BUFFERSRC_FLAG_PUSH),
                  "could not create GIF file");
            drainFilter();
        }
        check(av_buffersrc_add_frame(source, nullptr), "could not create GIF file");
        drainFilter();
        encode(nullptr);
        check(av_write_trailer(output), "could not create GIF file");
        rc = avio_closep(&output->pb);
        if (rc < 0) fail("cannot write \"" + destination.string() + "\": " + errorText(rc));
        outputOwner.reset();

        std::error_code ec;
        std::filesystem::rename(temporary, destination, ec);
        if (ec) fail("cannot write \"" + destination.string() + "\": " + ec.message());
        done = true;
        closeSpool();
    }

    void closeSpool() {
        if (spool) std::fclose(spool);
        spool = nullptr;
        statsGraph.reset();
    }

    void cancel() noexcept {
        closeSpool();
        if (!done && !temporary.empty()) {
            std::error_code ec;
            std::filesystem::remove(temporary, ec);
        }
        done = true;
    }
};

GifWriter::GifWriter(std::filesystem::path destination, GifWriterSettings settings)
    : impl_(std::make_unique<Impl>()) {
    impl_->destination = std::move(destination);
    impl_->settings = settings;
    try {
        impl_->open();
    } catch (...) {
        impl_->cancel();
        throw;
    }
}

GifWriter::~GifWriter() = default;

void GifWriter::appendFrame(const uint8_t* pixels, int bytesPerRow) {
    impl_->append(pixels, bytesPerRow);
}

void GifWriter::finish() {
    try {
        impl_->finish();
    } catch (...) {
        impl_->cancel();
        throw;
    }
}

void GifWriter::cancel() { impl_->cancel(); }

int64_t GifWriter::framesAppended() const { return impl_->frames; }

int GifWriter::frameDelay(int64_t index, double fps) {
    return static_cast<int>(centiseconds(index + 1, fps) - centiseconds(index, fps));
}

}  // namespace halvane
