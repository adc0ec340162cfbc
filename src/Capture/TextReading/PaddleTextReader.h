#pragma once

#include "Capture/TextReading/PaddleOCR.h"
#include "Capture/TextReading/TextNets.h"
#include "Capture/TextReading/TextRecognizer.h"

#include <QImage>

#include <filesystem>
#include <functional>
#include <memory>
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
    static constexpr const char* detectorFile = "Detector.pt";
    static constexpr const char* recognizerFile = "Recognizer.pt";
    static constexpr const char* charactersFile = "characters.json";
    static constexpr int maximumConcurrentLines = 4;

    struct Models {
        std::unique_ptr<TextNets> nets;  // the detector and the recogniser
        std::vector<std::string> characters;
    };

    // Loads both models at once; throws PaddleOCR::ReadError(invalidModel) when a file is missing,
    // damaged or not what the reader expects.
    static std::unique_ptr<PaddleTextReader> load(const std::filesystem::path& directory);

    explicit PaddleTextReader(Models models);
    ~PaddleTextReader();

    // Runs both models once at their usual sizes (the full tile, line canvases up to
    // `warmLineWidth`), so that the first read pays no set-up; stops early once `enough` says so.
    void warmUp(const std::function<bool()>& enough = {});
    static constexpr int warmLineWidth = 2048;

    // The text in reading order. Throws PaddleOCR::ReadError, or std::runtime_error from a prediction.
    std::string read(const QImage& image, std::stop_token stop = {});
    std::vector<TextRecognizer::Fragment> readFragments(const QImage& image, std::stop_token stop = {});

    // The detector's map for an image, as binary16 values of the detection size (row stride = width).
    std::vector<std::uint16_t> detect(const QImage& image, PaddleOCR::Extent size, std::stop_token stop);

private:
    std::optional<PaddleOCR::Line> readLine(const QImage& image, const PaddleOCR::Box& box);
    std::vector<PaddleOCR::Glyph> recognize(const QImage& crop, bool rotated);

    Models models_;
};

}  // namespace halvane
