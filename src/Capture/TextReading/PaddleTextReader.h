#pragma once

#include "Capture/TextReading/PaddleOCR.h"
#include "Capture/TextReading/TextRecognizer.h"

#include <opencv2/dnn.hpp>

#include <QImage>

#include <filesystem>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

namespace halvane {

// Reads all text of an image with the two PP-OCR models of an installed release: a detector that
// paints a text-probability map and a recogniser that turns a line crop into characters. Meant
// for the text worker process, where the models' memory and start-up stay out of the application.
class PaddleTextReader {
public:
    // The files of a release, relative to its folder.
    static constexpr const char* detectorFile = "Detector.onnx";
    static constexpr const char* recognizerFile = "Recognizer.onnx";
    static constexpr const char* charactersFile = "characters.json";
    static constexpr int maximumConcurrentLines = 4;

    // The model files' bytes: nets are built from them as needed, since a net keeps the layer
    // shapes of its first input and each concurrent line read needs a net of its own.
    struct Models {
        std::vector<unsigned char> detectorBytes;
        std::vector<unsigned char> recognizerBytes;
        std::vector<std::string> characters;
    };

    // Loads both models at once; throws PaddleOCR::ReadError(invalidModel) when a file is missing,
    // damaged or not what the reader expects.
    static std::unique_ptr<PaddleTextReader> load(const std::filesystem::path& directory);

    explicit PaddleTextReader(Models models);
    ~PaddleTextReader();

    // Runs both models once at their usual sizes, so that the first read pays no set-up.
    void warmUp();

    // The text in reading order. Throws PaddleOCR::ReadError, or cv::Exception from a prediction.
    std::string read(const QImage& image, std::stop_token stop = {});
    std::vector<TextRecognizer::Fragment> readFragments(const QImage& image, std::stop_token stop = {});

    // The detector's map for an image, as binary16 values of the detection size (row stride = width).
    std::vector<std::uint16_t> detect(const QImage& image, PaddleOCR::Extent size, std::stop_token stop);

private:
    class RecognizerPool;

    std::optional<PaddleOCR::Line> readLine(const QImage& image, const PaddleOCR::Box& box, cv::dnn::Net& recognizer);
    std::vector<PaddleOCR::Glyph> recognize(const QImage& crop, bool rotated, cv::dnn::Net& recognizer) const;

    // `count` detector nets for a tile size (handles to the kept ones), one per concurrent tile.
    std::vector<cv::dnn::Net> detectorsFor(PaddleOCR::Extent tile, size_t count);

    Models models_;
    std::unique_ptr<RecognizerPool> recognizers_;
    // Detector nets per tile size, most recently used first: a net set up for one size is set up
    // again (buffers, fused layers) when it is given another.
    std::vector<std::pair<PaddleOCR::Extent, std::vector<cv::dnn::Net>>> detectors_;
};

}  // namespace halvane
