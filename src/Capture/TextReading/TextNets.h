#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <vector>

namespace halvane {

// The detector and recogniser networks of a text model release, run by libtorch (its oneDNN
// convolutions read a screen about twice as fast as OpenCV's dnn module did). libtorch takes about
// 0.8 s and 160 MB to start in a process, so it lives in a module of its own that only a process
// that reads text loads, at its first `load`.
//
// Both calls run in the calling thread alone and may be made from several threads at once: the
// reader spreads tiles and lines over the cores itself.
class TextNets {
public:
    // Recogniser output, `count` x `steps` values: the best class of each time step and its probability.
    struct Steps {
        int steps = 0;
        std::vector<std::int64_t> indices;
        std::vector<float> scores;
    };

    virtual ~TextNets() = default;

    // `pixels`: height x width pixels of three floats, B, G, R in 0...255, row after row. Returns the
    // text probability of each pixel, row after row. Width and height are multiples of 32.
    virtual std::vector<float> detect(const float* pixels, int width, int height) = 0;

    // `pixels`: `count` line canvases of 48 x width pixels, laid out as for `detect`, one after
    // the other. Width is a multiple of 8.
    virtual Steps recognize(const float* pixels, int count, int width) = 0;

    // A model file that is missing or isn't a model of the expected kind.
    class ModelError : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // Throws ModelError for a model that can't be loaded, std::runtime_error when the runtime
    // module itself can't be, both naming the reason.
    static std::unique_ptr<TextNets> load(const std::filesystem::path& detector, const std::filesystem::path& recognizer);
};

// The module's one entry point. On failure it returns null and writes a message into `error`.
extern "C" TextNets* halvaneLoadTextNets(const char* detector, const char* recognizer, char* error, std::size_t errorSize);

}  // namespace halvane
