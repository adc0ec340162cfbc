#pragma once

// Owning handles and error text for the FFmpeg objects the media layer uses.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace halvane::ffmpeg {

struct FormatInputDeleter {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecContextDeleter {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameDeleter {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketDeleter {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwsDeleter {
    void operator()(SwsContext* c) const { sws_freeContext(c); }
};
struct FilterGraphDeleter {
    void operator()(AVFilterGraph* g) const { avfilter_graph_free(&g); }
};

using FormatInput = std::unique_ptr<AVFormatContext, FormatInputDeleter>;
using CodecContext = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using Frame = std::unique_ptr<AVFrame, FrameDeleter>;
using Packet = std::unique_ptr<AVPacket, PacketDeleter>;
using Sws = std::unique_ptr<SwsContext, SwsDeleter>;
using FilterGraph = std::unique_ptr<AVFilterGraph, FilterGraphDeleter>;

Frame makeFrame();
Packet makePacket();

// FFmpeg's description of an error code, e.g. "Invalid data found when processing input".
std::string errorText(int code);

// Throws HalvaneError "<what>: <FFmpeg's text>" when code is negative; gives code otherwise.
int check(int code, const std::string& what);

// Opens a media file for reading with its stream information. Throws HalvaneError naming the
// file and the reason.
FormatInput openInput(const std::string& path);

// Opens a decoder for one stream (frame threads for video). Throws HalvaneError.
CodecContext openDecoder(const AVStream* stream, int threads);

// Parses a filter chain whose open ends are labelled with the names of `sources` (outputs of
// buffer filters already in the graph) and "out" (the sink), then configures the graph.
// Throws HalvaneError "<what>: reason".
void connectFilterChain(AVFilterGraph* graph, const std::string& chain,
                        const std::vector<std::pair<std::string, AVFilterContext*>>& sources,
                        AVFilterContext* sink, const std::string& what);

// Pulls interleaved float samples out of an audio buffer sink, block by block, asking for more
// input whenever the graph runs dry.
class AudioSinkReader {
public:
    AudioSinkReader(AVFilterContext* sink, int channels, std::string what);
    // `feed` puts more input into the graph and gives false once there is none left.
    // Gives the frames copied, fewer than maxFrames only at the end.
    int read(float* out, int maxFrames, const std::function<bool()>& feed);
    bool finished() const { return done_; }

private:
    bool fill(const std::function<bool()>& feed);

    AVFilterContext* sink_;
    int channels_;
    std::string what_;
    Frame frame_;
    int offset_ = 0;
    bool inputLeft_ = true;
    bool done_ = false;
};

// Keeps FFmpeg's own logging to real errors, so a corrupt file doesn't spam stderr.
void quietLogging();

}  // namespace halvane::ffmpeg
