#pragma once

#include "Support/Geometry.h"
#include "Support/HalvaneError.h"
#include "Support/Json.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

class QImage;

namespace halvane {

class TextModelStore;
class TextReadWorker;
class TesseractTextReader;

// The one entry of text reading: picks the engine and falls back among them, so that a user sees
// an error only when every engine failed.
class TextRecognizer {
public:
    // A piece of read text; the rectangle is normalised to the image with the origin bottom left.
    struct Fragment {
        std::string text;
        Rect rect;
        friend bool operator==(const Fragment&, const Fragment&) = default;
    };

    enum class Engine { automatic, visionAccurate, liveText, system };

    class RecognizeError : public HalvaneError {
    public:
        // An empty message stands for the generic "text.error.failed".
        explicit RecognizeError(const std::string& message);
    };

    // What a read gave, and which engine gave it: "pp-ocr" or "tesseract".
    struct Reading {
        std::string text;
        std::vector<Fragment> fragments;
        std::string engine;
        friend bool operator==(const Reading&, const Reading&) = default;
    };

    TextRecognizer(TextModelStore& store, TextReadWorker& worker, TesseractTextReader& system);

    // Throws RecognizeError when no engine could read the image.
    std::string recognize(const QImage& image, Engine engine);
    Reading recognizeReading(const QImage& image, Engine engine);
    // Called when the user starts picking for text: the slow loads overlap the picking.
    void warmUp();

    // Reading order: lines from the top, fragments left to right, joined by blanks and line feeds.
    static std::string assemble(std::vector<Fragment> fragments);

private:
    Reading systemRead(const QImage& image);

    TextModelStore& store_;
    TextReadWorker& worker_;
    TesseractTextReader& system_;
};

// {"rect": [[x, y], [w, h]], "text": ...}
Json toJson(const TextRecognizer::Fragment& fragment);
void fromJson(const Json& j, TextRecognizer::Fragment& fragment);

constexpr std::array<std::string_view, 4> enumNames(TextRecognizer::Engine) {
    return {"automatic", "visionAccurate", "liveText", "system"};
}

}  // namespace halvane
