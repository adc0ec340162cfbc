#include "Media/MovieWriter.h"

#include "Media/FFmpegSupport.h"
#include "Render/PixelConversion.h"
#include "Render/PlanarPicture.h"
#include "Support/HalvaneError.h"

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/opt.h>
}

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <system_error>

namespace halvane {

namespace {

using namespace ffmpeg;

// Video times are kept at this resolution: every common frame rate divides it.
constexpr AVRational videoTimeBase{1, 90000};

// A block of capture audio may arrive this much early or late without being cut or padded:
// stamps jitter, and trimming a few samples each time would be heard as crackle.
constexpr double audioJitterTolerance = 0.04;

std::filesystem::path temporaryPathBeside(const std::filesystem::path& destination) {
    static std::atomic<int> counter{0};
    auto name = "." + destination.filename().string() + ".partial-" + std::to_string(getpid()) +
                "-" + std::to_string(counter++);
    return destination.parent_path() / name;
}

struct AudioTrack {
    AudioTrackSettings settings;
    AVStream* stream = nullptr;
    CodecContext encoder;
    AVAudioFifo* fifo = nullptr;
    Frame frame;
    Packet packet;
    int64_t queuedSamples = 0;   // end of the track's timeline, in samples, silence included
    int64_t encodedSamples = 0;  // samples handed to the encoder
    std::vector<float> planar;   // one channel's worth of a block while deinterleaving
    std::mutex mutex;

    ~AudioTrack() {
        if (fifo) av_audio_fifo_free(fifo);
    }
};

}  // namespace

struct MovieWriter::Impl {
    std::filesystem::path destination;
    std::filesystem::path writtenPath;  // the temporary, or the destination when fragmented
    MovieWriterSettings settings;
    int width = 0;
    int height = 0;

    AVFormatContext* output = nullptr;
    bool fileOpen = false;
    bool headerWritten = false;
    bool closed = false;  // finished or cancelled
    bool finished = false;
    std::mutex muxMutex;

    AVStream* videoStream = nullptr;
    CodecContext videoEncoder;
    Frame videoFrame;
    Packet videoPacket;
    int64_t lastVideoPts = AV_NOPTS_VALUE;
    std::atomic<int64_t> framesWritten{0};
    std::mutex videoMutex;

    std::vector<std::unique_ptr<AudioTrack>> audio;

    ~Impl() { release(); }

    void release() {
        audio.clear();
        videoEncoder.reset();
        if (output) {
            if (fileOpen) avio_closep(&output->pb);
            avformat_free_context(output);
            output = nullptr;
            fileOpen = false;
        }
    }

    void open() {
        quietLogging();
        if (settings.width < 2 || settings.height < 2)
            throw HalvaneError("cannot write video: a frame size of " +
                               std::to_string(settings.width) + " × " +
                               std::to_string(settings.height) + " is too small");
        if (!(settings.fps > 0)) throw HalvaneError("cannot write video: no frame rate");
        width = settings.width / 2 * 2;
        height = settings.height / 2 * 2;
        writtenPath = settings.fragmented ? destination : temporaryPathBeside(destination);

        const char* format = settings.container == MovieContainer::mp4 ? "mp4" : "mov";
        check(avformat_alloc_output_context2(&output, nullptr, format, writtenPath.c_str()),
              "writer failed");
        if (settings.fragmented) {
            // A live take must reach the disk as it goes, not wait for a lagging audio source.
            output->flush_packets = 1;
            output->max_interleave_delta = 1'000'000;
        }
        openVideo();
        for (const auto& track : settings.audioTracks) openAudio(track);

        int rc = avio_open(&output->pb, writtenPath.c_str(), AVIO_FLAG_WRITE);
        if (rc < 0)
            throw HalvaneError("cannot write \"" + destination.string() + "\": " + errorText(rc));
        fileOpen = true;

        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags",
                    settings.fragmented ? "frag_keyframe+empty_moov+default_base_moof"
                                        : "+faststart",
                    0);
        rc = avformat_write_header(output, &options);
        av_dict_free(&options);
        if (rc < 0) throw HalvaneError("writer failed: " + errorText(rc));
        headerWritten = true;
    }

    void openVideo() {
        const char* name = settings.codec == VideoCodec::h264 ? "libx264" : "libx265";
        const AVCodec* codec = avcodec_find_encoder_by_name(name);
        if (!codec) throw HalvaneError(std::string("cannot write video: no encoder ") + name);
        videoEncoder.reset(avcodec_alloc_context3(codec));
        auto* c = videoEncoder.get();
        c->width = width;
        c->height = height;
        c->pix_fmt = AV_PIX_FMT_YUV420P;
        c->time_base = videoTimeBase;
        c->framerate = av_d2q(settings.fps, 100000);
        c->bit_rate = settings.bitRate > 0
                          ? settings.bitRate
                          : defaultBitRate(width, height, settings.fps, settings.codec);
        c->gop_size = settings.keyFrameInterval > 0
                          ? settings.keyFrameInterval
                          : std::max(1, static_cast<int>(2 * settings.fps));
        c->color_range = AVCOL_RANGE_MPEG;
        c->colorspace = AVCOL_SPC_BT709;
        c->color_primaries = AVCOL_PRI_BT709;
        c->color_trc = AVCOL_TRC_BT709;
        c->thread_count = 0;
        if (output->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;

        AVDictionary* options = nullptr;
        av_dict_set(&options, "preset", settings.preset.c_str(), 0);
        if (settings.codec == VideoCodec::hevc) {
            av_dict_set(&options, "x265-params", "log-level=error", 0);
        }
        int rc = avcodec_open2(c, codec, &options);
        av_dict_free(&options);
        if (rc < 0) throw HalvaneError("cannot write video: " + errorText(rc));

        videoStream = avformat_new_stream(output, nullptr);
        if (!videoStream) throw HalvaneError("cannot write video");
        videoStream->time_base = videoTimeBase;
        videoStream->avg_frame_rate = c->framerate;
        check(avcodec_parameters_from_context(videoStream->codecpar, c), "cannot write video");
        // Players on other systems want HEVC in MP4 tagged "hvc1", not the muxer's "hev1".
        if (settings.codec == VideoCodec::hevc)
            videoStream->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');

        videoFrame = makeFrame();
        videoFrame->format = AV_PIX_FMT_YUV420P;
        videoFrame->width = width;
        videoFrame->height = height;
        check(av_frame_get_buffer(videoFrame.get(), 0), "cannot write video");
        videoPacket = makePacket();
    }

    void openAudio(const AudioTrackSettings& trackSettings) {
        if (trackSettings.channels < 1 || trackSettings.sampleRate < 8000)
            throw HalvaneError("writer failed: unusable audio format");
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
        if (!codec) throw HalvaneError("writer failed: no AAC encoder");
        auto track = std::make_unique<AudioTrack>();
        track->settings = trackSettings;
        track->encoder.reset(avcodec_alloc_context3(codec));
        auto* c = track->encoder.get();
        c->sample_fmt = AV_SAMPLE_FMT_FLTP;
        c->sample_rate = trackSettings.sampleRate;
        av_channel_layout_default(&c->ch_layout, trackSettings.channels);
        c->bit_rate = trackSettings.bitRate;
        c->time_base = AVRational{1, trackSettings.sampleRate};
        if (output->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        check(avcodec_open2(c, codec, nullptr), "writer failed");

        track->stream = avformat_new_stream(output, nullptr);
        if (!track->stream) throw HalvaneError("writer failed");
        track->stream->time_base = c->time_base;
        check(avcodec_parameters_from_context(track->stream->codecpar, c), "writer failed");

        track->fifo = av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, trackSettings.channels,
                                          c->frame_size * 4);
        if (!track->fifo) throw HalvaneError("out of memory");
        track->frame = makeFrame();
        track->packet = makePacket();
        audio.push_back(std::move(track));
    }

    // Sends one frame (or the flush) and muxes everything the encoder gives back.
    void encode(AVCodecContext* encoder, AVStream* stream, AVFrame* frame, AVPacket* packet) {
        check(avcodec_send_frame(encoder, frame), "writer failed");
        while (true) {
            int rc = avcodec_receive_packet(encoder, packet);
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
            check(rc, "writer failed");
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            std::lock_guard lock(muxMutex);
            rc = av_interleaved_write_frame(output, packet);
            if (rc < 0) throw HalvaneError("cannot write \"" + destination.string() +
                                           "\": " + errorText(rc));
        }
    }

    void appendVideo(const uint8_t* pixels, int bytesPerRow, double time) {
        std::lock_guard lock(videoMutex);
        if (closed) throw HalvaneError("writer failed: already finished");
        int64_t pts = std::llround(time * videoTimeBase.den);
        if (lastVideoPts != AV_NOPTS_VALUE && pts <= lastVideoPts) return;
        check(av_frame_make_writable(videoFrame.get()), "writer failed");
        // The picture is sRGB: BT.709 limited range out, as the stream is tagged.
        auto* f = videoFrame.get();
        convertBgraToYuv420(pixels, bytesPerRow, width, height, f->data[0], f->linesize[0],
                            f->data[1], f->linesize[1], f->data[2], f->linesize[2]);
        videoFrame->pts = pts;
        lastVideoPts = pts;
        encode(videoEncoder.get(), videoStream, videoFrame.get(), videoPacket.get());
        ++framesWritten;
    }

    // A planar picture handed to the encoder without copying: the frame holds a reference to the
    // picture until the encoder lets go of it (x264 copies it into its own frames at once).
    void appendVideo(const QImage& planar, double time) {
        const Yuv420View view = planarView(planar);
        if (view.width < width || view.height < height)
            throw HalvaneError("writer failed: frame smaller than the movie");
        std::lock_guard lock(videoMutex);
        if (closed) throw HalvaneError("writer failed: already finished");
        int64_t pts = std::llround(time * videoTimeBase.den);
        if (lastVideoPts != AV_NOPTS_VALUE && pts <= lastVideoPts) return;
        Frame frame = makeFrame();
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = width;
        frame->height = height;
        auto* holder = new QImage(planar);
        frame->buf[0] = av_buffer_create(
            const_cast<uint8_t*>(holder->constBits()), size_t(holder->sizeInBytes()),
            [](void* opaque, uint8_t*) { delete static_cast<QImage*>(opaque); }, holder,
            AV_BUFFER_FLAG_READONLY);
        if (!frame->buf[0]) {
            delete holder;
            throw HalvaneError("out of memory");
        }
        for (size_t c = 0; c < 3; ++c) {
            frame->data[c] = const_cast<uint8_t*>(view.planes[c]);
            frame->linesize[c] = view.strides[c];
        }
        frame->pts = pts;
        lastVideoPts = pts;
        encode(videoEncoder.get(), videoStream, frame.get(), videoPacket.get());
        ++framesWritten;
    }

    void appendAudio(int index, const float* samples, int frames, double time) {
        if (index < 0 || index >= static_cast<int>(audio.size()))
            throw HalvaneError("writer failed: no audio track " + std::to_string(index));
        AudioTrack& track = *audio[index];
        std::lock_guard lock(track.mutex);
        if (closed) throw HalvaneError("writer failed: already finished");
        if (frames <= 0) return;
        const int channels = track.settings.channels;
        const double rate = track.settings.sampleRate;
        const auto tolerance = static_cast<int64_t>(audioJitterTolerance * rate);
        int64_t start = std::llround(time * rate);
        int64_t gap = start - track.queuedSamples;
        if (gap > tolerance) {
            queueSilence(track, gap);
        } else if (gap < -tolerance) {
            int64_t skip = std::min<int64_t>(-gap, frames);
            samples += skip * channels;
            frames -= static_cast<int>(skip);
            if (frames <= 0) return;
        }
        queueInterleaved(track, samples, frames);
        encodeFullFrames(track, false);
    }

    void queueSilence(AudioTrack& track, int64_t count) {
        const int channels = track.settings.channels;
        std::vector<float> zeros(static_cast<size_t>(std::min<int64_t>(count, 4800)) * channels);
        while (count > 0) {
            int n = static_cast<int>(std::min<int64_t>(count, 4800));
            queueInterleaved(track, zeros.data(), n);
            count -= n;
            encodeFullFrames(track, false);
        }
    }

    void queueInterleaved(AudioTrack& track, const float* samples, int frames) {
        const int channels = track.settings.channels;
        track.planar.resize(static_cast<size_t>(frames) * channels);
        std::vector<void*> planes(channels);
        for (int c = 0; c < channels; ++c) {
            float* plane = track.planar.data() + static_cast<size_t>(c) * frames;
            for (int i = 0; i < frames; ++i) plane[i] = samples[i * channels + c];
            planes[c] = plane;
        }
        if (av_audio_fifo_write(track.fifo, planes.data(), frames) < frames)
            throw HalvaneError("out of memory");
        track.queuedSamples += frames;
    }

    // Hands the FIFO to the encoder in frames of its size; at the end also the short rest.
    void encodeFullFrames(AudioTrack& track, bool drain) {
        auto* c = track.encoder.get();
        const int frameSize = c->frame_size > 0 ? c->frame_size : 1024;
        while (av_audio_fifo_size(track.fifo) >= frameSize ||
               (drain && av_audio_fifo_size(track.fifo) > 0)) {
            int n = std::min(frameSize, av_audio_fifo_size(track.fifo));
            AVFrame* f = track.frame.get();
            av_frame_unref(f);
            f->nb_samples = n;
            f->format = c->sample_fmt;
            f->sample_rate = c->sample_rate;
            check(av_channel_layout_copy(&f->ch_layout, &c->ch_layout), "writer failed");
            check(av_frame_get_buffer(f, 0), "writer failed");
            if (av_audio_fifo_read(track.fifo, reinterpret_cast<void**>(f->data), n) < n)
                throw HalvaneError("writer failed");
            f->pts = track.encodedSamples;
            track.encodedSamples += n;
            encode(c, track.stream, f, track.packet.get());
        }
    }

    void finish() {
        {
            std::scoped_lock lock(videoMutex);
            if (closed) throw HalvaneError("writer failed: already finished");
            closed = true;
        }
        encode(videoEncoder.get(), videoStream, nullptr, videoPacket.get());
        for (auto& track : audio) {
            std::lock_guard lock(track->mutex);
            encodeFullFrames(*track, true);
            encode(track->encoder.get(), track->stream, nullptr, track->packet.get());
        }
        int rc = av_write_trailer(output);
        if (rc < 0) throw HalvaneError("writer failed: " + errorText(rc));
        rc = avio_closep(&output->pb);
        fileOpen = false;
        if (rc < 0)
            throw HalvaneError("cannot write \"" + destination.string() + "\": " + errorText(rc));
        release();
        if (writtenPath != destination) {
            std::error_code ec;
            std::filesystem::rename(writtenPath, destination, ec);
            if (ec) throw HalvaneError("cannot write \"" + destination.string() + "\": " +
                                       ec.message());
        }
        finished = true;
    }

    void cancel() noexcept {
        if (finished) return;
        {
            std::scoped_lock lock(videoMutex);
            closed = true;
        }
        for (auto& track : audio) std::lock_guard lock(track->mutex);
        release();
        std::error_code ec;
        if (!writtenPath.empty()) std::filesystem::remove(writtenPath, ec);
    }
};

MovieWriter::MovieWriter(std::filesystem::path destination, MovieWriterSettings settings)
    : impl_(std::make_unique<Impl>()) {
    impl_->destination = std::move(destination);
    impl_->settings = std::move(settings);
    try {
        impl_->open();
    } catch (...) {
        impl_->cancel();
        throw;
    }
}

MovieWriter::~MovieWriter() {
    if (impl_ && impl_->output) impl_->cancel();
}

void MovieWriter::appendVideoFrame(const uint8_t* pixels, int bytesPerRow, double time) {
    impl_->appendVideo(pixels, bytesPerRow, time);
}

void MovieWriter::appendPlanarFrame(const QImage& planar, double time) { impl_->appendVideo(planar, time); }

void MovieWriter::appendAudio(int track, const float* interleaved, int frames, double time) {
    impl_->appendAudio(track, interleaved, frames, time);
}

void MovieWriter::finish() {
    try {
        impl_->finish();
    } catch (...) {
        impl_->cancel();
        throw;
    }
}

void MovieWriter::cancel() { impl_->cancel(); }

const MovieWriterSettings& MovieWriter::settings() const { return impl_->settings; }

const std::filesystem::path& MovieWriter::destination() const { return impl_->destination; }

int64_t MovieWriter::videoFramesWritten() const { return impl_->framesWritten; }

int64_t MovieWriter::defaultBitRate(int width, int height, double fps, VideoCodec codec) {
    const double pixels = static_cast<double>(width) * height;
    double base = pixels < 500'000     ? 6'000'000
                  : pixels < 1'000'000 ? 10'000'000
                  : pixels < 2'300'000 ? 20'000'000
                  : pixels < 4'000'000 ? 28'000'000
                                       : 36'000'000;
    double rate = base * std::sqrt(std::max(fps, 0.0) / 30.0);
    if (codec == VideoCodec::hevc) rate *= 0.65;
    return static_cast<int64_t>(rate);
}

std::string MovieWriter::exportPreset(unsigned cores) {
    // Measured on two cores: a composed 1080p60 export spends about 21 s of CPU per 30 s in
    // x264 at ultrafast and 50 s at superfast, on top of decoding and composing.
    if (cores >= 8) return "veryfast";
    if (cores >= 4) return "superfast";
    return "ultrafast";
}

}  // namespace halvane
