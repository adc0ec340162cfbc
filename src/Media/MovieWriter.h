#pragma once

#include <QImage>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace halvane {

enum class VideoCodec { h264, hevc };

enum class MovieContainer { mp4, mov };

// One audio track of a movie: AAC, fed with interleaved 32-bit float samples at `sampleRate`.
struct AudioTrackSettings {
    int sampleRate = 48000;
    int channels = 2;
    int64_t bitRate = 192000;
    friend bool operator==(const AudioTrackSettings&, const AudioTrackSettings&) = default;
};

struct MovieWriterSettings {
    int width = 0;   // odd sizes lose their last column or row: 4:2:0 needs even sizes
    int height = 0;
    double fps = 60;
    VideoCodec codec = VideoCodec::h264;
    int64_t bitRate = 0;             // 0: the export table for this size, frame rate and codec
    std::string preset = "veryfast"; // the x264/x265 speed preset
    int keyFrameInterval = 0;        // 0: two seconds of frames
    MovieContainer container = MovieContainer::mp4;
    // Fragmented: the file is written in place and stays playable up to the last finished
    // fragment (one per key frame) if the process dies. Otherwise the movie is written beside the
    // destination under a temporary name, made "+faststart", and renamed over it by finish().
    bool fragmented = false;
    std::vector<AudioTrackSettings> audioTracks;
    friend bool operator==(const MovieWriterSettings&, const MovieWriterSettings&) = default;
};

// Encodes BGRA frames and float audio into an MP4 or MOV file (libx264/libx265 + AAC).
//
// Times are seconds from the start of the movie. Video frames must come with rising times; a frame
// whose time is not after the previous one is dropped. Each audio track is a gapless timeline from
// zero: samples before its current end are dropped, and a gap before a block's time is filled with
// silence, so capture jitter never shifts sound against picture.
//
// Thread use: one thread may append video while others append audio (one thread per track);
// finish() and cancel() come after the last append. Every failure throws HalvaneError; after a
// failure, cancel() removes what was written.
class MovieWriter {
public:
    // Creates the file (or its temporary) and opens the encoders. Throws HalvaneError.
    MovieWriter(std::filesystem::path destination, MovieWriterSettings settings);
    ~MovieWriter();  // a writer neither finished nor cancelled cancels
    MovieWriter(const MovieWriter&) = delete;
    MovieWriter& operator=(const MovieWriter&) = delete;

    // `pixels` holds height rows of width BGRA pixels (premultiplied; alpha is ignored), each
    // `bytesPerRow` apart.
    void appendVideoFrame(const uint8_t* pixels, int bytesPerRow, double time);
    // A frame already in the encoder's form: a planar picture (Render/PlanarPicture.h, 8-bit
    // 4:2:0 BT.709 limited range) at least the movie's size; a larger one loses its right and
    // bottom parts. The picture is shared, not copied, until the encoder has taken it in.
    void appendPlanarFrame(const QImage& planar, double time);

    // `frames` frames of interleaved samples for track `track`, the first at `time`.
    void appendAudio(int track, const float* interleaved, int frames, double time);

    // Drains the encoders, writes the index and puts the file in place. Throws HalvaneError.
    void finish();
    // Stops and removes the file. Never throws.
    void cancel();

    const MovieWriterSettings& settings() const;
    const std::filesystem::path& destination() const;
    int64_t videoFramesWritten() const;

    // The export's bit rate for a size and frame rate: a base by pixel count, scaled by
    // sqrt(fps / 30), and by 0.65 for HEVC.
    static int64_t defaultBitRate(int width, int height, double fps, VideoCodec codec);
    // The encoder preset an export uses on a machine with this many cores: the slowest one that
    // still keeps a 1080p60 export at real time there. At the bit rates above, the faster
    // presets cost file efficiency more than visible quality.
    static std::string exportPreset(unsigned cores);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvane
