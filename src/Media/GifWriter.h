#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

namespace halvane {

struct GifWriterSettings {
    int width = 0;
    int height = 0;
    double fps = 20;
    friend bool operator==(const GifWriterSettings&, const GifWriterSettings&) = default;
};

// Writes an animated GIF that loops for ever, frame i shown at i / fps, with one palette made
// from all frames (palettegen, then paletteuse). Frames are spooled to an unnamed temporary file
// while the palette statistics are gathered, so memory stays at a few frames however long the
// animation; finish() reads them back once to map them to the palette. The file appears at the
// destination only when finish() succeeds.
class GifWriter {
public:
    // Throws HalvaneError "could not create GIF file: …".
    GifWriter(std::filesystem::path destination, GifWriterSettings settings);
    ~GifWriter();  // a writer neither finished nor cancelled cancels
    GifWriter(const GifWriter&) = delete;
    GifWriter& operator=(const GifWriter&) = delete;

    // `pixels`: height rows of width premultiplied BGRA pixels, `bytesPerRow` apart.
    void appendFrame(const uint8_t* pixels, int bytesPerRow);
    // Throws HalvaneError; afterwards nothing is left behind.
    void finish();
    void cancel();

    int64_t framesAppended() const;
    // Delay of frame i in hundredths of a second: the GIF's unit, spread so the times add up.
    static int frameDelay(int64_t index, double fps);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvane
