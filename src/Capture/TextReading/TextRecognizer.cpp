#include "Capture/TextReading/TextRecognizer.h"

#include "Capture/TextReading/TesseractTextReader.h"
#include "Capture/TextReading/TextModelStore.h"
#include "Capture/TextReading/TextReadWorker.h"
#include "Capture/TextReading/TextReadingStrings.h"

#include <algorithm>

namespace halvane {

Json toJson(const TextRecognizer::Fragment& f) {
    Json j = Json::object();
    j["text"] = f.text;
    j["rect"] = toJson(f.rect);
    return j;
}

void fromJson(const Json& j, TextRecognizer::Fragment& f) {
    JsonObjectReader reader(j);
    reader.required("text", f.text);
    reader.required("rect", f.rect);
}

TextRecognizer::RecognizeError::RecognizeError(const std::string& message)
    : HalvaneError(message.empty() ? textReadingString("text.error.failed", "The text couldn't be read.") : message) {}

TextRecognizer::TextRecognizer(TextModelStore& store, TextReadWorker& worker, TesseractTextReader& system)
    : store_(store), worker_(worker), system_(system) {}

void TextRecognizer::warmUp() {
    if (store_.isSelected() && store_.isInstalled()) {
        worker_.prepare(*store_.installedDirectory());
        return;
    }
    if (store_.isSelected() && !store_.isRunning()) store_.install();
    system_.warmUp();
}

std::string TextRecognizer::recognize(const QImage& image, Engine engine) {
    return recognizeReading(image, engine).text;
}

TextRecognizer::Reading TextRecognizer::recognizeReading(const QImage& image, Engine engine) {
    switch (engine) {
    case Engine::automatic:
        if (store_.isSelected() && store_.isInstalled()) {
            try {
                TextReadWorker::Reply reply = worker_.readReply(image, *store_.installedDirectory());
                return {reply.text.value_or(""), reply.fragments.value_or(std::vector<Fragment>{}), "pp-ocr"};
            } catch (const std::exception&) {
                // A failing worker never fails the read while the system engine works.
            }
        }
        return systemRead(image);
    case Engine::liveText:
        throw RecognizeError("Live Text is unavailable on this Mac");
    case Engine::visionAccurate:
    case Engine::system:
        return systemRead(image);
    }
    return systemRead(image);
}

TextRecognizer::Reading TextRecognizer::systemRead(const QImage& image) {
    try {
        std::vector<Fragment> fragments = system_.readFragments(image);
        return {assemble(fragments), fragments, "tesseract"};
    } catch (const RecognizeError&) {
        throw;
    } catch (const std::exception& e) {
        throw RecognizeError(e.what());
    }
}

std::string TextRecognizer::assemble(std::vector<Fragment> fragments) {
    if (fragments.empty()) return {};
    std::stable_sort(fragments.begin(), fragments.end(),
                     [](const Fragment& a, const Fragment& b) { return a.rect.maxY() > b.rect.maxY(); });
    std::vector<std::vector<Fragment>> lines;
    for (auto& fragment : fragments) {
        if (!lines.empty()) {
            const Rect& first = lines.back().front().rect;
            double overlap = std::min(first.maxY(), fragment.rect.maxY()) - std::max(first.minY(), fragment.rect.minY());
            double smaller = std::max(std::min(first.height(), fragment.rect.height()), 0.0001);
            if (overlap > 0 && overlap / smaller > 0.5) {
                lines.back().push_back(std::move(fragment));
                continue;
            }
        }
        lines.push_back({std::move(fragment)});
    }
    std::string text;
    for (auto& line : lines) {
        std::stable_sort(line.begin(), line.end(),
                         [](const Fragment& a, const Fragment& b) { return a.rect.minX() < b.rect.minX(); });
        std::string joined;
        for (size_t i = 0; i < line.size(); ++i) joined += (i ? " " : "") + line[i].text;
        text += (text.empty() ? "" : "\n") + joined;
    }
    size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    size_t last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

}  // namespace halvane
